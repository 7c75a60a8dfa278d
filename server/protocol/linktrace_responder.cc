#include "protocol/linktrace_responder.h"

#include <array>
#include <vector>

#include "pdu/mac_address.h"

namespace cfm::protocol {

void LinktraceResponder::Receive(const pdu::EthernetHeader& header, const pdu::Ltm& ltm, const std::string& port_name,
                                 const std::optional<pdu::SenderId>& sender_id, TimePoint now) {
  if (!ltm.egress_identifier || ltm.ttl == 0 || pdu::IsGroup(ltm.original_address)) {
    ++counters_.invalid;
    return;
  }
  const Addressing& own = transmitter_.addressing();
  if (ltm.target_address != own.address) return;

  const std::vector<std::uint8_t> port_id(port_name.begin(), port_name.end());
  const pdu::Ltr ltr{.level = own.level,
                     .use_fdb_only = ltm.use_fdb_only,
                     .forwarded = false,
                     .terminal_mep = true,
                     .transaction_id = ltm.transaction_id,
                     .ttl = static_cast<std::uint8_t>(ltm.ttl - 1),
                     .relay_action = pdu::RelayAction::kHit,
                     .egress_identifiers = pdu::LtrEgressIdentifiers{.last = *ltm.egress_identifier, .next = {}},
                     .ingress = pdu::ReplyPort{.action = pdu::ReplyAction::kOk,
                                               .address = own.address,
                                               .port_subtype = pdu::kPortInterfaceName,
                                               .port_id = port_id},
                     .egress = std::nullopt,
                     .sender_id = sender_id};
  std::array<std::uint8_t, kLargestPdu> buffer;
  const pdu::Octets octets = pdu::Octets(buffer).first(pdu::EncodeLtr(ltr, buffer));
  // Where the LTM comes from is its last hop; the reply goes to where it began.
  pdu::EthernetHeader request = header;
  request.source = ltm.original_address;
  if (!waiting_.Add(now + random_(ReplyQueue::kLongestWait), request, octets)) ++counters_.overflow;
}

void LinktraceResponder::Advance(TimePoint now) {
  while (const auto due = waiting_.TakeDue(now)) {
    if (transmitter_.Reply(due->request, due->reply)) ++counters_.sent;
  }
}

}  // namespace cfm::protocol
