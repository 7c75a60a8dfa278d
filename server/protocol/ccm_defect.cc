#include "protocol/ccm_defect.h"

#include <algorithm>

namespace cfm::protocol {

bool CcmDefect::Raise(CcmVerdict reason, const pdu::Ccm& ccm, const pdu::MacAddress& source, pdu::Octets octets,
                      Duration own_interval, TimePoint now) {
  const bool begins = !present();
  const TimePoint until = now + ThreeAndAHalf(IntervalOf(ccm.interval).value_or(own_interval));
  until_ = begins ? until : std::max(until_, until);

  if (!last_) last_.emplace();
  last_->reason = reason;
  last_->source = source;
  last_->level = ccm.level;
  last_->mep_id = ccm.mep_id;
  last_->interval = ccm.interval;
  const pdu::Octets kept = octets.first(std::min(octets.size(), OffendingCcm::kKept));
  last_->octets.assign(kept.begin(), kept.end());
  return begins;
}

void CcmDefect::Advance(TimePoint now) {
  if (now >= until_) until_ = kNever;
}

}  // namespace cfm::protocol
