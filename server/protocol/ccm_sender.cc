#include "protocol/ccm_sender.h"

namespace cfm::protocol {

void CcmSender::Start(Duration interval, Duration phase, TimePoint now) {
  interval_ = interval;
  next_ = now + phase;
  last_sent_ = kNever;
  next_extra_ = now;
}

void CcmSender::StatusChanged(TimePoint now) {
  if (!running() || now < next_extra_) return;
  next_extra_ = now + interval_;
  SendOne(now);
}

void CcmSender::Advance(TimePoint now) {
  if (now < next_) return;
  SendOne(now);
  next_ = NextSlot(next_, interval_, now);
}

void CcmSender::NotSent() {
  if (counters_.sent == 0) return;  // of a time before the counters were cleared
  --counters_.sent;
  ++counters_.failed;
  --sequence_number_;
}

void CcmSender::SendOne(TimePoint now) {
  if (!send_(sequence_number_ + 1)) {
    ++counters_.failed;
    return;
  }
  ++sequence_number_;
  ++counters_.sent;
  if (last_sent_ != kNever && now - last_sent_ > interval_ * 3 / 2) ++counters_.late;
  last_sent_ = now;
}

}  // namespace cfm::protocol
