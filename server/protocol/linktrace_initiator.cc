#include "protocol/linktrace_initiator.h"

#include <algorithm>
#include <array>

namespace cfm::protocol {

std::optional<TestError> LinktraceInitiator::Start(const LinktraceRequest& request, const pdu::MacAddress& target,
                                                   std::uint8_t priority, const std::optional<pdu::SenderId>& sender_id,
                                                   TimePoint now) {
  if (open_.size() >= kMostTraces) return TestError::kTooManyTests;
  const std::uint8_t ttl = request.ttl == 0 ? kUsualTtl : request.ttl;
  const std::uint32_t id = next_id_++;
  const Addressing& own = transmitter_.addressing();
  const pdu::Ltm ltm{.level = own.level,
                     .use_fdb_only = true,
                     .transaction_id = id,
                     .ttl = ttl,
                     .original_address = own.address,
                     .target_address = target,
                     .egress_identifier = pdu::EgressIdentifier{.unique_id = 0, .address = own.address},
                     .sender_id = sender_id};
  std::array<std::uint8_t, kLargestPdu> buffer;
  const pdu::Octets octets = pdu::Octets(buffer).first(pdu::EncodeLtm(ltm, buffer));
  if (!transmitter_.ToGroup(pdu::GroupClass::k2, priority, octets)) return TestError::kMepNotOperational;
  open_.push_back({.transaction_id = id, .end = now + kPatience});
  output_.LinktraceStarted(id, target, request.target_mep_id, ttl);
  return std::nullopt;
}

void LinktraceInitiator::Receive(const pdu::EthernetHeader& header, const pdu::Ltr& ltr) {
  const auto trace = std::find_if(open_.begin(), open_.end(), [&ltr](const Trace& candidate) {
    return candidate.transaction_id == ltr.transaction_id;
  });
  if (trace == open_.end() || trace->replies == kMostReplies) {
    ++unexpected_;
    return;
  }
  ++trace->replies;
  output_.LinktraceReply(header, ltr);
}

void LinktraceInitiator::Abort() {
  while (!open_.empty()) EndFirst();
}

void LinktraceInitiator::Advance(TimePoint now) {
  while (now >= deadline()) EndFirst();
}

void LinktraceInitiator::EndFirst() {
  const std::uint32_t id = open_.front().transaction_id;
  open_.pop_front();
  output_.LinktraceEnded(id);
}

}  // namespace cfm::protocol
