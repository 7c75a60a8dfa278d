// AIS that is received (ITU-T Y.1731 clause 7.4).
#ifndef CFM_SERVER_PROTOCOL_AIS_WATCH_H
#define CFM_SERVER_PROTOCOL_AIS_WATCH_H

#include "pdu/ais.h"
#include "protocol/time.h"

namespace cfm::protocol {

class AisWatch {
 public:
  /// Holds for 3.5 times the period that the last frame announces.
  void Receive(const pdu::Ais& ais, TimePoint now) {
    until_ = now + ThreeAndAHalf(*IntervalOf(static_cast<std::uint8_t>(ais.period)));
  }
  void Advance(TimePoint now) {
    if (now >= until_) until_ = kNever;
  }
  TimePoint deadline() const { return until_; }
  bool present() const { return until_ != kNever; }
  void Reset() { until_ = kNever; }

 private:
  TimePoint until_ = kNever;
};

}  // namespace cfm::protocol

#endif
