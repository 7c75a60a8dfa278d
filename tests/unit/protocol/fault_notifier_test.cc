#include "protocol/fault_notifier.h"

#include <gtest/gtest.h>

#include <chrono>

#include "recording_output.h"

namespace cfm::protocol {
namespace {

using namespace std::chrono_literals;
using State = FaultNotifier::State;

class AFaultNotifier : public testing::Test {
 protected:
  AFaultNotifier() { notifier_.set_times({.alarm = 2500ms, .reset = 10s}); }

  bool At(Duration time, Defect alarm) { return notifier_.Update(alarm, kStart + time); }
  void ReportAt2500() {
    At(0s, Defect::kRemoteCcm);
    ASSERT_TRUE(At(2500ms, Defect::kRemoteCcm));
  }

  FaultNotifier notifier_;
};

TEST_F(AFaultNotifier, StaysInResetWithoutAnAlarm) {
  EXPECT_FALSE(At(0s, Defect::kNone));
  EXPECT_EQ(notifier_.state(), State::kReset);
  EXPECT_EQ(notifier_.deadline(), kNever);
}

TEST_F(AFaultNotifier, ReportsAnAlarmThatHasLastedForTheAlarmTime) {
  EXPECT_FALSE(At(0s, Defect::kRemoteCcm));
  EXPECT_EQ(notifier_.state(), State::kDefect);
  EXPECT_EQ(notifier_.deadline(), kStart + 2500ms);
  EXPECT_FALSE(At(2499ms, Defect::kRemoteCcm));
  EXPECT_TRUE(At(2500ms, Defect::kRemoteCcm));
  EXPECT_EQ(notifier_.state(), State::kReported);
  EXPECT_FALSE(At(1h, Defect::kRemoteCcm));
}

TEST_F(AFaultNotifier, ForgetsAnAlarmThatEndsBefore) {
  At(0s, Defect::kRemoteCcm);
  EXPECT_FALSE(At(2400ms, Defect::kNone));
  EXPECT_EQ(notifier_.state(), State::kReset);
  EXPECT_EQ(notifier_.highest(), Defect::kNone);
  EXPECT_FALSE(At(2500ms, Defect::kNone));
}

TEST_F(AFaultNotifier, ClearsForTheResetTimeAndThenResets) {
  ReportAt2500();
  At(3s, Defect::kNone);
  EXPECT_EQ(notifier_.state(), State::kClearing);
  EXPECT_EQ(notifier_.deadline(), kStart + 13s);
  At(12999ms, Defect::kNone);
  EXPECT_EQ(notifier_.state(), State::kClearing);
  At(13s, Defect::kNone);
  EXPECT_EQ(notifier_.state(), State::kReset);
  EXPECT_EQ(notifier_.highest(), Defect::kNone);
}

TEST_F(AFaultNotifier, GoesBackToReportedInSilenceWhenTheAlarmReturnsWhileClearing) {
  ReportAt2500();
  At(3s, Defect::kNone);
  EXPECT_FALSE(At(12s, Defect::kRemoteCcm));
  EXPECT_EQ(notifier_.state(), State::kReported);
  At(12500ms, Defect::kNone);
  EXPECT_EQ(notifier_.deadline(), kStart + 22500ms) << "the reset time begins anew";
}

TEST_F(AFaultNotifier, ReportsAgainWhenAHigherPriorityArrives) {
  ReportAt2500();
  EXPECT_TRUE(At(3s, Defect::kXconCcm));
  EXPECT_EQ(notifier_.highest(), Defect::kXconCcm);
  EXPECT_FALSE(At(4s, Defect::kErrorCcm));
  EXPECT_FALSE(At(5s, Defect::kXconCcm));
}

TEST_F(AFaultNotifier, ReportsAHigherPriorityThatArrivesWhileClearing) {
  ReportAt2500();
  At(3s, Defect::kNone);
  EXPECT_TRUE(At(4s, Defect::kErrorCcm));
}

TEST_F(AFaultNotifier, RemembersTheHighestPrioritySinceTheReset) {
  At(0s, Defect::kXconCcm);
  At(1s, Defect::kRemoteCcm);
  EXPECT_EQ(notifier_.highest(), Defect::kXconCcm);
  EXPECT_TRUE(At(2500ms, Defect::kRemoteCcm)) << "the alarm as such has lasted";
  EXPECT_EQ(notifier_.highest(), Defect::kXconCcm);
}

TEST_F(AFaultNotifier, HoldsTheActionFromTheReportToTheReset) {
  At(0s, Defect::kRemoteCcm);
  EXPECT_FALSE(notifier_.in_force());
  At(2500ms, Defect::kRemoteCcm);
  EXPECT_TRUE(notifier_.in_force());
  At(3s, Defect::kNone);
  EXPECT_TRUE(notifier_.in_force());
  At(13s, Defect::kNone);
  EXPECT_FALSE(notifier_.in_force());
}

TEST_F(AFaultNotifier, BeginsAnewWithAnAlarmThatIsThereWhenItResets) {
  ReportAt2500();
  At(3s, Defect::kNone);
  EXPECT_FALSE(At(13s, Defect::kRemoteCcm));
  EXPECT_EQ(notifier_.state(), State::kDefect);
}

TEST_F(AFaultNotifier, ReportsOnePriorityAtMostEveryFiveSeconds) {
  notifier_.set_times({.alarm = kShortestFaultTime, .reset = kShortestFaultTime});
  std::vector<Duration> reports;
  for (Duration time = 0s; time < 5min; time += 10ms) {
    // On for as long as it takes, then off for as long as it takes.
    const bool on = !notifier_.in_force();
    if (At(time, on ? Defect::kRemoteCcm : Defect::kNone)) reports.push_back(time);
  }
  ASSERT_GT(reports.size(), 10U);
  for (std::size_t i = 1; i < reports.size(); ++i) EXPECT_GE(reports[i] - reports[i - 1], 5s);
}

TEST_F(AFaultNotifier, GivesARunningTimerItsNewTime) {
  At(0s, Defect::kRemoteCcm);
  notifier_.set_times({.alarm = 5s, .reset = 10s});
  EXPECT_EQ(notifier_.deadline(), kStart + 5s);
}

TEST(AFaultTime, CountsStepsOfTenMillisecondsBetweenItsBounds) {
  EXPECT_EQ(FaultTime(300), 3s);
  EXPECT_EQ(FaultTime(250), 2500ms);
  EXPECT_EQ(FaultTime(249), 2500ms);
  EXPECT_EQ(FaultTime(0), 2500ms);
  EXPECT_EQ(FaultTime(1000), 10s);
  EXPECT_EQ(FaultTime(1001), 10s);
  EXPECT_EQ(FaultTime(65535), 10s);
}

}  // namespace
}  // namespace cfm::protocol
