// Time as the state machines see it: a value that somebody passes in, never a clock that they read.
#ifndef CFM_SERVER_PROTOCOL_TIME_H
#define CFM_SERVER_PROTOCOL_TIME_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

namespace cfm::protocol {

using Duration = std::chrono::nanoseconds;
/// Of the monotonic clock. Every machine has Advance(now), which does what is due, and deadline(): nothing becomes due
/// before it. A deadline that comes early costs one idle Advance().
using TimePoint = std::chrono::time_point<std::chrono::steady_clock, Duration>;

inline constexpr TimePoint kNever = TimePoint::max();

/// A random span from zero up to, but not including, `below`.
using Random = std::function<Duration(Duration below)>;

/// The CCM interval of a code (IEEE 802.1Q clause 21.6.1.3); none for 0, which means no CCMs, and beyond 7. Code 1 is
/// 10/3 ms, short by a third of a nanosecond.
constexpr std::optional<Duration> IntervalOf(std::uint8_t code) {
  using std::chrono::duration_cast;
  switch (code) {
    case 1:
      return duration_cast<Duration>(std::chrono::seconds(1)) / 300;
    case 2:
      return std::chrono::milliseconds(10);
    case 3:
      return std::chrono::milliseconds(100);
    case 4:
      return std::chrono::seconds(1);
    case 5:
      return std::chrono::seconds(10);
    case 6:
      return std::chrono::minutes(1);
    case 7:
      return std::chrono::minutes(10);
    default:
      return std::nullopt;
  }
}

/// How long a defect outlives the frame that raised it, or a remote MEP its last CCM (IEEE 802.1Q clauses 20.20 to
/// 20.24; ITU-T Y.1731 clause 7.4 for AIS).
constexpr Duration ThreeAndAHalf(Duration interval) {
  return interval * 7 / 2;
}

/// The first slot after `now` of those that lie an interval apart. Being late does not add up, and slots that were
/// missed are gone.
constexpr TimePoint NextSlot(TimePoint slot, Duration interval, TimePoint now) {
  return slot + interval * ((now - slot) / interval + 1);
}

}  // namespace cfm::protocol

#endif
