#include "protocol/loopback_responder.h"

#include <array>

#include "pdu/loopback.h"
#include "pdu/mac_address.h"

namespace cfm::protocol {

void LoopbackResponder::Receive(const pdu::EthernetHeader& header, pdu::Octets lbm, TimePoint now) {
  if (!limit_.Allow(now)) {
    ++counters_.over_rate;
    return;
  }
  std::array<std::uint8_t, kLargestPdu> buffer;
  const pdu::Octets lbr = pdu::Octets(buffer).first(pdu::MakeLbr(lbm, buffer));
  if (lbr.empty()) return;
  if (!pdu::IsGroup(header.destination)) {
    Reply(header, lbr);
  } else if (!waiting_.Add(now + random_(ReplyQueue::kLongestWait), header, lbr)) {
    ++counters_.over_rate;
  }
}

void LoopbackResponder::Advance(TimePoint now) {
  while (const auto due = waiting_.TakeDue(now)) Reply(due->request, due->reply);
}

void LoopbackResponder::Reply(const pdu::EthernetHeader& header, pdu::Octets lbr) {
  if (transmitter_.Reply(header, lbr)) ++counters_.sent;
}

}  // namespace cfm::protocol
