#include "protocol/probe.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "network.h"
#include "recording_output.h"

namespace cfm::protocol {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// Two elements a millisecond apart; the first one probes the second.
class AProbe : public testing::Test {
 protected:
  AProbe() {
    network_.delay = 1ms;
    network_.RunFor(2s);
    one_.TakeEvents();
  }

  void Begin(std::uint16_t interval_s) {
    one_.Do([&](Mep& mep, TimePoint now) {
      mep.SetProbe(1, interval_s, 2, now);
      return 0;
    });
  }

  void SetSession(std::uint16_t session_id, const DelayParameters& parameters) {
    one_.Do([&](Mep& mep, TimePoint) {
      mep.SetSession(1, session_id, parameters);
      return 0;
    });
  }

  Network network_;
  Element& one_ = network_.Add(1, Watching(4, {1, 2}));
  Element& two_ = network_.Add(2, Watching(4, {1, 2}));
};

TEST_F(AProbe, RunsItsSessionsInTheOrderOfTheirIdsAgainAndAgain) {
  Begin(10);
  SetSession(20, {.messages = 2, .interval_ms = 50});
  SetSession(10, {.messages = 3, .interval_ms = 50});
  network_.RunFor(25s);
  EXPECT_THAT(one_.TakeEvents(),
              ElementsAre("probe 1 session 10 run 1 complete: 3 of 3", "probe 1 session 20 run 1 complete: 2 of 2",
                          "probe 1 session 10 run 2 complete: 3 of 3", "probe 1 session 20 run 2 complete: 2 of 2",
                          "probe 1 session 10 run 3 complete: 3 of 3", "probe 1 session 20 run 3 complete: 2 of 2"));
  ASSERT_THAT(one_.reports, SizeIs(6));
  const SessionReport& report = one_.reports[0];
  EXPECT_EQ(report.local_mep_id, 1);
  EXPECT_EQ(report.remote_mep_id, 2);
  EXPECT_EQ(report.result.delay.min, 2ms);
  EXPECT_EQ(report.result.delay.max, 2ms);
  EXPECT_EQ(one_.reports[2].started_at - report.started_at, 10s);
}

TEST_F(AProbe, WaitsBeforeItsFirstRunForAllOfItsSessions) {
  Begin(60);
  SetSession(1, {.messages = 1});
  network_.RunFor(500ms);
  SetSession(2, {.messages = 1});
  network_.RunFor(5s);
  EXPECT_THAT(one_.TakeEvents(),
              ElementsAre("probe 1 session 1 run 1 complete: 1 of 1", "probe 1 session 2 run 1 complete: 1 of 1"));
}

TEST_F(AProbe, SkipsARunWhoseTurnComesWhileTheOneBeforeIsGoing) {
  Begin(1);
  SetSession(1, {.messages = 25, .interval_ms = 100});
  network_.RunFor(9500ms);
  ASSERT_THAT(one_.reports, SizeIs(3));
  EXPECT_EQ(one_.reports[0].run, 1U);
  EXPECT_EQ(one_.reports[1].run, 2U);
  EXPECT_EQ(one_.reports[1].started_at - one_.reports[0].started_at, 3s);
  EXPECT_EQ(one_.mep->FindProbe(1)->skipped_runs(), 6U);
}

TEST_F(AProbe, ReportsWhatWasLost) {
  Begin(60);
  SetSession(1, {.messages = 10, .interval_ms = 100});
  int frames = 0;
  network_.lose = [&](const Element& from, const Element&) { return &from == &two_ && ++frames % 3 == 0; };
  network_.RunFor(30s);
  ASSERT_THAT(one_.reports, SizeIs(1));
  EXPECT_TRUE(one_.reports[0].complete);
  EXPECT_EQ(one_.reports[0].result.sent, 10U);
  EXPECT_LT(one_.reports[0].result.received, 10U);
  EXPECT_GT(one_.reports[0].result.received, 3U);
}

TEST_F(AProbe, WaitsForSessionsAndForItsRemoteMep) {
  Element& other = network_.Add(3, Watching(4, {3, 4}), 5, 2);
  other.Do([](Mep& mep, TimePoint now) {
    mep.SetProbe(1, 5, 4, now);
    mep.SetSession(1, 1, {.messages = 1});
    return 0;
  });
  Begin(5);
  network_.RunFor(20s);
  EXPECT_THAT(one_.reports, IsEmpty());
  SetSession(1, {.messages = 1});
  network_.RunFor(2s);
  EXPECT_THAT(one_.reports, SizeIs(1));
  EXPECT_THAT(other.reports, IsEmpty());
  network_.Add(4, Watching(4, {3, 4}), 5, 2);
  network_.RunFor(4s);
  ASSERT_THAT(other.reports, SizeIs(1));
  EXPECT_EQ(other.reports[0].run, 1U);
}

TEST_F(AProbe, AbortsASessionThatIsRemovedAndGoesOnWithTheNext) {
  Begin(60);
  SetSession(1, {.messages = 100, .interval_ms = 100});
  SetSession(2, {.messages = 1});
  network_.RunFor(Probe::kSettling + 1550ms);
  one_.Do([](Mep& mep, TimePoint now) {
    mep.RemoveSession(1, 1, now);
    return 0;
  });
  network_.RunFor(1s);
  ASSERT_THAT(one_.reports, SizeIs(2));
  EXPECT_FALSE(one_.reports[0].complete);
  EXPECT_GT(one_.reports[0].result.received, 10U);
  EXPECT_EQ(one_.reports[1].session_id, 2);
  EXPECT_TRUE(one_.reports[1].complete);
}

TEST_F(AProbe, AbortsItsRunWhenItOrItsEndPointIsRemoved) {
  Begin(60);
  SetSession(1, {.messages = 100, .interval_ms = 100});
  network_.RunFor(1500ms);
  one_.Do([](Mep& mep, TimePoint) {
    mep.RemoveProbe(1);
    return 0;
  });
  ASSERT_THAT(one_.reports, SizeIs(1));
  EXPECT_FALSE(one_.reports[0].complete);
  Begin(60);
  SetSession(1, {.messages = 100, .interval_ms = 100});
  network_.RunFor(1500ms);
  one_.mep->Remove();
  ASSERT_THAT(one_.reports, SizeIs(2));
  EXPECT_FALSE(one_.reports[1].complete);
}

TEST_F(AProbe, IsNotDisturbedByBeingSetAgain) {
  Begin(60);
  SetSession(1, {.messages = 20, .interval_ms = 100});
  network_.RunFor(1500ms);
  Begin(60);
  SetSession(1, {.messages = 20, .interval_ms = 100});
  network_.RunFor(10s);
  EXPECT_THAT(one_.TakeEvents(), ElementsAre("probe 1 session 1 run 1 complete: 20 of 20"));
}

TEST_F(AProbe, LeavesOutASessionThatCannotBeRun) {
  Begin(60);
  SetSession(1, {.messages = 0});
  SetSession(2, {.messages = 1});
  network_.RunFor(5s);
  EXPECT_THAT(one_.TakeEvents(), ElementsAre("probe 1 session 2 run 1 complete: 1 of 1"));
}

}  // namespace
}  // namespace cfm::protocol
