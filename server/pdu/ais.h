// Alarm indication signal (ITU-T G.8013/Y.1731).
#ifndef CFM_SERVER_PDU_AIS_H
#define CFM_SERVER_PDU_AIS_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "pdu/decoded.h"

namespace cfm::pdu {

/// The codes of the CCM intervals of the same length.
enum class AisPeriod : std::uint8_t { k1s = 4, k1min = 6 };

struct Ais {
  std::uint8_t level = 0;
  std::uint8_t version = 0;
  AisPeriod period = AisPeriod::k1s;
};

/// Any other period makes the frame invalid.
Decoded<Ais> DecodeAis(Octets pdu);

/// Octets written; 0 when the buffer is too small.
std::size_t EncodeAis(const Ais& ais, std::span<std::uint8_t> buffer);

}  // namespace cfm::pdu

#endif
