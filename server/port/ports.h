// The ports of this element as those see them who run end points on them.
#ifndef CFM_SERVER_PORT_PORTS_H
#define CFM_SERVER_PORT_PORTS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pdu/ccm.h"
#include "pdu/decoded.h"
#include "pdu/mac_address.h"
#include "protocol/frame.h"
#include "protocol/interface_status.h"
#include "protocol/level_filter.h"
#include "protocol/status.h"
#include "protocol/vlan.h"

namespace cfm::port {

/// The kernel's index of an interface. It is not used again soon when the interface goes; its name is.
using Index = std::uint32_t;

/// One network interface.
struct Link {
  Index index = 0;
  std::string name;
  pdu::MacAddress address{};  ///< zeros when it is no Ethernet interface
  bool is_ethernet = false;
  std::size_t mtu = 0;
  protocol::LinkState state;
  Index bridge = 0;                                      ///< the bridge that this is a port of; 0: none
  pdu::PortStatus port_status = pdu::PortStatus::kNone;  ///< of a bridge's port: up when it forwards
  bool filters_vlans = false;                            ///< of a bridge: its ports take part in some VLANs only

  bool operator==(const Link&) const = default;
};

/// Since a port was opened.
struct Counters {
  std::uint64_t received = 0;   ///< handed to the listener
  std::uint64_t oversized = 0;  ///< received with more octets than any frame may have
  std::uint64_t malformed = 0;  ///< received with tags in a form that is not in use here
  std::uint64_t overrun = 0;    ///< lost because they came faster than they were read
  std::uint64_t sent = 0;       ///< taken by the kernel
  std::uint64_t refused = 0;    ///< by the kernel
};

/// Who sent a frame: the sender's own number.
using Owner = std::uint64_t;

/// Is told what happens. Calls come from the port layer's loop only, never from within a call to Ports.
class Listener {
 public:
  /// It is new, or something of it is.
  virtual void LinkChanged(const Link& link) = 0;
  virtual void LinkRemoved(Index index) = 0;
  /// From the wire of an open port. The octets are good during the call only.
  virtual void Received(Index index, const protocol::ReceivedFrame& frame) = 0;
  /// When a frame that asked for it left. Comes again when the other clock's stamp comes later, then with both.
  virtual void Stamped(Owner owner, std::uint32_t stamp_id, const protocol::Stamps& stamps) = 0;
  /// A frame whose Send() returned true was refused by the kernel after all.
  virtual void NotSent(Owner owner, pdu::Octets pdu) = 0;

 protected:
  ~Listener() = default;
};

class Ports {
 public:
  /// Null when there is none. Good until the next event.
  virtual const Link* Find(Index index) const = 0;

  /// Listens on a port, until Close() or until it is gone. Open ports stay open when they go down. False, and logged,
  /// when the system refuses.
  virtual bool Open(Index index) = 0;
  virtual void Close(Index index) = 0;

  /// By an open port. True: handed to the kernel, or about to be. The octets are copied.
  virtual bool Send(Index index, const protocol::OutgoingFrame& frame, Owner owner) = 0;
  virtual protocol::ClockReading ReadClocks() = 0;

  /// What the open port is to suffer from now on; undone when it is closed.
  virtual void SetFaultAction(Index index, protocol::FaultAction action) = 0;
  /// Instead of the filters before; none: ends the filtering. What is dropped on the way in is Received() all the same,
  /// and what is sent from here is not subject to it. False, and logged, when the system refuses: the ones before stay.
  /// Undone when the port is closed.
  virtual bool SetLevelFilter(Index index, std::vector<protocol::LevelFilter> filters) = 0;

  /// The port of a station by the table of a bridge that does not filter by VLAN. None: it is not in it.
  virtual std::optional<Index> FindStation(Index bridge, const pdu::MacAddress& address) const = 0;

  /// Of an open port; else zeros.
  virtual Counters CountersOf(Index index) const = 0;

 protected:
  ~Ports() = default;
};

}  // namespace cfm::port

#endif
