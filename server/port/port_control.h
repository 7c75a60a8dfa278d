// What this server does to a port: level filters and fault actions.
#ifndef CFM_SERVER_PORT_PORT_CONTROL_H
#define CFM_SERVER_PORT_PORT_CONTROL_H

#include <cstdint>
#include <optional>
#include <vector>

#include "port/netlink.h"
#include "port/ports.h"
#include "port/traffic_control.h"
#include "protocol/status.h"

namespace cfm::port {

/// What the system refused.
struct Refusal {
  const char* what;
  int error;  ///< a negative errno
};

/// To block is to drop everything but CFM at both hooks. To shut down is that, and to make the port dormant: that takes
/// it out of its bridge, but does not keep the system from sending over a port outside a bridge.
class PortControl {
 public:
  PortControl(NetlinkSocket& netlink, Index index) : netlink_(netlink), hooks_(netlink, index), index_(index) {}

  /// Whether a predecessor that was killed has left something. If so it is this one's now, for Release() to undo.
  bool TakeOver();

  /// `link_mode` is IF_LINK_MODE_... of the port. One that somebody else has made dormant is left so.
  std::optional<Refusal> SetFaultAction(protocol::FaultAction action, std::uint8_t link_mode);
  std::optional<Refusal> SetLevelFilter(std::vector<protocol::LevelFilter> filters);

  /// Undoes everything.
  std::optional<Refusal> Release();

  protocol::FaultAction action() const { return action_; }
  bool holds_dormant() const { return holds_dormant_; }

 private:
  std::optional<Refusal> Filter();
  std::optional<Refusal> RemoveFilters();
  std::optional<Refusal> RemoveUnusedHooks();
  std::optional<Refusal> SetDormant(bool is_dormant);

  NetlinkSocket& netlink_;
  TrafficControl hooks_;
  Index index_;
  protocol::FaultAction action_ = protocol::FaultAction::kNone;
  std::vector<protocol::LevelFilter> filters_;
  bool has_filters_ = false;
  bool owns_hooks_ = false;
  bool holds_dormant_ = false;
};

}  // namespace cfm::port

#endif
