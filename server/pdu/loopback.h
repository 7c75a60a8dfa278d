// Loopback message and reply (IEEE 802.1Q clause 21.7).
#ifndef CFM_SERVER_PDU_LOOPBACK_H
#define CFM_SERVER_PDU_LOOPBACK_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "pdu/decoded.h"
#include "pdu/tlv.h"

namespace cfm::pdu {

/// An LBM or an LBR; they differ in the opcode only.
struct Loopback {
  std::uint8_t level = 0;
  std::uint8_t version = 0;
  std::uint32_t transaction_id = 0;
  std::optional<SenderId> sender_id;
  Octets data;  ///< at most 65535 octets; empty: no data TLV
};

Decoded<Loopback> DecodeLbm(Octets pdu);
Decoded<Loopback> DecodeLbr(Octets pdu);

/// Octets written; 0 when the buffer is too small.
std::size_t EncodeLbm(const Loopback& lbm, std::span<std::uint8_t> buffer);

/// The reply to an LBM that DecodeLbm() has accepted: octet for octet the same, with the opcode of an LBR (IEEE 802.1Q
/// clause 20.28.2). Octets written; 0 when the buffer is smaller than the LBM.
std::size_t MakeLbr(Octets lbm, std::span<std::uint8_t> buffer);

}  // namespace cfm::pdu

#endif
