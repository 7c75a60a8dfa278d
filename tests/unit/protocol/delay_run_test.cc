#include "protocol/delay_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "pdu/delay.h"
#include "protocol/delay_initiator.h"
#include "protocol/delay_responder.h"
#include "protocol/time_stamp.h"
#include "recording_output.h"

namespace cfm::protocol {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Reply = DelayRun::Reply;

constexpr Addressing OfStation(std::uint8_t number) {
  return {.level = 5, .address = {2, 0, 0, 0, 0, number}, .primary_vid = 0, .inner_vid = 0, .mtu = 1500};
}

class ADelayRun : public testing::Test {
 protected:
  ADelayRun() { transmitter_.set_addressing(OfStation(1)); }

  DelayRun& Start(const DelayParameters& parameters) {
    return run_.emplace(transmitter_, parameters, Station(2), output_.now);
  }

  void RunFor(Duration span) {
    const TimePoint end = output_.now + span;
    for (; run_->deadline() <= end; run_->Advance(output_.now)) output_.now = run_->deadline();
    output_.now = end;
  }

  pdu::TwoWayDelay Dmm(std::size_t index) { return *pdu::DecodeDmm(output_.frames.at(index).pdu); }

  /// The reply to a message that was held by the responder for this time; none: the responder does not say.
  Reply Answer(std::size_t index, std::optional<Duration> holding = std::nullopt, const Stamps& stamps = {}) {
    pdu::TwoWayDelay dmr = Dmm(index);
    if (holding) {
      constexpr Duration kForeignClock = 77h;
      dmr.received_f = ToTimeStamp(kForeignClock);
      dmr.sent_b = ToTimeStamp(kForeignClock + *holding);
    }
    return run_->Receive(dmr, stamps);
  }

  RecordingOutput output_;
  Transmitter transmitter_{output_};
  std::optional<DelayRun> run_;
};

TEST_F(ADelayRun, SendsMessagesAtItsIntervalWithTheirTime) {
  Start({.messages = 3, .interval_ms = 20, .data_octets = 8, .priority = 5});
  RunFor(19ms);
  EXPECT_THAT(output_.frames, SizeIs(1));
  RunFor(1s);
  ASSERT_THAT(output_.frames, SizeIs(3));
  EXPECT_EQ(output_.frames[0].header.destination, Station(2));
  EXPECT_NE(output_.frames[0].stamp_id, output_.frames[1].stamp_id);
  EXPECT_EQ(Dmm(0).level, 5);
  EXPECT_EQ(Dmm(0).version, 0);
  EXPECT_FALSE(Dmm(0).proactive);
  EXPECT_EQ(Dmm(0).sent_f, ToTimeStamp(kStart.time_since_epoch() + output_.system_offset));
  EXPECT_EQ(Dmm(0).received_f, pdu::TimeStamp{});
  EXPECT_THAT(Dmm(0).data, SizeIs(8));
  EXPECT_EQ(ToDuration(Dmm(2).sent_f) - ToDuration(Dmm(0).sent_f), 40ms);
}

TEST_F(ADelayRun, MarksTheMessagesOfAStandingSession) {
  Start({.proactive = true});
  EXPECT_TRUE(Dmm(0).proactive);
}

TEST_F(ADelayRun, SubtractsTheTimeInTheResponder) {
  Start({.messages = 2, .interval_ms = 100});
  RunFor(3ms);
  Answer(0, 1ms);
  RunFor(97ms + 7ms);
  Answer(1, 5ms);
  const DelayResult result = run_->result();
  EXPECT_EQ(result.sent, 2U);
  EXPECT_EQ(result.received, 2U);
  EXPECT_EQ(result.delay.min, 2ms);
  EXPECT_EQ(result.delay.max, 2ms);
  EXPECT_EQ(result.variation.max, 0ms);
  EXPECT_TRUE(run_->over());
}

TEST_F(ADelayRun, TakesTheWholeTimeWhenTheResponderDoesNotSay) {
  Start({});
  RunFor(3ms);
  Answer(0);
  EXPECT_EQ(run_->result().delay.max, 3ms);
}

TEST_F(ADelayRun, MeasuresBetweenTheKernelsStampsWhenItHasBoth) {
  Start({});
  const Duration sent = output_.ReadClocks().system;
  run_->Stamped(*output_.frames[0].stamp_id, {.software = sent + 200us, .card = std::nullopt});
  RunFor(3ms);
  Answer(0, 1ms, {.software = sent + 2700us, .card = std::nullopt});
  EXPECT_EQ(run_->result().delay.max, 1500us);
  EXPECT_EQ(run_->result().without_stamps, 0U);
}

TEST_F(ADelayRun, PrefersTheCardsStampsAndNeverMixesThemWithTheSystems) {
  Start({.messages = 2, .interval_ms = 10});
  const Duration sent = output_.ReadClocks().system;
  run_->Stamped(*output_.frames[0].stamp_id, {.software = sent, .card = 5s});
  RunFor(2ms);
  Answer(0, std::nullopt, {.software = sent + 2ms, .card = 5s + 1ms});
  RunFor(8ms);
  run_->Stamped(*output_.frames[1].stamp_id, {.software = std::nullopt, .card = 6s});
  RunFor(2ms);
  Answer(1, std::nullopt, {.software = sent + 12ms, .card = std::nullopt});
  EXPECT_EQ(run_->result().delay.min, 1ms);
  EXPECT_EQ(run_->result().delay.max, 2ms);
  EXPECT_EQ(run_->result().without_stamps, 1U);
}

TEST_F(ADelayRun, DiscardsASampleDuringWhichTheSystemsClockWasStepped) {
  Start({.messages = 3, .interval_ms = 100});
  RunFor(2ms);
  output_.system_offset -= 1h;
  EXPECT_EQ(Answer(0), Reply::kTaken);
  RunFor(100ms);
  Answer(1);
  RunFor(100ms);
  output_.system_offset += 2ms;
  Answer(2);
  const DelayResult result = run_->result();
  EXPECT_EQ(result.sent, 3U);
  EXPECT_EQ(result.received, 1U);
  EXPECT_EQ(result.discarded, 2U);
  EXPECT_EQ(result.delay.max, 2ms);
}

TEST_F(ADelayRun, DiscardsWhatWouldBeNegative) {
  Start({.messages = 2, .interval_ms = 10});
  RunFor(2ms);
  Answer(0, 3ms);
  RunFor(10ms);
  Answer(1, -1ms);
  EXPECT_EQ(run_->result().received, 0U);
  EXPECT_EQ(run_->result().discarded, 2U);
}

TEST_F(ADelayRun, SurvivesTheMostAbsurdStampsOfAResponder) {
  Start({.messages = 2, .interval_ms = 10});
  RunFor(2ms);
  constexpr pdu::TimeStamp kLargest{.seconds = 0xffffffff, .nanoseconds = 0xffffffff};
  pdu::TwoWayDelay dmr = Dmm(0);
  dmr.received_f = {.seconds = 0, .nanoseconds = 1};
  dmr.sent_b = kLargest;
  EXPECT_EQ(run_->Receive(dmr, {}), Reply::kTaken);
  RunFor(10ms);
  dmr = Dmm(1);
  dmr.received_f = kLargest;
  dmr.sent_b = {.seconds = 0, .nanoseconds = 1};
  EXPECT_EQ(run_->Receive(dmr, {}), Reply::kTaken);
  EXPECT_EQ(run_->result().discarded, 2U);
}

TEST_F(ADelayRun, CountsAReplyOnceAndStrangersNotAtAll) {
  Start({.messages = 2, .interval_ms = 10});
  EXPECT_EQ(Answer(0), Reply::kTaken);
  EXPECT_EQ(Answer(0), Reply::kDuplicate);
  pdu::TwoWayDelay foreign = Dmm(0);
  ++foreign.sent_f.nanoseconds;
  EXPECT_EQ(run_->Receive(foreign, {}), Reply::kStranger);
  EXPECT_EQ(run_->result().received, 1U);
  EXPECT_EQ(run_->result().duplicates, 1U);
}

TEST_F(ADelayRun, TellsMessagesOfOneNanosecondApart) {
  Start({.messages = 2, .interval_ms = 10});
  output_.system_offset -= 10ms;  // the second message finds the clock where the first did
  RunFor(10ms);
  EXPECT_NE(Dmm(0).sent_f, Dmm(1).sent_f);
}

TEST_F(ADelayRun, TakesNoVariationAcrossALostMessage) {
  Start({.messages = 4, .interval_ms = 10});
  for (const auto delay :
       {std::optional(1ms), std::optional(2ms), std::optional<std::chrono::milliseconds>(), std::optional(4ms)}) {
    const std::size_t index = output_.frames.size() - 1;
    RunFor(delay.value_or(0ms));
    if (delay) Answer(index);
    RunFor(10ms - delay.value_or(0ms));
  }
  const DelayResult result = run_->result();
  EXPECT_EQ(result.received, 3U);
  EXPECT_EQ(result.variation.count, 1U);
  EXPECT_EQ(result.variation.max, 1ms);
}

TEST_F(ADelayRun, IsOverFiveSecondsAfterTheLastMessage) {
  Start({.messages = 2, .interval_ms = 1000});
  RunFor(6s - 1ns);
  EXPECT_FALSE(run_->over());
  RunFor(1ns);
  EXPECT_TRUE(run_->over());
  EXPECT_EQ(run_->deadline(), kNever);
}

TEST_F(ADelayRun, CountsNoMessageThatDidNotLeave) {
  output_.can_send = false;
  Start({.messages = 2, .interval_ms = 10});
  output_.can_send = true;
  RunFor(10ms);
  Answer(0);
  EXPECT_TRUE(run_->over());
  EXPECT_EQ(run_->result().sent, 1U);
}

TEST(DelayParametersOutOfBounds, AreRefused) {
  RecordingOutput output;
  Transmitter transmitter(output);
  transmitter.set_addressing(OfStation(1));
  const auto check = [&transmitter](const DelayParameters& parameters) { return Check(parameters, transmitter); };
  EXPECT_FALSE(check({.messages = 1, .interval_ms = 10, .data_octets = 0, .priority = 0}));
  EXPECT_FALSE(check({.messages = 1024, .interval_ms = 60000, .data_octets = 1400, .priority = 7}));
  EXPECT_EQ(check({.messages = 0}), TestError::kBadParameter);
  EXPECT_EQ(check({.messages = 1025}), TestError::kBadParameter);
  EXPECT_EQ(check({.interval_ms = 9}), TestError::kBadParameter);
  EXPECT_EQ(check({.interval_ms = 60001}), TestError::kBadParameter);
  EXPECT_EQ(check({.data_octets = 1481}), TestError::kBadParameter);
  EXPECT_EQ(check({.data_octets = 1480}), TestError::kBadParameter) << "beyond the MTU with its 36 octets before it";
  EXPECT_EQ(check({.priority = 8}), TestError::kBadParameter);
}

class ADelayInitiator : public ADelayRun {
 protected:
  pdu::EthernetHeader From(std::uint8_t station) {
    pdu::EthernetHeader header;
    header.source = Station(station);
    return header;
  }

  DelayInitiator initiator_{transmitter_, output_};
};

TEST_F(ADelayInitiator, TellsTheStartEveryReplyAndTheEnd) {
  EXPECT_FALSE(
      initiator_.Start({.trigger_id = 4, .parameters = {.messages = 2, .interval_ms = 10}}, Station(2), output_.now));
  initiator_.Receive(From(2), Dmm(0), {});
  output_.now += 10ms;
  initiator_.Advance(output_.now);
  initiator_.Receive(From(2), Dmm(1), {});
  EXPECT_THAT(output_.events, ElementsAre("delay 4 started to 2", "delay 4 reply from 2", "delay 4 reply from 2",
                                          "delay 4 ended: 2 of 2"));
  EXPECT_EQ(initiator_.deadline(), kNever);
}

TEST_F(ADelayInitiator, RefusesASecondRunAndBadParameters) {
  EXPECT_EQ(initiator_.Start({.parameters = {.messages = 0}}, Station(2), output_.now), TestError::kBadParameter);
  EXPECT_THAT(output_.events, IsEmpty());
  initiator_.Start({}, Station(2), output_.now);
  EXPECT_EQ(initiator_.Start({}, Station(2), output_.now), TestError::kTooManyTests);
}

TEST_F(ADelayInitiator, EndsWithWhatWasMeasuredWhenItIsAborted) {
  initiator_.Start({.trigger_id = 4, .parameters = {.messages = 9, .interval_ms = 10}}, Station(2), output_.now);
  initiator_.Receive(From(2), Dmm(0), {});
  initiator_.Abort();
  EXPECT_EQ(output_.events.back(), "delay 4 ended: 1 of 1");
  EXPECT_EQ(initiator_.Receive(From(2), Dmm(0), {}), Reply::kStranger);
}

class ADelayResponder : public ADelayRun {
 protected:
  ReceivedFrame Received(const std::vector<std::uint8_t>& dmm, const Stamps& stamps) {
    pdu::EthernetHeader header;
    header.destination = Station(1);
    header.source = Station(2);
    header.outer = pdu::Tag{.priority = 5, .drop_eligible = false, .vid = 100};
    return {.header = header, .pdu = dmm, .stamps = stamps};
  }
};

TEST_F(ADelayResponder, FillsInWhenTheKernelSawTheMessageAndWhenTheReplyLeaves) {
  Start({.data_octets = 20});
  auto dmm = output_.TakeFrames().at(0).pdu;
  const Duration now = output_.ReadClocks().system;
  AnswerDmm(Received(dmm, {.software = now - 50us, .card = 1s}), transmitter_);
  ASSERT_THAT(output_.frames, SizeIs(1));
  EXPECT_EQ(output_.frames[0].header.destination, Station(2));
  EXPECT_EQ(output_.frames[0].header.source, Station(1));
  EXPECT_EQ(output_.frames[0].header.outer, (pdu::Tag{.priority = 5, .drop_eligible = false, .vid = 100}));
  const auto dmr = pdu::DecodeDmr(output_.frames[0].pdu);
  ASSERT_TRUE(dmr);
  EXPECT_EQ(dmr->sent_f, pdu::DecodeDmm(dmm)->sent_f);
  EXPECT_EQ(dmr->received_f, ToTimeStamp(now - 50us));
  EXPECT_EQ(dmr->sent_b, ToTimeStamp(now));
  EXPECT_EQ(dmr->received_b, pdu::TimeStamp{});
  EXPECT_THAT(dmr->data, SizeIs(20));
}

TEST_F(ADelayResponder, NeverSendsAReplyBeforeItsMessageCame) {
  Start({});
  const auto dmm = output_.TakeFrames().at(0).pdu;
  const Duration later = output_.ReadClocks().system + 1s;
  AnswerDmm(Received(dmm, {.software = later, .card = std::nullopt}), transmitter_);
  EXPECT_EQ(pdu::DecodeDmr(output_.frames.at(0).pdu)->sent_b, ToTimeStamp(later));
}

TEST_F(ADelayResponder, ReadsTheClockWhereTheKernelGaveNoStamp) {
  Start({});
  const auto dmm = output_.TakeFrames().at(0).pdu;
  AnswerDmm(Received(dmm, {.software = std::nullopt, .card = 1s}), transmitter_);
  EXPECT_EQ(pdu::DecodeDmr(output_.frames.at(0).pdu)->received_f, ToTimeStamp(output_.ReadClocks().system));
}

}  // namespace
}  // namespace cfm::protocol
