// What the kernel has to drop at a bridge's port, on the way in and on the way out alike, so that the bridge does not
// pass on what a maintenance point there has stopped.
#ifndef CFM_SERVER_PROTOCOL_LEVEL_FILTER_H
#define CFM_SERVER_PROTOCOL_LEVEL_FILTER_H

#include <cstdint>
#include <optional>

#include "protocol/vlan.h"

namespace cfm::protocol {

/// For the CFM frames on one VLAN.
struct LevelFilter {
  Vlan vlan{};
  std::optional<std::uint8_t> up_to_level{};      ///< frames of this level and of lower ones
  std::optional<std::uint8_t> linktrace_level{};  ///< linktrace messages of this level: a MIP passes on its own version

  bool operator==(const LevelFilter&) const = default;
};

}  // namespace cfm::protocol

#endif
