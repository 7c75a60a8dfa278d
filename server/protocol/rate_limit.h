// At most so many in any second.
#ifndef CFM_SERVER_PROTOCOL_RATE_LIMIT_H
#define CFM_SERVER_PROTOCOL_RATE_LIMIT_H

#include <chrono>
#include <cstddef>
#include <vector>

#include "protocol/time.h"

namespace cfm::protocol {

class RateLimit {
 public:
  explicit RateLimit(std::size_t per_second) : per_second_(per_second) {}

  /// True, and counted, when fewer have been allowed within the last second.
  bool Allow(TimePoint now) {
    if (allowed_.size() < per_second_) {
      allowed_.push_back(now);
      return true;
    }
    if (now - allowed_[oldest_] < std::chrono::seconds(1)) return false;
    allowed_[oldest_] = now;
    oldest_ = (oldest_ + 1) % per_second_;
    return true;
  }

 private:
  std::size_t per_second_;
  std::vector<TimePoint> allowed_;
  std::size_t oldest_ = 0;
};

}  // namespace cfm::protocol

#endif
