// What is suspicious about the associations and end points on the ports of a bridge (IEEE 802.1Q clause 22.2.4).
#ifndef CFM_SERVER_PROTOCOL_CONFIGURATION_ERRORS_H
#define CFM_SERVER_PROTOCOL_CONFIGURATION_ERRORS_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "protocol/mep_settings.h"
#include "protocol/mip.h"
#include "protocol/vlan.h"

namespace cfm::protocol {

enum class ConfigurationError : std::uint8_t { kLeak, kConflictingVids, kExcessiveLevels, kOverlappedLevels };

/// One MA on the bridge, with its MEPs.
struct CheckedMa {
  std::string name;  ///< for the texts
  std::uint8_t level = 0;
  std::set<Vlan> vlans{};
  std::map<PortIndex, Direction> meps{};  ///< by port
};

struct CheckedPort {
  PortIndex index = 0;
  std::string name;
  std::set<Vlan> vlans{};  ///< those of the MAs that it takes part in
};

/// What a bridge can do. The usual values are those of this one, which has no such limits.
struct BridgeLimits {
  std::size_t mip_levels_per_port = 8;
  bool mep_levels_differ_by_vlan = true;
};

struct Finding {
  ConfigurationError error{};
  PortIndex port = 0;
  std::string text;

  bool operator==(const Finding&) const = default;
};

/// Each once, in the order of their ports within each kind.
std::vector<Finding> FindConfigurationErrors(std::span<const CheckedPort> ports, std::span<const CheckedMa> mas,
                                             const std::set<MipPlace>& mips, const BridgeLimits& limits = {});

}  // namespace cfm::protocol

#endif
