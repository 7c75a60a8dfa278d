#include "protocol/ccm_sender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <vector>

#include "recording_output.h"

namespace cfm::protocol {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

class ACcmSender : public testing::Test {
 protected:
  /// Wakes the sender exactly when it asks for it.
  void RunTo(TimePoint end) {
    for (; sender_.deadline() <= end; sender_.Advance(now_)) now_ = sender_.deadline();
    now_ = end;
  }
  void RunFor(Duration span) { RunTo(now_ + span); }

  TimePoint now_ = kStart;
  bool can_send_ = true;
  std::vector<Duration> sent_at_;
  std::vector<std::uint32_t> sequence_;
  CcmSender sender_{[this](std::uint32_t sequence_number) {
    if (!can_send_) return false;
    sent_at_.push_back(now_ - kStart);
    sequence_.push_back(sequence_number);
    return true;
  }};
};

TEST_F(ACcmSender, SendsNothingBeforeItIsStartedOrAfterItIsStopped) {
  EXPECT_EQ(sender_.deadline(), kNever);
  sender_.Start(100ms, 0ms, now_);
  sender_.Stop();
  sender_.Advance(now_ + 1h);
  sender_.StatusChanged(now_ + 1h);
  EXPECT_EQ(sender_.deadline(), kNever);
  EXPECT_THAT(sent_at_, ElementsAre());
}

TEST_F(ACcmSender, PutsTheFirstCcmAtThePhaseItIsGiven) {
  sender_.Start(100ms, 30ms, now_);
  RunFor(300ms);
  EXPECT_THAT(sent_at_, ElementsAre(30ms, 130ms, 230ms));
}

TEST_F(ACcmSender, SendsAtEveryIntervalAsOftenAsItSays) {
  for (std::uint8_t code = 1; code <= 7; ++code) {
    const Duration interval = *IntervalOf(code);
    const std::uint64_t before = sender_.counters().sent;
    sender_.Start(interval, 0ns, now_);
    RunFor(interval * 3000 - 1ns);
    EXPECT_EQ(sender_.counters().sent - before, 3000U) << "code " << int{code};
  }
  EXPECT_EQ(*IntervalOf(1), 3333333ns);
  EXPECT_FALSE(IntervalOf(0) || IntervalOf(8));
}

TEST_F(ACcmSender, DoesNotAddUpLateness) {
  sender_.Start(10ms, 0ms, now_);
  for (int i = 0; i < 100; ++i) {
    now_ = sender_.deadline() + 3ms;
    sender_.Advance(now_);
  }
  EXPECT_EQ(sent_at_.back(), 990ms + 3ms);
}

TEST_F(ACcmSender, SendsOneCcmForAllSlotsThatItMissed) {
  sender_.Start(100ms, 0ms, now_);
  RunFor(0ms);
  now_ += 525ms;
  sender_.Advance(now_);
  RunFor(100ms);
  EXPECT_THAT(sent_at_, ElementsAre(0ms, 525ms, 600ms));
}

TEST_F(ACcmSender, CountsACcmAsLateBeyondOneAndAHalfIntervals) {
  sender_.Start(100ms, 0ms, now_);
  RunFor(0ms);
  sender_.Advance(now_ += 150ms);
  EXPECT_EQ(sender_.counters().late, 0U);
  RunFor(50ms);
  sender_.Advance(now_ += 151ms);
  EXPECT_EQ(sender_.counters().late, 1U);
}

TEST_F(ACcmSender, WrapsItsSequenceNumber) {
  std::vector<std::uint32_t> sequence;
  CcmSender sender(
      [&sequence](std::uint32_t sequence_number) {
        sequence.push_back(sequence_number);
        return true;
      },
      0xfffffffe);
  sender.Start(10ms, 0ms, now_);
  for (int i = 0; i < 3; ++i) sender.Advance(sender.deadline());
  EXPECT_THAT(sequence, ElementsAre(0xffffffffU, 0U, 1U));
  EXPECT_EQ(sender.counters().sent, 3U);
}

TEST_F(ACcmSender, CountsUpByOne) {
  sender_.Start(10ms, 0ms, now_);
  RunFor(20ms);
  EXPECT_THAT(sequence_, ElementsAre(1U, 2U, 3U));
  EXPECT_EQ(sender_.sequence_number(), 3U);
}

TEST_F(ACcmSender, KeepsTheSequenceWhenTheCountersAreCleared) {
  sender_.Start(10ms, 0ms, now_);
  RunFor(20ms);
  sender_.ClearCounters();
  RunFor(10ms);
  EXPECT_EQ(sender_.sequence_number(), 4U);
  EXPECT_EQ(sender_.counters().sent, 1U);
}

TEST_F(ACcmSender, TellsAChangeAtOnceButOncePerInterval) {
  sender_.Start(1s, 500ms, now_);
  RunFor(1600ms);
  sender_.StatusChanged(now_);
  RunFor(100ms);
  sender_.StatusChanged(now_);
  RunFor(900ms);
  sender_.StatusChanged(now_);
  EXPECT_THAT(sent_at_, ElementsAre(500ms, 1500ms, 1600ms, 2500ms, 2600ms));
}

TEST_F(ACcmSender, CountsAFailedSendApartAndGoesOn) {
  sender_.Start(10ms, 0ms, now_);
  RunFor(0ms);
  can_send_ = false;
  RunFor(20ms);
  can_send_ = true;
  RunFor(10ms);
  EXPECT_EQ(sender_.counters().sent, 2U);
  EXPECT_EQ(sender_.counters().failed, 2U);
  EXPECT_THAT(sequence_, ElementsAre(1U, 2U));
}

}  // namespace
}  // namespace cfm::protocol
