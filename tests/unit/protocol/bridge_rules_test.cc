// The rules of a bridge's maintenance points that need no frames: where there are MIPs, what is suspicious, what
// becomes of a linktrace message, where stations have been seen, when AIS leaves.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "bridged_network.h"
#include "pdu/ais.h"
#include "pdu/linktrace.h"
#include "protocol/ais_sender.h"
#include "protocol/configuration_errors.h"
#include "protocol/linktrace_decision.h"
#include "protocol/mip_creation.h"
#include "protocol/station_table.h"

namespace cfm::protocol {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// ---- Where there are MIPs ----

constexpr auto kNone = MhfCreation::kNone;
constexpr auto kDefault = MhfCreation::kDefault;
constexpr auto kExplicit = MhfCreation::kExplicit;
constexpr auto kDefer = MhfCreation::kDefer;

TEST(MhfCreation, OfAnAssociationThatDefersIsThatOfItsDomain) {
  const MhfCreation all[] = {kNone, kDefault, kExplicit, kDefer};
  // One row for each MA, one column for each MD.
  const MhfCreation expected[4][4] = {{kNone, kNone, kNone, kNone},
                                      {kDefault, kDefault, kDefault, kDefault},
                                      {kExplicit, kExplicit, kExplicit, kExplicit},
                                      {kNone, kDefault, kExplicit, kNone}};
  for (int ma = 0; ma < 4; ++ma) {
    for (int md = 0; md < 4; ++md) EXPECT_EQ(Resolve(all[ma], all[md]), expected[ma][md]) << ma << " " << md;
  }
}

TEST(MhfCreation, MakesAMipByModeAndByWhatIsBelowIt) {
  // An MA at level 5 in each mode, on a port with: nothing lower; a MEP at the next lower level; a lower MA without a
  // MEP there; a MEP of its own level.
  struct Situation {
    const char* name;
    std::vector<CoveringMa> others;
    std::set<std::uint8_t> meps;
    std::map<MhfCreation, bool> mip;
  };
  const std::vector<Situation> situations = {
      {"nothing lower", {}, {}, {{kNone, false}, {kDefault, true}, {kExplicit, false}}},
      {"a MEP below", {{2, kNone}}, {2}, {{kNone, false}, {kDefault, true}, {kExplicit, true}}},
      {"a lower level without a MEP", {{2, kNone}}, {}, {{kNone, false}, {kDefault, false}, {kExplicit, false}}},
      {"a MEP at the level", {}, {5}, {{kNone, false}, {kDefault, false}, {kExplicit, false}}},
  };
  for (const Situation& situation : situations) {
    for (const auto& [mode, mip] : situation.mip) {
      CoveredVlan vlan{.mas = situation.others, .mep_levels = situation.meps};
      vlan.mas.push_back({.level = 5, .creation = mode});
      const auto level = MipLevel(vlan);
      EXPECT_EQ(level.has_value(), mip) << situation.name << ", mode " << static_cast<int>(mode);
      EXPECT_EQ(level.value_or(5), 5) << situation.name;
    }
  }
}

TEST(MhfCreation, LooksAtTheNextLowerActiveLevelOnly) {
  // The MEP at 1 is not the next below 5: level 3 is active and has none.
  EXPECT_EQ(MipLevel({.mas = {{1, kNone}, {3, kNone}, {5, kDefault}}, .mep_levels = {1}}), std::nullopt);
  EXPECT_EQ(MipLevel({.mas = {{1, kNone}, {3, kExplicit}, {5, kDefault}}, .mep_levels = {1}}), 3);
}

TEST(MhfCreation, MakesNoMipAtOrBelowAMepAndOneAtMost) {
  EXPECT_EQ(MipLevel({.mas = {{3, kDefault}, {5, kNone}, {7, kDefault}}, .mep_levels = {5}}), 7);
  EXPECT_EQ(MipLevel({.mas = {{3, kDefault}, {5, kDefault}, {7, kDefault}}}), 3) << "the lowest";
  EXPECT_EQ(MipLevel({.mas = {{3, kDefault}}, .mep_levels = {7}}), std::nullopt);
  EXPECT_EQ(MipLevel({}), std::nullopt);
}

TEST(MhfCreation, NamesTheMipsOfAllPortsAndVlans) {
  const std::vector<CoveredVlan> vlans = {
      {.port = 1, .vlan = {.vid = 100}, .mas = {{5, kDefault}}},
      {.port = 1, .vlan = {.vid = 200}, .mas = {{5, kExplicit}}},
      {.port = 2, .vlan = {.vid = 100}, .mas = {{5, kDefault}, {2, kNone}}, .mep_levels = {2}},
  };
  EXPECT_THAT(MipsOf(vlans), ElementsAre(MipPlace{.port = 1, .vlan = {.vid = 100}, .level = 5},
                                         MipPlace{.port = 2, .vlan = {.vid = 100}, .level = 5}));
}

// ---- Configuration errors ----

constexpr Vlan k100{.vid = 100, .inner_vid = 0};
constexpr Vlan k200{.vid = 200, .inner_vid = 0};

const std::vector<CheckedPort> kPorts = {{.index = 1, .name = "eth1", .vlans = {k100, k200}},
                                         {.index = 2, .name = "eth2", .vlans = {k200}}};

std::vector<std::string> Texts(const std::vector<Finding>& findings) {
  std::vector<std::string> texts;
  texts.reserve(findings.size());
  for (const Finding& finding : findings) texts.push_back(finding.text);
  return texts;
}

TEST(AConfiguration, LeaksWhereALowerAssociationPassesAHigherEndPoint) {
  const CheckedMa high{.name = "high", .level = 5, .vlans = {k100}, .meps = {{1, Direction::kUp}}};
  CheckedMa low{.name = "low", .level = 3, .vlans = {k100, k200}, .meps = {{2, Direction::kUp}}};
  const auto findings = FindConfigurationErrors(kPorts, std::vector{high, low}, {});
  EXPECT_THAT(Texts(findings),
              ElementsAre("leak: 'low' (level 3) has no end point on eth1, but VID 100 of it pass where "
                          "'high' (level 5) has one"));
  EXPECT_EQ(findings.at(0).port, 1U);
  low.meps[1] = Direction::kDown;
  EXPECT_THAT(FindConfigurationErrors(kPorts, std::vector{high, low}, {}), IsEmpty());
  low.meps.erase(1);
  low.vlans = {k200};
  EXPECT_THAT(FindConfigurationErrors(kPorts, std::vector{high, low}, {}), IsEmpty()) << "no VLAN in common";
}

TEST(AConfiguration, ConflictsWhereTwoUpMepsOfOneLevelShareAVlan) {
  const CheckedMa one{.name = "one", .level = 5, .vlans = {k100}, .meps = {{1, Direction::kUp}}};
  CheckedMa other{.name = "other", .level = 5, .vlans = {k100, k200}, .meps = {{1, Direction::kUp}}};
  EXPECT_THAT(Texts(FindConfigurationErrors(kPorts, std::vector{one, other}, {})),
              ElementsAre("conflicting VIDs: 'one' (level 5) and 'other' (level 5) both have an Up MEP for VID 100 on "
                          "eth1"));
  other.meps[1] = Direction::kDown;
  EXPECT_THAT(FindConfigurationErrors(kPorts, std::vector{one, other}, {}), IsEmpty());
  other.meps[1] = Direction::kUp;
  other.level = 4;
  EXPECT_THAT(FindConfigurationErrors(kPorts, std::vector{one, other}, {}), IsEmpty()) << "nested";
}

TEST(AConfiguration, HasTooManyLevelsWhereABridgeCanDoFewer) {
  const std::set<MipPlace> mips = {{.port = 1, .vlan = k100, .level = 3},
                                   {.port = 1, .vlan = k200, .level = 5},
                                   {.port = 2, .vlan = k200, .level = 5}};
  EXPECT_THAT(Texts(FindConfigurationErrors(kPorts, {}, mips, {.mip_levels_per_port = 1})),
              ElementsAre("too many levels: MIPs at 2 levels on eth1, more than 1"));
  EXPECT_THAT(FindConfigurationErrors(kPorts, {}, mips), IsEmpty()) << "this one can do all eight";
}

TEST(AConfiguration, OverlapsWhereABridgeHasOneSetOfLevelsForAllVlans) {
  const CheckedMa one{.name = "one", .level = 3, .vlans = {k100}, .meps = {{1, Direction::kDown}}};
  const CheckedMa other{.name = "other", .level = 5, .vlans = {k200}, .meps = {{1, Direction::kDown}}};
  EXPECT_THAT(
      Texts(FindConfigurationErrors(kPorts, std::vector{one, other}, {}, {.mep_levels_differ_by_vlan = false})),
      ElementsAre("overlapped levels: 'one' (level 3) and 'other' (level 5) have end points for different VLANs "
                  "on eth1"));
  EXPECT_THAT(FindConfigurationErrors(kPorts, std::vector{one, other}, {}), IsEmpty());
}

// ---- Linktrace ----

const pdu::MacAddress kOwnAddress = {2, 0, 0, 0, 0, 1};
const pdu::MacAddress kExitAddress = {2, 0, 0, 0, 0, 2};
const pdu::MacAddress kFar = {2, 0, 0, 0, 0, 9};

struct Decided {
  bool reply = true;
  pdu::RelayAction action = pdu::RelayAction::kFdb;
  bool terminal = false;
  bool ingress = false;
  bool egress = false;
  int forwarder = 0;  ///< station; 0: none

  bool operator==(const Decided&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Decided& decided) {
  return out << "reply " << decided.reply << " action " << static_cast<int>(decided.action) << " terminal "
             << decided.terminal << " ingress " << decided.ingress << " egress " << decided.egress << " forwarder "
             << decided.forwarder;
}

struct Case {
  const char* name;
  TracePoint::Kind kind;
  Side faces;
  pdu::MacAddress target;
  bool path;
  TracePath::Meets meets;
  pdu::ReplyAction own;
  pdu::ReplyAction exit;
  int ttl;
  Decided expected;
};

TEST(ALinktraceMessage, IsDecidedUponByThePointAndByWhatTheBridgeKnows) {
  using Kind = TracePoint::Kind;
  using enum TracePath::Meets;
  using enum Side;
  using enum pdu::ReplyAction;
  using pdu::RelayAction;
  const Decided silent{.reply = false};
  const std::vector<Case> cases = {
      {"Down MEP, target",
       Kind::kMep,
       kWire,
       kOwnAddress,
       false,
       kNothing,
       kOk,
       kOk,
       64,
       {.action = RelayAction::kHit, .terminal = true, .ingress = true}},
      {"Up MEP, target",
       Kind::kMep,
       kRelay,
       kOwnAddress,
       false,
       kNothing,
       kOk,
       kOk,
       64,
       {.action = RelayAction::kHit, .terminal = true, .egress = true}},
      {"Down MEP, target behind",
       Kind::kMep,
       kWire,
       kFar,
       true,
       kMip,
       kOk,
       kOk,
       64,
       {.terminal = true, .ingress = true}},
      {"Up MEP, target behind",
       Kind::kMep,
       kRelay,
       kFar,
       true,
       kNothing,
       kOk,
       kOk,
       64,
       {.terminal = true, .egress = true}},
      {"MEP, target unknown", Kind::kMep, kWire, kFar, false, kNothing, kOk, kOk, 64, silent},
      {"MIP, target",
       Kind::kMip,
       kWire,
       kOwnAddress,
       true,
       kMip,
       kOk,
       kOk,
       64,
       {.action = RelayAction::kHit, .ingress = true}},
      {"MIP, target unknown", Kind::kMip, kWire, kFar, false, kNothing, kOk, kOk, 64, silent},
      {"MIP to MIP",
       Kind::kMip,
       kWire,
       kFar,
       true,
       kMip,
       kOk,
       kOk,
       64,
       {.ingress = true, .egress = true, .forwarder = 2}},
      {"MIP to nothing", Kind::kMip, kWire, kFar, true, kNothing, kOk, kOk, 64, {.ingress = true, .forwarder = 1}},
      {"MIP to MIP, target",
       Kind::kMip,
       kWire,
       kExitAddress,
       true,
       kMip,
       kOk,
       kOk,
       64,
       {.action = RelayAction::kHit, .ingress = true, .egress = true}},
      {"MIP to MEP",
       Kind::kMip,
       kWire,
       kFar,
       true,
       kMep,
       kOk,
       kOk,
       64,
       {.terminal = true, .ingress = true, .egress = true}},
      {"MIP to MEP, target",
       Kind::kMip,
       kWire,
       kExitAddress,
       true,
       kMep,
       kOk,
       kOk,
       64,
       {.action = RelayAction::kHit, .terminal = true, .ingress = true, .egress = true}},
      {"MIP to barrier", Kind::kMip, kWire, kFar, true, kBarrier, kOk, kOk, 64, {.ingress = true}},
      {"one hop left", Kind::kMip, kWire, kFar, true, kMip, kOk, kOk, 1, {.ingress = true, .egress = true}},
      {"two hops left",
       Kind::kMip,
       kWire,
       kFar,
       true,
       kMip,
       kOk,
       kOk,
       2,
       {.ingress = true, .egress = true, .forwarder = 2}},
      {"way in blocked", Kind::kMip, kWire, kFar, true, kMip, kBlocked, kOk, 64, {.ingress = true, .egress = true}},
      {"way in outside the VLAN",
       Kind::kMip,
       kWire,
       kFar,
       true,
       kMip,
       kVid,
       kOk,
       64,
       {.ingress = true, .egress = true}},
      {"way out down", Kind::kMip, kWire, kFar, true, kNothing, kOk, kDown, 64, {.ingress = true, .egress = true}},
      {"way out blocked", Kind::kMip, kWire, kFar, true, kMip, kOk, kBlocked, 64, {.ingress = true, .egress = true}},
      {"upper half", Kind::kMip, kRelay, kFar, true, kNothing, kOk, kOk, 64, {.egress = true, .forwarder = 1}},
      {"upper half, target",
       Kind::kMip,
       kRelay,
       kOwnAddress,
       false,
       kNothing,
       kOk,
       kOk,
       64,
       {.action = RelayAction::kHit, .egress = true}},
      {"upper half, blocked", Kind::kMip, kRelay, kFar, true, kNothing, kBlocked, kBlocked, 64, {.egress = true}},
  };
  for (const Case& c : cases) {
    pdu::Ltm ltm;
    ltm.ttl = static_cast<std::uint8_t>(c.ttl);
    ltm.target_address = c.target;
    const TracePoint point{
        .kind = c.kind, .faces = c.faces, .port = {.action = c.own, .address = kOwnAddress, .name = "in"}};
    std::optional<TracePath> path;
    if (c.path) {
      path =
          TracePath{.index = 2, .port = {.action = c.exit, .address = kExitAddress, .name = "out"}, .meets = c.meets};
    }
    const auto decision = Decide(ltm, point, path);
    Decided decided{.reply = decision.has_value()};
    if (decision) {
      decided.action = decision->relay_action;
      decided.terminal = decision->terminal;
      decided.ingress = decision->ingress.has_value();
      decided.egress = decision->egress.has_value();
      decided.forwarder = decision->forwarder ? (*decision->forwarder)[5] : 0;
    }
    EXPECT_EQ(decided, c.expected) << c.name;
  }
}

// ---- Where stations are ----

TEST(AStationTable, KeepsAStationForItsLifetime) {
  StationTable table{24h};
  table.Store(k100, Station(1), 3, kStart);
  EXPECT_EQ(table.Find(k100, Station(1), kStart + 24h), 3U);
  EXPECT_EQ(table.Find(k100, Station(1), kStart + 24h + 1ns), std::nullopt);
  EXPECT_EQ(table.Find(k200, Station(1), kStart), std::nullopt);
  table.Store(k100, Station(1), 4, kStart + 20h);
  EXPECT_EQ(table.Find(k100, Station(1), kStart + 44h), 4U);
  EXPECT_EQ(table.size(), 1U);
}

TEST(AStationTable, DropsTheOneThatWasSeenLongestAgoWhenItIsFull) {
  StationTable table{24h};
  const auto address = [](std::size_t number) {
    return pdu::MacAddress{2, 0, 0, 0, static_cast<std::uint8_t>(number >> 8U), static_cast<std::uint8_t>(number)};
  };
  for (std::size_t i = 0; i < StationTable::kMostEntries; ++i) {
    table.Store(k100, address(i), 1, kStart + std::chrono::seconds(i));
  }
  const TimePoint later = kStart + 2h;
  table.Store(k100, address(0), 1, later);
  table.Store(k100, address(5000), 1, later);
  EXPECT_EQ(table.size(), StationTable::kMostEntries);
  EXPECT_TRUE(table.Find(k100, address(0), later)) << "seen again meanwhile";
  EXPECT_FALSE(table.Find(k100, address(1), later));
  EXPECT_TRUE(table.Find(k100, address(2), later));
  EXPECT_TRUE(table.Find(k100, address(5000), later));
}

TEST(AStationTable, ForgetsWhatIsBehindAPort) {
  StationTable table{24h};
  table.Store(k100, Station(1), 1, kStart);
  table.Store(k100, Station(2), 2, kStart);
  table.Forget(1);
  EXPECT_FALSE(table.Find(k100, Station(1), kStart));
  EXPECT_TRUE(table.Find(k100, Station(2), kStart));
}

// ---- AIS ----

class AnAisSender : public testing::Test {
 protected:
  AnAisSender() { sender_.set_address(Station(1)); }

  void RunFor(Duration span) {
    const TimePoint end = now_ + span;
    while (sender_.deadline() <= end) {
      now_ = sender_.deadline();
      const std::size_t before = output_.frames.size();
      sender_.Advance(now_);
      times_.insert(times_.end(), output_.frames.size() - before, now_);
    }
    now_ = end;
  }

  TimePoint now_ = kStart;
  RecordingOutput output_;
  AisSender sender_{Transmitter(output_, Side::kRelay)};
  std::vector<TimePoint> times_;
};

TEST_F(AnAisSender, SendsAtOnceAndThenEveryPeriodUntilItIsStopped) {
  for (const std::uint32_t period : {1U, 60U}) {
    output_.TakeFrames();
    times_.clear();
    sender_.Start({.client_level = 6, .period_s = period, .client_vids = {}, .priority = 5}, now_);
    ASSERT_THAT(output_.frames, SizeIs(1));
    EXPECT_FALSE(output_.frames[0].header.outer);
    EXPECT_EQ(output_.frames[0].header.destination, Group(6));
    EXPECT_EQ(output_.frames[0].pdu, (Octets{0xc0, 33, static_cast<std::uint8_t>(period == 1 ? 4 : 6), 0, 0}));
    const TimePoint start = now_;
    RunFor(std::chrono::seconds(period) * 3);
    EXPECT_THAT(times_, ElementsAre(start + std::chrono::seconds(period), start + std::chrono::seconds(period) * 2,
                                    start + std::chrono::seconds(period) * 3));
    sender_.Stop();
    RunFor(1h);
    EXPECT_THAT(times_, SizeIs(3));
  }
}

TEST_F(AnAisSender, SpreadsManyVlansOverTheSecond) {
  std::set<std::uint16_t> vids;
  for (std::uint16_t vid = 1; vid <= 4094; ++vid) vids.insert(vid);
  for (const std::size_t count : {std::size_t{2}, std::size_t{100}, std::size_t{4094}}) {
    output_.TakeFrames();
    times_ = {now_};
    const TimePoint start = now_;
    sender_.Start({.client_level = 6,
                   .period_s = 1,
                   .client_vids = {vids.begin(), std::next(vids.begin(), static_cast<int>(count))}},
                  now_);
    RunFor(1s - 1ns);
    ASSERT_THAT(output_.frames, SizeIs(count));
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(output_.frames[i].header.outer->vid, i + 1);
    std::map<Duration, int> per_tenth;
    for (const TimePoint time : times_) ++per_tenth[(time - start) / 100ms * 100ms];
    if (count >= 100) {
      EXPECT_THAT(per_tenth, SizeIs(10));
      for (const auto& [tenth, frames] : per_tenth) {
        EXPECT_NEAR(frames, static_cast<double>(count) / 10, static_cast<double>(count) / 50) << tenth.count();
      }
    } else {
      EXPECT_EQ(times_.back(), start + 10ms);
    }
    RunFor(1ns);
    EXPECT_EQ(output_.frames.size(), count + 1) << "the next round";
    sender_.Stop();
  }
}

TEST_F(AnAisSender, SkipsTheRoundsThatItMissed) {
  sender_.Start({.client_level = 6, .period_s = 1, .client_vids = {100, 200}}, now_);
  output_.TakeFrames();
  now_ += 7500ms;
  sender_.Advance(now_);
  EXPECT_THAT(output_.frames, SizeIs(1)) << "the rest of the round that was under way";
  EXPECT_EQ(sender_.deadline(), kStart + 8s);
}

TEST_F(AnAisSender, CountsWhatDidNotLeave) {
  output_.can_send = false;
  sender_.Start({.client_level = 6, .period_s = 1}, now_);
  EXPECT_EQ(sender_.counters().failed, 1U);
  output_.can_send = true;
  RunFor(1s);
  EXPECT_EQ(sender_.counters().sent, 1U);
}

TEST(AisSettings, AreRefusedWithAReason) {
  const AisSettings good{.client_level = 6, .period_s = 60, .client_vids = {1, 4094}, .priority = 7};
  EXPECT_EQ(CheckAis(good, 5), std::nullopt);
  const auto refused = [&good](auto change, std::uint8_t level = 5) {
    AisSettings settings = good;
    change(settings);
    return CheckAis(settings, level).value_or("");
  };
  const auto same = [](AisSettings&) {};
  EXPECT_EQ(refused(same, 6), "client level 6 is not above level 6, or above 7");
  EXPECT_EQ(refused(same, 7), "client level 6 is not above level 7, or above 7");
  EXPECT_EQ(refused([](AisSettings& s) { s.client_level = 8; }), "client level 8 is not above level 5, or above 7");
  EXPECT_EQ(refused([](AisSettings& s) { s.period_s = 10; }), "a period of 10 s is neither 1 nor 60");
  EXPECT_EQ(refused([](AisSettings& s) { s.client_vids = {4095}; }), "client VID 4095 is not in 1 to 4094");
  EXPECT_EQ(refused([](AisSettings& s) { s.client_vids = {0, 1}; }), "client VID 0 is not in 1 to 4094");
  EXPECT_EQ(refused([](AisSettings& s) { s.priority = 8; }), "priority 8 is above 7");
}

}  // namespace
}  // namespace cfm::protocol
