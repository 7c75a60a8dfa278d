#include "protocol/fault_notifier.h"

namespace cfm::protocol {

bool FaultNotifier::Update(Defect alarm, TimePoint now) {
  const bool report = EndTimer(now);
  switch (state_) {
    case State::kReset:
      if (alarm == Defect::kNone) break;
      highest_ = alarm;
      Enter(State::kDefect, now);
      break;
    case State::kDefect:
      if (alarm == Defect::kNone) {
        Reset();
      } else {
        highest_ = std::max(highest_, alarm);
      }
      break;
    case State::kReported:
      if (alarm != Defect::kNone) return Reported(alarm) || report;
      Enter(State::kClearing, now);
      break;
    case State::kClearing:
      if (alarm == Defect::kNone) break;
      Enter(State::kReported, now);
      return Reported(alarm) || report;
  }
  return report;
}

TimePoint FaultNotifier::deadline() const {
  switch (state_) {
    case State::kDefect:
      return since_ + times_.alarm;
    case State::kClearing:
      return since_ + times_.reset;
    default:
      return kNever;
  }
}

void FaultNotifier::Reset() {
  state_ = State::kReset;
  highest_ = Defect::kNone;
}

bool FaultNotifier::EndTimer(TimePoint now) {
  if (now < deadline()) return false;
  if (state_ == State::kDefect) {
    Enter(State::kReported, now);
    return true;
  }
  Reset();
  return false;
}

bool FaultNotifier::Reported(Defect alarm) {
  if (alarm <= highest_) return false;
  highest_ = alarm;
  return true;
}

void FaultNotifier::Enter(State state, TimePoint now) {
  state_ = state;
  since_ = now;
}

}  // namespace cfm::protocol
