// The Sender ID: what an end point says of its system, and what it may say (IEEE 802.1Q clause 21.5.3).
#ifndef CFM_SERVER_PROTOCOL_SENDER_ID_H
#define CFM_SERVER_PROTOCOL_SENDER_ID_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pdu/tlv.h"

namespace cfm::protocol {

/// As pdu::SenderId, with octets of its own.
struct SystemId {
  std::uint8_t chassis_subtype = 0;
  std::vector<std::uint8_t> chassis_id{};
  std::vector<std::uint8_t> management_domain{};
  std::vector<std::uint8_t> management_address{};

  bool operator==(const SystemId&) const = default;
};

pdu::SenderId ToSenderId(const SystemId& system);
/// Whether a received Sender ID says the same.
bool SaysTheSame(const SystemId& system, const pdu::SenderId& received);
/// Takes over what a received Sender ID says.
void Assign(SystemId& system, const pdu::SenderId& received);

enum class SenderIdPermission : std::uint8_t { kNone = 1, kChassis = 2, kManage = 3, kChassisManage = 4, kDefer = 5 };

/// What is left of the system's identity when the MA defers to its MD, or not; none: no TLV (IEEE 802.1Q clauses
/// 12.14.5.1.3 d and 12.14.6.1.3 d).
std::optional<SystemId> Permitted(const SystemId& system, SenderIdPermission ma, SenderIdPermission md);

inline constexpr std::size_t kLongestSenderIdText = 255;

/// In printable ASCII whatever the octets are: a chassis id that is an address as such, anything else as its
/// characters, with \xNN for those that are not printable; then the management address, if any, after a blank.
std::string ToText(const SystemId& system);

}  // namespace cfm::protocol

#endif
