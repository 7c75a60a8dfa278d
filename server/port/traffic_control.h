// Filters at the two hooks that a port's frames pass between the wire and the rest of the system.
#ifndef CFM_SERVER_PORT_TRAFFIC_CONTROL_H
#define CFM_SERVER_PORT_TRAFFIC_CONTROL_H

#include <cstdint>
#include <optional>

#include "port/bpf.h"
#include "port/netlink.h"
#include "port/ports.h"

namespace cfm::port {

enum class Hook : std::uint8_t {
  kIngress,  ///< behind the port's packet sockets: those see what is dropped
  kEgress,   ///< before them; a socket that bypasses the queueing layer is not subject to it
};

/// This server's filter has a priority and a handle of its own at each hook, so that it is known again and no other is
/// touched. Results are 0 or a negative errno.
class TrafficControl {
 public:
  TrafficControl(NetlinkSocket& netlink, Index index) : netlink_(netlink), index_(index) {}

  /// The anchor of both hooks; -EEXIST when the port has one already.
  int AddHooks();
  int RemoveHooks();

  /// Takes the place of the one that is there at once: no frame passes in between.
  int PutFilter(Hook hook, const Program& program);
  int RemoveFilter(Hook hook);

  struct Present {
    std::optional<HookMark> own;
    bool is_shared = false;  ///< somebody else's filter is there, too
  };
  /// Nothing when there is no such hook.
  Present Look(Hook hook);

 private:
  NetlinkSocket& netlink_;
  Index index_;
};

}  // namespace cfm::port

#endif
