#include "protocol/delay_run.h"

#include <algorithm>
#include <array>
#include <span>

#include "protocol/test_data.h"
#include "protocol/time_stamp.h"

namespace cfm::protocol {
namespace {

std::size_t Encode(const DelayParameters& parameters, const Transmitter& transmitter, Duration sent_f,
                   std::span<std::uint8_t> buffer) {
  const std::size_t room = std::min(buffer.size(), transmitter.addressing().mtu);
  return pdu::EncodeDmm({.level = transmitter.addressing().level,
                         .proactive = parameters.proactive,
                         .sent_f = ToTimeStamp(sent_f),
                         .received_f = {},
                         .sent_b = {},
                         .received_b = {},
                         .data = TestData(parameters.data_octets)},
                        buffer.first(room));
}

}  // namespace

std::optional<TestError> Check(const DelayParameters& parameters, const Transmitter& transmitter) {
  const auto within = [](std::uint32_t value, std::uint32_t least, std::uint32_t most) {
    return value >= least && value <= most;
  };
  std::array<std::uint8_t, kLargestPdu> buffer;
  const bool good = within(parameters.messages, 1, 1024) && within(parameters.interval_ms, 10, 60000) &&
                    parameters.data_octets <= kMostTestData && parameters.priority <= 7 &&
                    Encode(parameters, transmitter, {}, buffer) != 0;
  if (!good) return TestError::kBadParameter;
  return std::nullopt;
}

DelayRun::DelayRun(Transmitter& transmitter, const DelayParameters& parameters, const pdu::MacAddress& target,
                   TimePoint now)
    : transmitter_(transmitter),
      parameters_(parameters),
      target_(target),
      next_(now),
      started_at_(transmitter.ReadClocks().system) {
  Advance(now);
}

DelayRun::Reply DelayRun::Receive(const pdu::TwoWayDelay& dmr, const Stamps& stamps) {
  const Duration key = ToDuration(dmr.sent_f);
  const auto message = std::find_if(messages_.rbegin(), messages_.rend(), [key](const Message& candidate) {
    return ToDuration(ToTimeStamp(candidate.sent_f)) == key;
  });
  if (message == messages_.rend()) return Reply::kStranger;
  if (message->answered) {
    ++duplicates_;
    return Reply::kDuplicate;
  }
  message->answered = true;
  ++answered_;
  Measure(*message, dmr, stamps);
  if (all_tried() && answered_ == sent_) next_ = kNever;
  return Reply::kTaken;
}

void DelayRun::Stamped(std::uint32_t stamp_id, const Stamps& stamps) {
  for (Message& message : messages_) {
    if (message.stamp_id == stamp_id) message.stamps = stamps;
  }
}

void DelayRun::Advance(TimePoint now) {
  if (now < next_) return;
  if (all_tried()) {
    next_ = kNever;
    return;
  }
  SendOne();
  const Duration interval = std::chrono::milliseconds(parameters_.interval_ms);
  next_ = all_tried() ? now + kPatience : NextSlot(next_, interval, now);
}

DelayResult DelayRun::result() const {
  std::vector<std::optional<Duration>> delays;
  std::vector<Duration> samples;
  for (const Message& message : messages_) {
    delays.push_back(message.delay);
    if (message.delay) samples.push_back(*message.delay);
  }
  return {.sent = sent_,
          .received = static_cast<std::uint32_t>(samples.size()),
          .delay = Summarise(samples),
          .variation = Summarise(Variations(delays)),
          .data_octets = parameters_.data_octets,
          .duplicates = duplicates_,
          .discarded = discarded_,
          .without_stamps = without_stamps_};
}

void DelayRun::SendOne() {
  const ClockReading clocks = transmitter_.ReadClocks();
  Duration sent_f = clocks.system;
  // Two messages of one nanosecond could not be told apart.
  if (!messages_.empty() && messages_.back().sent_f == sent_f) sent_f += Duration(1);
  const std::uint32_t stamp_id = transmitter_.NextStampId();
  std::array<std::uint8_t, kLargestPdu> buffer;
  const pdu::Octets octets = pdu::Octets(buffer).first(Encode(parameters_, transmitter_, sent_f, buffer));
  messages_.push_back({
      .sent_f = sent_f,
      .sent = clocks,
      .stamp_id = stamp_id,
  });
  if (transmitter_.ToStation(target_, static_cast<std::uint8_t>(parameters_.priority), octets, stamp_id)) ++sent_;
}

void DelayRun::Measure(Message& message, const pdu::TwoWayDelay& dmr, const Stamps& received) {
  const ClockReading now = transmitter_.ReadClocks();
  Duration there_and_back{};
  if (message.stamps.card && received.card) {
    there_and_back = *received.card - *message.stamps.card;
  } else if (message.stamps.software && received.software) {
    there_and_back = *received.software - *message.stamps.software;
  } else {
    there_and_back = received.software.value_or(now.system) - message.sent_f;
    ++without_stamps_;
  }
  constexpr pdu::TimeStamp kNotFilledIn{};
  const bool holding_known = dmr.received_f != kNotFilledIn && dmr.sent_b != kNotFilledIn;
  const Duration holding = holding_known ? ToDuration(dmr.sent_b) - ToDuration(dmr.received_f) : Duration::zero();

  const Duration step = (now.system - message.sent.system) - (now.monotonic - message.sent.monotonic);
  const Duration delay = there_and_back - holding;
  if (std::chrono::abs(step) > kClockStep || holding < Duration::zero() || delay < Duration::zero()) {
    ++discarded_;
    return;
  }
  message.delay = delay;
}

}  // namespace cfm::protocol
