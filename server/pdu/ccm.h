// Continuity check message (IEEE 802.1Q clause 21.6).
#ifndef CFM_SERVER_PDU_CCM_H
#define CFM_SERVER_PDU_CCM_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "pdu/decoded.h"
#include "pdu/maid.h"
#include "pdu/tlv.h"

namespace cfm::pdu {

/// With all fields and the End TLV.
inline constexpr std::size_t kShortestCcm = 75;
inline constexpr std::size_t kLongestCcm = 128;

/// IEEE 802.1Q clause 21.5.4. None: the TLV is absent, or says something that is not in this table.
enum class PortStatus : std::uint8_t { kNone = 0, kBlocked = 1, kUp = 2 };

/// IEEE 802.1Q clause 21.5.5; none as above. Linux numbers its operational states otherwise.
enum class InterfaceStatus : std::uint8_t {
  kNone = 0,
  kUp = 1,
  kDown = 2,
  kTesting = 3,
  kUnknown = 4,
  kDormant = 5,
  kNotPresent = 6,
  kLowerLayerDown = 7,
};

struct Ccm {
  std::uint8_t level = 0;
  std::uint8_t version = 0;
  bool rdi = false;
  std::uint8_t interval = 0;  ///< code 0 to 7, see clause 21.6.1.3; received: 0 is possible
  std::uint32_t sequence_number = 0;
  std::uint16_t mep_id = 0;  ///< 1 to 8191; received: 0 is possible
  Maid maid;
  std::optional<SenderId> sender_id;
  PortStatus port_status = PortStatus::kNone;
  InterfaceStatus interface_status = InterfaceStatus::kNone;
};

Decoded<Ccm> DecodeCcm(Octets pdu);

/// Octets written; 0 when the buffer is too small. The Sender ID TLV is left out when the PDU would not fit into
/// kLongestCcm octets, or into the buffer, with it.
std::size_t EncodeCcm(const Ccm& ccm, std::span<std::uint8_t> buffer);

}  // namespace cfm::pdu

#endif
