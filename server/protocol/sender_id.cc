#include "protocol/sender_id.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace cfm::protocol {
namespace {

bool Equal(const std::vector<std::uint8_t>& own, pdu::Octets received) {
  return std::equal(own.begin(), own.end(), received.begin(), received.end());
}

std::string Hex(std::uint8_t octet) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  return {kDigits[octet >> 4U], kDigits[octet & 0x0fU]};
}

/// Appends as much as fits, and never half of an escape.
void AppendEscaped(std::string& text, const std::vector<std::uint8_t>& octets) {
  for (const std::uint8_t octet : octets) {
    const bool plain = octet >= 0x20 && octet < 0x7f && octet != '\\';
    const std::string piece = plain ? std::string(1, static_cast<char>(octet)) : "\\x" + Hex(octet);
    if (text.size() + piece.size() > kLongestSenderIdText) return;
    text += piece;
  }
}

std::string AddressText(const std::vector<std::uint8_t>& octets) {
  std::string text;
  for (const std::uint8_t octet : octets) {
    if (!text.empty()) text += ':';
    text += Hex(octet);
  }
  return text;
}

}  // namespace

pdu::SenderId ToSenderId(const SystemId& system) {
  return {.chassis_subtype = system.chassis_subtype,
          .chassis_id = system.chassis_id,
          .management_domain = system.management_domain,
          .management_address = system.management_address};
}

bool SaysTheSame(const SystemId& system, const pdu::SenderId& received) {
  return system.chassis_subtype == received.chassis_subtype && Equal(system.chassis_id, received.chassis_id) &&
         Equal(system.management_domain, received.management_domain) &&
         Equal(system.management_address, received.management_address);
}

void Assign(SystemId& system, const pdu::SenderId& received) {
  system.chassis_subtype = received.chassis_subtype;
  system.chassis_id.assign(received.chassis_id.begin(), received.chassis_id.end());
  system.management_domain.assign(received.management_domain.begin(), received.management_domain.end());
  system.management_address.assign(received.management_address.begin(), received.management_address.end());
}

std::optional<SystemId> Permitted(const SystemId& system, SenderIdPermission ma, SenderIdPermission md) {
  const SenderIdPermission permission = ma == SenderIdPermission::kDefer ? md : ma;
  SystemId result = system;
  switch (permission) {
    case SenderIdPermission::kChassis:
      result.management_domain.clear();
      result.management_address.clear();
      return result;
    case SenderIdPermission::kManage:
      result.chassis_subtype = 0;
      result.chassis_id.clear();
      return result;
    case SenderIdPermission::kChassisManage:
      return result;
    default:
      return std::nullopt;
  }
}

std::string ToText(const SystemId& system) {
  std::string text;
  if (system.chassis_subtype == pdu::kChassisMacAddress &&
      system.chassis_id.size() == std::tuple_size_v<pdu::MacAddress>) {
    text = AddressText(system.chassis_id);
  } else {
    AppendEscaped(text, system.chassis_id);
  }
  if (!system.management_address.empty()) {
    AppendEscaped(text, {' '});
    AppendEscaped(text, system.management_address);
  }
  return text;
}

}  // namespace cfm::protocol
