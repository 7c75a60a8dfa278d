#include "protocol/mep.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "network.h"
#include "pdu/ais.h"
#include "pdu/ccm.h"
#include "pdu/delay.h"
#include "pdu/linktrace.h"
#include "pdu/loopback.h"
#include "recording_output.h"

namespace cfm::protocol {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

/// MEP 1 at level 5, one second, with MEPs 2 and 3 in its MA; its random times are zero.
class AMep : public testing::Test {
 protected:
  AMep() {
    // The CCM of the first moment.
    Advance(0ms);
    output_.TakeFrames();
    output_.TakeEvents();
  }

  using Octets = std::vector<std::uint8_t>;

  template <typename Record, typename Encode>
  static Octets Encoded(const Record& record, Encode encode) {
    Octets octets(2000);
    octets.resize(encode(record, octets));
    EXPECT_FALSE(octets.empty());
    return octets;
  }

  static pdu::Ccm GoodCcm(std::uint16_t id = 2) {
    return {.level = 5, .interval = 4, .mep_id = id, .maid = MaidNumber(1), .sender_id = std::nullopt};
  }
  static Octets LbmOctets(std::uint8_t level = 5) {
    return Encoded(pdu::Loopback{.level = level, .transaction_id = 3, .sender_id = std::nullopt, .data = {}},
                   pdu::EncodeLbm);
  }

  static pdu::MacAddress Group(std::uint8_t level, pdu::GroupClass group_class = pdu::GroupClass::k1) {
    return pdu::ToAddress({.group_class = group_class, .level = level});
  }

  void Deliver(const Octets& octets, const pdu::MacAddress& destination, const pdu::MacAddress& source = Station(2)) {
    pdu::EthernetHeader header;
    header.destination = destination;
    header.source = source;
    mep_.Receive({.header = header, .pdu = octets, .stamps = {}}, output_.now);
  }

  void Deliver(const pdu::Ccm& ccm, const pdu::MacAddress& source = Station(2)) {
    Deliver(Encoded(ccm, pdu::EncodeCcm), Group(ccm.level), source);
  }

  void DeliverAis(pdu::AisPeriod period) {
    Deliver(Encoded(pdu::Ais{.level = 5, .period = period}, pdu::EncodeAis), Group(5));
  }

  /// Lets time pass in which nothing arrives.
  void Advance(Duration span) {
    const TimePoint end = output_.now + span;
    while (mep_.deadline() <= end) {
      output_.now = mep_.deadline();
      mep_.Advance(output_.now);
      ASSERT_GT(mep_.deadline(), output_.now);
    }
    output_.now = end;
  }

  /// The same, while both remote MEPs send their CCMs.
  void AdvanceWithPeers(int seconds) {
    for (int i = 0; i < seconds; ++i) {
      Deliver(GoodCcm(2), Station(2));
      Deliver(GoodCcm(3), Station(3));
      Advance(1s);
    }
  }

  std::vector<pdu::Ccm> SentCcms() {
    std::vector<pdu::Ccm> ccms;
    for (const SentFrame& frame : output_.frames) {
      if (const auto ccm = pdu::DecodeCcm(frame.pdu)) ccms.push_back(*ccm);
    }
    return ccms;
  }

  RecordingOutput output_;
  MepSettings settings_ = Watching(4, {1, 2, 3});
  Mep mep_{MepIdentity{.level = 5, .mep_id = 1, .maid = MaidNumber(1)},
           settings_,
           PortOf(1),
           output_,
           [](Duration) { return Duration::zero(); },
           kStart};
};

// ---- Sending ----

TEST_F(AMep, SendsCcmsThatSayWhatItIs) {
  settings_.primary_vid = 100;
  settings_.sender_id = SystemId{.chassis_subtype = 7, .chassis_id = {'x'}};
  mep_.Update(settings_, output_.now);
  Advance(1s);
  ASSERT_THAT(output_.frames, SizeIs(1));
  const auto& frame = output_.frames[0];
  EXPECT_EQ(frame.header.source, Station(1));
  EXPECT_EQ(frame.header.destination, Group(5));
  EXPECT_EQ(frame.header.outer, (pdu::Tag{.priority = 7, .drop_eligible = false, .vid = 100}));
  EXPECT_FALSE(frame.header.inner);
  const pdu::Ccm ccm = SentCcms().at(0);
  EXPECT_EQ(ccm.level, 5);
  EXPECT_EQ(ccm.interval, 4);
  EXPECT_EQ(ccm.sequence_number, 2U);
  EXPECT_EQ(ccm.mep_id, 1);
  EXPECT_EQ(ccm.maid, MaidNumber(1));
  EXPECT_FALSE(ccm.rdi);
  EXPECT_EQ(ccm.interface_status, pdu::InterfaceStatus::kUp);
  EXPECT_EQ(ccm.port_status, pdu::PortStatus::kNone);
  ASSERT_TRUE(ccm.sender_id);
  EXPECT_THAT(ccm.sender_id->chassis_id, ElementsAre('x'));
}

TEST_F(AMep, PutsItsPrimaryVidAroundAnInnerOne) {
  settings_.primary_vid = 100;
  settings_.inner_vid = 7;
  mep_.Update(settings_, output_.now);
  Advance(1s);
  EXPECT_EQ(output_.frames.at(0).header.outer, (pdu::Tag{.priority = 7, .drop_eligible = false, .vid = 100}));
  EXPECT_EQ(output_.frames.at(0).header.inner, (pdu::Tag{.priority = 7, .drop_eligible = false, .vid = 7}));
}

TEST_F(AMep, LeavesOutASenderIdThatWouldMakeACcmTooLong) {
  settings_.sender_id = SystemId{.chassis_subtype = 7, .chassis_id = Octets(100, 'x')};
  mep_.Update(settings_, output_.now);
  Advance(1s);
  EXPECT_FALSE(SentCcms().at(0).sender_id);
}

TEST_F(AMep, SendsNoCcmWhileItIsDisabledOrSilentOrWithoutAnIntervalOrAPort) {
  const MepSettings good = settings_;
  settings_.enabled = false;
  mep_.Update(settings_, output_.now);
  Advance(10s);
  settings_ = good;
  settings_.send_ccms = false;
  mep_.Update(settings_, output_.now);
  Advance(10s);
  settings_ = good;
  settings_.interval = 0;
  mep_.Update(settings_, output_.now);
  Advance(10s);
  mep_.Update(good, output_.now);
  PortState port = PortOf(1);
  port.present = false;
  mep_.SetPort(port, output_.now);
  Advance(10s);
  EXPECT_THAT(output_.frames, IsEmpty());
  mep_.SetPort(PortOf(1), output_.now);
  Advance(10s);
  EXPECT_GE(output_.frames.size(), 10U);
}

TEST_F(AMep, WatchesItsRemoteMepsEvenIfItSendsNoCcmsOrHasNoPort) {
  settings_.send_ccms = false;
  mep_.Update(settings_, output_.now);
  PortState port = PortOf(1);
  port.present = false;
  mep_.SetPort(port, output_.now);
  AdvanceWithPeers(1);
  Advance(5s);
  EXPECT_THAT(output_.events, Contains("remote 2 failed"));
}

TEST_F(AMep, SendsFromTheNewAddressOfItsPort) {
  PortState port = PortOf(1);
  port.address = Station(77);
  mep_.SetPort(port, output_.now);
  Advance(1s);
  EXPECT_EQ(output_.frames.at(0).header.source, Station(77));
  Deliver(LbmOctets(), Station(77));
  EXPECT_EQ(output_.frames.back().opcode(), pdu::Opcode::kLbr);
  EXPECT_EQ(output_.local.back().mac, Station(77));
}

TEST_F(AMep, TellsAChangeOfItsInterfaceInAnExtraCcm) {
  Advance(300ms);
  PortState port = PortOf(1);
  port.interface_status = pdu::InterfaceStatus::kLowerLayerDown;
  mep_.SetPort(port, output_.now);
  ASSERT_THAT(output_.frames, SizeIs(1));
  EXPECT_EQ(SentCcms()[0].interface_status, pdu::InterfaceStatus::kLowerLayerDown);
  port.interface_status = pdu::InterfaceStatus::kUp;
  mep_.SetPort(port, output_.now);
  EXPECT_THAT(output_.frames, SizeIs(1)) << "one per interval";
  Advance(700ms);
  EXPECT_EQ(SentCcms().at(1).interface_status, pdu::InterfaceStatus::kUp);
}

// ---- Level and addresses ----

TEST_F(AMep, TellsOfACcmThatIsLate) {
  Advance(1s);
  output_.now += 2600ms;  // nobody comes for it
  mep_.Advance(output_.now);
  EXPECT_THAT(output_.TakeEvents(), Contains("late CCMs: 1"));
  Advance(2s);
  EXPECT_THAT(output_.TakeEvents(), Not(Contains("late CCMs: 2")));
}

TEST_F(AMep, LetsHigherLevelsPass) {
  Deliver(LbmOctets(6), Station(1));
  Deliver(Octets{0xe0, 99, 0, 0}, Group(7));
  EXPECT_THAT(output_.frames, IsEmpty());
  EXPECT_EQ(mep_.dropped().unknown_opcode, 0U);
}

TEST_F(AMep, DropsLowerLevelsAndCountsThem) {
  Deliver(LbmOctets(4), Station(1));
  Deliver(Octets{0x00, 99, 0, 0}, Group(0));
  EXPECT_THAT(output_.frames, IsEmpty());
  EXPECT_EQ(mep_.dropped().lower_level, 2U);
  EXPECT_FALSE(mep_.cross_connect().present());
}

TEST_F(AMep, TakesALowerCcmForACrossConnect) {
  pdu::Ccm ccm = GoodCcm();
  ccm.level = 0;
  Deliver(ccm, Station(9));
  EXPECT_TRUE(mep_.cross_connect().present());
  EXPECT_THAT(output_.events, Contains("defect: lower level, from 9, level 0, id 2, interval 4"));
}

TEST_F(AMep, CountsUnknownOpcodesAtItsLevel) {
  Deliver(Octets{0xa0, 99, 0, 0}, Group(5));
  EXPECT_EQ(mep_.dropped().unknown_opcode, 1U);
}

TEST_F(AMep, CountsMalformedFramesByProblem) {
  Octets ccm = Encoded(GoodCcm(), pdu::EncodeCcm);
  ccm[3] = 69;
  Deliver(ccm, Group(5));
  Deliver(Octets{0xa0, 3}, Station(1));
  EXPECT_EQ(mep_.dropped().malformed[static_cast<std::size_t>(pdu::Problem::kFirstTlvOffset)], 1U);
  EXPECT_EQ(mep_.dropped().malformed[static_cast<std::size_t>(pdu::Problem::kTooShort)], 1U);
  EXPECT_EQ(mep_.remotes().Find(2)->status().state, RemoteState::kStart);
}

TEST_F(AMep, IsKeptAliveByFramesOfAnyVersion) {
  Octets ccm = Encoded(GoodCcm(), pdu::EncodeCcm);
  ccm[0] |= 31U;
  Deliver(ccm, Group(5));
  EXPECT_EQ(mep_.remotes().Find(2)->status().state, RemoteState::kOk);
}

TEST_F(AMep, DropsFramesFromAGroupAddress) {
  Deliver(GoodCcm(), {0x03, 0, 0, 0, 0, 2});
  EXPECT_EQ(mep_.dropped().group_source, 1U);
  EXPECT_EQ(mep_.remotes().Find(2)->status().state, RemoteState::kStart);
}

TEST_F(AMep, DropsFramesToTheWrongGroup) {
  const Octets ccm = Encoded(GoodCcm(), pdu::EncodeCcm);
  Deliver(ccm, Group(3));
  Deliver(ccm, Group(5, pdu::GroupClass::k2));
  Deliver(ccm, {0xff, 0xff, 0xff, 0xff, 0xff, 0xff});
  const Octets ltm = Encoded(pdu::Ltm{.level = 5,
                                      .ttl = 3,
                                      .original_address = Station(2),
                                      .target_address = Station(1),
                                      .egress_identifier = pdu::EgressIdentifier{},
                                      .sender_id = std::nullopt},
                             pdu::EncodeLtm);
  Deliver(ltm, Group(5));
  EXPECT_EQ(mep_.dropped().wrong_group, 4U);
  EXPECT_EQ(mep_.linktrace_responder().counters().sent, 0U);
  Deliver(ltm, Group(5, pdu::GroupClass::k2));
  Advance(0ms);
  EXPECT_EQ(mep_.linktrace_responder().counters().sent, 1U);
}

TEST_F(AMep, TakesCcmsInBothGroupsLevelByLevelForItsOwnLevelOnly) {
  for (std::uint8_t level = 0; level < 8; ++level) {
    if (level == 5) continue;
    Deliver(Encoded(GoodCcm(), pdu::EncodeCcm), Group(level));
  }
  EXPECT_EQ(mep_.remotes().Find(2)->status().state, RemoteState::kStart);
  EXPECT_EQ(mep_.dropped().wrong_group, 7U);
}

TEST_F(AMep, AnswersNoFrameThatIsForAnotherStation) {
  Deliver(LbmOctets(), Station(9));
  EXPECT_THAT(output_.frames, IsEmpty());
  EXPECT_EQ(mep_.dropped().not_for_us, 1U);
}

TEST_F(AMep, AnswersNothingToAllButLoopbackAndLinktraceMessages) {
  const Octets dmm = Encoded(pdu::TwoWayDelay{.level = 5, .sent_f = {1, 1}, .data = {}}, pdu::EncodeDmm);
  Deliver(dmm, Group(5));
  EXPECT_THAT(output_.frames, IsEmpty());
  EXPECT_EQ(mep_.dropped().wrong_group, 1U);
  Deliver(dmm, Station(1));
  ASSERT_THAT(output_.frames, SizeIs(1));
  EXPECT_EQ(output_.frames[0].opcode(), pdu::Opcode::kDmr);
  Deliver(LbmOctets(), Group(5));
  Advance(0ms);
  EXPECT_EQ(output_.frames.back().opcode(), pdu::Opcode::kLbr);
}

TEST_F(AMep, AnswersAnyOctetsWithAtMostOneFrameEach) {
  const std::vector<Octets> seeds = {
      Encoded(GoodCcm(), pdu::EncodeCcm),
      LbmOctets(),
      Encoded(pdu::Ltm{.level = 5,
                       .ttl = 3,
                       .original_address = Station(2),
                       .target_address = Station(1),
                       .egress_identifier = pdu::EgressIdentifier{},
                       .sender_id = std::nullopt},
              pdu::EncodeLtm),
      Encoded(pdu::Ltr{.level = 5, .sender_id = std::nullopt}, pdu::EncodeLtr),
      Encoded(pdu::TwoWayDelay{.level = 5, .sent_f = {1, 1}, .data = {}}, pdu::EncodeDmm),
      Encoded(pdu::Ais{.level = 5, .period = pdu::AisPeriod::k1s}, pdu::EncodeAis)};
  const std::vector<pdu::MacAddress> destinations = {Station(1), Group(5), Group(5, pdu::GroupClass::k2)};
  settings_.send_ccms = false;
  settings_.learn = true;
  mep_.Update(settings_, output_.now);
  std::mt19937 random(1);
  std::size_t answers = 0;
  for (int i = 0; i < 100000; ++i) {
    Octets octets = seeds[random() % seeds.size()];
    for (auto flips = random() % 4; flips > 0; --flips) {
      octets[random() % octets.size()] = static_cast<std::uint8_t>(random());
    }
    if (random() % 8 == 0) octets.resize(random() % (octets.size() + 1));
    Deliver(octets, destinations[random() % destinations.size()]);
    Advance(1ms);
    // Its random times are zero: whatever answers this frame has left by now.
    const std::size_t sent = output_.TakeFrames().size();
    ASSERT_LE(sent, 1U);
    answers += sent;
  }
  EXPECT_GT(answers, 1000U);
  const auto& malformed = mep_.dropped().malformed;
  EXPECT_GT(std::accumulate(malformed.begin(), malformed.end(), std::uint64_t{0}), 1000U);
}

// ---- Defects ----

TEST_F(AMep, TakesOneOfThreeKindsOfWrongCcmForAnError) {
  pdu::Ccm ccm = GoodCcm(1);
  Deliver(ccm, Station(9));
  EXPECT_EQ(mep_.ccm_error().last()->reason, CcmVerdict::kOwnId);
  Deliver(GoodCcm(50), Station(9));
  EXPECT_EQ(mep_.ccm_error().last()->reason, CcmVerdict::kUnknownId);
  ccm = GoodCcm(2);
  ccm.interval = 5;
  Deliver(ccm, Station(9));
  EXPECT_EQ(mep_.ccm_error().last()->reason, CcmVerdict::kInterval);
  EXPECT_FALSE(mep_.cross_connect().present());
  EXPECT_EQ(mep_.remotes().Find(2)->status().state, RemoteState::kStart);
  EXPECT_THAT(output_.events, Contains("defect: own MEP id, from 9, level 5, id 1, interval 4"));
}

TEST_F(AMep, DeclaresALossWhileOnlyErroneousCcmsArrive) {
  AdvanceWithPeers(2);
  pdu::Ccm ccm = GoodCcm(2);
  ccm.interval = 3;
  ccm.rdi = true;
  for (int i = 0; i < 6; ++i) {
    Deliver(ccm);
    Advance(1s);
  }
  EXPECT_EQ(mep_.remotes().Find(2)->status().state, RemoteState::kFailed);
  EXPECT_FALSE(mep_.remotes().Find(2)->status().rdi);
}

TEST_F(AMep, HoldsAnErrorForTheOffendersInterval) {
  pdu::Ccm ccm = GoodCcm(2);
  ccm.interval = 5;
  Deliver(ccm);
  AdvanceWithPeers(34);
  EXPECT_TRUE(mep_.status().defects.error_ccm);
  AdvanceWithPeers(1);
  EXPECT_FALSE(mep_.status().defects.error_ccm);
}

TEST_F(AMep, LearnsAnUnknownIdWhereThatIsWantedButNotAWrongInterval) {
  settings_.learn = true;
  mep_.Update(settings_, output_.now);
  Deliver(GoodCcm(50), Station(50));
  EXPECT_THAT(output_.events, Contains("remote 50 ok"));
  pdu::Ccm ccm = GoodCcm(51);
  ccm.interval = 3;
  Deliver(ccm);
  EXPECT_TRUE(mep_.ccm_error().present());
  EXPECT_EQ(mep_.remotes().Find(51), nullptr);
  Deliver(GoodCcm(1), Station(9));
  EXPECT_EQ(mep_.ccm_error().last()->reason, CcmVerdict::kOwnId);
}

TEST_F(AMep, SendsRdiWhileARemoteMepIsMissingAndNotBefore) {
  Advance(3250ms);
  for (const pdu::Ccm& ccm : SentCcms()) EXPECT_FALSE(ccm.rdi);
  output_.TakeFrames();
  Advance(1s);
  EXPECT_TRUE(SentCcms().back().rdi);
  output_.TakeFrames();
  AdvanceWithPeers(1);
  EXPECT_FALSE(SentCcms().back().rdi);
}

TEST_F(AMep, SendsNoRdiForTheRdiThatItReceives) {
  pdu::Ccm ccm = GoodCcm(2);
  ccm.rdi = true;
  for (int i = 0; i < 5; ++i) {
    Deliver(ccm, Station(2));
    Deliver(GoodCcm(3), Station(3));
    Advance(1s);
  }
  EXPECT_TRUE(mep_.status().defects.rdi);
  EXPECT_FALSE(mep_.status().rdi);
  for (const pdu::Ccm& sent : SentCcms()) EXPECT_FALSE(sent.rdi);
}

TEST_F(AMep, SendsNoRdiForADefectThatIsNotAllowed) {
  settings_.lowest_alarm = 4;
  mep_.Update(settings_, output_.now);
  Advance(20s);
  EXPECT_TRUE(mep_.status().defects.remote_ccm);
  EXPECT_FALSE(mep_.status().rdi);
  EXPECT_EQ(mep_.status().highest_defect, Defect::kNone);
}

TEST_F(AMep, KeepsTheHighestDefectUntilItsFaultIsReset) {
  Advance(5s);
  pdu::Ccm foreign = GoodCcm(2);
  foreign.maid = MaidNumber(9);
  Deliver(foreign);
  Advance(5s);
  EXPECT_FALSE(mep_.status().defects.xcon_ccm);
  EXPECT_TRUE(mep_.status().defects.remote_ccm);
  EXPECT_EQ(mep_.status().highest_defect, Defect::kXconCcm);
  AdvanceWithPeers(12);
  EXPECT_EQ(mep_.status().highest_defect, Defect::kNone);
}

TEST_F(AMep, ReportsAFaultInOneEvent) {
  AdvanceWithPeers(2);
  output_.TakeEvents();
  Deliver(GoodCcm(2), Station(2));
  // From the last CCM of 3 to its loss, and the alarm time.
  for (int i = 0; i < 10; ++i) {
    Deliver(GoodCcm(2), Station(2));
    Advance(1s);
  }
  EXPECT_THAT(output_.events,
              ElementsAre("remote 3 failed", "local highest 3 sends-rdi missing", "local highest 3 sends-rdi missing"));
}

TEST_F(AMep, HoldsItsFaultActionFromTheReportToTheReset) {
  settings_.fault_action = FaultAction::kShutdown;
  mep_.Update(settings_, output_.now);
  Advance(3375ms + 2500ms - 1ms);
  EXPECT_THAT(output_.events, Not(Contains("action 2")));
  Advance(1ms);
  EXPECT_THAT(output_.events, Contains("action 2"));
  EXPECT_EQ(mep_.status().action_in_force, FaultAction::kShutdown);
  output_.TakeEvents();
  AdvanceWithPeers(9);
  EXPECT_THAT(output_.events, Not(Contains("action 0")));
  AdvanceWithPeers(1);
  EXPECT_THAT(output_.events, Contains("action 0"));
}

TEST_F(AMep, TakesOneActionWhileTheLinkFlaps) {
  settings_.fault_action = FaultAction::kBlock;
  mep_.Update(settings_, output_.now);
  Advance(6s);
  for (int i = 0; i < 3; ++i) {
    AdvanceWithPeers(1);
    Advance(5s);
  }
  AdvanceWithPeers(20);
  std::vector<std::string> actions;
  for (const auto& event : output_.events) {
    if (event.starts_with("action")) actions.push_back(event);
  }
  EXPECT_THAT(actions, ElementsAre("action 1", "action 0"));
}

TEST_F(AMep, UndoesItsActionWhenItIsDisabledOrRemoved) {
  settings_.fault_action = FaultAction::kBlock;
  mep_.Update(settings_, output_.now);
  Advance(6s);
  output_.TakeEvents();
  settings_.enabled = false;
  mep_.Update(settings_, output_.now);
  EXPECT_THAT(output_.events, Contains("action 0"));
  settings_.enabled = true;
  mep_.Update(settings_, output_.now);
  Advance(6s);
  EXPECT_THAT(output_.TakeEvents(), Contains("action 1"));
  mep_.Remove();
  EXPECT_THAT(output_.events, Contains("action 0"));
}

// ---- AIS ----

TEST_F(AMep, SeesAisForThreeAndAHalfOfThePeriodThatTheLastFrameTells) {
  DeliverAis(pdu::AisPeriod::k1min);
  AdvanceWithPeers(10);
  EXPECT_TRUE(mep_.status().defects.ais);
  DeliverAis(pdu::AisPeriod::k1s);
  AdvanceWithPeers(3);
  EXPECT_TRUE(mep_.status().defects.ais);
  AdvanceWithPeers(1);
  EXPECT_FALSE(mep_.status().defects.ais);
}

TEST_F(AMep, DropsAisOfAnyOtherPeriod) {
  for (std::uint8_t code = 0; code < 8; ++code) {
    if (code == 4 || code == 6) continue;
    Octets ais = Encoded(pdu::Ais{.level = 5, .period = pdu::AisPeriod::k1s}, pdu::EncodeAis);
    ais[2] = code;
    Deliver(ais, Group(5));
    EXPECT_FALSE(mep_.status().defects.ais) << int{code};
  }
  EXPECT_EQ(mep_.dropped().malformed[static_cast<std::size_t>(pdu::Problem::kValue)], 6U);
}

TEST_F(AMep, RaisesNoAlarmForAisAlone) {
  AdvanceWithPeers(1);
  DeliverAis(pdu::AisPeriod::k1min);
  AdvanceWithPeers(20);
  EXPECT_TRUE(mep_.status().defects.ais);
  EXPECT_EQ(mep_.status().highest_defect, Defect::kNone);
}

TEST_F(AMep, RaisesNoAlarmForMissingMepsWhileAisIsThereAndSuppresses) {
  settings_.ais_suppresses_missing = true;
  settings_.fault_action = FaultAction::kBlock;
  mep_.Update(settings_, output_.now);
  DeliverAis(pdu::AisPeriod::k1min);
  Advance(209s);
  EXPECT_TRUE(mep_.status().defects.remote_ccm) << "the flag stays";
  EXPECT_EQ(mep_.status().highest_defect, Defect::kNone);
  EXPECT_THAT(output_.events, Not(Contains("action 1")));
  Advance(1s + 2500ms - 1ms);
  EXPECT_THAT(output_.events, Not(Contains("action 1")));
  Advance(1ms);
  EXPECT_THAT(output_.events, Contains("action 1"));
}

TEST_F(AMep, RaisesTheAlarmBesideAisWhenItDoesNotSuppress) {
  DeliverAis(pdu::AisPeriod::k1min);
  Advance(10s);
  EXPECT_EQ(mep_.status().highest_defect, Defect::kRemoteCcm);
}

// ---- Updates ----

TEST_F(AMep, IsNotDisturbedByAnUpdateThatChangesNothing) {
  RecordingOutput undisturbed_output;
  Mep undisturbed{mep_.identity(), settings_, PortOf(1), undisturbed_output, [](Duration) { return Duration::zero(); },
                  kStart};
  for (int i = 0; i < 2000; ++i) {
    undisturbed_output.now += 10ms;
    output_.now += 10ms;
    undisturbed.Advance(output_.now);
    mep_.Advance(output_.now);
    mep_.Update(settings_, output_.now);
    mep_.SetPort(PortOf(1), output_.now);
    ASSERT_EQ(mep_.deadline(), undisturbed.deadline());
  }
  EXPECT_EQ(mep_.ccm_sender().sequence_number(), undisturbed.ccm_sender().sequence_number());
  undisturbed_output.events.erase(undisturbed_output.events.begin(), undisturbed_output.events.begin() + 3);
  EXPECT_EQ(output_.events, undisturbed_output.events);
}

TEST_F(AMep, KeepsTimersStatesAndSequenceWhenPriorityActionOrSenderIdChanges) {
  AdvanceWithPeers(2);
  output_.TakeEvents();
  output_.TakeFrames();
  Advance(300ms);
  const TimePoint deadline = mep_.deadline();
  settings_.priority = 3;
  settings_.fault_action = FaultAction::kBlock;
  settings_.sender_id = SystemId{.chassis_subtype = 7, .chassis_id = {'x'}};
  settings_.primary_vid = 9;
  mep_.Update(settings_, output_.now);
  EXPECT_EQ(mep_.deadline(), deadline);
  EXPECT_THAT(output_.events, IsEmpty());
  EXPECT_THAT(output_.frames, IsEmpty());
  Advance(700ms);
  ASSERT_THAT(output_.frames, SizeIs(1));
  EXPECT_EQ(output_.frames[0].header.outer, (pdu::Tag{.priority = 3, .drop_eligible = false, .vid = 9}));
  EXPECT_TRUE(SentCcms()[0].sender_id);
  EXPECT_EQ(SentCcms()[0].sequence_number, 4U);
}

TEST_F(AMep, TouchesOnlyTheRemoteMepsThatAChangedListNames) {
  AdvanceWithPeers(2);
  output_.TakeEvents();
  settings_.mep_ids = {1, 2, 4};
  mep_.Update(settings_, output_.now);
  EXPECT_THAT(output_.events, ElementsAre("remote 3 removed", "remote 4 start"));
  EXPECT_EQ(mep_.remotes().Find(1), nullptr) << "itself";
}

TEST_F(AMep, DeclaresNoLossWhenTheIntervalBecomesLonger) {
  AdvanceWithPeers(2);
  output_.TakeEvents();
  settings_.interval = 5;
  mep_.Update(settings_, output_.now);
  Advance(33s);
  EXPECT_THAT(output_.events, IsEmpty());
  EXPECT_EQ(SentCcms().back().interval, 5);
}

TEST_F(AMep, EndsEverythingWhenItIsDisabledAndBeginsAnewWhenItIsEnabled) {
  Advance(10s);
  output_.TakeEvents();
  settings_.enabled = false;
  mep_.Update(settings_, output_.now);
  EXPECT_THAT(output_.events, ElementsAre("remote 2 removed", "remote 3 removed", "local highest 0"));
  EXPECT_EQ(mep_.deadline(), kNever);
  Deliver(GoodCcm());
  Deliver(LbmOctets(), Station(1));
  output_.TakeFrames();
  output_.TakeEvents();
  Advance(1h);
  EXPECT_THAT(output_.frames, IsEmpty());
  settings_.enabled = true;
  mep_.Update(settings_, output_.now);
  EXPECT_THAT(output_.events, ElementsAre("remote 2 start", "remote 3 start"));
  Advance(0ms);
  EXPECT_EQ(SentCcms().at(0).sequence_number, mep_.ccm_sender().sequence_number());
}

TEST_F(AMep, KeepsItsSequenceWhenItsStatisticsAreCleared) {
  Advance(5s);
  mep_.ClearStatistics();
  Advance(1s);
  EXPECT_EQ(mep_.ccm_sender().counters().sent, 1U);
  EXPECT_EQ(mep_.ccm_sender().sequence_number(), 7U);
}

// ---- Tests ----

TEST_F(AMep, RefusesTestsToATargetThatItDoesNotKnow) {
  EXPECT_EQ(mep_.StartLoopback({.target_mep_id = 50}, output_.now), TestError::kTargetUnknown);
  EXPECT_EQ(mep_.StartLinktrace({.target_mep_id = 2}, output_.now), TestError::kTargetUnknown)
      << "no CCM has told its address yet";
  EXPECT_EQ(mep_.StartDelayMeasurement({.target_mep_id = 2}, output_.now), TestError::kTargetUnknown);
}

TEST_F(AMep, TestsAFailedTargetWhoseAddressItKnows) {
  AdvanceWithPeers(1);
  Advance(10s);
  EXPECT_FALSE(mep_.StartLoopback({.trigger_id = 1, .target_mep_id = 2}, output_.now));
  EXPECT_EQ(output_.frames.back().header.destination, Station(2));
}

TEST_F(AMep, RefusesTestsWhileItIsNotOperational) {
  AdvanceWithPeers(1);
  PortState port = PortOf(1);
  port.present = false;
  mep_.SetPort(port, output_.now);
  EXPECT_EQ(mep_.StartLoopback({.target_mep_id = 2}, output_.now), TestError::kMepNotOperational);
  mep_.SetPort(PortOf(1), output_.now);
  settings_.enabled = false;
  mep_.Update(settings_, output_.now);
  EXPECT_EQ(mep_.StartLinktrace({.target_mep_id = 2}, output_.now), TestError::kMepNotOperational);
}

TEST_F(AMep, EndsItsTestsWithWhatWasCountedWhenItIsRemoved) {
  AdvanceWithPeers(1);
  output_.TakeEvents();
  mep_.StartLoopback({.trigger_id = 1, .target_mep_id = 2, .messages = 5}, output_.now);
  mep_.StartLinktrace({.target_mep_id = 3}, output_.now);
  mep_.StartDelayMeasurement({.trigger_id = 2, .target_mep_id = 2, .parameters = {}}, output_.now);
  mep_.Remove();
  EXPECT_THAT(output_.events, ElementsAre("loopback 1 started to 2", "linktrace 1 started to 3 mep 3 ttl 64",
                                          "delay 2 started to 2", "remote 2 removed", "remote 3 removed",
                                          "loopback 1 ended: 1 expected, 0 in order, 0 out of order, 0 wrong",
                                          "linktrace 1 ended", "delay 2 ended: 0 of 1"));
  EXPECT_EQ(mep_.deadline(), kNever);
}

TEST_F(AMep, CountsADelayReplyThatNobodyWaitsFor) {
  const Octets dmm = Encoded(pdu::TwoWayDelay{.level = 5, .sent_f = {1, 1}, .data = {}}, pdu::EncodeDmm);
  Octets dmr(dmm.size());
  pdu::MakeDmr(dmm, {}, dmr);
  Deliver(dmr, Station(1));
  EXPECT_EQ(mep_.dropped().unexpected_delay, 1U);
}

}  // namespace
}  // namespace cfm::protocol
