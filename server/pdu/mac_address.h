// Addresses of ports, as octets in transmission order.
#ifndef CFM_SERVER_PDU_MAC_ADDRESS_H
#define CFM_SERVER_PDU_MAC_ADDRESS_H

#include <array>
#include <cstdint>

namespace cfm::pdu {

using MacAddress = std::array<std::uint8_t, 6>;

constexpr bool IsGroup(const MacAddress& address) {
  return (address[0] & 0x01) != 0;
}

}  // namespace cfm::pdu

#endif
