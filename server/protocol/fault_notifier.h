// The fault notification generator (IEEE 802.1Q clause 20.35): an alarm is reported when it has lasted, and over when
// it has been gone for a while.
#ifndef CFM_SERVER_PROTOCOL_FAULT_NOTIFIER_H
#define CFM_SERVER_PROTOCOL_FAULT_NOTIFIER_H

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "protocol/defects.h"
#include "protocol/time.h"

namespace cfm::protocol {

struct FaultTimes {
  Duration alarm = std::chrono::milliseconds(2500);
  Duration reset = std::chrono::seconds(10);

  bool operator==(const FaultTimes&) const = default;
};

inline constexpr Duration kShortestFaultTime = std::chrono::milliseconds(2500);
inline constexpr Duration kLongestFaultTime = std::chrono::seconds(10);

/// From a configured number of 10 ms steps; the nearest bound where it lies outside of 2.5 to 10 s.
constexpr Duration FaultTime(std::uint16_t steps) {
  return std::clamp<Duration>(std::chrono::milliseconds(10) * steps, kShortestFaultTime, kLongestFaultTime);
}

class FaultNotifier {
 public:
  enum class State : std::uint8_t { kReset, kDefect, kReported, kClearing };

  /// Two reports of one priority lie at least this far apart: between them the alarm must clear, and then last.
  static constexpr Duration kReportSpacing = std::chrono::seconds(5);
  static_assert(kShortestFaultTime + kShortestFaultTime >= kReportSpacing);

  /// A timer that runs takes the new time from its own beginning.
  void set_times(const FaultTimes& times) { times_ = times; }

  /// `alarm`: the highest priority that is present now and allowed to raise an alarm. True: the fault is to be
  /// reported, now. Also to be called when the deadline has come.
  bool Update(Defect alarm, TimePoint now);

  TimePoint deadline() const;
  State state() const { return state_; }
  /// Since the reset state was left.
  Defect highest() const { return highest_; }
  /// From the report to the reset: so long a fault action holds.
  bool in_force() const { return state_ == State::kReported || state_ == State::kClearing; }
  void Reset();

 private:
  bool EndTimer(TimePoint now);
  bool Reported(Defect alarm);
  void Enter(State state, TimePoint now);

  FaultTimes times_;
  State state_ = State::kReset;
  TimePoint since_;
  Defect highest_ = Defect::kNone;
};

}  // namespace cfm::protocol

#endif
