// Continuity check on real ports: what is sent, and what is made of what comes or stays away.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <ostream>
#include <string>
#include <vector>

#include "fixture.h"
#include "pdu/ccm.h"
#include "protocol/time.h"

namespace cfm_test {
namespace {

using namespace std::chrono_literals;
using cfm::CcmInterval;
using cfm::pdu::Ccm;
using cfm::pdu::EthernetHeader;
using cfm::pdu::MacAddress;
using cfm::pdu::Opcode;
using cfm::pdu::Tag;
using cfm::protocol::Duration;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;

constexpr const char* kMissing = "rdi 1 interface up port none block 0 shutdown 0 highest remote defects remote";

Duration IntervalOf(const EndPoint& end_point) {
  return cfm::protocol::IntervalOf(static_cast<std::uint8_t>(end_point.interval)).value();
}

bool IsCcm(const Frame& frame) {
  return frame.opcode() == Opcode::kCcm;
}

std::uint32_t SequenceNumberOf(const Frame& frame) {
  const auto ccm = cfm::pdu::DecodeCcm(frame.pdu());
  EXPECT_TRUE(ccm);
  return ccm ? ccm->sequence_number : 0;
}

bool HasRdi(const Frame& frame) {
  const auto ccm = cfm::pdu::DecodeCcm(frame.pdu());
  return ccm && ccm->rdi;
}

// ---- One end point and a cable ----

class AnEndPoint : public OneElement {
 protected:
  /// The CCM of that end point that goes with the sequence number of the frame.
  std::vector<std::uint8_t> ExpectedFrame(const EndPoint& end_point, const Frame& frame) {
    Ccm ccm = CcmOf(end_point, end_point.mep_id);
    ccm.sequence_number = SequenceNumberOf(frame);
    ccm.interface_status = cfm::pdu::InterfaceStatus::kUp;
    return MakeFrame(GroupHeader(end_point, port_.address()), PduOf(ccm));
  }

  void AwaitPeer(const std::string& text) {
    ASSERT_TRUE(element_.WaitFor([&] { return element_.events().RemoteText(mep_.remote(2)) == text; }))
        << element_.events().RemoteText(mep_.remote(2));
  }

  std::string LocalText(const std::string& rest) const { return ToText(port_.address()) + " " + rest; }
};

// Several associations share the port: untagged, with one tag, with two, and of several levels.
TEST_F(AnEndPoint, SendsItsCcmsOctetForOctetBesideOthersOnThePort) {
  std::vector<EndPoint> end_points;
  for (const auto& [vid, inner_vid, level] : std::vector<std::tuple<std::uint16_t, std::uint16_t, std::uint8_t>>{
           {0, 0, 4}, {0, 0, 7}, {100, 0, 0}, {4094, 0, 5}, {200, 300, 5}}) {
    EndPoint& end_point = end_points.emplace_back(mep_);
    end_point.md = "domain " + std::to_string(level);
    end_point.ma = "vlan " + std::to_string(vid);
    end_point.level = level;
    end_point.vid = vid;
    end_point.inner_vid = inner_vid;
    end_point.priority = static_cast<std::uint8_t>(7 - level);
    end_point.interval = CcmInterval::k1s;
    end_point.mep_ids = {1};  // so that nobody is missing, however long this takes
  }
  Run(end_points);
  const std::vector<Frame> ccms = wire_.Take(2 * end_points.size(), IsCcm);
  for (const EndPoint& end_point : end_points) {
    const auto frame = std::find_if(ccms.begin(), ccms.end(), [&](const Frame& candidate) {
      const EthernetHeader header = candidate.header();
      return header.destination == GroupHeader(end_point, {}).destination &&
             header.outer.value_or(Tag{}).vid == end_point.vid;
    });
    ASSERT_NE(frame, ccms.end()) << end_point.ma;
    EXPECT_EQ(frame->octets, ExpectedFrame(end_point, *frame)) << end_point.ma;
  }
}

TEST_F(AnEndPoint, SaysWhoItIsWhereThatIsPermitted) {
  mep_.sender_id = cfm::SenderIdTlvContent::kChassis;
  Run();
  const auto frame = wire_.Next(Opcode::kCcm);
  ASSERT_TRUE(frame);
  const auto ccm = cfm::pdu::DecodeCcm(frame->pdu());
  ASSERT_TRUE(ccm && ccm->sender_id);
  const MacAddress address = port_.address();
  EXPECT_EQ(ccm->sender_id->chassis_subtype, cfm::pdu::kChassisMacAddress);
  EXPECT_EQ(std::vector(ccm->sender_id->chassis_id.begin(), ccm->sender_id->chassis_id.end()),
            std::vector(address.begin(), address.end()));
  EXPECT_TRUE(ccm->sender_id->management_address.empty());
}

TEST(EndPointsOfAnElement, SendTheirCcmsAtEveryPace) {
  struct Pace {
    CcmInterval interval;
    std::size_t frames;
  };
  Element element;
  Namespace far;
  element.StartServer();
  std::list<Wire> wires;
  std::vector<EndPoint> end_points;
  const std::vector<Pace> paces = {
      {CcmInterval::k300Hz, 900}, {CcmInterval::k10ms, 300}, {CcmInterval::k100ms, 30}, {CcmInterval::k1s, 4}};
  for (const Pace& pace : paces) {
    const std::string number = std::to_string(static_cast<int>(pace.interval));
    const auto cable = Connect(element.network(), "port" + number, far, "far" + number);
    wires.emplace_back(cable.second);
    end_points.push_back({.port = cable.first.index(), .ma = "pace " + number, .interval = pace.interval});
  }
  element.Configure(end_points);
  ASSERT_TRUE(element.Settle());
  auto wire = wires.begin();
  for (std::size_t i = 0; i < paces.size(); ++i, ++wire) {
    const auto frames = wire->Take(paces[i].frames, IsCcm);
    ASSERT_EQ(frames.size(), paces[i].frames);
    EXPECT_EQ(wire->lost(), 0U);
    std::vector<Duration> gaps;
    for (std::size_t j = 1; j < frames.size(); ++j) {
      EXPECT_EQ(SequenceNumberOf(frames[j]), SequenceNumberOf(frames[j - 1]) + 1);
      gaps.push_back(frames[j].received - frames[j - 1].received);
    }
    const Duration interval = IntervalOf(end_points[i]);
    const auto slots = static_cast<double>((frames.back().received - frames.front().received) / 1ns) /
                       static_cast<double>(interval / 1ns);
    // A busy machine makes slots go by unused; never is there a frame without a slot.
    EXPECT_GE(slots, static_cast<double>(gaps.size()) - 1) << end_points[i].ma;
    EXPECT_LE(slots, static_cast<double>(gaps.size()) * 1.5 + 1) << end_points[i].ma;
    std::nth_element(gaps.begin(), gaps.begin() + static_cast<std::ptrdiff_t>(gaps.size() / 2), gaps.end());
    EXPECT_THAT(gaps[gaps.size() / 2], AllOf(Ge(interval * 3 / 4), Le(interval * 5 / 4))) << end_points[i].ma;
  }
}

TEST_F(AnEndPoint, SeesItsPeerComeGoAndReturn) {
  RunWithPeer();
  EXPECT_EQ(element_.events().RemoteText(mep_.remote(2)),
            "ok " + ToText(wire_.address()) + " rdi 0 interface none port none sender ''");
  const WallTime silent = peer_->Stop();
  ASSERT_TRUE(element_.WaitForRemote(mep_.remote(2), kRemoteFailed));
  ASSERT_TRUE(element_.WaitForLocal(mep_.key(), kMissing));
  const RemoteEvent lost = element_.events().remote.back();
  EXPECT_EQ(ToText(lost.status), "failed " + ToText(wire_.address()) + " rdi 0 interface none port none sender ''");
  EXPECT_GE(lost.at - silent, IntervalOf(mep_) * 13 / 4 - 1ms);
  // Hundredths of a second since the system came up.
  const auto up_time =
      (std::chrono::steady_clock::now().time_since_epoch() - (std::chrono::system_clock::now() - silent)) / 10ms;
  EXPECT_GE(lost.status.last_change_uptime, static_cast<std::uint64_t>(up_time) + 32);
  EXPECT_LE(lost.status.last_change_uptime,
            static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch() / 10ms));
  ASSERT_TRUE(wire_.Next(HasRdi));

  peer_.emplace(wire_, mep_, 2);
  ASSERT_TRUE(element_.WaitForRemote(mep_.remote(2), kRemoteOk));
  ASSERT_TRUE(element_.WaitForLocal(mep_.key(), kFaultless));
  wire_.Clear();
  const auto ccm = wire_.Next(Opcode::kCcm);
  ASSERT_TRUE(ccm);
  EXPECT_EQ(ccm->octets, ExpectedFrame(mep_, *ccm));
}

// Sixteen peers that stop at once, each of which is one measurement of the time to its loss.
TEST_F(AnEndPoint, DeclaresALossWithinItsWindow) {
  for (const CcmInterval interval : {CcmInterval::k10ms, CcmInterval::k100ms}) {
    mep_.interval = interval;
    mep_.ma = "interval " + std::to_string(static_cast<int>(interval));
    mep_.mep_ids.clear();
    for (std::uint16_t id = 1; id <= 17; ++id) mep_.mep_ids.insert(id);
    Run();
    element_.events().Clear();
    std::list<CcmSource> peers;
    for (std::uint16_t id = 2; id <= 17; ++id) peers.emplace_back(wire_, mep_, id);
    for (std::uint16_t id = 2; id <= 17; ++id) ASSERT_TRUE(element_.WaitForRemote(mep_.remote(id), kRemoteOk));
    // Two events of one remote MEP lie 100 ms apart, so that a loss at 10 ms could be told late.
    element_.Listen(150ms);
    std::vector<Duration> times;
    std::vector<WallTime> silent;
    for (CcmSource& peer : peers) silent.push_back(peer.Stop());
    for (std::uint16_t id = 2; id <= 17; ++id) ASSERT_TRUE(element_.WaitForRemote(mep_.remote(id), kRemoteFailed));
    for (std::uint16_t id = 2; id <= 17; ++id) {
      const auto lost = std::find_if(element_.events().remote.rbegin(), element_.events().remote.rend(),
                                     [&](const RemoteEvent& event) { return event.key == mep_.remote(id); });
      times.push_back(lost->at - silent[id - 2U]);
    }
    std::sort(times.begin(), times.end());
    EXPECT_GE(times.front(), IntervalOf(mep_) * 13 / 4 - 1ms);
    // Beside the window there is the way of the event to the test; half of them arrive in good time on any machine.
    EXPECT_LE(times[times.size() / 2], IntervalOf(mep_) * 7 / 2 + 100ms);
  }
}

TEST_F(AnEndPoint, TakesWhatItsPeerSaysOfItself) {
  RunWithPeer();
  const std::vector<std::uint8_t> chassis = {'p', 0x07, 'q'};
  peer_->Change([&](Ccm& ccm) {
    ccm.rdi = true;
    ccm.port_status = cfm::pdu::PortStatus::kBlocked;
    ccm.interface_status = cfm::pdu::InterfaceStatus::kDormant;
    ccm.sender_id = cfm::pdu::SenderId{7, chassis, {}, {}};
  });
  ASSERT_TRUE(
      element_.WaitForLocal(mep_.key(), "rdi 1 interface up port none block 0 shutdown 0 highest mac defects rdi,mac"));
  AwaitPeer("ok " + ToText(wire_.address()) + " rdi 1 interface dormant port blocked sender 'p\\x07q'");
  ASSERT_TRUE(wire_.Next(HasRdi)) << "it has a defect";

  peer_->Change([&](Ccm& ccm) {
    ccm.port_status = cfm::pdu::PortStatus::kNone;
    ccm.interface_status = cfm::pdu::InterfaceStatus::kNone;
    ccm.sender_id.reset();
  });
  ASSERT_TRUE(
      element_.WaitForLocal(mep_.key(), "rdi 0 interface up port none block 0 shutdown 0 highest none defects rdi"));
  AwaitPeer("ok " + ToText(wire_.address()) + " rdi 1 interface none port none sender ''");
  wire_.Clear();
  const auto ccm = wire_.Next(Opcode::kCcm);
  ASSERT_TRUE(ccm);
  EXPECT_FALSE(HasRdi(*ccm)) << "RDI that is received is not sent back";
}

TEST_F(AnEndPoint, LearnsPeersThatNobodyListedAndForgetsThemWhenItMayNot) {
  mep_.learn = true;
  RunWithPeer();
  CcmSource stranger(wire_, mep_, 8191);
  ASSERT_TRUE(element_.WaitForRemote(mep_.remote(8191), kRemoteOk));
  EXPECT_EQ(element_.events().LocalText(mep_.key()), LocalText(kFaultless));
  stranger.Stop();
  ASSERT_TRUE(element_.WaitForRemote(mep_.remote(8191), kRemoteFailed));
  ASSERT_TRUE(element_.WaitForLocal(mep_.key(), kMissing));
  mep_.learn = false;
  element_.Configure({mep_});
  ASSERT_TRUE(element_.WaitForLocal(mep_.key(), kFaultless));
  EXPECT_THAT(element_.events().removed, ElementsAre("domain association 1 8191"));
  EXPECT_EQ(element_.events().RemoteText(mep_.remote(2)),
            "ok " + ToText(wire_.address()) + " rdi 0 interface none port none sender ''");
}

TEST_F(AnEndPoint, ReportsAFaultWhenItHasLastedAndItsEndWhenThatHas) {
  RunWithPeer();
  ForgetTheBeginning();
  const WallTime silent = peer_->Stop();
  ASSERT_TRUE(element_.WaitForLocal(mep_.key(), kMissing));
  const std::size_t known = element_.events().local.size();
  ASSERT_TRUE(element_.WaitFor([&] { return element_.events().local.size() > known; }));
  const LocalEvent report = element_.events().local.back();
  EXPECT_EQ(ToText(report.status), LocalText(kMissing)) << "the report repeats the status";
  EXPECT_GE(report.at - silent, 2500ms + IntervalOf(mep_) * 13 / 4 - 1ms);

  const WallTime back = std::chrono::system_clock::now();
  peer_.emplace(wire_, mep_, 2);
  ASSERT_TRUE(
      element_.WaitForLocal(mep_.key(), "rdi 0 interface up port none block 0 shutdown 0 highest remote defects -"));
  ASSERT_TRUE(element_.WaitForLocal(mep_.key(), kFaultless));
  EXPECT_GE(element_.events().local.back().at - back, 2500ms);
}

// ---- CCMs that are wrong ----

struct WrongCcm {
  std::string name;
  std::function<void(EndPoint& sender, Ccm& ccm)> spoil;
  Duration held;
  std::string status;  // of the end point while it holds
};

void PrintTo(const WrongCcm& wrong, std::ostream* stream) {
  *stream << wrong.name;
}

constexpr const char* kXcon = "rdi 1 interface up port none block 0 shutdown 0 highest xcon defects xcon";
constexpr const char* kError = "rdi 1 interface up port none block 0 shutdown 0 highest error defects error";

class AWrongCcm : public AnEndPoint, public testing::WithParamInterface<WrongCcm> {};

TEST_P(AWrongCcm, IsADefectForThreeAndAHalfOfItsOwnIntervals) {
  RunWithPeer();
  ForgetTheBeginning();
  EndPoint sender = mep_;
  Ccm ccm = CcmOf(sender, 2);
  GetParam().spoil(sender, ccm);
  ccm.level = sender.level;
  const WallTime before = std::chrono::system_clock::now();
  ASSERT_TRUE(wire_.Send(GroupHeader(sender, wire_.address()), PduOf(ccm)));
  ASSERT_TRUE(element_.WaitFor([&] { return element_.events().local.size() >= 2; })) << element_.server().Errors();
  const LocalEvent begin = element_.events().local[0];
  const LocalEvent end = element_.events().local[1];
  EXPECT_EQ(ToText(begin.status), LocalText(GetParam().status));
  EXPECT_EQ(ToText(end.status), LocalText(kFaultless));
  EXPECT_GE(end.at - before, GetParam().held);
  EXPECT_THAT(element_.events().remote, IsEmpty()) << "the peer's own CCMs go on";
}

INSTANTIATE_TEST_SUITE_P(
    Each, AWrongCcm,
    testing::Values(
        WrongCcm{"OfAnotherAssociation",
                 [](EndPoint& /*sender*/, Ccm& ccm) { ccm.maid = CcmOf({.ma = "another"}, 2).maid; }, 350ms, kXcon},
        WrongCcm{"WithPaddingInItsMaid", [](EndPoint& /*sender*/, Ccm& ccm) { ccm.maid.octets[47] = 1; }, 350ms, kXcon},
        WrongCcm{"OfALowerLevel", [](EndPoint& sender, Ccm& /*ccm*/) { sender.level = 3; }, 350ms, kXcon},
        WrongCcm{"OfTheLowestLevel", [](EndPoint& sender, Ccm& /*ccm*/) { sender.level = 0; }, 350ms, kXcon},
        WrongCcm{"WithTheOwnId", [](EndPoint& /*sender*/, Ccm& ccm) { ccm.mep_id = 1; }, 350ms, kError},
        WrongCcm{"WithAnUnknownId", [](EndPoint& /*sender*/, Ccm& ccm) { ccm.mep_id = 3; }, 350ms, kError},
        WrongCcm{"WithAFasterInterval", [](EndPoint& /*sender*/, Ccm& ccm) { ccm.interval = 1; }, 11ms, kError},
        WrongCcm{"WithoutAnInterval", [](EndPoint& /*sender*/, Ccm& ccm) { ccm.interval = 0; }, 350ms, kError}),
    [](const testing::TestParamInfo<WrongCcm>& test) { return test.param.name; });

TEST_F(AnEndPoint, LetsHigherLevelsOtherVlansAndStrangersPass) {
  mep_.vid = 100;
  RunWithPeer();
  ForgetTheBeginning();
  // Each would be a cross-connect if it were for this end point.
  const auto send = [&](const std::function<void(EndPoint&, EthernetHeader&)>& change) {
    EndPoint sender = mep_;
    sender.ma = "another";
    EthernetHeader header = GroupHeader(sender, wire_.address());
    change(sender, header);
    ASSERT_TRUE(wire_.Send(header, PduOf(CcmOf(sender, 2))));
  };
  send([&](EndPoint& sender, EthernetHeader& header) {
    sender.level = 5;
    header = GroupHeader(sender, wire_.address());
  });
  send([](EndPoint& /*sender*/, EthernetHeader& header) { header.outer.reset(); });
  send([](EndPoint& /*sender*/, EthernetHeader& header) { header.outer->vid = 101; });
  send([](EndPoint& /*sender*/, EthernetHeader& header) { header.inner = Tag{7, false, 100}; });
  send([](EndPoint& /*sender*/, EthernetHeader& header) { header.source[0] |= 1; });
  send([](EndPoint& /*sender*/, EthernetHeader& header) { header.destination = {2, 0, 0, 0, 0, 9}; });
  // The group of another level.
  send([](EndPoint& /*sender*/, EthernetHeader& header) { ++header.destination[5]; });
  Drain();
  ASSERT_TRUE(element_.Settle());
  EXPECT_THAT(element_.events().local, IsEmpty());
}

// ---- Two elements ----

class TwoEndPoints : public TwoElements {};

TEST_F(TwoEndPoints, TellEachOtherWhoTheyAre) {
  near_mep_.sender_id = far_mep_.sender_id = cfm::SenderIdTlvContent::kChassis;
  Run();
  EXPECT_EQ(near_.events().RemoteText(near_mep_.remote(2)), "ok " + ToText(far_cable_.first.address()) +
                                                                " rdi 0 interface up port none sender '" +
                                                                ToText(far_cable_.first.address()) + "'");
  EXPECT_EQ(far_.events().RemoteText(far_mep_.remote(1)), "ok " + ToText(near_cable_.first.address()) +
                                                              " rdi 0 interface up port none sender '" +
                                                              ToText(near_cable_.first.address()) + "'");
}

// The bridge between them lets nothing pass that goes to one of them: that one loses its peer and says so.
TEST_F(TwoEndPoints, TellEachOtherOfALossInOneDirection) {
  Run();
  for (const bool near_is_deaf : {true, false}) {
    Element& deaf = near_is_deaf ? near_ : far_;
    Element& other = near_is_deaf ? far_ : near_;
    const EndPoint& deaf_mep = near_is_deaf ? near_mep_ : far_mep_;
    const EndPoint& other_mep = near_is_deaf ? far_mep_ : near_mep_;
    const Link& last_port = near_is_deaf ? near_cable_.second : far_cable_.second;
    Bridge(middle_, "link set dev " + last_port.name() + " mcast_flood off");
    ASSERT_TRUE(deaf.WaitForLocal(deaf_mep.key(), kMissing));
    ASSERT_TRUE(other.WaitForLocal(other_mep.key(),
                                   "rdi 0 interface up port none block 0 shutdown 0 highest none defects rdi"));
    EXPECT_THAT(other.events().RemoteText(other_mep.remote(deaf_mep.mep_id)),
                testing::HasSubstr(" rdi 1 interface up port none"));
    Bridge(middle_, "link set dev " + last_port.name() + " mcast_flood on");
    ASSERT_TRUE(deaf.WaitForLocal(deaf_mep.key(), kFaultless));
    ASSERT_TRUE(other.WaitForLocal(other_mep.key(), kFaultless));
  }
}

TEST_F(TwoEndPoints, LoseEachOtherWhenTheWayIsCutAndMeetAgainWhenItIsMended) {
  near_mep_.interval = far_mep_.interval = CcmInterval::k10ms;
  Run();
  for (int i = 0; i < 3; ++i) {
    far_cable_.second.SetBridgeState("disabled");
    ASSERT_TRUE(near_.WaitForLocal(near_mep_.key(), kMissing));
    ASSERT_TRUE(far_.WaitForLocal(far_mep_.key(), kMissing));
    far_cable_.second.SetBridgeState("forwarding");
    ASSERT_TRUE(near_.WaitForLocal(near_mep_.key(), kFaultless));
    ASSERT_TRUE(far_.WaitForLocal(far_mep_.key(), kFaultless));
  }
}

TEST_F(TwoEndPoints, FindEachOtherInTheirVlan) {
  for (const std::uint16_t inner_vid : {std::uint16_t{0}, std::uint16_t{20}}) {
    for (EndPoint* end_point : {&near_mep_, &far_mep_}) {
      end_point->ma = "inner " + std::to_string(inner_vid);
      end_point->vid = 10;
      end_point->inner_vid = inner_vid;
    }
    Run();
  }
}

}  // namespace
}  // namespace cfm_test
