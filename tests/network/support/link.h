// Cables and bridges between namespaces.
#ifndef CFM_TESTS_NETWORK_SUPPORT_LINK_H
#define CFM_TESTS_NETWORK_SUPPORT_LINK_H

#include <string>
#include <string_view>
#include <utility>

#include "namespace.h"
#include "pdu/mac_address.h"

namespace cfm_test {

/// Six hexadecimal pairs with colons between.
std::string ToText(const cfm::pdu::MacAddress& address);

/// Runs `ip` in that namespace, with a command in each line. Throws what it complains of.
void Ip(const Namespace& network, std::string_view commands);
/// Runs `bridge`, likewise.
void Bridge(const Namespace& network, std::string_view commands);

/// One port of a namespace, by its name.
class Link {
 public:
  Link(const Namespace& network, std::string name) : network_(&network), name_(std::move(name)) {}

  const Namespace& network() const { return *network_; }
  const std::string& name() const { return name_; }
  /// The kernel's, which is the logical id too; 0 when there is no such port.
  unsigned int index() const;
  cfm::pdu::MacAddress address() const;

  void Up() const { Set("up"); }
  void Down() const { Set("down"); }
  /// Up, with a carrier, and not held dormant.
  bool running() const;
  /// The kernel takes note of a carrier a while later.
  void AwaitRunning() const;
  void SetAddress(const cfm::pdu::MacAddress& address) const;
  void SetMtu(unsigned int octets) const { Set("mtu " + std::to_string(octets)); }
  void Rename(const std::string& name);
  void Delete() const;

  /// Makes it a port of a bridge.
  void Join(const Link& bridge) const { Set("master " + bridge.name()); }
  void Leave() const { Set("nomaster"); }
  /// Whether the bridge forwards by it: "forwarding", or "listening" or "disabled", where it does not. A bridge without
  /// a spanning tree protocol takes "blocking" for a reason to forward at once.
  void SetBridgeState(std::string_view state) const;

  /// `ip link set dev NAME ...`.
  void Set(std::string_view what) const;

 private:
  const Namespace* network_;
  std::string name_;
};

/// A cable between two namespaces, or within one. Both ends are up and running.
std::pair<Link, Link> Connect(const Namespace& a, const std::string& name_a, const Namespace& b,
                              const std::string& name_b);

/// A bridge without ports, up.
Link MakeBridge(const Namespace& network, const std::string& name);

}  // namespace cfm_test

#endif
