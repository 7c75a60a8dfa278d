// Delay measurement: two-way message and reply, and the one-way message (ITU-T G.8013/Y.1731).
#ifndef CFM_SERVER_PDU_DELAY_H
#define CFM_SERVER_PDU_DELAY_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "pdu/decoded.h"

namespace cfm::pdu {

/// All zero: not filled in. Received ones may hold any nanoseconds.
struct TimeStamp {
  std::uint32_t seconds = 0;
  std::uint32_t nanoseconds = 0;

  bool operator==(const TimeStamp&) const = default;
};

/// A DMM or a DMR. "f" is the way from the initiator to the responder, "b" the way back.
struct TwoWayDelay {
  std::uint8_t level = 0;
  std::uint8_t version = 0;
  bool proactive = false;  ///< of a standing session, not on demand
  TimeStamp sent_f;
  TimeStamp received_f;
  TimeStamp sent_b;
  TimeStamp received_b;
  Octets data;  ///< at most 65535 octets; empty: no data TLV
};

Decoded<TwoWayDelay> DecodeDmm(Octets pdu);
Decoded<TwoWayDelay> DecodeDmr(Octets pdu);

/// Octets written; 0 when the buffer is too small.
std::size_t EncodeDmm(const TwoWayDelay& dmm, std::span<std::uint8_t> buffer);

/// Where `sent_f` lies in a DMM, counted from the first octet of the PDU.
inline constexpr std::size_t kSentFOffset = 4;

/// The reply to a DMM that DecodeDmm() has accepted: octet for octet the same but for the opcode and `received_f`.
/// Octets written; 0 when the buffer is smaller than the DMM.
std::size_t MakeDmr(Octets dmm, const TimeStamp& received_f, std::span<std::uint8_t> buffer);

/// Fill in the stamps that are read as late as possible, right before sending. The PDU must come from EncodeDmm() or
/// Encode1dm(), and from MakeDmr().
void SetSentF(std::span<std::uint8_t> pdu, const TimeStamp& sent_f);
void SetSentB(std::span<std::uint8_t> dmr, const TimeStamp& sent_b);

struct OneWayDelay {
  std::uint8_t level = 0;
  std::uint8_t version = 0;
  bool proactive = false;
  TimeStamp sent_f;
  TimeStamp received_f;  ///< room for the receiver; sent as zeros
  Octets data;
};

Decoded<OneWayDelay> Decode1dm(Octets pdu);
std::size_t Encode1dm(const OneWayDelay& message, std::span<std::uint8_t> buffer);

}  // namespace cfm::pdu

#endif
