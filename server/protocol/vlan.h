// Which VLAN a frame or a maintenance point is on.
#ifndef CFM_SERVER_PROTOCOL_VLAN_H
#define CFM_SERVER_PROTOCOL_VLAN_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <tuple>

#include "pdu/ethernet.h"

namespace cfm::protocol {

/// VID 0: untagged, or with a tag that holds a priority only. Inner VID 0: none.
struct Vlan {
  std::uint16_t vid = 0;
  std::uint16_t inner_vid = 0;

  bool operator==(const Vlan&) const = default;
  bool operator<(const Vlan& other) const { return std::tie(vid, inner_vid) < std::tie(other.vid, other.inner_vid); }
};

inline Vlan VlanOf(const pdu::EthernetHeader& header) {
  return {.vid = header.outer ? header.outer->vid : std::uint16_t{0},
          .inner_vid = header.inner ? header.inner->vid : std::uint16_t{0}};
}

struct VlanHash {
  std::size_t operator()(const Vlan& vlan) const {
    return std::hash<std::uint32_t>()(static_cast<std::uint32_t>(vlan.vid) << 16U | vlan.inner_vid);
  }
};

}  // namespace cfm::protocol

#endif
