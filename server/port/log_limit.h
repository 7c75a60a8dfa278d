// Keeps a log readable while something goes wrong very often.
#ifndef CFM_SERVER_PORT_LOG_LIMIT_H
#define CFM_SERVER_PORT_LOG_LIMIT_H

#include <chrono>
#include <cstdint>
#include <optional>

#include "protocol/time.h"

namespace cfm::port {

/// One for each kind of line: lets one through per second.
class LogLimit {
 public:
  /// How many were kept back since the last line; none: this one is to be kept back, too.
  std::optional<std::uint64_t> Allow(protocol::TimePoint now) {
    if (next_ && now < *next_) {
      ++kept_back_;
      return std::nullopt;
    }
    next_ = now + std::chrono::seconds(1);
    const std::uint64_t kept_back = kept_back_;
    kept_back_ = 0;
    return kept_back;
  }

 private:
  std::optional<protocol::TimePoint> next_;
  std::uint64_t kept_back_ = 0;
};

}  // namespace cfm::port

#endif
