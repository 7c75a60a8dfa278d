// What becomes of a linktrace message at one maintenance point (IEEE 802.1Q clause 20.47).
#ifndef CFM_SERVER_PROTOCOL_LINKTRACE_DECISION_H
#define CFM_SERVER_PROTOCOL_LINKTRACE_DECISION_H

#include <cstdint>
#include <optional>
#include <string>

#include "pdu/linktrace.h"
#include "pdu/mac_address.h"
#include "protocol/frame.h"

namespace cfm::protocol {

/// The kernel's index of a port; 0: none.
using PortIndex = std::uint32_t;

/// A port as a reply names it.
struct TracedPort {
  pdu::ReplyAction action = pdu::ReplyAction::kOk;  ///< what a data frame would suffer there
  pdu::MacAddress address{};
  std::string name;
};

/// The reply's octets of the port id lie in `port`.
pdu::ReplyPort ToReplyPort(const TracedPort& port);

/// The point that took the message.
struct TracePoint {
  enum class Kind : std::uint8_t { kMep, kMip };
  Kind kind = Kind::kMep;
  Side faces = Side::kWire;  ///< where the message came from
  TracedPort port;
};

/// The port that leads to the target, from a point that faces the wire; for one that faces the relay its own port.
struct TracePath {
  /// What a message of this level meets on its way from the relay to the wire of that port.
  enum class Meets : std::uint8_t {
    kNothing,
    kMip,
    kMep,      ///< an end point of the message's level
    kBarrier,  ///< one that stops it without looking at it
  };

  pdu::RelayAction found_in = pdu::RelayAction::kFdb;
  PortIndex index = 0;
  TracedPort port;
  Meets meets = Meets::kNothing;
};

struct TraceDecision {
  pdu::RelayAction relay_action = pdu::RelayAction::kHit;
  bool terminal = false;
  std::optional<TracedPort> ingress;
  std::optional<TracedPort> egress;
  /// Who passes the message on; none: nobody.
  std::optional<pdu::MacAddress> forwarder;
};

/// None: no reply, and the message goes no further. `path`: none when the target is nowhere behind the point. For a
/// message with a TTL that is not 0.
std::optional<TraceDecision> Decide(const pdu::Ltm& ltm, const TracePoint& point, const std::optional<TracePath>& path);

/// What a bridge does for the traces through it.
class TraceRelay {
 public:
  /// What a data frame suffers at the point's own port.
  virtual pdu::ReplyAction OwnAction() const = 0;
  virtual std::optional<TracePath> PathTo(const pdu::MacAddress& target, bool use_fdb_only) const = 0;
  /// Out of the wire of the port of PathTo().
  virtual void Forward(PortIndex port, const OutgoingFrame& ltm) = 0;

 protected:
  ~TraceRelay() = default;
};

}  // namespace cfm::protocol

#endif
