#include "protocol/linktrace_decision.h"

namespace cfm::protocol {
namespace {

using pdu::RelayAction;
using pdu::ReplyAction;
using Meets = TracePath::Meets;

bool MayForward(const pdu::Ltm& ltm, const TracePoint& point, const TracePath& path) {
  return ltm.ttl > 1 && point.port.action == ReplyAction::kOk && path.port.action == ReplyAction::kOk &&
         (path.meets == Meets::kNothing || path.meets == Meets::kMip);
}

}  // namespace

pdu::ReplyPort ToReplyPort(const TracedPort& port) {
  return {.action = port.action,
          .address = port.address,
          .port_subtype = pdu::kPortInterfaceName,
          .port_id = {reinterpret_cast<const std::uint8_t*>(port.name.data()), port.name.size()}};
}

std::optional<TraceDecision> Decide(const pdu::Ltm& ltm, const TracePoint& point,
                                    const std::optional<TracePath>& path) {
  const bool hit = ltm.target_address == point.port.address;
  if (!hit && !path) return std::nullopt;

  TraceDecision decision;
  (point.faces == Side::kWire ? decision.ingress : decision.egress) = point.port;
  decision.terminal = point.kind == TracePoint::Kind::kMep;
  if (hit) return decision;
  decision.relay_action = path->found_in;
  if (decision.terminal) return decision;

  decision.forwarder = point.port.address;
  if (point.faces == Side::kWire) {
    const bool point_there = path->meets == Meets::kMep || path->meets == Meets::kMip;
    if (point_there || path->port.action != ReplyAction::kOk) decision.egress = path->port;
    if (path->meets == Meets::kMip) decision.forwarder = path->port.address;
    decision.terminal = path->meets == Meets::kMep;
    if (point_there && ltm.target_address == path->port.address) {
      decision.relay_action = RelayAction::kHit;
      decision.forwarder.reset();
    }
  }
  if (!MayForward(ltm, point, *path)) decision.forwarder.reset();
  return decision;
}

}  // namespace cfm::protocol
