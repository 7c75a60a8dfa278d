// Several end points with each other, in simulated time.
#include "network.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>

namespace cfm::protocol {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

TEST(TwoMeps, FindEachOther) {
  Network network;
  Element& one = network.Add(1, Watching(4, {1, 2}));
  Element& two = network.Add(2, Watching(4, {1, 2}));
  network.RunFor(2s);
  EXPECT_EQ(one.Sees(2), RemoteState::kOk);
  EXPECT_EQ(two.Sees(1), RemoteState::kOk);
  network.RunFor(1min);
  EXPECT_EQ(one.mep->status().defects, DefectFlags{});
  EXPECT_EQ(two.mep->status().defects, DefectFlags{});
}

TEST(TwoMeps, StayTogetherForWeeksWithoutAnEvent) {
  Network network;
  Element& one = network.Add(1, Watching(6, {1, 2}));
  Element& two = network.Add(2, Watching(6, {1, 2}));
  network.RunFor(5min);
  one.TakeEvents();
  two.TakeEvents();
  network.RunFor(std::chrono::weeks(8));
  EXPECT_THAT(one.events, IsEmpty());
  EXPECT_THAT(two.events, IsEmpty());
  EXPECT_EQ(one.mep->remotes().sequence_errors(), 0U);
  EXPECT_NEAR(static_cast<double>(one.sent), 8 * 7 * 24 * 60, 10);
}

TEST(TwoMeps, DeclareALossWithinThreeAndAHalfIntervalsAtEveryInterval) {
  for (std::uint8_t code = 1; code <= 7; ++code) {
    const Duration interval = *IntervalOf(code);
    Network network;
    network.delay = 10us;
    Element& one = network.Add(1, Watching(code, {1, 2}));
    Element& two = network.Add(2, Watching(code, {1, 2}));
    network.RunFor(interval * 10);
    const auto last = one.mep->remotes().Find(2)->status();
    ASSERT_EQ(last.state, RemoteState::kOk);
    // Up to the next CCM of the other, which arrives and is the last.
    const std::uint64_t sent = two.sent;
    while (two.sent == sent) network.RunFor(10us);
    const TimePoint last_ccm = network.now();
    network.RunFor(10us);
    network.CutOff(two);
    network.RunFor(interval * 13 / 4 - 20us);
    EXPECT_EQ(one.Sees(2), RemoteState::kOk) << "code " << int{code};
    network.RunFor(interval / 4);
    EXPECT_EQ(one.Sees(2), RemoteState::kFailed) << "code " << int{code};
    EXPECT_LE(one.mep->remotes().Find(2)->status().last_change - last_ccm, interval * 7 / 2);
    network.MendAll();
    network.RunFor(interval * 2);
    EXPECT_EQ(one.Sees(2), RemoteState::kOk) << "code " << int{code};
  }
}

TEST(TwoMeps, TellEachOtherOfALinkThatIsCutOneWay) {
  Network network;
  Element& one = network.Add(1, Watching(3, {1, 2}));
  Element& two = network.Add(2, Watching(3, {1, 2}));
  network.RunFor(1s);
  network.Cut(one, two);
  network.RunFor(1s);
  EXPECT_TRUE(two.mep->status().defects.remote_ccm);
  EXPECT_TRUE(two.mep->status().rdi);
  EXPECT_TRUE(one.mep->status().defects.rdi);
  EXPECT_FALSE(one.mep->status().rdi);
  EXPECT_FALSE(one.mep->status().defects.remote_ccm);
  network.Mend(one, two);
  network.RunFor(1s);
  EXPECT_EQ(one.mep->status().defects, DefectFlags{});
  EXPECT_EQ(two.mep->status().defects, DefectFlags{});
}

TEST(TwoMeps, SurviveTheLossOfEveryThirdFrame) {
  Network network;
  Element& one = network.Add(1, Watching(2, {1, 2}));
  Element& two = network.Add(2, Watching(2, {1, 2}));
  int frames = 0;
  network.lose = [&](const Element&, const Element&) { return ++frames % 3 == 0; };
  network.RunFor(1s);
  one.TakeEvents();
  two.TakeEvents();
  network.RunFor(1min);
  EXPECT_THAT(one.events, IsEmpty());
  EXPECT_THAT(two.events, IsEmpty());
  EXPECT_GT(one.mep->remotes().sequence_errors() + two.mep->remotes().sequence_errors(), 1000U);
}

TEST(TwoMeps, OfOneIdSeeAnError) {
  Network network;
  Element& one = network.Add(1, Watching(4, {1, 2}));
  Element& twin = network.Add(1, Watching(4, {1, 2}));
  network.RunFor(2s);
  EXPECT_TRUE(one.mep->status().defects.error_ccm);
  EXPECT_TRUE(twin.mep->status().defects.error_ccm);
}

TEST(TwoMeps, OfTwoAssociationsSeeACrossConnect) {
  Network network;
  Element& one = network.Add(1, Watching(4, {1, 2}), 5, 1);
  Element& two = network.Add(2, Watching(4, {1, 2}), 5, 2);
  network.RunFor(2s);
  EXPECT_TRUE(one.mep->status().defects.xcon_ccm);
  EXPECT_TRUE(two.mep->status().defects.xcon_ccm);
  EXPECT_EQ(one.Sees(2), RemoteState::kStart);
}

TEST(TwoMeps, OfTwoLevelsShowACrossConnectAtTheHigherOneOnly) {
  Network network;
  Element& high = network.Add(1, Watching(4, {1, 2}), 5);
  Element& low = network.Add(2, Watching(4, {1, 2}), 3);
  network.RunFor(2s);
  EXPECT_TRUE(high.mep->status().defects.xcon_ccm);
  EXPECT_EQ(low.mep->status().defects, DefectFlags{});
}

TEST(TwoMeps, OfTwoIntervalsSeeAnErrorAndLoseEachOther) {
  Network network;
  Element& one = network.Add(1, Watching(4, {1, 2}));
  Element& two = network.Add(2, Watching(3, {1, 2}));
  network.RunFor(10s);
  EXPECT_TRUE(one.mep->status().defects.error_ccm);
  EXPECT_TRUE(two.mep->status().defects.error_ccm);
  EXPECT_EQ(one.Sees(2), RemoteState::kFailed);
}

TEST(TwoMeps, WithAFaultActionBothRecoverFromOneLostLink) {
  Network network;
  MepSettings settings = Watching(3, {1, 2});
  settings.fault_action = FaultAction::kShutdown;
  Element& one = network.Add(1, settings);
  Element& two = network.Add(2, settings);
  network.RunFor(1s);
  network.CutOff(one);
  network.RunFor(10s);
  EXPECT_EQ(one.mep->status().action_in_force, FaultAction::kShutdown);
  EXPECT_EQ(two.mep->status().action_in_force, FaultAction::kShutdown);
  network.MendAll();
  network.RunFor(15s);
  EXPECT_EQ(one.mep->status().action_in_force, FaultAction::kNone);
  EXPECT_EQ(two.mep->status().action_in_force, FaultAction::kNone);
  EXPECT_THAT(one.events, Contains("action 0"));
}

TEST(TwoMeps, SeeNothingOfUpdatesThatChangeNothing) {
  Network network;
  const MepSettings settings = Watching(2, {1, 2});
  Element& one = network.Add(1, settings);
  Element& two = network.Add(2, settings);
  network.RunFor(1s);
  one.TakeEvents();
  two.TakeEvents();
  for (int i = 0; i < 1000; ++i) {
    network.RunFor(3ms);
    one.Update(settings);
    one.SetPort(PortOf(1));
  }
  EXPECT_THAT(one.events, IsEmpty());
  EXPECT_THAT(two.events, IsEmpty());
  EXPECT_EQ(two.mep->remotes().sequence_errors(), 0U);
  EXPECT_NEAR(static_cast<double>(one.sent), 400, 2);
}

TEST(TwoMeps, LoopMessagesBack) {
  Network network;
  Element& one = network.Add(1, Watching(4, {1, 2}));
  network.Add(2, Watching(4, {1, 2}));
  network.RunFor(2s);
  one.TakeEvents();
  one.Do([](Mep& mep, TimePoint now) {
    return mep.StartLoopback({.trigger_id = 3, .target_mep_id = 2, .messages = 3, .data_octets = 1400}, now);
  });
  network.RunFor(10s);
  EXPECT_THAT(one.events, ElementsAre("loopback 3 started to 2", "loopback 3 reply 1 from 2",
                                      "loopback 3 reply 2 from 2", "loopback 3 reply 3 from 2",
                                      "loopback 3 ended: 3 expected, 3 in order, 0 out of order, 0 wrong"));
}

TEST(TwoMeps, TraceEachOther) {
  Network network;
  Element& one = network.Add(1, Watching(4, {1, 2, 3}));
  network.Add(2, Watching(4, {1, 2, 3}));
  network.Add(3, Watching(4, {1, 2, 3}));
  network.RunFor(2s);
  one.TakeEvents();
  one.Do([](Mep& mep, TimePoint now) { return mep.StartLinktrace({.target_mep_id = 3, .ttl = 10}, now); });
  network.RunFor(10s);
  EXPECT_THAT(one.events, ElementsAre("linktrace 1 started to 3 mep 3 ttl 10", "linktrace 1 reply from 3 ttl 9",
                                      "linktrace 1 ended"));
}

TEST(TwoMeps, MeasureTheDelayBetweenThem) {
  Network network;
  network.delay = 1500us;
  Element& one = network.Add(1, Watching(4, {1, 2}));
  network.Add(2, Watching(4, {1, 2})).system_offset += 3h;
  network.RunFor(2s);
  one.Do([](Mep& mep, TimePoint now) {
    return mep.StartDelayMeasurement(
        {.trigger_id = 3, .target_mep_id = 2, .parameters = {.messages = 10, .interval_ms = 10}}, now);
  });
  network.RunFor(10s);
  ASSERT_THAT(one.delays, testing::SizeIs(1));
  EXPECT_EQ(one.delays[0].received, 10U);
  EXPECT_EQ(one.delays[0].delay.min, 3ms);
  EXPECT_EQ(one.delays[0].delay.max, 3ms);
}

TEST(ABusyMep, AmongThousandsThatIdleWakesNobodyElse) {
  Network network;
  Element& busy = network.Add(1, Watching(1, {1}));
  for (std::uint16_t i = 0; i < 5000; ++i) {
    // Each alone in its MA; nobody hears anybody.
    network.Add(2, Watching(7, {2}), 5, 2);
  }
  network.lose = [](const Element&, const Element&) { return true; };
  network.RunFor(0s);
  const std::uint64_t wakeups = network.wakeups();
  const std::uint64_t sent = busy.sent;
  network.RunFor(1s);
  EXPECT_NEAR(static_cast<double>(busy.sent - sent), 300, 1);
  // In one second of ten minutes about eight of the others have their turn.
  EXPECT_LT(network.wakeups() - wakeups, 300U + 40U);
}

TEST(SixtyFourMeps, OfOneAssociationSeeOneLeaveAndReturn) {
  std::set<std::uint16_t> ids;
  for (std::uint16_t id = 1; id <= 64; ++id) ids.insert(id);
  Network network;
  std::vector<Element*> elements;
  for (const std::uint16_t id : ids) elements.push_back(&network.Add(id, Watching(3, ids)));
  network.RunFor(1s);
  for (Element* element : elements) ASSERT_EQ(element->mep->status().defects, DefectFlags{});
  network.CutOff(*elements[10]);
  network.RunFor(1s);
  for (Element* element : elements) {
    ASSERT_TRUE(element->mep->status().defects.remote_ccm);
    if (element == elements[10]) continue;
    EXPECT_THAT(element->events, Contains("remote 11 failed"));
  }
  network.MendAll();
  network.RunFor(1s);
  for (Element* element : elements) ASSERT_EQ(element->mep->status().defects, DefectFlags{});
}

}  // namespace
}  // namespace cfm::protocol
