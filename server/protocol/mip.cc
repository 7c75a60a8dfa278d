#include "protocol/mip.h"

#include <algorithm>

#include "pdu/ccm.h"
#include "pdu/linktrace.h"
#include "pdu/loopback.h"

namespace cfm::protocol {

Mip::Mip(const MipPlace& place, FrameOutput& output, const Random& random)
    : place_(place), wire_(output, Side::kWire, random), relay_(output, Side::kRelay, random) {}

void Mip::SetPort(const PortState& port) {
  port_ = port;
  const Addressing addressing{.level = place_.level,
                              .address = port.address,
                              .primary_vid = place_.vlan.vid,
                              .inner_vid = place_.vlan.inner_vid,
                              .mtu = port.mtu};
  wire_.transmitter.set_addressing(addressing);
  relay_.transmitter.set_addressing(addressing);
}

bool Mip::Stops(const pdu::EthernetHeader& ethernet, const pdu::Header& header) const {
  const bool to_own_address = ethernet.destination == port_.address;
  if (header.opcode == pdu::Opcode::kLbm) return to_own_address;
  return header.opcode == pdu::Opcode::kLtm &&
         (to_own_address ||
          ethernet.destination == pdu::ToAddress({.group_class = pdu::GroupClass::k2, .level = place_.level}));
}

void Mip::Receive(const ReceivedFrame& frame, Side from, PortIndex origin, StationTable& ccm_database,
                  TraceRelay& relay, TimePoint now) {
  const auto header = pdu::DecodeHeader(frame.pdu);
  if (!header || header->level != place_.level || pdu::IsGroup(frame.header.source)) return;
  if (header->opcode == pdu::Opcode::kCcm) {
    const auto group = pdu::ToAddress({.group_class = pdu::GroupClass::k1, .level = place_.level});
    if (frame.header.destination == group && pdu::DecodeCcm(frame.pdu)) {
      ccm_database.Store(place_.vlan, frame.header.source, origin, now);
    }
    return;
  }
  if (!Stops(frame.header, *header)) return;
  Half& half = HalfAt(from);
  if (header->opcode == pdu::Opcode::kLbm) {
    if (pdu::DecodeLbm(frame.pdu)) half.loopback.Receive(frame.header, frame.pdu, now);
  } else if (const auto ltm = pdu::DecodeLtm(frame.pdu)) {
    std::optional<pdu::SenderId> sender_id;
    if (sender_id_) sender_id = ToSenderId(*sender_id_);
    const TracePoint point{.kind = TracePoint::Kind::kMip,
                           .faces = from,
                           .port = {.action = pdu::ReplyAction::kOk, .address = port_.address, .name = port_.name}};
    half.linktrace.Receive(frame, *ltm, point, sender_id, now, &relay);
  }
}

void Mip::Advance(TimePoint now) {
  for (Half* half : {&wire_, &relay_}) {
    half->loopback.Advance(now);
    half->linktrace.Advance(now);
  }
}

TimePoint Mip::deadline() const {
  return std::min(
      {wire_.loopback.deadline(), wire_.linktrace.deadline(), relay_.loopback.deadline(), relay_.linktrace.deadline()});
}

}  // namespace cfm::protocol
