#include "protocol/delay_initiator.h"

namespace cfm::protocol {

std::optional<TestError> DelayInitiator::Start(const DelayRequest& request, const pdu::MacAddress& target,
                                               TimePoint now) {
  if (run_) return TestError::kTooManyTests;
  if (const auto error = Check(request.parameters, transmitter_)) return error;
  trigger_id_ = request.trigger_id;
  output_.DelayMeasurementStarted(trigger_id_, target);
  run_.emplace(transmitter_, request.parameters, target, now);
  return std::nullopt;
}

DelayRun::Reply DelayInitiator::Receive(const pdu::EthernetHeader& header, const pdu::TwoWayDelay& dmr,
                                        const Stamps& stamps) {
  if (!run_) return DelayRun::Reply::kStranger;
  const DelayRun::Reply reply = run_->Receive(dmr, stamps);
  if (reply == DelayRun::Reply::kTaken) output_.DelayMeasurementReply(trigger_id_, header.source);
  EndIfOver();
  return reply;
}

void DelayInitiator::Stamped(std::uint32_t stamp_id, const Stamps& stamps) {
  if (run_) run_->Stamped(stamp_id, stamps);
}

void DelayInitiator::Abort() {
  if (!run_) return;
  const DelayResult result = run_->result();
  run_.reset();
  output_.DelayMeasurementEnded(trigger_id_, result);
}

void DelayInitiator::Advance(TimePoint now) {
  if (!run_) return;
  run_->Advance(now);
  EndIfOver();
}

void DelayInitiator::EndIfOver() {
  if (run_->over()) Abort();
}

}  // namespace cfm::protocol
