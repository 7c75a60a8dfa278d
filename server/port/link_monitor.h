// The network interfaces of this namespace, as the kernel reports them.
#ifndef CFM_SERVER_PORT_LINK_MONITOR_H
#define CFM_SERVER_PORT_LINK_MONITOR_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <vector>

#include "port/netlink.h"
#include "port/ports.h"

namespace cfm::port {

/// What a message tells about a link.
struct LinkNotice {
  enum class Kind : std::uint8_t { kState, kBridgePort, kRemoved };

  Kind kind = Kind::kState;
  Link link;                   ///< kBridgePort: index and port status only; kRemoved: index only
  std::uint8_t link_mode = 0;  ///< IF_LINK_MODE_...
};

/// None: not about a link, or without what belongs into such a message.
std::optional<LinkNotice> ReadLinkNotice(const NetlinkMessage& message);

class LinkMonitor {
 public:
  /// `requests` outlives the monitor. Knows every link once it is made. Throws std::system_error.
  explicit LinkMonitor(NetlinkSocket& requests);

  int fd() const { return notices_.fd(); }

  /// Takes what the kernel has told since, a bounded number of messages of it.
  void Read();

  /// Asks for one link anew, after it was changed from here.
  void Refresh(Index index);

  /// Null when there is none.
  const Link* Find(Index index) const;
  const Link* FindByName(std::string_view name) const;
  /// IF_LINK_MODE_... of a link; 0 is the default mode.
  std::uint8_t LinkModeOf(Index index) const;

  /// While this server holds a port dormant, its bridge has it disabled. Then the port is told as it would be without
  /// that: forwarding while it has carrier, or two ends that hold their ports would wait for each other for ever.
  void SetHeldDormant(Index index, bool is_held);

  /// What has happened since the last call: those that are gone, then those that are new or different.
  struct Events {
    std::vector<Index> removed;
    std::vector<Index> changed;
  };
  Events TakeEvents();
  bool has_events() const { return !removed_.empty() || !changed_.empty(); }

 private:
  struct Known {
    Link link;                                             ///< as it is told
    pdu::PortStatus port_status = pdu::PortStatus::kNone;  ///< as the bridge has it
    std::uint8_t link_mode = 0;
  };

  void ReadAll();
  void Apply(const LinkNotice& notice);
  void Update(Index index, Known known);
  void Remove(Index index);

  NetlinkSocket& requests_;
  NetlinkSocket notices_;
  std::map<Index, Known> links_;
  std::vector<Index> removed_;
  std::set<Index> changed_;
};

}  // namespace cfm::port

#endif
