#include "protocol/linktrace_responder.h"

#include <array>

#include "pdu/mac_address.h"

namespace cfm::protocol {
namespace {

std::optional<pdu::ReplyPort> ToReplyPort(const std::optional<TracedPort>& port) {
  if (!port) return std::nullopt;
  return ToReplyPort(*port);
}

}  // namespace

void LinktraceResponder::Receive(const ReceivedFrame& frame, const pdu::Ltm& ltm, TracePoint point,
                                 const std::optional<pdu::SenderId>& sender_id, TimePoint now, TraceRelay* relay) {
  if (!ltm.egress_identifier || ltm.ttl == 0 || pdu::IsGroup(ltm.original_address)) {
    ++counters_.invalid;
    return;
  }
  const Addressing& own = transmitter_.addressing();
  point.port.address = own.address;
  std::optional<TracePath> path;
  if (relay != nullptr) {
    point.port.action = relay->OwnAction();
    path = relay->PathTo(ltm.target_address, ltm.use_fdb_only);
  }
  const auto decision = Decide(ltm, point, path);
  if (!decision) return;

  pdu::LtrEgressIdentifiers identifiers{.last = *ltm.egress_identifier, .next = {}};
  if (decision->forwarder) identifiers.next = {.unique_id = 0, .address = *decision->forwarder};
  const pdu::Ltr ltr{.level = own.level,
                     .use_fdb_only = ltm.use_fdb_only,
                     .forwarded = decision->forwarder.has_value(),
                     .terminal_mep = decision->terminal,
                     .transaction_id = ltm.transaction_id,
                     .ttl = static_cast<std::uint8_t>(ltm.ttl - 1),
                     .relay_action = decision->relay_action,
                     .egress_identifiers = identifiers,
                     .ingress = ToReplyPort(decision->ingress),
                     .egress = ToReplyPort(decision->egress),
                     .sender_id = sender_id};
  std::array<std::uint8_t, kLargestPdu> buffer;
  const pdu::Octets octets = pdu::Octets(buffer).first(pdu::EncodeLtr(ltr, buffer));
  // Where the LTM comes from is its last hop; the reply goes to where it began.
  pdu::EthernetHeader request = frame.header;
  request.source = ltm.original_address;
  if (!waiting_.Add(now + random_(ReplyQueue::kLongestWait), request, octets)) {
    ++counters_.overflow;
    return;
  }
  if (decision->forwarder) Forward(frame, *decision->forwarder, sender_id, path->index, *relay);
}

void LinktraceResponder::Forward(const ReceivedFrame& frame, const pdu::MacAddress& forwarder,
                                 const std::optional<pdu::SenderId>& sender_id, PortIndex port, TraceRelay& relay) {
  std::array<std::uint8_t, kLargestPdu> buffer;
  const std::size_t size = pdu::MakeForwardedLtm(frame.pdu, {.unique_id = 0, .address = forwarder}, sender_id, buffer);
  if (size == 0) return;
  OutgoingFrame forwarded{
      .header = frame.header, .pdu = pdu::Octets(buffer).first(size), .stamp_id = std::nullopt, .side = Side::kWire};
  forwarded.header.source = forwarder;
  forwarded.header.destination =
      pdu::ToAddress({.group_class = pdu::GroupClass::k2, .level = transmitter_.addressing().level});
  relay.Forward(port, forwarded);
  ++counters_.forwarded;
}

void LinktraceResponder::Advance(TimePoint now) {
  while (const auto due = waiting_.TakeDue(now)) {
    if (transmitter_.Reply(due->request, due->reply)) ++counters_.sent;
  }
}

}  // namespace cfm::protocol
