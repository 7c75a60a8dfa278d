// What stands before a CFM PDU on the wire: addresses, VLAN tags, EtherType.
#ifndef CFM_SERVER_PDU_ETHERNET_H
#define CFM_SERVER_PDU_ETHERNET_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "pdu/decoded.h"
#include "pdu/mac_address.h"

namespace cfm::pdu {

inline constexpr std::uint16_t kEtherTypeCfm = 0x8902;
inline constexpr std::uint16_t kTpidCustomer = 0x8100;
inline constexpr std::uint16_t kTpidService = 0x88a8;

struct Tag {
  std::uint8_t priority = 0;  ///< 0 to 7
  bool drop_eligible = false;
  std::uint16_t vid = 0;  ///< 0 to 4095

  bool operator==(const Tag&) const = default;
};

std::uint16_t ToTci(const Tag& tag);
Tag FromTci(std::uint16_t tci);

/// Untagged: no outer, no inner. One tag: an outer with TPID 0x8100. Two tags: an outer with TPID 0x88a8 and an inner
/// with TPID 0x8100. An inner one alone does not exist.
struct EthernetHeader {
  MacAddress destination{};
  MacAddress source{};
  std::optional<Tag> outer;
  std::optional<Tag> inner;

  bool operator==(const EthernetHeader&) const = default;
};

/// An outer tag that a packet socket has taken out of the frame.
struct StrippedTag {
  std::uint16_t tpid = 0;
  std::uint16_t tci = 0;
};

struct EthernetFrame {
  EthernetHeader header;
  Octets pdu;  ///< all that follows the EtherType, padding included
};

/// Offsets in errors count from the first octet of the frame as it was given, without the stripped tag.
Decoded<EthernetFrame> DecodeEthernet(Octets frame, const std::optional<StrippedTag>& stripped = std::nullopt);

inline constexpr std::size_t kLongestEthernetHeader = 22;

/// Addresses, tags and EtherType: 14, 18 or 22 octets; 0 when the buffer is too small. The PDU goes right behind.
std::size_t EncodeEthernet(const EthernetHeader& header, std::span<std::uint8_t> buffer);

/// Group addresses 01-80-C2-00-00-3y. Class 1 (y = level): CCM, AIS, and LBM to all. Class 2 (y = 8 + level): LTM.
enum class GroupClass : std::uint8_t { k1 = 1, k2 = 2 };

struct GroupAddress {
  GroupClass group_class = GroupClass::k1;
  std::uint8_t level = 0;

  bool operator==(const GroupAddress&) const = default;
};

MacAddress ToAddress(const GroupAddress& group);

/// None for every address that is not one of these sixteen.
std::optional<GroupAddress> ToGroupAddress(const MacAddress& address);

}  // namespace cfm::pdu

#endif
