// On which ports and VLANs there are intermediate points (MIPs), and at which level (IEEE 802.1Q clause 22.2.3).
#ifndef CFM_SERVER_PROTOCOL_MIP_CREATION_H
#define CFM_SERVER_PROTOCOL_MIP_CREATION_H

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "protocol/mip.h"
#include "protocol/vlan.h"

namespace cfm::protocol {

enum class MhfCreation : std::uint8_t { kNone = 1, kDefault = 2, kExplicit = 3, kDefer = 4 };

/// An MA that defers takes what its MD says; an MD that defers says none (IEEE 802.1Q clause 12.14.5.1.3 c).
MhfCreation Resolve(MhfCreation ma, MhfCreation md);

/// An MA that covers the VLAN.
struct CoveringMa {
  std::uint8_t level = 0;
  MhfCreation creation = MhfCreation::kNone;  ///< resolved
};

/// A VLAN on a port of a bridge.
struct CoveredVlan {
  PortIndex port = 0;
  Vlan vlan{};
  std::vector<CoveringMa> mas{};
  std::set<std::uint8_t> mep_levels{};  ///< of the enabled MEPs there, in either direction
};

/// The lowest level above all MEPs there at which an MA wants a MIP: with default when it is the lowest active level on
/// the VLAN, or there is a MEP at the next lower one; with explicit in the latter case only. None: no MIP.
std::optional<std::uint8_t> MipLevel(const CoveredVlan& vlan);

std::set<MipPlace> MipsOf(std::span<const CoveredVlan> vlans);

}  // namespace cfm::protocol

#endif
