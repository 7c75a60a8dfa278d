// Maintenance points of bridges: what stops, passes and answers on the way through, alone and in a chain.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "bridged_network.h"
#include "pdu/ais.h"
#include "pdu/ccm.h"
#include "pdu/delay.h"
#include "pdu/linktrace.h"
#include "pdu/loopback.h"
#include "protocol/mip_creation.h"

namespace cfm::protocol {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;
using Transmitted = BridgedElement::Transmitted;

MepSettings Silent(std::set<std::uint16_t> ids = {1, 2}) {
  MepSettings settings = Watching(4, std::move(ids));
  settings.send_ccms = false;
  return settings;
}

pdu::EthernetHeader From(const pdu::MacAddress& source, const pdu::MacAddress& destination, std::uint16_t vid = 0) {
  pdu::EthernetHeader header{.destination = destination, .source = source, .outer = {}, .inner = {}};
  if (vid != 0) header.outer = pdu::Tag{.priority = 4, .drop_eligible = false, .vid = vid};
  return header;
}

Octets CcmOctets(std::uint8_t level, std::uint16_t id = 2) {
  return Encoded(
      pdu::Ccm{.level = level, .interval = 4, .mep_id = id, .maid = MaidNumber(1), .sender_id = std::nullopt},
      pdu::EncodeCcm);
}

Octets LbmOctets(std::uint8_t level) {
  return Encoded(pdu::Loopback{.level = level, .transaction_id = 3, .sender_id = std::nullopt, .data = {}},
                 pdu::EncodeLbm);
}

pdu::Ltm LtmFrom(const pdu::MacAddress& source, const pdu::MacAddress& target, std::uint8_t ttl = 64) {
  return {.level = 5,
          .use_fdb_only = true,
          .transaction_id = 77,
          .ttl = ttl,
          .original_address = source,
          .target_address = target,
          .egress_identifier = pdu::EgressIdentifier{.unique_id = 0, .address = source},
          .sender_id = std::nullopt};
}

/// One bridge with three ports, to which nothing is connected; station 90 + p is behind port p.
class ABridge : public testing::Test {
 protected:
  static pdu::MacAddress Behind(PortIndex port) { return Station(static_cast<std::uint8_t>(90 + port)); }

  /// What leaves because of a frame from the wire of a port, at once and within the time of random waits.
  std::vector<Transmitted> Arrive(PortIndex port, const pdu::EthernetHeader& header, const Octets& octets) {
    element_.TakeTransmitted();
    element_.Arrive(port, header, octets);
    network_.RunFor(1s);
    return element_.TakeTransmitted();
  }
  std::vector<Transmitted> ArriveCcm(PortIndex port, std::uint8_t level) {
    return Arrive(port, From(Behind(port), Group(level)), CcmOctets(level));
  }
  std::vector<Transmitted> ArriveLtm(PortIndex port, const pdu::Ltm& ltm) {
    return Arrive(port, From(Behind(port), Group(5, pdu::GroupClass::k2)), Encoded(ltm, pdu::EncodeLtm));
  }
  /// The bridge has seen all three stations.
  void Learn() {
    for (PortIndex port = 1; port <= 3; ++port) element_.table[{Vlan{}, Behind(port)}] = port;
  }
  /// A frame from the wire of a port must leave by both others, as it came.
  void ExpectPasses(PortIndex port, std::uint8_t level, const std::string& what) {
    const auto frames = ArriveCcm(port, level);
    ASSERT_THAT(frames, SizeIs(2)) << what;
    for (const Transmitted& frame : frames) {
      EXPECT_FALSE(frame.by_a_point) << what;
      EXPECT_EQ(frame.pdu, CcmOctets(level)) << what;
      EXPECT_NE(frame.port, port) << what;
    }
  }

  BridgedNetwork network_;
  BridgedElement& element_ = network_.Add(3);
};

// ---- Levels ----

TEST_F(ABridge, StopsAtAnEndPointEveryLevelThatIsNotAboveItFromBothSides) {
  for (const Direction direction : {Direction::kDown, Direction::kUp}) {
    BridgedNetwork network;
    BridgedElement& element = network.Add(2);
    Mep& mep = *element.AddMep(1, 5, 1, direction, Silent()).mep;
    const PortIndex front = direction == Direction::kDown ? 1 : 2;
    for (std::uint8_t level = 0; level <= 7; ++level) {
      for (const PortIndex port : {PortIndex{1}, PortIndex{2}}) {
        const std::string what = "direction " + std::to_string(static_cast<int>(direction)) + ", level " +
                                 std::to_string(level) + ", from port " + std::to_string(port);
        const auto behind = mep.dropped().behind;
        element.TakeTransmitted();
        element.Arrive(port, From(Behind(port), Group(level)), CcmOctets(level));
        const auto frames = element.TakeTransmitted();
        if (level > 5) {
          ASSERT_THAT(frames, SizeIs(1)) << what;
          EXPECT_EQ(frames[0].pdu, CcmOctets(level)) << what;
        } else {
          EXPECT_THAT(frames, IsEmpty()) << what;
        }
        const bool stopped_behind = level <= 5 && port != front;
        EXPECT_EQ(mep.dropped().behind - behind, stopped_behind ? 1U : 0U) << what;
      }
    }
    EXPECT_EQ(mep.cross_connect().last()->level, 4);
    EXPECT_EQ(mep.remotes().Find(2)->status().mac, Behind(front));
  }
}

TEST_F(ABridge, RaisesNoCrossConnectForALowerCcmFromBehind) {
  Mep& down = *element_.AddMep(1, 5, 1, Direction::kDown, Silent()).mep;
  Mep& up = *element_.AddMep(2, 6, 1, Direction::kUp, Silent()).mep;
  ArriveCcm(3, 3);
  EXPECT_FALSE(down.cross_connect().present());
  EXPECT_TRUE(up.cross_connect().present());
  ArriveCcm(2, 3);
  ArriveCcm(2, 5);
  EXPECT_FALSE(down.cross_connect().present());
  EXPECT_EQ(down.remotes().Find(2)->status().state, RemoteState::kStart);
}

TEST_F(ABridge, SharesFramesAmongItsUpMepsByTheirLevels) {
  Mep& two = *element_.AddMep(1, 2, 1, Direction::kUp, Silent()).mep;
  Mep& five = *element_.AddMep(1, 5, 1, Direction::kUp, Silent()).mep;
  ArriveCcm(2, 1);
  EXPECT_EQ(two.cross_connect().last()->level, 1);
  ArriveCcm(2, 2);
  EXPECT_EQ(two.remotes().Find(2)->status().state, RemoteState::kOk);
  EXPECT_FALSE(five.cross_connect().present());
  ArriveCcm(2, 3);
  EXPECT_EQ(five.cross_connect().last()->level, 3);
  ArriveCcm(2, 5);
  EXPECT_EQ(five.remotes().Find(2)->status().state, RemoteState::kOk);
  EXPECT_THAT(ArriveCcm(2, 6), SizeIs(2));
}

TEST_F(ABridge, LetsEverythingPassAnEndPointThatIsDisabled) {
  auto& home = element_.AddMep(1, 5, 1, Direction::kUp, Silent());
  EXPECT_THAT(ArriveCcm(1, 5), IsEmpty());
  MepSettings settings = Silent();
  settings.enabled = false;
  element_.Update(home, settings);
  ExpectPasses(1, 5, "disabled");
  element_.Update(home, Silent());
  EXPECT_THAT(ArriveCcm(1, 5), IsEmpty());
}

TEST_F(ABridge, KeepsTheLevelsOfOneVlanApartFromAnother) {
  MepSettings settings = Silent();
  settings.primary_vid = 100;
  element_.AddMep(1, 5, 1, Direction::kDown, settings);
  EXPECT_THAT(Arrive(1, From(Behind(1), Group(5), 100), CcmOctets(5)), IsEmpty());
  EXPECT_THAT(Arrive(1, From(Behind(1), Group(5), 101), CcmOctets(5)), SizeIs(2));
  ExpectPasses(1, 5, "untagged");
}

TEST_F(ABridge, AsksTheKernelToDropWhatItsPointsStop) {
  EXPECT_THAT(element_.points.Filters(1), IsEmpty());
  element_.AddMep(1, 2, 1, Direction::kDown, Silent());
  auto& five = element_.AddMep(1, 5, 1, Direction::kUp, Silent());
  MepSettings tagged = Silent();
  tagged.primary_vid = 100;
  tagged.inner_vid = 7;
  element_.AddMep(1, 3, 1, Direction::kDown, tagged);
  EXPECT_THAT(element_.points.Filters(1),
              ElementsAre(LevelFilter{.vlan = {}, .up_to_level = 5},
                          LevelFilter{.vlan = {.vid = 100, .inner_vid = 7}, .up_to_level = 3}));
  element_.AddMips(6);
  EXPECT_THAT(element_.points.Filters(2), ElementsAre(LevelFilter{.vlan = {}, .linktrace_level = 6}));
  MepSettings disabled = Silent();
  disabled.enabled = false;
  element_.Update(five, disabled);
  EXPECT_EQ(element_.points.Filters(1).at(0), (LevelFilter{.vlan = {}, .up_to_level = 2, .linktrace_level = 6}));
  ElementPort outside = element_.PortSettings(1);
  outside.bridge = 0;
  element_.Change(1, outside);
  EXPECT_THAT(element_.points.Filters(1), IsEmpty()) << "nothing is forwarded there";
}

TEST_F(ABridge, NeedsThePortsWithPointsAndThoseThatTheseReachThroughTheBridge) {
  const auto needed = [this] {
    std::vector<PortIndex> ports;
    for (PortIndex port = 1; port <= 4; ++port) {
      if (element_.points.IsNeeded(port)) ports.push_back(port);
    }
    return ports;
  };
  EXPECT_THAT(needed(), IsEmpty());
  auto& down = element_.AddMep(1, 5, 1, Direction::kDown, Silent());
  EXPECT_THAT(needed(), ElementsAre(1U));
  MepSettings with_ais = Silent();
  with_ais.ais = AisSettings{.client_level = 6};
  element_.Update(down, with_ais);
  EXPECT_THAT(needed(), ElementsAre(1U, 2U, 3U));
  element_.points.Remove(*down.mep);
  EXPECT_THAT(needed(), IsEmpty());
  auto& up = element_.AddMep(1, 5, 1, Direction::kUp, Silent());
  EXPECT_THAT(needed(), ElementsAre(1U, 2U, 3U));
  element_.points.Remove(*up.mep);
  element_.points.SetMips(
      std::vector<MipSettings>{{.place = {.port = 2, .vlan = {}, .level = 5}, .sender_id = std::nullopt}});
  EXPECT_THAT(needed(), ElementsAre(1U, 2U, 3U));
  ElementPort outside = element_.PortSettings(3);
  outside.bridge = 0;
  element_.Change(3, outside);
  EXPECT_THAT(needed(), ElementsAre(1U, 2U));
}

TEST_F(ABridge, AnswersAndStopsUnicastOfAnEndPointsLevelByItsAddressOnly) {
  Mep& up = *element_.AddMep(1, 5, 1, Direction::kUp, Silent()).mep;
  auto frames = Arrive(2, From(Behind(2), element_.AddressOf(1)), LbmOctets(5));
  ASSERT_THAT(frames, SizeIs(1));
  EXPECT_EQ(frames[0].port, 2U) << "where it came from, though no table tells yet";
  EXPECT_EQ(frames[0].opcode(), pdu::Opcode::kLbr);
  EXPECT_EQ(frames[0].header.destination, Behind(2));
  EXPECT_EQ(frames[0].header.source, element_.AddressOf(1));
  element_.table[{Vlan{}, Behind(1)}] = 1;
  EXPECT_THAT(Arrive(2, From(Behind(2), Behind(1)), LbmOctets(5)), IsEmpty());
  EXPECT_EQ(up.dropped().not_for_us, 1U);
  EXPECT_THAT(Arrive(2, From(Behind(2), Behind(1)), LbmOctets(6)), SizeIs(1)) << "a higher level passes";
}

TEST_F(ABridge, ForgetsAPortThatIsGoneAndFindsItsPointsAgain) {
  Mep& mep = *element_.AddMep(1, 5, 1, Direction::kDown, Silent()).mep;
  element_.points.RemovePort(1);
  EXPECT_THAT(element_.points.Filters(1), IsEmpty());
  element_.points.SetPort(1, element_.PortSettings(1));
  ArriveCcm(1, 5);
  EXPECT_EQ(mep.remotes().Find(2)->status().state, RemoteState::kOk);
  EXPECT_THAT(element_.touched, Contains(&mep));
  element_.points.RemovePort(1);
  element_.points.Remove(mep);
  EXPECT_EQ(element_.points.PointsOf(1), nullptr);
  element_.points.Remove(mep);
}

TEST_F(ABridge, CountsWhatIsTooShortToHaveALevel) {
  EXPECT_THAT(Arrive(1, From(Behind(1), Group(5)), {0xa0, 1, 0}), SizeIs(2));
  EXPECT_EQ(element_.points.malformed(), 1U);
}

// ---- A port without a bridge ----

TEST_F(ABridge, TreatsAPortOutsideOfItAsOneWithNobodyBehind) {
  element_.Change(1, {.bridge = 0, .state = PortOf(11)});
  auto& down = element_.AddMep(1, 5, 1, Direction::kDown, Watching(4, {1, 2}));
  element_.AddMep(2, 5, 2, Direction::kUp, Watching(4, {1, 2}));
  network_.RunFor(5s);
  EXPECT_EQ(down.mep->ccm_sender().counters().sent, 6U);
  EXPECT_EQ(down.mep->remotes().Find(2)->status().state, RemoteState::kFailed);
  Learn();
  auto frames = ArriveLtm(1, LtmFrom(Behind(1), Behind(2)));
  std::erase_if(frames, [](const auto& frame) { return frame.opcode() != pdu::Opcode::kLtr; });
  EXPECT_THAT(frames, IsEmpty()) << "there is no table";
  frames = Arrive(1, From(Behind(1), element_.AddressOf(1)), LbmOctets(5));
  EXPECT_TRUE(std::all_of(frames.begin(), frames.end(), [](const auto& frame) { return frame.by_a_point; }));
  EXPECT_TRUE(std::any_of(frames.begin(), frames.end(),
                          [](const auto& frame) { return frame.port == 1 && frame.opcode() == pdu::Opcode::kLbr; }));
}

TEST_F(ABridge, IsNeededByAnUpMep) {
  auto& up = element_.AddMep(1, 5, 1, Direction::kUp, Watching(4, {1, 2}));
  network_.RunFor(3s);
  ArriveCcm(2, 5);
  const auto sent = up.mep->ccm_sender().counters().sent;
  EXPECT_GE(sent, 3U);
  up.mep->SetPort(PortOf(11), network_.now());
  element_.Change(1, {.bridge = 0, .state = PortOf(11)});
  network_.RunFor(10s);
  EXPECT_EQ(up.mep->ccm_sender().counters().sent, sent);
  EXPECT_EQ(up.mep->StartLoopback({.target_mep_id = 2}, network_.now()), TestError::kMepNotOperational);
  ElementPort back = element_.PortSettings(2);
  back.state = PortOf(11);
  back.state.port_status = pdu::PortStatus::kUp;
  element_.Change(1, back);
  up.mep->SetPort(back.state, network_.now());
  network_.RunFor(3s);
  EXPECT_GT(up.mep->ccm_sender().counters().sent, sent);
}

// ---- Up MEPs ----

TEST_F(ABridge, SendsAnUpMepsFramesOutOfTheOtherPortsOnly) {
  element_.AddMep(1, 5, 1, Direction::kUp, Watching(4, {1, 2}));
  network_.RunFor(0s);
  const auto frames = element_.TakeTransmitted();
  ASSERT_THAT(frames, SizeIs(2));
  EXPECT_EQ(frames[0].port, 2U);
  EXPECT_EQ(frames[1].port, 3U);
  EXPECT_EQ(frames[0].header.source, element_.AddressOf(1));
  EXPECT_EQ(frames[0].header.destination, Group(5));
  EXPECT_EQ(pdu::DecodeCcm(frames[0].pdu)->port_status, pdu::PortStatus::kUp);
}

TEST_F(ABridge, SendsAnUpMepsFramesToPortsThatForwardAndCarryItsVlan) {
  MepSettings settings = Watching(4, {1, 2});
  settings.primary_vid = 100;
  ElementPort blocked = element_.PortSettings(2);
  blocked.state.port_status = pdu::PortStatus::kBlocked;
  element_.Change(2, blocked);
  element_.outside.insert({3, {.vid = 100}});
  auto& up = element_.AddMep(1, 5, 1, Direction::kUp, settings);
  network_.RunFor(0s);
  EXPECT_THAT(element_.TakeTransmitted(), IsEmpty());
  EXPECT_EQ(up.mep->ccm_sender().counters().failed, 0U) << "the bridge took it";
  element_.outside.clear();
  network_.RunFor(1s);
  const auto frames = element_.TakeTransmitted();
  ASSERT_THAT(frames, SizeIs(1));
  EXPECT_EQ(frames[0].port, 3U);
  EXPECT_EQ(frames[0].header.outer->vid, 100);
}

TEST_F(ABridge, LetsItsOwnUpMepsFindLoopAndMeasureEachOther) {
  auto& one = element_.AddMep(1, 5, 1, Direction::kUp, Watching(4, {1, 2}));
  auto& two = element_.AddMep(2, 5, 2, Direction::kUp, Watching(4, {1, 2}));
  network_.RunFor(3s);
  EXPECT_EQ(one.mep->remotes().Find(2)->status().state, RemoteState::kOk);
  EXPECT_EQ(two.mep->remotes().Find(1)->status().state, RemoteState::kOk);
  one.TakeEvents();
  element_.TakeTransmitted();
  EXPECT_FALSE(one.mep->StartLoopback({.trigger_id = 1, .target_mep_id = 2, .messages = 2}, network_.now()));
  EXPECT_FALSE(one.mep->StartDelayMeasurement({.trigger_id = 2, .target_mep_id = 2, .parameters = {}}, network_.now()));
  EXPECT_FALSE(one.mep->StartLinktrace({.target_mep_id = 2}, network_.now()));
  network_.RunFor(10s);
  EXPECT_THAT(one.events,
              IsSupersetOf({"loopback 1 ended: 2 expected, 2 in order, 0 out of order, 0 wrong",
                            "delay 2 ended: 1 of 1", "linktrace 1 reply from 12 ttl 63", "linktrace 1 ended"}));
  for (const Transmitted& frame : element_.TakeTransmitted()) {
    EXPECT_EQ(frame.port, 3U);
    EXPECT_TRUE(pdu::IsGroup(frame.header.destination)) << "what is for a port of the bridge stays inside";
  }
}

TEST_F(ABridge, ShowsItsUpMepsNothingThatItDoesNotBringThem) {
  MepSettings settings = Silent();
  settings.primary_vid = 100;
  Mep& up = *element_.AddMep(1, 5, 1, Direction::kUp, settings).mep;
  const auto state = [&up] { return up.remotes().Find(2)->status().state; };
  const auto arrive = [this] { Arrive(2, From(Behind(2), Group(5), 100), CcmOctets(5)); };
  const ElementPort good = element_.PortSettings(2);
  ElementPort blocked = good;
  blocked.state.port_status = pdu::PortStatus::kBlocked;
  element_.Change(2, blocked);
  arrive();
  EXPECT_EQ(state(), RemoteState::kStart) << "the way in is blocked";
  element_.Change(2, good);
  element_.outside = {{2, {.vid = 100}}};
  arrive();
  EXPECT_EQ(state(), RemoteState::kStart) << "the way in is not on the VLAN";
  element_.outside = {{1, {.vid = 100}}};
  arrive();
  EXPECT_EQ(state(), RemoteState::kStart) << "its own port is not on the VLAN";
  element_.outside.clear();
  arrive();
  EXPECT_EQ(state(), RemoteState::kOk);
}

TEST_F(ABridge, SendsNothingOutThatIsForOneOfItsOwnPorts) {
  auto& one = element_.AddMep(1, 5, 1, Direction::kUp, Watching(4, {1, 2}));
  auto& two = element_.AddMep(2, 5, 2, Direction::kUp, Watching(4, {1, 2}));
  network_.RunFor(3s);
  MepSettings disabled = Silent();
  disabled.enabled = false;
  element_.Update(two, disabled);
  element_.TakeTransmitted();
  EXPECT_FALSE(one.mep->StartLoopback({.trigger_id = 1, .target_mep_id = 2}, network_.now()));
  network_.RunFor(10s);
  EXPECT_THAT(one.events, Contains("loopback 1 ended: 1 expected, 0 in order, 0 out of order, 0 wrong"));
  for (const Transmitted& frame : element_.TakeTransmitted()) EXPECT_NE(frame.opcode(), pdu::Opcode::kLbm);
}

TEST_F(ABridge, KeepsAnUpMepGoingWhoseOwnPortIsDown) {
  auto& up = element_.AddMep(1, 5, 1, Direction::kUp, Watching(4, {1, 2}));
  network_.RunFor(1s);
  ElementPort down = element_.PortSettings(1);
  down.state.interface_status = pdu::InterfaceStatus::kLowerLayerDown;
  down.state.port_status = pdu::PortStatus::kBlocked;
  element_.Change(1, down);
  up.mep->SetPort(down.state, network_.now());
  element_.TakeTransmitted();
  ArriveCcm(2, 5);
  EXPECT_EQ(up.mep->remotes().Find(2)->status().state, RemoteState::kOk);
  network_.RunFor(1s);
  const auto frames = element_.TakeTransmitted();
  ASSERT_THAT(frames, testing::Not(IsEmpty()));
  EXPECT_EQ(pdu::DecodeCcm(frames[0].pdu)->interface_status, pdu::InterfaceStatus::kLowerLayerDown);
  EXPECT_EQ(pdu::DecodeCcm(frames[0].pdu)->port_status, pdu::PortStatus::kBlocked);
}

// ---- MIPs ----

TEST_F(ABridge, WithMipsLetsCcmsPassThemUnchangedAtEveryLevel) {
  element_.AddMips(5);
  for (std::uint8_t level = 0; level <= 7; ++level) ExpectPasses(1, level, "level " + std::to_string(level));
}

TEST_F(ABridge, AnswersLoopbackToItsMipsFromBothSides) {
  element_.AddMips(5);
  Learn();
  for (const PortIndex target : {PortIndex{1}, PortIndex{2}}) {
    const auto frames = Arrive(1, From(Behind(1), element_.AddressOf(target)), LbmOctets(5));
    ASSERT_THAT(frames, SizeIs(1)) << target;
    EXPECT_EQ(frames[0].port, 1U);
    EXPECT_EQ(frames[0].opcode(), pdu::Opcode::kLbr);
    EXPECT_EQ(frames[0].header.source, element_.AddressOf(target));
    EXPECT_EQ(frames[0].header.destination, Behind(1));
    EXPECT_THAT(Arrive(1, From(Behind(1), element_.AddressOf(target)), LbmOctets(4)), IsEmpty()) << "another level";
  }
  EXPECT_THAT(Arrive(1, From(Behind(1), Group(5)), LbmOctets(5)), SizeIs(2)) << "a group passes";
  EXPECT_THAT(Arrive(1, From({3, 0, 0, 0, 0, 1}, element_.AddressOf(1)), LbmOctets(5)), IsEmpty());
}

TEST_F(ABridge, AnswersAHundredLoopbacksASecondAtAMip) {
  element_.AddMips(5);
  Learn();
  for (int i = 0; i < 1000; ++i) element_.Arrive(1, From(Behind(1), element_.AddressOf(1)), LbmOctets(5));
  EXPECT_THAT(element_.TakeTransmitted(), SizeIs(100));
  const Mip* mip = element_.points.FindMip({.port = 1, .vlan = {}, .level = 5});
  EXPECT_EQ(mip->half(Side::kWire).loopback.counters().over_rate, 900U);
}

TEST_F(ABridge, AnswersAndPassesOnALinktraceByThePortOfItsTarget) {
  element_.AddMips(5);
  Learn();
  const auto frames = ArriveLtm(1, LtmFrom(Behind(1), Behind(2)));
  ASSERT_THAT(frames, SizeIs(2));
  EXPECT_EQ(frames[0].port, 2U);
  EXPECT_TRUE(frames[0].by_a_point);
  EXPECT_EQ(frames[0].header.source, element_.AddressOf(2));
  EXPECT_EQ(frames[0].header.destination, Group(5, pdu::GroupClass::k2));
  const auto ltm = pdu::DecodeLtm(frames[0].pdu);
  ASSERT_TRUE(ltm);
  EXPECT_EQ(ltm->ttl, 63);
  EXPECT_EQ(ltm->original_address, Behind(1));
  EXPECT_EQ(ltm->target_address, Behind(2));
  EXPECT_EQ(ltm->transaction_id, 77U);
  EXPECT_TRUE(ltm->use_fdb_only);
  EXPECT_EQ(ltm->egress_identifier, (pdu::EgressIdentifier{.unique_id = 0, .address = element_.AddressOf(2)}));

  EXPECT_EQ(frames[1].port, 1U);
  EXPECT_EQ(frames[1].header.source, element_.AddressOf(1));
  EXPECT_EQ(frames[1].header.destination, Behind(1));
  const auto ltr = pdu::DecodeLtr(frames[1].pdu);
  ASSERT_TRUE(ltr);
  EXPECT_TRUE(ltr->forwarded);
  EXPECT_FALSE(ltr->terminal_mep);
  EXPECT_EQ(ltr->ttl, 63);
  EXPECT_EQ(ltr->relay_action, pdu::RelayAction::kFdb);
  EXPECT_EQ(ltr->egress_identifiers->last.address, Behind(1));
  EXPECT_EQ(ltr->egress_identifiers->next.address, element_.AddressOf(2));
  ASSERT_TRUE(ltr->ingress);
  ASSERT_TRUE(ltr->egress);
  EXPECT_EQ(ltr->ingress->address, element_.AddressOf(1));
  EXPECT_EQ(ltr->egress->address, element_.AddressOf(2));
  EXPECT_EQ(std::string(ltr->egress->port_id.begin(), ltr->egress->port_id.end()), "port12");
}

TEST_F(ABridge, StaysSilentOnALinktraceWhoseTargetItDoesNotKnowOrThatLiesBack) {
  element_.AddMips(5);
  EXPECT_THAT(ArriveLtm(1, LtmFrom(Behind(1), Behind(2))), IsEmpty());
  element_.table[{Vlan{}, Behind(2)}] = 1;
  EXPECT_THAT(ArriveLtm(1, LtmFrom(Behind(1), Behind(2))), IsEmpty());
}

TEST_F(ABridge, FindsATargetInTheCcmDatabaseUnlessTheTraceRefusesThat) {
  element_.AddMips(5);
  ArriveCcm(2, 5);
  element_.table.clear();
  pdu::Ltm ltm = LtmFrom(Behind(1), Behind(2));
  EXPECT_THAT(ArriveLtm(1, ltm), IsEmpty());
  ltm.use_fdb_only = false;
  element_.table.clear();
  const auto frames = ArriveLtm(1, ltm);
  ASSERT_THAT(frames, SizeIs(2));
  EXPECT_EQ(frames[0].port, 2U);
  EXPECT_EQ(pdu::DecodeLtr(frames[1].pdu)->relay_action, pdu::RelayAction::kMpdb);
  element_.points.RemovePort(2);
  element_.points.SetPort(2, element_.PortSettings(2));
  EXPECT_THAT(ArriveLtm(1, ltm), IsEmpty()) << "what was behind a port that went is forgotten";
}

TEST_F(ABridge, NotesNoStationThatACcmToTheWrongAddressOrAnUnreadableOneNames) {
  element_.AddMips(5);
  Arrive(2, From(Behind(2), Group(4)), CcmOctets(5));
  Octets unreadable = CcmOctets(5);
  unreadable[3] = 69;
  Arrive(2, From(Behind(2), Group(5)), unreadable);
  Arrive(2, From(Behind(2), Group(4)), CcmOctets(4));
  element_.table.clear();
  pdu::Ltm ltm = LtmFrom(Behind(1), Behind(2));
  ltm.use_fdb_only = false;
  EXPECT_THAT(ArriveLtm(1, ltm), IsEmpty());
}

TEST_F(ABridge, CountsTheHopsOfALinktrace) {
  element_.AddMips(5);
  Learn();
  EXPECT_THAT(ArriveLtm(1, LtmFrom(Behind(1), Behind(2), 0)), IsEmpty());
  const auto last = ArriveLtm(1, LtmFrom(Behind(1), Behind(2), 1));
  ASSERT_THAT(last, SizeIs(1));
  EXPECT_EQ(pdu::DecodeLtr(last[0].pdu)->ttl, 0);
  EXPECT_FALSE(pdu::DecodeLtr(last[0].pdu)->forwarded);
  EXPECT_EQ(pdu::DecodeLtr(last[0].pdu)->egress_identifiers->next, pdu::EgressIdentifier{});
  EXPECT_THAT(ArriveLtm(1, LtmFrom(Behind(1), Behind(2), 2)), SizeIs(2));
}

TEST_F(ABridge, KnowsItsMipsAsTargetsOnBothSides) {
  element_.AddMips(5);
  for (const PortIndex target : {PortIndex{1}, PortIndex{2}}) {
    const auto frames = ArriveLtm(1, LtmFrom(Behind(1), element_.AddressOf(target)));
    ASSERT_THAT(frames, SizeIs(1)) << target;
    const auto ltr = pdu::DecodeLtr(frames[0].pdu);
    EXPECT_EQ(ltr->relay_action, pdu::RelayAction::kHit);
    EXPECT_FALSE(ltr->terminal_mep);
    EXPECT_FALSE(ltr->forwarded);
    EXPECT_TRUE(ltr->ingress);
    EXPECT_EQ(ltr->egress.has_value(), target == 2);
  }
}

TEST_F(ABridge, SaysWhatKeepsALinktraceFromGoingOn) {
  element_.AddMips(5);
  Learn();
  using Action = pdu::ReplyAction;
  const ElementPort good = element_.PortSettings(2);
  const auto egress = [&]() -> std::optional<Action> {
    const auto frames = ArriveLtm(1, LtmFrom(Behind(1), Behind(2)));
    if (frames.size() != 1) return std::nullopt;
    EXPECT_FALSE(pdu::DecodeLtr(frames[0].pdu)->forwarded);
    return pdu::DecodeLtr(frames[0].pdu)->egress->action;
  };
  ElementPort port = good;
  port.state.port_status = pdu::PortStatus::kBlocked;
  element_.Change(2, port);
  EXPECT_EQ(egress(), Action::kBlocked);
  port.state.interface_status = pdu::InterfaceStatus::kLowerLayerDown;
  element_.Change(2, port);
  EXPECT_EQ(egress(), Action::kDown);
  element_.Change(2, good);
  element_.outside.insert({2, {}});
  EXPECT_EQ(egress(), Action::kVid);
  element_.outside = {{1, {}}};
  auto frames = ArriveLtm(1, LtmFrom(Behind(1), Behind(2)));
  ASSERT_THAT(frames, SizeIs(1));
  EXPECT_EQ(pdu::DecodeLtr(frames[0].pdu)->ingress->action, Action::kVid);
  EXPECT_FALSE(pdu::DecodeLtr(frames[0].pdu)->forwarded);
}

TEST_F(ABridge, AnswersALinktraceAtTheWayOutWhenThereIsNoMipAtTheWayIn) {
  const std::vector<MipSettings> mips = {{.place = {.port = 2, .vlan = {}, .level = 5}, .sender_id = std::nullopt}};
  element_.points.SetMips(mips);
  Learn();
  auto frames = ArriveLtm(1, LtmFrom(Behind(1), Behind(2)));
  // Port 3, which has no point, gets the message from the bridge itself.
  ASSERT_THAT(frames, SizeIs(3));
  EXPECT_EQ(std::count_if(frames.begin(), frames.end(), [](const auto& frame) { return !frame.by_a_point; }), 1);
  std::erase_if(frames, [](const auto& frame) { return !frame.by_a_point; });
  EXPECT_EQ(frames[0].port, 2U);
  EXPECT_EQ(pdu::DecodeLtm(frames[0].pdu)->ttl, 63);
  EXPECT_EQ(frames[1].port, 1U);
  const auto ltr = pdu::DecodeLtr(frames[1].pdu);
  ASSERT_TRUE(ltr);
  EXPECT_FALSE(ltr->ingress);
  EXPECT_EQ(ltr->egress->address, element_.AddressOf(2));
  EXPECT_EQ(ltr->egress_identifiers->next.address, element_.AddressOf(2));
  frames = ArriveLtm(1, LtmFrom(Behind(1), Behind(3)));
  EXPECT_THAT(frames, SizeIs(1)) << "not behind the only MIP";
}

TEST_F(ABridge, EndsALinktraceAtAnUpMepOnTheWayOut) {
  const std::vector<MipSettings> mips = {{.place = {.port = 1, .vlan = {}, .level = 5}, .sender_id = std::nullopt}};
  element_.points.SetMips(mips);
  element_.AddMep(2, 5, 2, Direction::kUp, Silent());
  element_.AddMep(3, 6, 2, Direction::kUp, Silent());
  Learn();
  for (const bool is_target : {true, false}) {
    const auto frames = ArriveLtm(1, LtmFrom(Behind(1), is_target ? element_.AddressOf(2) : Behind(2)));
    ASSERT_THAT(frames, SizeIs(1));
    const auto ltr = pdu::DecodeLtr(frames[0].pdu);
    EXPECT_TRUE(ltr->terminal_mep);
    EXPECT_FALSE(ltr->forwarded);
    EXPECT_EQ(ltr->relay_action, is_target ? pdu::RelayAction::kHit : pdu::RelayAction::kFdb);
    EXPECT_EQ(ltr->egress->address, element_.AddressOf(2));
  }
  const auto barred = ArriveLtm(1, LtmFrom(Behind(1), Behind(3)));
  ASSERT_THAT(barred, SizeIs(1));
  EXPECT_FALSE(pdu::DecodeLtr(barred[0].pdu)->forwarded) << "a higher MEP is in the way";
  EXPECT_THAT(ArriveLtm(1, LtmFrom(Behind(1), element_.AddressOf(3))), IsEmpty()) << "nobody there at this level";
}

TEST_F(ABridge, RepliesAtAnEndPointByItsDirection) {
  element_.AddMep(1, 5, 1, Direction::kDown, Silent());
  element_.AddMep(2, 5, 2, Direction::kUp, Silent());
  Learn();
  auto frames = ArriveLtm(1, LtmFrom(Behind(1), element_.AddressOf(1)));
  ASSERT_THAT(frames, SizeIs(1));
  auto ltr = pdu::DecodeLtr(frames[0].pdu);
  EXPECT_EQ(ltr->relay_action, pdu::RelayAction::kHit);
  EXPECT_TRUE(ltr->terminal_mep);
  EXPECT_TRUE(ltr->ingress);
  EXPECT_FALSE(ltr->egress);
  frames = ArriveLtm(3, LtmFrom(Behind(3), element_.AddressOf(2)));
  std::erase_if(frames, [](const auto& frame) { return !frame.by_a_point; });
  ASSERT_THAT(frames, SizeIs(1));
  EXPECT_EQ(frames[0].port, 3U);
  ltr = pdu::DecodeLtr(frames[0].pdu);
  EXPECT_EQ(ltr->relay_action, pdu::RelayAction::kHit);
  EXPECT_TRUE(ltr->terminal_mep);
  EXPECT_FALSE(ltr->ingress);
  EXPECT_EQ(ltr->egress->address, element_.AddressOf(2));
}

TEST_F(ABridge, RepliesAtAnEndPointForWhatIsKnownBehindItAndNeverPassesThatOn) {
  element_.AddMep(1, 5, 1, Direction::kDown, Silent());
  Learn();
  const auto frames = ArriveLtm(1, LtmFrom(Behind(1), Behind(2)));
  ASSERT_THAT(frames, SizeIs(1));
  const auto ltr = pdu::DecodeLtr(frames[0].pdu);
  EXPECT_EQ(ltr->relay_action, pdu::RelayAction::kFdb);
  EXPECT_TRUE(ltr->terminal_mep);
  EXPECT_FALSE(ltr->forwarded);
  EXPECT_THAT(ArriveLtm(1, LtmFrom(Behind(1), Station(200))), IsEmpty());
  EXPECT_THAT(ArriveLtm(1, LtmFrom(Behind(1), Behind(1))), IsEmpty());
}

TEST_F(ABridge, DisturbsNoMipButThoseThatChange) {
  const auto at = [](PortIndex port, std::uint8_t level) {
    return MipSettings{.place = {.port = port, .vlan = {}, .level = level}, .sender_id = std::nullopt};
  };
  element_.points.SetMips(std::vector{at(1, 5), at(2, 5)});
  Learn();
  element_.Arrive(1, From(Behind(1), Group(5, pdu::GroupClass::k2)),
                  Encoded(LtmFrom(Behind(1), Behind(2)), pdu::EncodeLtm));
  const Mip* kept = element_.points.FindMip({.port = 1, .vlan = {}, .level = 5});
  const TimePoint deadline = element_.points.deadline();
  element_.points.SetMips(std::vector{at(1, 5), at(2, 6), at(3, 5)});
  EXPECT_EQ(element_.points.FindMip({.port = 1, .vlan = {}, .level = 5}), kept);
  EXPECT_EQ(element_.points.deadline(), deadline);
  EXPECT_EQ(element_.points.FindMip({.port = 2, .vlan = {}, .level = 5}), nullptr);
  EXPECT_NE(element_.points.FindMip({.port = 2, .vlan = {}, .level = 6}), nullptr);
  EXPECT_EQ(element_.points.mip_count(), 3U);
  element_.TakeTransmitted();
  network_.RunFor(1s);
  EXPECT_THAT(element_.TakeTransmitted(), SizeIs(1)) << "the reply that was waiting";
  element_.points.SetMips({});
  EXPECT_EQ(element_.points.mip_count(), 0U);
  EXPECT_THAT(element_.points.Filters(1), IsEmpty());
}

TEST_F(ABridge, SpreadsTheRepliesOfItsMipsAndLetsSixtyFourWait) {
  element_.AddMips(5);
  Learn();
  for (int i = 0; i < 100; ++i) {
    element_.Arrive(1, From(Behind(1), Group(5, pdu::GroupClass::k2)),
                    Encoded(LtmFrom(Behind(1), Behind(2)), pdu::EncodeLtm));
  }
  EXPECT_THAT(element_.TakeTransmitted(), SizeIs(64)) << "what cannot be answered is not passed on either";
  int per_tenth[10] = {};
  for (int& count : per_tenth) {
    network_.RunFor(100ms);
    count = static_cast<int>(element_.TakeTransmitted().size());
  }
  EXPECT_EQ(std::accumulate(std::begin(per_tenth), std::end(per_tenth), 0), 64);
  EXPECT_LT(*std::max_element(std::begin(per_tenth), std::end(per_tenth)), 20);
}

// ---- Chains ----

/// The MEPs 1 and 2 at the ends, each Down on a port of an element of its own, and two bridges with MIPs between them:
///   A:1 — 1:B:2 — 1:C:2 — 1:D
class AChain : public testing::Test {
 protected:
  AChain() {
    network_.Connect(a_, 1, b_, 1);
    network_.Connect(b_, 2, c_, 1);
    network_.Connect(c_, 2, d_, 1);
  }

  struct Hop {
    int from;  ///< station
    int ttl;
    bool forwarded;
    bool terminal;
    pdu::RelayAction action;
    int last;
    int next;  ///< 0: none

    bool operator==(const Hop&) const = default;
  };

  static int NumberOf(const pdu::MacAddress& address) { return address[5]; }

  /// The replies that arrive at an element, by descending TTL.
  static std::vector<Hop> Hops(BridgedElement& last_bridge, PortIndex port) {
    std::vector<Hop> hops;
    for (const Transmitted& frame : last_bridge.TakeTransmitted()) {
      if (frame.port != port || frame.opcode() != pdu::Opcode::kLtr) continue;
      const auto ltr = pdu::DecodeLtr(frame.pdu);
      hops.push_back({NumberOf(frame.header.source), ltr->ttl, ltr->forwarded, ltr->terminal_mep, ltr->relay_action,
                      NumberOf(ltr->egress_identifiers->last.address),
                      NumberOf(ltr->egress_identifiers->next.address)});
    }
    std::sort(hops.begin(), hops.end(), [](const Hop& one, const Hop& other) { return one.ttl > other.ttl; });
    return hops;
  }

  BridgedNetwork network_;
  BridgedElement& a_ = network_.Add(1);
  BridgedElement& b_ = network_.Add(2);
  BridgedElement& c_ = network_.Add(2);
  BridgedElement& d_ = network_.Add(1);
};

using pdu::RelayAction;

TEST_F(AChain, IsTracedHopByHopFromBothEnds) {
  b_.AddMips(5);
  c_.AddMips(5);
  auto& one = a_.AddMep(1, 5, 1, Direction::kDown, Watching(4, {1, 2}));
  auto& two = d_.AddMep(1, 5, 2, Direction::kDown, Watching(4, {1, 2}));
  network_.RunFor(3s);
  ASSERT_EQ(one.mep->remotes().Find(2)->status().state, RemoteState::kOk) << "CCMs pass the MIPs";
  one.TakeEvents();
  b_.TakeTransmitted();
  EXPECT_FALSE(one.mep->StartLinktrace({.target_mep_id = 2}, network_.now()));
  network_.RunFor(6s);
  EXPECT_THAT(Hops(b_, 1), ElementsAre(Hop{21, 63, true, false, RelayAction::kFdb, 11, 22},
                                       Hop{31, 62, true, false, RelayAction::kFdb, 22, 32},
                                       Hop{41, 61, false, true, RelayAction::kHit, 32, 0}));
  EXPECT_THAT(one.events, UnorderedElementsAre("linktrace 1 started to 41 mep 2 ttl 64",
                                               "linktrace 1 reply from 21 ttl 63", "linktrace 1 reply from 31 ttl 62",
                                               "linktrace 1 reply from 41 ttl 61", "linktrace 1 ended"));

  c_.TakeTransmitted();
  EXPECT_FALSE(two.mep->StartLinktrace({.target_mep_id = 1, .ttl = 2}, network_.now()));
  network_.RunFor(6s);
  EXPECT_THAT(Hops(c_, 2), ElementsAre(Hop{32, 1, true, false, RelayAction::kFdb, 41, 31},
                                       Hop{22, 0, false, false, RelayAction::kFdb, 31, 0}))
      << "two hops and no more";
}

TEST_F(AChain, LoopsMessagesToEachOfItsMips) {
  b_.AddMips(5);
  c_.AddMips(5);
  a_.AddMep(1, 5, 1, Direction::kDown, Watching(4, {1, 2}));
  d_.AddMep(1, 5, 2, Direction::kDown, Watching(4, {1, 2}));
  network_.RunFor(3s);
  for (const std::uint8_t mip : std::to_array<std::uint8_t>({21, 22, 31, 32})) {
    b_.TakeTransmitted();
    b_.Arrive(1, From(Station(11), Station(mip)), LbmOctets(5));
    network_.RunFor(100ms);
    const auto frames = b_.TakeTransmitted();
    EXPECT_EQ(std::count_if(frames.begin(), frames.end(),
                            [mip](const Transmitted& frame) {
                              return frame.port == 1 && frame.opcode() == pdu::Opcode::kLbr &&
                                     frame.header.source == Station(mip);
                            }),
              1)
        << int{mip};
  }
}

TEST_F(AChain, IsTracedAlongTheCcmDatabaseWhenItsEndHasFallenSilent) {
  b_.AddMips(5);
  c_.AddMips(5);
  a_.AddMep(1, 5, 1, Direction::kDown, Watching(4, {1, 2}));
  auto& two = d_.AddMep(1, 5, 2, Direction::kDown, Watching(4, {1, 2}));
  network_.RunFor(3s);
  MepSettings disabled = Watching(4, {1, 2});
  disabled.enabled = false;
  d_.Update(two, disabled);
  network_.RunFor(2h);
  b_.table.clear();
  c_.table.clear();
  pdu::Ltm ltm = LtmFrom(Station(11), Station(41));
  ltm.use_fdb_only = false;
  b_.TakeTransmitted();
  b_.Arrive(1, From(Station(11), Group(5, pdu::GroupClass::k2)), Encoded(ltm, pdu::EncodeLtm));
  network_.RunFor(2s);
  EXPECT_THAT(Hops(b_, 1), ElementsAre(Hop{21, 63, true, false, RelayAction::kMpdb, 11, 22},
                                       Hop{31, 62, true, false, RelayAction::kMpdb, 22, 32}));
}

TEST_F(AChain, JoinsTwoUpMepsWhoseOtherPortsSeeNothingOfThem) {
  BridgedElement& left = network_.Add(2);
  BridgedElement& right = network_.Add(2);
  network_.Connect(left, 2, b_, 1);
  network_.Connect(c_, 2, right, 1);
  b_.AddMips(5);
  c_.AddMips(5);
  auto& one = left.AddMep(1, 5, 1, Direction::kUp, Watching(4, {1, 2}));
  auto& two = right.AddMep(2, 5, 2, Direction::kUp, Watching(4, {1, 2}));
  network_.RunFor(3s);
  EXPECT_EQ(one.mep->remotes().Find(2)->status().state, RemoteState::kOk);
  EXPECT_EQ(two.mep->remotes().Find(1)->status().state, RemoteState::kOk);
  one.TakeEvents();
  b_.TakeTransmitted();
  EXPECT_FALSE(
      one.mep->StartLoopback({.trigger_id = 1, .target_mep_id = 2, .messages = 3, .data_octets = 500}, network_.now()));
  EXPECT_FALSE(one.mep->StartLinktrace({.target_mep_id = 2}, network_.now()));
  EXPECT_FALSE(one.mep->StartDelayMeasurement({.trigger_id = 2, .target_mep_id = 2, .parameters = {}}, network_.now()));
  network_.RunFor(10s);
  EXPECT_THAT(one.events, IsSupersetOf({"loopback 1 ended: 3 expected, 3 in order, 0 out of order, 0 wrong",
                                        "delay 2 ended: 1 of 1", "linktrace 1 ended"}));
  // Left is element 5, right is element 6.
  EXPECT_THAT(Hops(b_, 1), ElementsAre(Hop{21, 63, true, false, RelayAction::kFdb, 51, 22},
                                       Hop{31, 62, true, false, RelayAction::kFdb, 22, 32},
                                       Hop{62, 61, false, true, RelayAction::kHit, 32, 0}));
  for (const Transmitted& frame : left.TakeTransmitted()) EXPECT_EQ(frame.port, 2U);
  for (const Transmitted& frame : right.TakeTransmitted()) EXPECT_EQ(frame.port, 1U);
  EXPECT_EQ(one.mep->status().defects, DefectFlags{});
}

// ---- AIS ----

AisSettings ToClients(std::uint8_t level, std::set<std::uint16_t> vids = {}) {
  return {.client_level = level, .period_s = 1, .client_vids = std::move(vids), .priority = 6};
}

class ABridgeWithAis : public ABridge {
 protected:
  std::vector<Transmitted> TakeAis() {
    auto frames = element_.TakeTransmitted();
    std::erase_if(frames, [](const auto& frame) { return frame.opcode() != pdu::Opcode::kAis; });
    return frames;
  }
  void Peer() { element_.Arrive(1, From(Behind(1), Group(2)), CcmOctets(2)); }
};

TEST_F(ABridgeWithAis, TellsTheOtherPortsWhileAPeerOfItsDownMepIsMissing) {
  MepSettings settings = Silent();
  settings.ais = ToClients(5, {100, 200});
  auto& down = element_.AddMep(1, 2, 1, Direction::kDown, settings);
  for (int i = 0; i < 5; ++i) {
    Peer();
    network_.RunFor(1s);
  }
  EXPECT_THAT(TakeAis(), IsEmpty());
  network_.RunFor(3s);
  const auto frames = TakeAis();
  // The loss is noted 3.375 s after the last CCM: one round at once, and no second one within these four seconds.
  ASSERT_THAT(frames, SizeIs(4)) << "two VLANs, two ports";
  for (const Transmitted& frame : frames) {
    EXPECT_NE(frame.port, 1U);
    EXPECT_EQ(frame.header.source, element_.AddressOf(1));
    EXPECT_EQ(frame.header.destination, Group(5));
    EXPECT_EQ(frame.header.outer->priority, 6);
    EXPECT_EQ(frame.pdu, (Octets{0xa0, 33, 4, 0, 0}));
  }
  EXPECT_EQ(frames[0].header.outer->vid, 100);
  EXPECT_EQ(frames[2].header.outer->vid, 200);
  network_.RunFor(10s);
  EXPECT_THAT(TakeAis(), SizeIs(40));
  Peer();
  network_.RunFor(3s);
  EXPECT_THAT(TakeAis(), IsEmpty());
  EXPECT_FALSE(down.mep->ais_sender().running());
}

TEST_F(ABridgeWithAis, IsHeardByTheClientsInTheSameElement) {
  MepSettings settings = Silent();
  settings.ais = ToClients(5);
  element_.AddMep(1, 2, 1, Direction::kDown, settings);
  auto& client_on_the_port = element_.AddMep(1, 5, 1, Direction::kDown, Silent());
  auto& client_inside = element_.AddMep(2, 5, 1, Direction::kUp, Silent());
  network_.RunFor(5s);
  EXPECT_TRUE(client_on_the_port.mep->status().defects.ais);
  EXPECT_FALSE(client_inside.mep->status().defects.ais) << "the one before it has taken it";
  MepSettings disabled = Silent();
  disabled.enabled = false;
  element_.Update(client_on_the_port, disabled);
  network_.RunFor(2s);
  EXPECT_TRUE(client_inside.mep->status().defects.ais);
  const auto frames = TakeAis();
  EXPECT_TRUE(std::all_of(frames.begin(), frames.end(), [](const auto& frame) { return frame.port == 3; }));
  EXPECT_THAT(frames, testing::Not(IsEmpty()));
}

TEST_F(ABridgeWithAis, SendsItEvenIfItsPortIsDown) {
  MepSettings settings = Silent();
  settings.ais = ToClients(5);
  auto& down = element_.AddMep(1, 2, 1, Direction::kDown, settings);
  ElementPort port = element_.PortSettings(1);
  port.state.interface_status = pdu::InterfaceStatus::kLowerLayerDown;
  port.state.port_status = pdu::PortStatus::kBlocked;
  element_.Change(1, port);
  down.mep->SetPort(port.state, network_.now());
  network_.RunFor(5s);
  EXPECT_THAT(TakeAis(), testing::Not(IsEmpty()));
}

TEST_F(ABridgeWithAis, OfAnUpMepGoesOutOfItsOwnWire) {
  MepSettings settings = Silent();
  settings.ais = ToClients(5);
  element_.AddMep(1, 2, 1, Direction::kUp, settings);
  network_.RunFor(4s);
  const auto frames = TakeAis();
  ASSERT_THAT(frames, SizeIs(1));
  EXPECT_EQ(frames[0].port, 1U);
}

TEST_F(ABridgeWithAis, PassesAnAlarmOnThatItReceives) {
  MepSettings settings = Silent({1});
  settings.ais = ToClients(5);
  element_.AddMep(1, 2, 1, Direction::kDown, settings);
  element_.Arrive(1, From(Behind(1), Group(2)),
                  Encoded(pdu::Ais{.level = 2, .period = pdu::AisPeriod::k1s}, pdu::EncodeAis));
  network_.RunFor(3400ms);
  EXPECT_THAT(TakeAis(), SizeIs(2 * 4));
  network_.RunFor(5s);
  EXPECT_THAT(TakeAis(), IsEmpty());
}

TEST_F(ABridgeWithAis, SendsNoneForWhatIsNoCause) {
  MepSettings settings = Silent({1, 2});
  settings.ais = ToClients(5);
  auto& down = element_.AddMep(1, 2, 1, Direction::kDown, settings);
  pdu::Ccm ccm{.level = 2, .rdi = true, .interval = 4, .mep_id = 2, .maid = MaidNumber(1), .sender_id = std::nullopt};
  ccm.interface_status = pdu::InterfaceStatus::kDown;
  element_.Arrive(1, From(Behind(1), Group(2)), Encoded(ccm, pdu::EncodeCcm));
  network_.RunFor(3s);
  EXPECT_TRUE(down.mep->status().defects.rdi);
  EXPECT_TRUE(down.mep->status().defects.mac_status);
  EXPECT_THAT(TakeAis(), IsEmpty()) << "RDI and MAC status";
  settings.lowest_alarm = 4;
  element_.Update(down, settings);
  network_.RunFor(10s);
  EXPECT_TRUE(down.mep->status().defects.remote_ccm);
  EXPECT_THAT(TakeAis(), IsEmpty()) << "a defect that is no alarm";
  settings.ais = ToClients(2);
  settings.lowest_alarm = 1;
  element_.Update(down, settings);
  network_.RunFor(3s);
  EXPECT_THAT(TakeAis(), IsEmpty()) << "a client level that is not above its own";
  settings.ais = ToClients(3);
  element_.Update(down, settings);
  network_.RunFor(0s);
  EXPECT_THAT(TakeAis(), SizeIs(2));
  settings.ais.reset();
  element_.Update(down, settings);
  network_.RunFor(3s);
  EXPECT_THAT(TakeAis(), IsEmpty());
}

// ---- Any octets ----

TEST_F(ABridge, MakesOfAnyFrameAtMostOneReplyAndOneLinktraceThatGoesOn) {
  element_.AddMips(5);
  element_.AddMep(1, 3, 1, Direction::kDown, Silent());
  element_.AddMep(2, 4, 2, Direction::kUp, Silent());
  element_.points.SetMips(
      std::vector<MipSettings>{{.place = {.port = 1, .vlan = {}, .level = 5}, .sender_id = std::nullopt},
                               {.place = {.port = 3, .vlan = {}, .level = 5},
                                .sender_id = SystemId{.chassis_subtype = 7, .chassis_id = {'x'}}}});
  Learn();
  std::vector<Octets> seeds;
  for (const std::uint8_t level : std::to_array<std::uint8_t>({3, 4, 5})) {
    pdu::Ltm ltm = LtmFrom(Behind(1), Behind(3));
    ltm.level = level;
    seeds.push_back(Encoded(ltm, pdu::EncodeLtm));
    seeds.push_back(LbmOctets(level));
    seeds.push_back(CcmOctets(level));
    seeds.push_back(Encoded(pdu::TwoWayDelay{.level = level, .sent_f = {1, 1}, .data = {}}, pdu::EncodeDmm));
    seeds.push_back(Encoded(pdu::Ais{.level = level, .period = pdu::AisPeriod::k1s}, pdu::EncodeAis));
  }
  std::mt19937 random(1);
  int replies = 0;
  int passed_on = 0;
  for (int i = 0; i < 30000; ++i) {
    Octets octets = seeds[random() % seeds.size()];
    for (auto flips = random() % 3; flips > 0; --flips)
      octets[random() % octets.size()] = static_cast<std::uint8_t>(random());
    if (random() % 8 == 0) octets.resize(random() % (octets.size() + 1));
    const auto any_port = [&random] { return static_cast<PortIndex>(1 + random() % 3); };
    const PortIndex port = any_port();
    const auto level = static_cast<std::uint8_t>(3 + random() % 3);
    const std::vector<pdu::MacAddress> destinations = {Group(level), Group(level, pdu::GroupClass::k2),
                                                       element_.AddressOf(any_port()), Behind(any_port())};
    element_.Arrive(port, From(Behind(port), destinations[random() % destinations.size()]), octets);
    network_.RunFor(1s);
    std::map<PortIndex, int> replies_by_port;
    int traces = 0;
    for (const Transmitted& frame : element_.TakeTransmitted()) {
      if (!frame.by_a_point) continue;
      ++(frame.opcode() == pdu::Opcode::kLtm ? traces : replies_by_port[frame.port]);
    }
    // A reply to a station that the bridge does not know leaves by all its ports, as any other frame would.
    for (const auto& [exit, count] : replies_by_port) ASSERT_LE(count, 1) << i;
    ASSERT_LE(traces, 1) << i;
    replies += static_cast<int>(!replies_by_port.empty());
    passed_on += traces;
  }
  EXPECT_GT(replies, 500);
  EXPECT_GT(passed_on, 100);
}

}  // namespace
}  // namespace cfm::protocol
