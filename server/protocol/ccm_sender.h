// When to send a CCM (IEEE 802.1Q clause 20.10).
#ifndef CFM_SERVER_PROTOCOL_CCM_SENDER_H
#define CFM_SERVER_PROTOCOL_CCM_SENDER_H

#include <cstdint>
#include <functional>
#include <utility>

#include "protocol/time.h"

namespace cfm::protocol {

class CcmSender {
 public:
  struct Counters {
    std::uint64_t sent = 0;
    std::uint64_t failed = 0;
    std::uint64_t late = 0;  ///< sent more than 1.5 intervals after the one before
  };

  /// Sends a CCM with this sequence number; false when it did not leave.
  using Send = std::function<bool(std::uint32_t sequence_number)>;

  /// `sequence_number`: that of the CCM before the first.
  explicit CcmSender(Send send, std::uint32_t sequence_number = 0)
      : send_(std::move(send)), sequence_number_(sequence_number) {}

  /// The first CCM leaves after `phase`, less than one interval.
  void Start(Duration interval, Duration phase, TimePoint now);
  void Stop() { next_ = kNever; }

  /// What a CCM says of the port has changed: one leaves at once, unless that happened less than an interval ago. Then
  /// the next regular one, which is near, has to do.
  void StatusChanged(TimePoint now);

  /// The last CCM did not leave after all: the next one takes its number.
  void NotSent();

  void Advance(TimePoint now);
  TimePoint deadline() const { return next_; }

  bool running() const { return next_ != kNever; }
  /// Of the last CCM that left.
  std::uint32_t sequence_number() const { return sequence_number_; }
  const Counters& counters() const { return counters_; }
  /// Leaves the sequence number alone.
  void ClearCounters() { counters_ = {}; }

 private:
  void SendOne(TimePoint now);

  Send send_;
  Duration interval_{};
  TimePoint next_ = kNever;
  TimePoint last_sent_ = kNever;  ///< never: none since the start
  TimePoint next_extra_;
  std::uint32_t sequence_number_;
  Counters counters_;
};

}  // namespace cfm::protocol

#endif
