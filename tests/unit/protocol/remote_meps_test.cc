#include "protocol/remote_meps.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <string>

#include "recording_output.h"

namespace cfm::protocol {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// The end of the wait for a CCM, in the middle of what the standard's timer allows.
constexpr Duration kLoss = 3375ms;

class RemoteMepsAtOneSecond : public testing::Test {
 protected:
  RemoteMepsAtOneSecond() { remotes_.SetInterval(1s, now_); }

  void Watch(const std::set<std::uint16_t>& ids, bool learn = false) { remotes_.SetIds(ids, learn, now_); }

  void Ccm(std::uint16_t id, pdu::Ccm ccm = {}) {
    ccm.mep_id = id;
    ASSERT_TRUE(remotes_.Accepts(id));
    remotes_.Receive(ccm, Station(static_cast<std::uint8_t>(id)), now_);
  }

  void RunFor(Duration span) {
    const TimePoint end = now_ + span;
    while (remotes_.deadline() <= end) {
      now_ = remotes_.deadline();
      remotes_.Advance(now_);
      ASSERT_GT(remotes_.deadline(), now_);
    }
    now_ = end;
  }

  /// Until every event that is held back has been told.
  void Calm() {
    RunFor(100ms);
    output_.TakeEvents();
  }

  const RemoteStatus& Status(std::uint16_t id) { return remotes_.Find(id)->status(); }

  TimePoint now_ = kStart;
  RecordingOutput output_;
  RemoteMeps remotes_{output_};
};

TEST_F(RemoteMepsAtOneSecond, BeginInStartWithoutADefect) {
  Watch({2});
  EXPECT_THAT(output_.TakeEvents(), ElementsAre("remote 2 start"));
  RunFor(3250ms);
  EXPECT_EQ(Status(2).state, RemoteState::kStart);
  EXPECT_FALSE(remotes_.defects().any_failed || remotes_.defects().any_rdi || remotes_.defects().mac_status);
}

TEST_F(RemoteMepsAtOneSecond, GoFromStartToOkOnACcm) {
  Watch({2});
  RunFor(1s);
  Ccm(2);
  EXPECT_EQ(Status(2).state, RemoteState::kOk);
  EXPECT_EQ(Status(2).last_change, now_);
}

TEST_F(RemoteMepsAtOneSecond, GoFromStartToFailedWithoutACcm) {
  Watch({2});
  RunFor(kLoss);
  EXPECT_EQ(Status(2).state, RemoteState::kFailed);
  EXPECT_EQ(Status(2).last_change, kStart + kLoss);
  EXPECT_TRUE(remotes_.defects().any_failed);
}

TEST_F(RemoteMepsAtOneSecond, GoFromOkToFailedWhenCcmsStayAwayAndBackOnTheFirst) {
  Watch({2});
  Ccm(2);
  RunFor(3s);
  Ccm(2);
  RunFor(kLoss - 1ns);
  EXPECT_EQ(Status(2).state, RemoteState::kOk);
  RunFor(1ns);
  EXPECT_EQ(Status(2).state, RemoteState::kFailed);
  RunFor(1h);
  EXPECT_EQ(Status(2).state, RemoteState::kFailed);
  Ccm(2);
  EXPECT_EQ(Status(2).state, RemoteState::kOk);
  EXPECT_FALSE(remotes_.defects().any_failed);
  EXPECT_THAT(output_.TakeEvents(), ElementsAre("remote 2 start", "remote 2 ok", "remote 2 failed", "remote 2 ok"));
}

TEST_F(RemoteMepsAtOneSecond, KeepTheTimeOfTheLastChangeWhileNothingChanges) {
  Watch({2});
  Ccm(2);
  const TimePoint changed = now_;
  for (int i = 0; i < 5; ++i) {
    RunFor(1s);
    Ccm(2);
  }
  EXPECT_EQ(Status(2).last_change, changed);
}

TEST(ALossTime, LiesBetweenThreeAndAQuarterAndThreeAndAHalfIntervals) {
  for (std::uint8_t code = 1; code <= 7; ++code) {
    const Duration interval = *IntervalOf(code);
    EXPECT_GT(LossTime(interval), interval * 13 / 4);
    EXPECT_LT(LossTime(interval), ThreeAndAHalf(interval));
  }
}

TEST_F(RemoteMepsAtOneSecond, StoreWhatTheLastCcmSaid) {
  Watch({2});
  const std::array<std::uint8_t, 3> chassis = {'a', 'b', 'c'};
  Ccm(2, {.rdi = true,
          .sender_id = pdu::SenderId{.chassis_subtype = 7, .chassis_id = chassis},
          .port_status = pdu::PortStatus::kBlocked,
          .interface_status = pdu::InterfaceStatus::kTesting});
  EXPECT_TRUE(Status(2).rdi);
  EXPECT_EQ(Status(2).port_status, pdu::PortStatus::kBlocked);
  EXPECT_EQ(Status(2).interface_status, pdu::InterfaceStatus::kTesting);
  EXPECT_EQ(Status(2).sender_id, "abc");
  EXPECT_EQ(Status(2).mac, Station(2));
  Ccm(2);
  EXPECT_FALSE(Status(2).rdi);
  EXPECT_EQ(Status(2).port_status, pdu::PortStatus::kNone);
  EXPECT_EQ(Status(2).interface_status, pdu::InterfaceStatus::kNone);
  EXPECT_EQ(Status(2).sender_id, "");
}

TEST_F(RemoteMepsAtOneSecond, CountASequenceErrorForEveryGapAndNoneForZeros) {
  Watch({2});
  const auto receive = [this](std::uint32_t number) { Ccm(2, {.sequence_number = number}); };
  for (const std::uint32_t number : {100U, 101U, 102U}) receive(number);
  EXPECT_EQ(remotes_.sequence_errors(), 0U);
  receive(104);  // one lost
  EXPECT_EQ(remotes_.sequence_errors(), 1U);
  receive(108);  // three lost
  EXPECT_EQ(remotes_.sequence_errors(), 2U);
  receive(1);  // restarted
  EXPECT_EQ(remotes_.sequence_errors(), 3U);
  receive(1);  // twice
  EXPECT_EQ(remotes_.sequence_errors(), 4U);
  receive(0);
  receive(17);
  EXPECT_EQ(remotes_.sequence_errors(), 4U);
  EXPECT_EQ(remotes_.Find(2)->last_sequence_number(), 17U);
  EXPECT_FALSE(remotes_.defects().any_failed || remotes_.defects().any_rdi || remotes_.defects().mac_status);
}

TEST_F(RemoteMepsAtOneSecond, ShowRdiWhileAnyOfThemSendsIt) {
  Watch({2, 3});
  Ccm(2, {.rdi = true});
  Ccm(3);
  EXPECT_TRUE(remotes_.defects().any_rdi);
  Ccm(2);
  EXPECT_FALSE(remotes_.defects().any_rdi);
}

TEST_F(RemoteMepsAtOneSecond, ShowAMacStatusDefectWhenAnyInterfaceIsNotUp) {
  Watch({2, 3});
  Ccm(2, {.interface_status = pdu::InterfaceStatus::kUp});
  Ccm(3, {.interface_status = pdu::InterfaceStatus::kUp});
  EXPECT_FALSE(remotes_.defects().mac_status);
  Ccm(3, {.interface_status = pdu::InterfaceStatus::kLowerLayerDown});
  EXPECT_TRUE(remotes_.defects().mac_status);
}

TEST_F(RemoteMepsAtOneSecond, ShowAMacStatusDefectWhenAllPortsThatAreToldAreBlocked) {
  Watch({2, 3, 4});
  Ccm(2, {.port_status = pdu::PortStatus::kBlocked});
  Ccm(3, {.port_status = pdu::PortStatus::kUp});
  Ccm(4);
  EXPECT_FALSE(remotes_.defects().mac_status);
  Ccm(3, {.port_status = pdu::PortStatus::kBlocked});
  EXPECT_TRUE(remotes_.defects().mac_status) << "the one that does not say does not count";
}

TEST_F(RemoteMepsAtOneSecond, CountAFailedOneAsMissingOnly) {
  Watch({2});
  Ccm(2, {.rdi = true, .interface_status = pdu::InterfaceStatus::kDown});
  RunFor(4s);
  EXPECT_TRUE(remotes_.defects().any_failed);
  EXPECT_FALSE(remotes_.defects().any_rdi || remotes_.defects().mac_status);
}

TEST_F(RemoteMepsAtOneSecond, KeepTheOthersWhenTheListChanges) {
  Watch({2, 3});
  Ccm(2);
  Calm();
  RunFor(2900ms);
  Watch({2, 4});
  EXPECT_THAT(output_.TakeEvents(), ElementsAre("remote 3 removed", "remote 4 start"));
  RunFor(kLoss - 3s);
  EXPECT_THAT(output_.TakeEvents(), ElementsAre("remote 2 failed")) << "its timer went on";
}

TEST_F(RemoteMepsAtOneSecond, AreNoLongerADefectOnceRemoved) {
  Watch({2});
  RunFor(4s);
  Watch({});
  EXPECT_FALSE(remotes_.defects().any_failed);
  EXPECT_FALSE(remotes_.Accepts(2));
}

TEST_F(RemoteMepsAtOneSecond, AreNotDeclaredLostByALongerInterval) {
  Watch({2});
  Ccm(2);
  RunFor(3s);
  remotes_.SetInterval(10s, now_);
  RunFor(33s);
  EXPECT_EQ(Status(2).state, RemoteState::kOk);
  RunFor(1s);
  EXPECT_EQ(Status(2).state, RemoteState::kFailed);
}

TEST_F(RemoteMepsAtOneSecond, AreNeverLostWithoutAnInterval) {
  remotes_.SetInterval(std::nullopt, now_);
  Watch({2});
  EXPECT_EQ(remotes_.deadline(), kNever);
}

TEST_F(RemoteMepsAtOneSecond, AreLearnedWhereThatIsWanted) {
  Watch({2}, true);
  output_.TakeEvents();
  Ccm(77);
  EXPECT_THAT(output_.TakeEvents(), ElementsAre("remote 77 ok"));
  EXPECT_FALSE(remotes_.Accepts(0));
  EXPECT_FALSE(remotes_.Accepts(8192));
  Watch({2}, false);
  EXPECT_THAT(output_.TakeEvents(), ElementsAre("remote 77 removed"));
  EXPECT_FALSE(remotes_.Accepts(77));
}

TEST_F(RemoteMepsAtOneSecond, AreLearnedUpToABound) {
  Watch({}, true);
  std::size_t accepted = 0;
  for (std::uint16_t id = 1; id <= 300; ++id) {
    if (!remotes_.Accepts(id)) continue;
    Ccm(id);
    ++accepted;
  }
  EXPECT_EQ(accepted, 256U);
  EXPECT_TRUE(remotes_.Accepts(1));
  EXPECT_FALSE(remotes_.Accepts(300));
}

TEST_F(RemoteMepsAtOneSecond, AreForgottenWhenTheyWereLearnedAndHaveBeenFailedForAHundredMinutes) {
  Watch({2}, true);
  Ccm(2);
  Ccm(77);
  Calm();
  RunFor(kLoss + 100min - 100ms - 1ns);
  EXPECT_THAT(output_.TakeEvents(), ElementsAre("remote 2 failed", "remote 77 failed"));
  RunFor(1ns);
  EXPECT_THAT(output_.TakeEvents(), ElementsAre("remote 77 removed"));
  RunFor(1h);
  EXPECT_THAT(output_.TakeEvents(), IsEmpty());
  EXPECT_EQ(Status(2).state, RemoteState::kFailed);
}

TEST_F(RemoteMepsAtOneSecond, StayWhenALearnedOneIsConfigured) {
  Watch({}, true);
  Ccm(77);
  output_.TakeEvents();
  Watch({77}, false);
  EXPECT_THAT(output_.TakeEvents(), IsEmpty());
  RunFor(1000min);
  EXPECT_THAT(output_.TakeEvents(), ElementsAre("remote 77 failed"));
}

TEST_F(RemoteMepsAtOneSecond, TellAFlappingValueAtMostTenTimesASecondAndTheLastOneAlways) {
  Watch({2});
  bool rdi = false;
  for (int i = 0; i < 300; ++i) {
    rdi = !rdi;
    Ccm(2, {.rdi = rdi});
    RunFor(3333333ns);
  }
  EXPECT_LE(output_.events.size(), 12U);
  Ccm(2, {.rdi = true});
  RunFor(200ms);
  EXPECT_EQ(output_.events.back(), "remote 2 ok rdi");
}

// Somebody who asks hears of a value that is held back; when it is taken back, that is news.
TEST_F(RemoteMepsAtOneSecond, TellTheLastValueAlsoWhenSomebodyAsksInBetween) {
  Watch({2});
  Ccm(2);
  Calm();
  Calm();
  Ccm(2, {.rdi = true});
  Ccm(2);
  EXPECT_THAT(output_.TakeEvents(), ElementsAre("remote 2 ok rdi"));
  remotes_.TellAll();
  EXPECT_THAT(output_.TakeEvents(), ElementsAre("remote 2 ok"));
  Ccm(2, {.rdi = true});
  RunFor(100ms);
  EXPECT_THAT(output_.TakeEvents(), ElementsAre("remote 2 ok rdi"));
}

TEST_F(RemoteMepsAtOneSecond, TellNothingWhileNothingChanges) {
  Watch({2});
  Ccm(2);
  RunFor(100ms);
  output_.TakeEvents();
  for (std::uint32_t i = 1; i < 100; ++i) {
    Ccm(2, {.sequence_number = i});
    RunFor(1s);
  }
  EXPECT_THAT(output_.TakeEvents(), IsEmpty());
}

TEST_F(RemoteMepsAtOneSecond, AreFoundByTheirAddressOnceTheyHaveOne) {
  Watch({2});
  EXPECT_FALSE(remotes_.AddressOf(2));
  EXPECT_FALSE(remotes_.AddressOf(3));
  Ccm(2);
  RunFor(1h);
  EXPECT_EQ(remotes_.AddressOf(2), Station(2)) << "a failed one too";
}

TEST_F(RemoteMepsAtOneSecond, AreLookedThroughOnceInAFewIntervalsAndNotWithEveryCcm) {
  std::set<std::uint16_t> ids;
  for (std::uint16_t id = 2; id < 102; ++id) ids.insert(id);
  Watch(ids);
  int wakeups = 0;
  for (int second = 0; second < 100; ++second) {
    for (const std::uint16_t id : ids) {
      for (; remotes_.deadline() <= now_; ++wakeups) remotes_.Advance(now_);
      Ccm(id);
      now_ += 10ms;
    }
  }
  EXPECT_FALSE(remotes_.defects().any_failed);
  EXPECT_LT(wakeups, 150);
}

}  // namespace
}  // namespace cfm::protocol
