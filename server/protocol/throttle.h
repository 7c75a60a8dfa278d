// How often a status may be told.
#ifndef CFM_SERVER_PROTOCOL_THROTTLE_H
#define CFM_SERVER_PROTOCOL_THROTTLE_H

#include <chrono>
#include <optional>

#include "protocol/time.h"

namespace cfm::protocol {

/// Lets a status through when it differs from the one that went through last, at most every 100 ms. What was held back
/// goes through then, with the value that it has by then, unless that is the old one again.
template <typename Status>
class Throttle {
 public:
  static constexpr Duration kSpacing = std::chrono::milliseconds(100);

  /// True: tell it now. To be called on every change and when the deadline has come.
  bool Offer(const Status& status, TimePoint now) {
    pending_ = forced_ || told_ != status;
    if (!pending_ || now < next_) return false;
    told_ = status;
    next_ = now + kSpacing;
    pending_ = forced_ = false;
    return true;
  }

  /// It was told by another way, to somebody who asked: what follows is compared with this.
  void Told(const Status& status) {
    told_ = status;
    pending_ = forced_;
  }

  /// The next status goes through even if it is the old one.
  void Force() { forced_ = true; }

  TimePoint deadline() const { return pending_ ? next_ : kNever; }

 private:
  std::optional<Status> told_;
  TimePoint next_;
  bool pending_ = false;
  bool forced_ = false;
};

}  // namespace cfm::protocol

#endif
