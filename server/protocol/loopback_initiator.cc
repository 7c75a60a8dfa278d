#include "protocol/loopback_initiator.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "pdu/header.h"
#include "pdu/writer.h"
#include "protocol/test_data.h"

namespace cfm::protocol {
namespace {

void SetTransactionId(std::vector<std::uint8_t>& lbm, std::uint32_t id) {
  pdu::Writer(std::span(lbm).subspan(pdu::kHeaderSize)).u32(id);
}

}  // namespace

std::optional<TestError> LoopbackInitiator::Start(const LoopbackRequest& request, const pdu::MacAddress& target,
                                                  std::uint8_t priority, const std::optional<pdu::SenderId>& sender_id,
                                                  TimePoint now) {
  if (run_) return TestError::kTooManyTests;
  if (request.messages > kMostMessages || request.data_octets > kMostTestData) return TestError::kBadParameter;

  std::array<std::uint8_t, kLargestPdu> buffer;
  const std::size_t room = std::min(buffer.size(), transmitter_.addressing().mtu);
  const std::size_t size = pdu::EncodeLbm({.level = transmitter_.addressing().level,
                                           .transaction_id = next_id_,
                                           .sender_id = sender_id,
                                           .data = TestData(request.data_octets)},
                                          std::span(buffer).first(room));
  if (size == 0) return TestError::kBadParameter;

  run_.emplace(Run{.trigger_id = request.trigger_id,
                   .target = target,
                   .priority = priority,
                   .messages = std::max(request.messages, 1U),
                   .lbm = {buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(size)},
                   .first_id = next_id_,
                   .expected_id = next_id_,
                   .answered = {},
                   .result = {},
                   .next = now});
  output_.LoopbackStarted(request.trigger_id, target);
  Advance(now);
  return std::nullopt;
}

void LoopbackInitiator::Receive(const pdu::EthernetHeader& header, const pdu::Loopback& lbr, pdu::Octets octets) {
  const std::uint32_t id = lbr.transaction_id;
  if (!run_ || id - run_->first_id >= run_->answered.size()) {
    ++counters_.strangers;
    return;
  }
  if (run_->answered[id - run_->first_id]) {
    ++counters_.duplicates;
    return;
  }
  run_->answered[id - run_->first_id] = true;
  ++run_->replies;

  // The port may have padded the reply.
  std::vector<std::uint8_t> expected = run_->lbm;
  SetTransactionId(expected, id);
  expected[1] = static_cast<std::uint8_t>(pdu::Opcode::kLbr);
  const bool intact = octets.size() >= expected.size() && std::equal(expected.begin(), expected.end(), octets.begin());
  if (!intact) {
    ++run_->result.wrong_payload;
  } else if (id == run_->expected_id) {
    ++run_->result.in_order;
  } else {
    ++run_->result.out_of_order;
  }
  run_->expected_id = id + 1;
  output_.LoopbackReply(run_->trigger_id, id, header.source);
  if (AllIn()) Abort();
}

void LoopbackInitiator::Abort() {
  if (!run_) return;
  const Run run = *std::exchange(run_, std::nullopt);
  output_.LoopbackEnded(run.trigger_id, run.result);
}

void LoopbackInitiator::Advance(TimePoint now) {
  if (now < deadline()) return;
  if (run_->answered.size() == run_->messages) {
    Abort();
    return;
  }
  SendOne();
  const bool last = run_->answered.size() == run_->messages;
  run_->next = last ? now + kPatience : NextSlot(run_->next, kMessageSpacing, now);
}

void LoopbackInitiator::SendOne() {
  SetTransactionId(run_->lbm, next_id_++);
  run_->answered.push_back(false);
  if (transmitter_.ToStation(run_->target, run_->priority, run_->lbm)) ++run_->result.expected;
}

bool LoopbackInitiator::AllIn() const {
  return run_->answered.size() == run_->messages && run_->replies == run_->result.expected;
}

}  // namespace cfm::protocol
