// One series of two-way delay measurements, on demand or of a probe's session (ITU-T Y.1731).
#ifndef CFM_SERVER_PROTOCOL_DELAY_RUN_H
#define CFM_SERVER_PROTOCOL_DELAY_RUN_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "pdu/delay.h"
#include "pdu/mac_address.h"
#include "protocol/delay_statistics.h"
#include "protocol/frame.h"
#include "protocol/test_error.h"
#include "protocol/time.h"
#include "protocol/transmitter.h"

namespace cfm::protocol {

struct DelayParameters {
  std::uint32_t messages = 1;        ///< 1 to 1024
  std::uint32_t interval_ms = 1000;  ///< from message to message, 10 to 60000
  std::uint32_t data_octets = 0;     ///< 0 to 1480, and within the port's MTU
  std::uint32_t priority = 0;        ///< 0 to 7
  bool proactive = false;            ///< of a standing session

  bool operator==(const DelayParameters&) const = default;
};

/// None when a run with these can be started.
std::optional<TestError> Check(const DelayParameters& parameters, const Transmitter& transmitter);

class DelayRun {
 public:
  /// For replies, after the last message.
  static constexpr Duration kPatience = std::chrono::seconds(5);
  /// More than this between the system's clock and the monotonic one, from a message to its reply, means a step.
  static constexpr Duration kClockStep = std::chrono::milliseconds(1);

  enum class Reply : std::uint8_t { kStranger, kDuplicate, kTaken };

  /// Sends the first message. The parameters must have passed Check().
  DelayRun(Transmitter& transmitter, const DelayParameters& parameters, const pdu::MacAddress& target, TimePoint now);

  /// A reply that was addressed to this end point.
  Reply Receive(const pdu::TwoWayDelay& dmr, const Stamps& stamps);
  /// When a message left.
  void Stamped(std::uint32_t stamp_id, const Stamps& stamps);

  void Advance(TimePoint now);
  TimePoint deadline() const { return next_; }
  /// All replies are in, or it has been waited long enough.
  bool over() const { return next_ == kNever; }

  Duration started_at() const { return started_at_; }  ///< since 1970
  DelayResult result() const;

 private:
  struct Message {
    Duration sent_f;  ///< as it stands in the frame: the key of the reply
    ClockReading sent;
    std::uint32_t stamp_id;
    Stamps stamps{};
    bool answered = false;
    std::optional<Duration> delay{};
  };

  void SendOne();
  void Measure(Message& message, const pdu::TwoWayDelay& dmr, const Stamps& received);
  bool all_tried() const { return messages_.size() == parameters_.messages; }

  Transmitter& transmitter_;
  DelayParameters parameters_;
  pdu::MacAddress target_;
  TimePoint next_;
  Duration started_at_;
  std::vector<Message> messages_;
  std::uint32_t sent_ = 0;
  std::uint32_t answered_ = 0;
  std::uint32_t duplicates_ = 0;
  std::uint32_t discarded_ = 0;
  std::uint32_t without_stamps_ = 0;
};

}  // namespace cfm::protocol

#endif
