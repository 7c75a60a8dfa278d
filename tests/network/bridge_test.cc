// Maintenance points on the ports of Linux bridges: what they stop, pass, answer and send, and what becomes of the
// frames of others on the way through.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "fixture.h"
#include "pdu/ais.h"
#include "pdu/linktrace.h"
#include "pdu/loopback.h"
#include "port/traffic_control.h"

namespace cfm_test {
namespace {

using namespace std::chrono_literals;
using cfm::CcmInterval;
using cfm::MhfCreationMode;
using cfm::pdu::EthernetHeader;
using cfm::pdu::GroupClass;
using cfm::pdu::MacAddress;
using cfm::pdu::Opcode;
using cfm::pdu::Tag;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

using Levels = std::set<int>;

constexpr std::uint32_t kDown = 1;
constexpr std::uint32_t kUp = 2;
constexpr std::uint8_t kNoOpcode = 99;
constexpr std::array<std::uint16_t, 2> kVids{0, 10};  // none and one
const Levels kAll{0, 1, 2, 3, 4, 5, 6, 7};

// "port up", because a bridge has a say in it.
constexpr const char* kFaultlessInABridge = "rdi 0 interface up port up block 0 shutdown 0 highest none defects -";

// Replies to linktrace messages wait up to a second before they leave.
constexpr auto kReplyTime = 1500ms;

bool IsAny(const Frame& /*frame*/) {
  return true;
}

auto Is(Opcode opcode) {
  return [opcode](const Frame& frame) { return frame.opcode() == opcode; };
}

/// The domain and the association of the end point without the end point itself.
cfm::hierarchy MipsOf(const EndPoint& like, MhfCreationMode domain, MhfCreationMode association) {
  cfm::hierarchy hierarchy = HierarchyOf({like});
  cfm::hierarchy_md& md = hierarchy.mds.at(like.md);
  md.cfg.mhf_creation = domain;
  md.mas.at(like.ma).cfg.mhf_creation = association;
  md.mas.at(like.ma).meps.clear();
  return hierarchy;
}

/// What is at the hooks of a port.
struct Hooks {
  bool ingress = false;
  bool egress = false;
  bool others = false;

  bool operator==(const Hooks&) const = default;
};
constexpr Hooks kNoFilter{};
constexpr Hooks kOneFilterEachWay{.ingress = true, .egress = true};

void PrintTo(const Hooks& hooks, std::ostream* stream) {
  *stream << "ingress " << hooks.ingress << " egress " << hooks.egress << " others " << hooks.others;
}

Hooks HooksOf(const Link& port) {
  const Inside inside(port.network());
  cfm::port::NetlinkSocket netlink;
  cfm::port::TrafficControl control(netlink, port.index());
  const auto ingress = control.Look(cfm::port::Hook::kIngress);
  const auto egress = control.Look(cfm::port::Hook::kEgress);
  return {ingress.own.has_value(), egress.own.has_value(), ingress.is_shared || egress.is_shared};
}

/// Hands a configuration over and waits until the server has it.
void Run(Element& element, const cfm::hierarchy& hierarchy) {
  element.Configure(hierarchy);
  ASSERT_TRUE(element.Settle()) << element.server().Errors();
}

struct Trace {
  std::uint32_t id = 1;
  std::uint8_t ttl = 64;
  bool use_fdb_only = true;
};

// ---- One element with a bridge; the test is at the far ends of its three cables ----

class ABridge : public testing::Test {
 protected:
  struct Side {
    Side(const Namespace& home, const Namespace& outside, const std::string& name, std::uint16_t number)
        : cable(Connect(home, name, outside, name)),
          port(cable.first),
          wire(cable.second),
          marker{.port = port.index(),
                 .mep_id = number,
                 .md = "marker",
                 .level = 0,
                 .mep_ids = {number},
                 .vid = 99,
                 .send_ccms = false} {}

    std::pair<Link, Link> cable;
    Link& port;
    Wire wire;
    /// An end point that takes no part in anything, and tells by its answers what the server has dealt with.
    EndPoint marker;
  };

  ABridge() {
    for (const Side* side : {&west_, &east_, &south_}) side->port.Join(bridge_);
    element_.StartServer();
  }

  EndPoint PointAt(const Side& side, std::uint32_t direction, std::uint8_t level = 4, std::uint16_t vid = 0) const {
    EndPoint point;
    point.port = side.port.index();
    point.md = "domain " + std::to_string(level);
    point.level = level;
    point.vid = vid;
    point.direction = direction;
    return point;
  }

  void Run(const std::vector<EndPoint>& end_points) { Run(HierarchyOf(end_points)); }
  /// Returns when it works: what comes by any port is served after what a configuration makes necessary.
  void Run(cfm::hierarchy hierarchy) {
    Add(hierarchy, aside_.marker);
    cfm_test::Run(element_, hierarchy);
    Drained(aside_);
  }
  void RunWithMarkers(cfm::hierarchy hierarchy) {
    for (const Side* side : {&west_, &east_, &south_}) Add(hierarchy, side->marker);
    Run(std::move(hierarchy));
  }

  /// What has come by that cable, when the server has dealt with all that was sent to it by this cable.
  std::vector<Frame> Drained(Side& side) { return Drain(side.wire, side.marker, side.port.address()); }

  /// Of eight frames, one of each level, those that get from one cable to another octet for octet.
  Levels Passed(const Side& from, Side& to, const std::optional<Tag>& tag = {}, std::uint8_t opcode = kNoOpcode) {
    to.wire.Clear();
    ++serial_;
    std::vector<std::vector<std::uint8_t>> frames;
    for (int level = 0; level <= 7; ++level) {
      const auto octet = static_cast<std::uint8_t>(level);
      std::vector<std::uint8_t> pdu{static_cast<std::uint8_t>(octet << 5), opcode, 0x5a, 3};
      for (std::uint32_t i = 0; i < 60; ++i) pdu.push_back(static_cast<std::uint8_t>(serial_ + i));
      const auto group_class = opcode == static_cast<std::uint8_t>(Opcode::kLtm) ? GroupClass::k2 : GroupClass::k1;
      frames.push_back(MakeFrame({cfm::pdu::ToAddress({group_class, octet}), from.wire.address(), tag, {}}, pdu));
      EXPECT_TRUE(from.wire.Send(frames.back()));
    }
    // No end point here is of level 7, so that the last one always passes.
    Levels passed;
    EXPECT_TRUE(to.wire.Next([&](const Frame& frame) {
      const auto sent = std::find(frames.begin(), frames.end(), frame.octets);
      if (sent != frames.end()) passed.insert(static_cast<int>(sent - frames.begin()));
      return sent == frames.end() - 1;
    }));
    return passed;
  }

  EthernetHeader Header(const Side& from, const MacAddress& to, std::uint16_t vid) const {
    EthernetHeader header{to, from.wire.address(), {}, {}};
    if (vid != 0) header.outer = Tag{5, false, vid};
    return header;
  }

  std::vector<std::uint8_t> Lbm(std::uint8_t level, std::uint32_t id) const {
    static constexpr std::array<std::uint8_t, 5> kData{1, 2, 3, 4, 5};
    std::vector<std::uint8_t> pdu(100);
    pdu.resize(cfm::pdu::EncodeLbm({.level = level, .transaction_id = id, .sender_id = {}, .data = kData}, pdu));
    return pdu;
  }

  /// Asks that address by that cable; true when the one answer comes, and goes nowhere else.
  bool Answers(Side& side, const MacAddress& address, std::uint8_t level, std::uint16_t vid = 0) {
    for (Side* any : {&west_, &east_, &south_}) any->wire.Clear();
    const auto lbm = Lbm(level, ++serial_);
    EXPECT_TRUE(side.wire.Send(Header(side, address, vid), lbm));
    auto lbr = lbm;
    lbr[1] = static_cast<std::uint8_t>(Opcode::kLbr);
    EthernetHeader back = Header(side, address, vid);
    std::swap(back.source, back.destination);
    std::size_t answers = 0;
    for (const Frame& frame : Drained(side)) {
      if (frame.opcode() != Opcode::kLbr) continue;
      ++answers;
      EXPECT_EQ(frame.octets, MakeFrame(back, lbr));
    }
    EXPECT_LE(answers, 1U);
    for (Side* other : {&west_, &east_, &south_}) {
      if (other == &side) continue;
      for (const Frame& frame : Drained(*other)) EXPECT_NE(frame.opcode(), Opcode::kLbr);
    }
    return answers == 1;
  }

  cfm::pdu::Ltm Ltm(const Side& from, const MacAddress& target, std::uint8_t level, const Trace& trace) const {
    return {.level = level,
            .use_fdb_only = trace.use_fdb_only,
            .transaction_id = trace.id,
            .ttl = trace.ttl,
            .original_address = from.wire.address(),
            .target_address = target,
            .egress_identifier = cfm::pdu::EgressIdentifier{7, from.wire.address()},
            .sender_id = {}};
  }
  static std::vector<std::uint8_t> PduOf(const cfm::pdu::Ltm& ltm) {
    std::vector<std::uint8_t> pdu(100);
    pdu.resize(cfm::pdu::EncodeLtm(ltm, pdu));
    return pdu;
  }
  EthernetHeader LtmHeader(const Side& from, std::uint8_t level, std::uint16_t vid) const {
    return Header(from, cfm::pdu::ToAddress({GroupClass::k2, level}), vid);
  }
  void SendLtm(const Side& from, const MacAddress& target, std::uint8_t level, std::uint16_t vid, const Trace& trace) {
    EXPECT_TRUE(from.wire.Send(LtmHeader(from, level, vid), PduOf(Ltm(from, target, level, trace))));
  }

  /// So that the bridge knows where that address is. The frame itself concerns nobody.
  void Teach(Side& side, const MacAddress& station, std::uint16_t vid = 0) {
    Side& other = &side == &west_ ? east_ : west_;
    EthernetHeader header = Header(side, cfm::pdu::ToAddress({GroupClass::k1, 7}), vid);
    header.source = station;
    const std::vector<std::uint8_t> pdu{7 << 5, kNoOpcode, 0, 0};
    other.wire.Clear();
    EXPECT_TRUE(side.wire.Send(header, pdu));
    EXPECT_TRUE(other.wire.Next([&](const Frame& frame) { return frame.octets == MakeFrame(header, pdu); }));
  }

  Element element_;
  Namespace outside_;
  Link bridge_ = MakeBridge(element_.network(), "bridge");
  Side west_{element_.network(), outside_, "west", 1};
  Side east_{element_.network(), outside_, "east", 2};
  Side south_{element_.network(), outside_, "south", 3};
  Side aside_{element_.network(), outside_, "aside", 4};  // not of the bridge
  std::uint32_t serial_ = 0;
};

// ---- What is stopped ----

TEST_F(ABridge, PassesEverythingThatNobodyStops) {
  for (const auto& tag : {std::optional<Tag>(), std::optional<Tag>({3, false, 10})}) {
    EXPECT_EQ(Passed(west_, east_, tag), kAll);
    EXPECT_EQ(Passed(east_, west_, tag), kAll);
  }
}

TEST_F(ABridge, StopsTheLevelOfAnEndPointAndLowerOnesEitherWay) {
  const Levels higher{5, 6, 7};
  const std::optional<Tag> tagged = Tag{3, true, 10};
  for (const std::uint32_t direction : {kDown, kUp}) {
    for (const std::uint16_t vid : kVids) {
      SCOPED_TRACE("direction " + std::to_string(direction) + " VLAN " + std::to_string(vid));
      EndPoint end_point = PointAt(east_, direction, 4, vid);
      Run({end_point});
      const std::optional<Tag> own = vid == 0 ? std::nullopt : tagged;
      const std::optional<Tag> other = vid == 0 ? tagged : std::nullopt;
      for (const Opcode opcode : {Opcode{kNoOpcode}, Opcode::kCcm, Opcode::kLtm}) {
        const auto code = static_cast<std::uint8_t>(opcode);
        EXPECT_EQ(Passed(west_, east_, own, code), higher);
        EXPECT_EQ(Passed(south_, east_, own, code), higher);
        EXPECT_EQ(Passed(east_, west_, own, code), higher);
        EXPECT_EQ(Passed(east_, south_, own, code), higher);
        EXPECT_EQ(Passed(west_, south_, own, code), kAll);
        EXPECT_EQ(Passed(west_, east_, other, code), kAll);
        EXPECT_EQ(Passed(east_, west_, other, code), kAll);
      }
      if (vid == 0) {
        EXPECT_EQ(Passed(west_, east_, Tag{3, false, 0}), higher) << "a priority is no VLAN";
      }

      end_point.enabled = false;
      Run({end_point});
      EXPECT_EQ(HooksOf(east_.port), kNoFilter);
      EXPECT_EQ(Passed(west_, east_, own), kAll);
      EXPECT_EQ(Passed(east_, west_, own), kAll);
      Run(std::vector<EndPoint>{});
    }
  }
}

TEST_F(ABridge, StopsTheLevelsOfAllEndPointsOfAPort) {
  Run({PointAt(east_, kDown, 2), PointAt(east_, kUp, 5), PointAt(west_, kDown, 3)});
  const Levels above_five{6, 7};
  const Levels above_three{4, 5, 6, 7};
  EXPECT_EQ(Passed(west_, east_), above_five);
  EXPECT_EQ(Passed(east_, west_), above_five);
  EXPECT_EQ(Passed(west_, south_), above_three);
  EXPECT_EQ(Passed(south_, west_), above_three);
  Run({PointAt(east_, kDown, 2), PointAt(west_, kDown, 3)});
  EXPECT_EQ(Passed(west_, east_), above_three);
  EXPECT_EQ(Passed(south_, east_), (Levels{3, 4, 5, 6, 7}));
}

TEST_F(ABridge, IsAsItWasWhenItsEndPointsAreGone) {
  const std::vector<EndPoint> end_points = {PointAt(west_, kDown), PointAt(east_, kUp, 5, 10)};
  for (int i = 0; i < 2; ++i) {
    Run(end_points);
    EXPECT_EQ(HooksOf(west_.port), kOneFilterEachWay);
    EXPECT_EQ(HooksOf(east_.port), kOneFilterEachWay);
    EXPECT_EQ(HooksOf(south_.port), kNoFilter);
    Run(std::vector<EndPoint>{});
    for (const Side* side : {&west_, &east_, &south_}) EXPECT_EQ(HooksOf(side->port), kNoFilter);
    EXPECT_EQ(Passed(west_, east_), kAll);
    EXPECT_EQ(Passed(east_, west_, Tag{0, false, 10}), kAll);
  }
}

TEST_F(ABridge, IsAsItWasWhenTheServerHasEnded) {
  cfm::hierarchy hierarchy = HierarchyOf({PointAt(west_, kDown, 2)});
  cfm::hierarchy mips = MipsOf(PointAt(east_, kUp), MhfCreationMode::kExplicit, MhfCreationMode::kDefer);
  hierarchy.mds.merge(mips.mds);
  Run(hierarchy);
  EXPECT_EQ(HooksOf(west_.port), kOneFilterEachWay);
  element_.server().Signal(SIGTERM);
  ASSERT_EQ(element_.server().Wait(), (End{0, 0}));
  for (const Side* side : {&west_, &east_, &south_}) EXPECT_EQ(HooksOf(side->port), kNoFilter);
  EXPECT_EQ(Passed(west_, east_), kAll);
}

TEST_F(ABridge, HasOneFilterOnlyAfterAServerWasKilled) {
  const EndPoint end_point = PointAt(east_, kUp);
  Run({end_point, PointAt(west_, kDown, 2)});
  for (int i = 0; i < 2; ++i) {
    element_.KillServer();
    EXPECT_EQ(HooksOf(east_.port), kOneFilterEachWay) << "nobody could take it away";
    EXPECT_EQ(Passed(west_, east_), (Levels{5, 6, 7}));
    element_.StartServer();
    Run({end_point, PointAt(west_, kDown, 2)});
    EXPECT_EQ(HooksOf(east_.port), kOneFilterEachWay);
    EXPECT_EQ(HooksOf(west_.port), kOneFilterEachWay);
    EXPECT_EQ(Passed(west_, east_), (Levels{5, 6, 7}));
    EXPECT_EQ(Passed(west_, south_), (Levels{3, 4, 5, 6, 7}));
  }
  Run(std::vector<EndPoint>{});
  EXPECT_EQ(HooksOf(east_.port), kNoFilter);
  EXPECT_EQ(Passed(west_, east_), kAll);
}

// ---- Intermediate points ----

TEST_F(ABridge, HasMipsWhereTheyAreAskedFor) {
  struct Case {
    MhfCreationMode domain;
    MhfCreationMode association;
    bool end_point_below;  // at the port in the west
    bool in_the_west;
    bool in_the_east;
  };
  using Mode = MhfCreationMode;
  const std::vector<Case> cases = {
      {Mode::kDefault, Mode::kDefer, false, true, true},  {Mode::kNone, Mode::kDefault, false, true, true},
      {Mode::kDefault, Mode::kNone, false, false, false}, {Mode::kDefer, Mode::kDefer, false, false, false},
      {Mode::kNone, Mode::kDefer, false, false, false},   {Mode::kExplicit, Mode::kDefer, false, false, false},
      {Mode::kExplicit, Mode::kDefer, true, true, false}, {Mode::kNone, Mode::kExplicit, true, true, false},
      {Mode::kDefault, Mode::kDefer, true, true, false},  {Mode::kDefer, Mode::kDefer, true, false, false},
  };
  for (const Case& one : cases) {
    for (const std::uint16_t vid : kVids) {
      SCOPED_TRACE(testing::Message() << "domain " << static_cast<int>(one.domain) << " association "
                                      << static_cast<int>(one.association) << " end point " << one.end_point_below
                                      << " VLAN " << vid);
      cfm::hierarchy hierarchy = MipsOf(PointAt(west_, kDown, 4, vid), one.domain, one.association);
      if (one.end_point_below) Add(hierarchy, PointAt(west_, kDown, 2, vid));
      RunWithMarkers(hierarchy);
      EXPECT_EQ(Answers(west_, west_.port.address(), 4, vid), one.in_the_west);
      EXPECT_EQ(Answers(west_, east_.port.address(), 4, vid), one.in_the_east);
      EXPECT_EQ(Answers(east_, west_.port.address(), 4, vid), one.in_the_west);
      EXPECT_EQ(Answers(east_, east_.port.address(), 4, vid), one.in_the_east);
      EXPECT_FALSE(Answers(east_, east_.port.address(), 5, vid));
      EXPECT_FALSE(Answers(east_, east_.port.address(), 4, 12)) << "another VLAN";
      EXPECT_FALSE(Answers(west_, south_.wire.address(), 4, vid)) << "another station";
    }
  }
}

TEST_F(ABridge, PassesThroughMipsWhatIsNotForThem) {
  for (const std::uint16_t vid : kVids) {
    Run(MipsOf(PointAt(west_, kDown, 4, vid), MhfCreationMode::kDefault, MhfCreationMode::kDefer));
    const std::optional<Tag> tag = vid == 0 ? std::nullopt : std::optional<Tag>({3, true, vid});
    for (const Opcode opcode : {Opcode{kNoOpcode}, Opcode::kCcm, Opcode::kLbm}) {
      const auto code = static_cast<std::uint8_t>(opcode);
      EXPECT_EQ(Passed(west_, east_, tag, code), kAll);
      EXPECT_EQ(Passed(east_, west_, tag, code), kAll);
    }
    const Levels all_but_theirs{0, 1, 2, 3, 5, 6, 7};
    EXPECT_EQ(Passed(west_, east_, tag, static_cast<std::uint8_t>(Opcode::kLtm)), all_but_theirs);
    EXPECT_EQ(Passed(east_, west_, tag, static_cast<std::uint8_t>(Opcode::kLtm)), all_but_theirs);
    // Real ones, which the points look at.
    EndPoint peer = PointAt(west_, kDown, 4, vid);
    const auto ccm = MakeFrame(GroupHeader(peer, west_.wire.address()), cfm_test::PduOf(CcmOf(peer, 2)));
    east_.wire.Clear();
    ASSERT_TRUE(west_.wire.Send(ccm));
    EXPECT_TRUE(east_.wire.Next([&](const Frame& frame) { return frame.octets == ccm; }));
  }
}

TEST_F(ABridge, AnswersTracesAtItsMipsAndPassesThemOn) {
  constexpr std::uint16_t kVid = 10;
  constexpr MacAddress kStation{2, 0, 0, 0, 0, 0x77};
  RunWithMarkers(MipsOf(PointAt(west_, kDown, 4, kVid), MhfCreationMode::kDefault, MhfCreationMode::kDefer));
  Teach(east_, kStation, kVid);
  Teach(west_, west_.wire.address(), kVid);
  const MacAddress west = west_.port.address();
  const MacAddress east = east_.port.address();

  for (Side* side : {&west_, &east_, &south_}) side->wire.Clear();
  SendLtm(west_, west, 4, kVid, {.id = 1});
  SendLtm(west_, east, 4, kVid, {.id = 2});
  SendLtm(west_, kStation, 4, kVid, {.id = 3, .ttl = 7});
  SendLtm(west_, kStation, 4, kVid, {.id = 4, .ttl = 1});
  SendLtm(west_, kStation, 4, kVid, {.id = 5, .ttl = 0});
  SendLtm(west_, west_.wire.address(), 4, kVid, {.id = 6});   // back to where it came from
  SendLtm(west_, {2, 0, 0, 0, 0, 0x78}, 4, kVid, {.id = 7});  // nobody knows it
  SendLtm(west_, {2, 0, 0, 0, 0, 0x78}, 4, kVid, {.id = 8, .use_fdb_only = false});
  auto replies = west_.wire.Take(4, Is(Opcode::kLtr));
  ASSERT_THAT(replies, SizeIs(4));
  EXPECT_THAT(west_.wire.Take(1, Is(Opcode::kLtr), kReplyTime), IsEmpty());

  const auto port_of = [](const Side& side) {
    const std::string& name = side.port.name();
    return cfm::pdu::ReplyPort{.action = cfm::pdu::ReplyAction::kOk,
                               .address = side.port.address(),
                               .port_subtype = cfm::pdu::kPortInterfaceName,
                               .port_id = {reinterpret_cast<const std::uint8_t*>(name.data()), name.size()}};
  };
  std::sort(replies.begin(), replies.end(), [](const Frame& a, const Frame& b) {
    return cfm::pdu::DecodeLtr(a.pdu())->transaction_id < cfm::pdu::DecodeLtr(b.pdu())->transaction_id;
  });
  const cfm::pdu::EgressIdentifier last{7, west_.wire.address()};
  const auto expect = [&](std::size_t i, const cfm::pdu::Ltr& ltr) {
    std::array<std::uint8_t, 200> buffer;
    const auto size = cfm::pdu::EncodeLtr(ltr, buffer);
    EthernetHeader header = Header(west_, {}, kVid);
    std::swap(header.source, header.destination);
    header.source = west;
    EXPECT_EQ(replies[i].octets, MakeFrame(header, cfm::pdu::Octets(buffer).first(size))) << i;
  };
  cfm::pdu::Ltr ltr{.level = 4,
                    .use_fdb_only = true,
                    .forwarded = false,
                    .terminal_mep = false,
                    .transaction_id = 1,
                    .ttl = 63,
                    .relay_action = cfm::pdu::RelayAction::kHit,
                    .egress_identifiers = cfm::pdu::LtrEgressIdentifiers{last, {}},
                    .ingress = port_of(west_),
                    .egress = {},
                    .sender_id = {}};
  expect(0, ltr);
  ltr.transaction_id = 2;
  ltr.egress = port_of(east_);
  expect(1, ltr);
  ltr.transaction_id = 3;
  ltr.forwarded = true;
  ltr.ttl = 6;
  ltr.relay_action = cfm::pdu::RelayAction::kFdb;
  ltr.egress_identifiers->next = {0, east};
  expect(2, ltr);
  ltr.transaction_id = 4;
  ltr.forwarded = false;
  ltr.ttl = 0;
  ltr.egress_identifiers->next = {};
  expect(3, ltr);

  // One of them goes on, one hop older and in the name of the port that it leaves by.
  std::vector<std::vector<std::uint8_t>> forwarded;
  for (const Frame& frame : Drained(east_)) {
    if (frame.opcode() == Opcode::kLtm) forwarded.push_back(frame.octets);
  }
  cfm::pdu::Ltm ltm = Ltm(west_, kStation, 4, {.id = 3, .ttl = 6});
  ltm.egress_identifier = cfm::pdu::EgressIdentifier{0, east};
  EthernetHeader header = LtmHeader(west_, 4, kVid);
  header.source = east;
  EXPECT_THAT(forwarded, ElementsAre(MakeFrame(header, PduOf(ltm))));
  for (const Frame& frame : Drained(south_)) ADD_FAILURE() << "opcode " << static_cast<int>(frame.opcode());
}

// A station that has fallen silent is no longer in the bridge's table, but its CCMs were seen.
TEST_F(ABridge, KnowsFromCcmsWhereAStationWas) {
  RunWithMarkers(MipsOf(PointAt(west_, kDown), MhfCreationMode::kDefault, MhfCreationMode::kDefer));
  constexpr MacAddress kStation{2, 0, 0, 0, 0, 0x77};
  const EndPoint point = PointAt(east_, kDown);
  ASSERT_TRUE(east_.wire.Send(GroupHeader(point, kStation), cfm_test::PduOf(CcmOf(point, 2))));
  Drained(east_);
  Bridge(element_.network(), "fdb del " + ToText(kStation) + " dev east master");

  SendLtm(west_, kStation, 4, 0, {.id = 1, .use_fdb_only = true});
  SendLtm(west_, kStation, 4, 0, {.id = 2, .ttl = 9, .use_fdb_only = false});
  const auto reply = west_.wire.Next(Opcode::kLtr);
  ASSERT_TRUE(reply);
  EXPECT_THAT(west_.wire.Take(1, Is(Opcode::kLtr), kReplyTime), IsEmpty());
  const auto ltr = cfm::pdu::DecodeLtr(reply->pdu());
  ASSERT_TRUE(ltr);
  EXPECT_EQ(ltr->transaction_id, 2U);
  EXPECT_EQ(ltr->relay_action, cfm::pdu::RelayAction::kMpdb);
  EXPECT_TRUE(ltr->forwarded);
  EXPECT_FALSE(ltr->use_fdb_only);
  std::vector<std::uint32_t> forwarded;
  for (const Frame& frame : Drained(east_)) {
    if (const auto ltm = cfm::pdu::DecodeLtm(frame.pdu())) forwarded.push_back(ltm->transaction_id);
  }
  EXPECT_THAT(forwarded, ElementsAre(2));
}

TEST_F(ABridge, AnswersStationsThatItHasNotLearned) {
  west_.port.Set("type bridge_slave learning off");
  RunWithMarkers(MipsOf(PointAt(west_, kDown), MhfCreationMode::kDefault, MhfCreationMode::kDefer));
  for (const Side* side : {&west_, &east_}) EXPECT_TRUE(Answers(west_, side->port.address(), 4));
}

TEST_F(ABridge, TellsTracesWhatDataWouldSuffer) {
  RunWithMarkers(MipsOf(PointAt(west_, kDown), MhfCreationMode::kDefault, MhfCreationMode::kDefer));
  constexpr MacAddress kStation{2, 0, 0, 0, 0, 0x77};
  Teach(south_, kStation);
  const auto reply = [&](const MacAddress& target, std::uint32_t id) {
    Drained(aside_);  // the state of the ports has been heard of
    SendLtm(west_, target, 4, 0, {.id = id});
    const auto frame = west_.wire.Next(Opcode::kLtr);
    EXPECT_TRUE(frame);
    const auto ltr = frame ? cfm::pdu::DecodeLtr(frame->pdu()) : cfm::pdu::DecodeLtr({});
    std::vector<int> told;
    if (!ltr) return told;
    EXPECT_EQ(ltr->transaction_id, id);
    told = {static_cast<int>(ltr->relay_action), ltr->forwarded ? 1 : 0};
    for (const auto& port : {ltr->ingress, ltr->egress}) told.push_back(port ? static_cast<int>(port->action) : 0);
    return told;
  };
  // Relay action, forwarded, actions at the way in and at the way out.
  EXPECT_THAT(reply(east_.port.address(), 1), ElementsAre(1, 0, 1, 1));
  east_.port.SetBridgeState("listening");
  EXPECT_THAT(reply(east_.port.address(), 2), ElementsAre(1, 0, 1, 3));
  east_.cable.second.Down();
  EXPECT_THAT(reply(east_.port.address(), 3), ElementsAre(1, 0, 1, 2));
  EXPECT_THAT(reply(kStation, 4), ElementsAre(2, 1, 1, 1));
  west_.port.SetBridgeState("listening");
  EXPECT_THAT(reply(kStation, 5), ElementsAre(2, 0, 3, 1));
}

TEST_F(ABridge, AnswersByTheAddressThatAPortHasNow) {
  RunWithMarkers(MipsOf(PointAt(west_, kDown), MhfCreationMode::kDefault, MhfCreationMode::kDefer));
  const MacAddress before = east_.port.address();
  EXPECT_TRUE(Answers(west_, before, 4));
  east_.port.SetAddress({2, 0, 0, 0, 0, 0x55});
  Drained(aside_);
  EXPECT_TRUE(Answers(west_, east_.port.address(), 4));
  EXPECT_TRUE(Answers(east_, east_.port.address(), 4));
  EXPECT_FALSE(Answers(west_, before, 4));
}

// ---- End points that face the bridge ----

class AnUpMep : public ABridge {
 protected:
  AnUpMep() {
    for (EndPoint* point : {&point_, &second_}) {
      point->mep_ids = {1, 2, 3};
      point->vid = 10;
    }
    second_.mep_id = 3;
  }

  EndPoint point_ = PointAt(east_, kUp);
  EndPoint second_ = PointAt(south_, kUp);
};

TEST_F(AnUpMep, SendsEveryCcmOnceByTheOtherPorts) {
  point_.interval = CcmInterval::k10ms;
  Run({point_});
  for (Side* side : {&west_, &south_}) {
    const auto frames = side->wire.Take(100, IsAny);
    ASSERT_THAT(frames, SizeIs(100));
    std::optional<std::uint32_t> last;
    for (const Frame& frame : frames) {
      const auto ccm = cfm::pdu::DecodeCcm(frame.pdu());
      ASSERT_TRUE(ccm);
      EXPECT_EQ(ccm->sequence_number, last.value_or(ccm->sequence_number - 1) + 1);
      last = ccm->sequence_number;
      EXPECT_EQ(frame.header(), GroupHeader(point_, east_.port.address()));
      EXPECT_EQ(ccm->port_status, cfm::pdu::PortStatus::kUp);
      EXPECT_EQ(ccm->interface_status, cfm::pdu::InterfaceStatus::kUp);
    }
  }
  EXPECT_THAT(east_.wire.Take(), IsEmpty());
}

TEST_F(AnUpMep, MeetsOthersBehindTheBridgeAndInIt) {
  Run({point_, second_});
  const CcmSource peer(west_.wire, point_, 2);
  // What comes by the own port is not on the side that it faces.
  EndPoint stranger = point_;
  stranger.ma = "stranger";
  const CcmSource behind(east_.wire, stranger, 1);
  for (const EndPoint& point : {point_, second_}) {
    ASSERT_TRUE(element_.WaitForRemote(point.remote(2), kRemoteOk)) << element_.server().Errors();
    ASSERT_TRUE(element_.WaitForRemote(point.remote(static_cast<std::uint16_t>(4 - point.mep_id)), kRemoteOk));
    ASSERT_TRUE(element_.WaitForLocal(point.key(), kFaultlessInABridge));
  }
  element_.events().Clear();
  west_.wire.Clear();
  east_.wire.Clear();
  ASSERT_THAT(west_.wire.Take(40, Is(Opcode::kCcm)), SizeIs(40));
  ASSERT_TRUE(element_.Settle());
  // Nobody hears itself, nor anybody with its number.
  for (const LocalEvent& event : element_.events().local) {
    EXPECT_THAT(ToText(event.status), testing::EndsWith("highest none defects -"));
  }
  for (const RemoteEvent& event : element_.events().remote) EXPECT_EQ(event.status.fsm_state, kRemoteOk);
  EXPECT_THAT(east_.wire.Take(), IsEmpty());
}

TEST_F(AnUpMep, AnswersOnlyTheSideThatItFaces) {
  cfm::hierarchy hierarchy = HierarchyOf({point_});
  RunWithMarkers(hierarchy);
  EXPECT_TRUE(Answers(west_, east_.port.address(), 4, 10));
  EXPECT_TRUE(Answers(south_, east_.port.address(), 4, 10));
  EXPECT_FALSE(Answers(east_, east_.port.address(), 4, 10));
  EXPECT_FALSE(Answers(west_, east_.port.address(), 3, 10));
  EXPECT_FALSE(Answers(west_, west_.port.address(), 4, 10));
}

TEST_F(AnUpMep, WorksNotWhileItsPortIsOutsideOfTheBridge) {
  Run({point_});
  CcmSource peer(west_.wire, point_, 2);
  point_.mep_ids = {1, 2};
  Run({point_});
  ASSERT_TRUE(element_.WaitForLocal(point_.key(), kFaultlessInABridge)) << element_.server().Errors();

  east_.port.Leave();
  ASSERT_TRUE(element_.WaitFor([&] {
    return element_.events().LocalText(point_.key()).find("interface not-present port none") != std::string::npos;
  }));
  element_.client().LoopbackTrigger({1, point_.md, point_.ma, 1, 2, 1, 0});
  ASSERT_TRUE(element_.WaitFor([&] { return !element_.events().loopback.empty(); }));
  EXPECT_EQ(element_.events().loopback.back(), "error 1 2 " + point_.md + " " + point_.ma + " 1 2");
  ASSERT_TRUE(element_.WaitForRemote(point_.remote(2), kRemoteFailed));
  west_.wire.Clear();
  EXPECT_EQ(HooksOf(east_.port), kNoFilter);
  EXPECT_EQ(Passed(west_, south_, Tag{0, false, 10}), kAll);

  east_.port.Join(bridge_);
  ASSERT_TRUE(element_.WaitForRemote(point_.remote(2), kRemoteOk));
  ASSERT_TRUE(element_.WaitForLocal(point_.key(), kFaultlessInABridge));
  EXPECT_THAT(west_.wire.Take(3, Is(Opcode::kCcm)), SizeIs(3));
  EXPECT_EQ(HooksOf(east_.port), kOneFilterEachWay);
  EXPECT_EQ(Passed(west_, east_, Tag{0, false, 10}), (Levels{5, 6, 7}));
}

TEST_F(AnUpMep, TellsWhenItsPortFailsAndWatchesOn) {
  point_.mep_ids = {1, 2};
  Run({point_});
  const CcmSource peer(west_.wire, point_, 2);
  ASSERT_TRUE(element_.WaitForRemote(point_.remote(2), kRemoteOk)) << element_.server().Errors();
  const auto says = [this](cfm::pdu::PortStatus port, cfm::pdu::InterfaceStatus interface) {
    // Enough of them for a loss to be seen.
    const auto frames = west_.wire.Take(6, [&](const Frame& frame) {
      const auto ccm = cfm::pdu::DecodeCcm(frame.pdu());
      return ccm && ccm->port_status == port && ccm->interface_status == interface;
    });
    return frames.size() == 6;
  };
  using Port = cfm::pdu::PortStatus;
  using Interface = cfm::pdu::InterfaceStatus;
  ASSERT_TRUE(says(Port::kUp, Interface::kUp));
  ASSERT_TRUE(element_.Settle());
  element_.events().Clear();
  east_.cable.second.Down();
  ASSERT_TRUE(says(Port::kBlocked, Interface::kDown)) << element_.server().Errors();
  east_.cable.second.Up();
  ASSERT_TRUE(says(Port::kUp, Interface::kUp));
  east_.port.SetBridgeState("listening");
  ASSERT_TRUE(says(Port::kBlocked, Interface::kUp));
  ASSERT_TRUE(element_.Settle());
  for (const RemoteEvent& event : element_.events().remote) EXPECT_EQ(event.status.fsm_state, kRemoteOk);
}

// ---- End points that face the wire ----

TEST_F(ABridge, HearsCcmsWithTagsAndWithoutOnItsPorts) {
  const std::vector<EndPoint> points = {PointAt(east_, kDown), PointAt(east_, kDown, 5, 10)};
  EndPoint double_tagged = PointAt(east_, kDown, 6, 20);
  double_tagged.inner_vid = 30;
  Run({points[0], points[1], double_tagged});
  for (const EndPoint& point : {points[0], points[1], double_tagged}) {
    const CcmSource peer(east_.wire, point, 2);
    ASSERT_TRUE(element_.WaitForRemote(point.remote(2), kRemoteOk)) << element_.server().Errors();
    east_.wire.Clear();
    const auto own =
        east_.wire.Next([&](const Frame& frame) { return frame.header() == GroupHeader(point, east_.port.address()); });
    EXPECT_TRUE(own);
  }
  EXPECT_THAT(west_.wire.Take(), IsEmpty());
}

TEST_F(ABridge, TellsWhatABlockedPortDoesAndHearsByItAllTheSame) {
  const EndPoint point = PointAt(east_, kDown);
  Run({point});
  const CcmSource peer(east_.wire, point, 2);
  ASSERT_TRUE(element_.WaitForRemote(point.remote(2), kRemoteOk)) << element_.server().Errors();
  const auto is_told = [&](const char* port, std::uint8_t code) {
    EXPECT_TRUE(element_.WaitForLocal(
        point.key(), std::string("rdi 0 interface up port ") + port + " block 0 shutdown 0 highest none defects -"));
    EXPECT_TRUE(east_.wire.Next([&](const Frame& frame) {
      const auto ccm = cfm::pdu::DecodeCcm(frame.pdu());
      return ccm && static_cast<std::uint8_t>(ccm->port_status) == code;
    }));
  };
  is_told("up", 2);
  east_.port.SetBridgeState("listening");
  is_told("blocked", 1);
  element_.events().Clear();
  east_.wire.Clear();
  ASSERT_THAT(east_.wire.Take(10, Is(Opcode::kCcm)), SizeIs(10));
  ASSERT_TRUE(element_.Settle());
  for (const RemoteEvent& event : element_.events().remote) EXPECT_EQ(event.status.fsm_state, kRemoteOk);
  east_.port.SetBridgeState("forwarding");
  is_told("up", 2);
}

// ---- Nothing is multiplied ----

TEST_F(ABridge, MakesOneAnswerAtMostOfAFrame) {
  constexpr std::uint16_t kVid = 10;
  cfm::hierarchy hierarchy =
      MipsOf(PointAt(west_, kDown, 4, kVid), MhfCreationMode::kDefault, MhfCreationMode::kDefault);
  for (Side* side : {&west_, &east_}) {
    EndPoint up = PointAt(*side, kUp, 3, kVid);
    up.send_ccms = false;
    up.ma += side->port.name();
    Add(hierarchy, up);
  }
  RunWithMarkers(hierarchy);
  constexpr MacAddress kStation{2, 0, 0, 0, 0, 0x77};
  Teach(south_, kStation, kVid);
  for (Side* side : {&west_, &east_, &south_}) side->wire.Clear();
  for (const std::uint8_t level : std::array<std::uint8_t, 2>{3, 4}) {
    const auto all = cfm::pdu::ToAddress({GroupClass::k1, level});
    const auto lbm = Lbm(level, 0x100U + level);
    for (const MacAddress& to : {west_.port.address(), east_.port.address(), south_.port.address(), all}) {
      ASSERT_TRUE(south_.wire.Send(Header(south_, to, kVid), lbm));
    }
    for (const MacAddress& target : {west_.port.address(), east_.port.address(), kStation}) {
      SendLtm(west_, target, level, kVid, {.id = level});
    }
  }
  // Replies to group messages and to traces wait up to a second.
  element_.Listen(kReplyTime);
  std::vector<std::vector<Frame>> seen;
  for (Side* side : {&west_, &east_, &south_}) seen.push_back(Drained(*side));
  const auto count = [&](std::size_t side, Opcode opcode) {
    return std::count_if(seen[side].begin(), seen[side].end(), Is(opcode));
  };
  // At level 3 the two end points answer loopback messages, those to all, too. They do not face the traces. At level 4
  // two MIPs answer loopback messages to their own addresses, and one of them every trace.
  const std::vector<std::tuple<long, long, long>> expected = {{0, 3, 0}, {0, 0, 0}, {6, 0, 1}};
  for (std::size_t side = 0; side < seen.size(); ++side) {
    EXPECT_EQ(std::tuple(count(side, Opcode::kLbr), count(side, Opcode::kLtr), count(side, Opcode::kLtm)),
              expected[side])
        << side;
  }
}

// ---- Three elements in a row ----

class AChain : public testing::Test {
 protected:
  AChain() {
    west_cable_.first.Join(bridge_);
    east_cable_.first.Join(bridge_);
    for (Element* element : {&west_, &middle_, &east_}) element->StartServer();
    for (EndPoint* mep : {&west_mep_, &east_mep_}) mep->vid = 10;
  }

  void RunEnds() {
    cfm_test::Run(west_, HierarchyOf({west_mep_}));
    cfm_test::Run(east_, HierarchyOf({east_mep_}));
    ASSERT_TRUE(west_.WaitForRemote(west_mep_.remote(2), kRemoteOk)) << west_.server().Errors();
    ASSERT_TRUE(east_.WaitForRemote(east_mep_.remote(1), kRemoteOk)) << east_.server().Errors();
  }

  /// An end point of the middle, number 3.
  EndPoint MiddleMep(const Link& port, std::uint32_t direction) const {
    EndPoint mep = west_mep_;
    mep.port = port.index();
    mep.mep_id = 3;
    mep.direction = direction;
    return mep;
  }

  std::vector<std::string> Traced(Element& element, const EndPoint& from, std::uint16_t target, std::uint8_t ttl = 0) {
    element.events().linktrace.clear();
    element.client().LinktraceTrigger({1, from.md, from.ma, from.mep_id, target, ttl});
    const auto& lines = element.events().linktrace;
    EXPECT_TRUE(element.WaitFor([&] { return !lines.empty() && lines.back().starts_with("ended"); }));
    std::vector<std::string> replies;
    for (const std::string& line : lines) {
      if (line.starts_with("reply ")) replies.push_back(line);
    }
    return replies;
  }

  struct Hop {
    std::uint32_t trace = 1;
    Link from;
    Link by;
    bool terminal = false;
    bool forwarded = false;
    int ttl = 63;
    int relay_action = 2;
    Link last;
    std::optional<Link> next;
    std::optional<Link> ingress;
    std::optional<Link> egress;
  };
  std::string Reply(const EndPoint& mep, const Hop& hop) const {
    const auto yes = [](bool value) { return value ? std::string("true") : std::string("false"); };
    const auto port = [](const std::string& side, const Link& link) {
      return "Reply " + side + ": " + side + " action: 1, " + side + " MAC: " + ToText(link.address()) +
             ", Port ID: Subtype 5, Length " + std::to_string(link.name().size()) + "; ";
    };
    std::string text =
        "reply " + mep.md + " " + mep.ma + " " + std::to_string(mep.mep_id) +
        " Transaction ID: " + std::to_string(hop.trace) + "; Destination MAC: " + ToText(hop.from.address()) +
        "; Source MAC: " + ToText(hop.by.address()) +
        "; VLAN: 10; Priority: 7; Level: 4; Flags: Terminal MEP: " + yes(hop.terminal) +
        ", Forwarded: " + yes(hop.forwarded) + ", Use FDB only: true; TTL: " + std::to_string(hop.ttl) +
        "; Relay action:" + std::to_string(hop.relay_action) + "; LTR Egress ID: Last: " + ToText(hop.last.address()) +
        ", Next: " + (hop.next ? ToText(hop.next->address()) : "00:00:00:00:00:00") + "; ";
    if (hop.ingress) text += port("Ingress", *hop.ingress);
    if (hop.egress) text += port("Egress", *hop.egress);
    for (const auto& link : {hop.ingress, hop.egress}) {
      if (link) text += " '" + link->name() + "'";
    }
    return text;
  }

  Element west_;
  Element middle_;
  Element east_;
  Link bridge_ = MakeBridge(middle_.network(), "bridge");
  std::pair<Link, Link> west_cable_ = Connect(middle_.network(), "west", west_.network(), "port");
  std::pair<Link, Link> east_cable_ = Connect(middle_.network(), "east", east_.network(), "last");
  const Link& to_west_ = west_cable_.first;  // the ports of the bridge
  const Link& to_east_ = east_cable_.first;
  const Link& west_port_ = west_cable_.second;
  const Link& east_port_ = east_cable_.second;
  EndPoint west_mep_{.port = west_port_.index(), .mep_id = 1};
  EndPoint east_mep_{.port = east_port_.index(), .mep_id = 2};
};

TEST_F(AChain, NeedsNothingInTheMiddle) {
  RunEnds();
  const auto end = Hop{.from = west_port_,
                       .by = east_port_,
                       .terminal = true,
                       .relay_action = 1,
                       .last = west_port_,
                       .next = {},
                       .ingress = east_port_,
                       .egress = {}};
  EXPECT_THAT(Traced(west_, west_mep_, 2), ElementsAre(Reply(west_mep_, end)));
  west_.client().LoopbackTrigger({1, west_mep_.md, west_mep_.ma, 1, 2, 2, 100});
  ASSERT_TRUE(west_.WaitFor([&] { return west_.events().loopback.size() == 4; }));
  EXPECT_EQ(west_.events().loopback.back(), "ended 1 2 2 0 0");
  EXPECT_EQ(HooksOf(to_west_), kNoFilter);
}

TEST_F(AChain, IsTracedHopByHop) {
  cfm_test::Run(middle_, MipsOf(west_mep_, MhfCreationMode::kDefault, MhfCreationMode::kDefer));
  RunEnds();
  Hop middle{.from = west_port_,
             .by = to_west_,
             .forwarded = true,
             .last = west_port_,
             .next = to_east_,
             .ingress = to_west_,
             .egress = to_east_};
  const auto end = Hop{.from = west_port_,
                       .by = east_port_,
                       .terminal = true,
                       .ttl = 62,
                       .relay_action = 1,
                       .last = to_east_,
                       .next = {},
                       .ingress = east_port_,
                       .egress = {}};
  EXPECT_THAT(Traced(west_, west_mep_, 2), UnorderedElementsAre(Reply(west_mep_, middle), Reply(west_mep_, end)));
  middle.trace = 2;
  middle.forwarded = false;
  middle.ttl = 0;
  middle.next.reset();
  EXPECT_THAT(Traced(west_, west_mep_, 2, 1), ElementsAre(Reply(west_mep_, middle)));
}

TEST_F(AChain, EndsAtAnUpMepInTheMiddle) {
  west_mep_.mep_ids = {1, 3};
  const EndPoint up = MiddleMep(to_east_, kUp);
  east_mep_.mep_ids = {2};
  cfm_test::Run(west_, HierarchyOf({west_mep_}));
  cfm_test::Run(middle_, HierarchyOf({up}));
  cfm_test::Run(east_, HierarchyOf({east_mep_}));
  ASSERT_TRUE(west_.WaitForRemote(west_mep_.remote(3), kRemoteOk)) << west_.server().Errors();
  ASSERT_TRUE(middle_.WaitForRemote(up.remote(1), kRemoteOk)) << middle_.server().Errors();
  EXPECT_EQ(west_.events().RemoteText(west_mep_.remote(3)),
            "ok " + ToText(to_east_.address()) + " rdi 0 interface up port up sender ''");

  west_.client().LoopbackTrigger({1, west_mep_.md, west_mep_.ma, 1, 3, 2, 100});
  middle_.client().LoopbackTrigger({2, up.md, up.ma, 3, 1, 2, 100});
  middle_.client().DelayMeasurementTrigger({3, up.md, up.ma, 3, 1, 3, 10, 0, 7});
  ASSERT_TRUE(west_.WaitFor([&] { return west_.events().loopback.size() == 4; }));
  EXPECT_EQ(west_.events().loopback.back(), "ended 1 2 2 0 0");
  ASSERT_TRUE(middle_.WaitFor([&] { return middle_.events().loopback.size() == 4; }));
  EXPECT_EQ(middle_.events().loopback.back(), "ended 2 2 2 0 0");
  ASSERT_TRUE(middle_.WaitFor([&] { return !middle_.events().delay_ended.empty(); }));
  EXPECT_EQ(middle_.events().delay_ended.back().received, 3U);

  const Hop there{.from = west_port_,
                  .by = to_east_,
                  .terminal = true,
                  .relay_action = 1,
                  .last = west_port_,
                  .next = {},
                  .ingress = {},
                  .egress = to_east_};
  EXPECT_THAT(Traced(west_, west_mep_, 3), ElementsAre(Reply(west_mep_, there)));
  const Hop back{.from = to_east_,
                 .by = west_port_,
                 .terminal = true,
                 .relay_action = 1,
                 .last = to_east_,
                 .next = {},
                 .ingress = west_port_,
                 .egress = {}};
  EXPECT_THAT(Traced(middle_, up, 1), ElementsAre(Reply(up, back)));

  // Behind it nobody hears of the level, and it hears nobody.
  Wire east_wire(east_port_);
  ASSERT_TRUE(west_.Settle());
  for (const Element* element : {&west_, &middle_}) {
    for (const LocalEvent& event : const_cast<Element*>(element)->events().local) {
      EXPECT_FALSE(event.status.defect_error_ccm || event.status.defect_xcon_ccm);
    }
  }
  ASSERT_TRUE(east_.Settle());
  EXPECT_EQ(east_.events().Remote(east_mep_.remote(3)), nullptr);
  EXPECT_THAT(east_wire.Take(), IsEmpty());
}

TEST_F(AChain, NamesTheMipsInFrontOfAnUpMep) {
  west_mep_.mep_ids = {1, 3};
  const EndPoint up = MiddleMep(to_east_, kUp);
  cfm::hierarchy hierarchy = HierarchyOf({up});
  hierarchy.mds.at(up.md).cfg.mhf_creation = MhfCreationMode::kDefault;
  cfm_test::Run(west_, HierarchyOf({west_mep_}));
  cfm_test::Run(middle_, hierarchy);
  ASSERT_TRUE(west_.WaitForRemote(west_mep_.remote(3), kRemoteOk)) << west_.server().Errors();
  const Hop hop{.from = west_port_,
                .by = to_west_,
                .terminal = true,
                .relay_action = 1,
                .last = west_port_,
                .next = {},
                .ingress = to_west_,
                .egress = to_east_};
  EXPECT_THAT(Traced(west_, west_mep_, 3), ElementsAre(Reply(west_mep_, hop)));
}

TEST_F(AChain, HearsOfABlockedPortInTheMiddle) {
  EndPoint mep = MiddleMep(to_west_, kDown);
  west_mep_.mep_ids = {1, 3};
  cfm_test::Run(west_, HierarchyOf({west_mep_}));
  mep.mep_ids = {1, 3};
  cfm_test::Run(middle_, HierarchyOf({mep}));
  const auto reports = [&](const std::string& port) {
    return west_.WaitFor([&] {
      return west_.events().RemoteText(west_mep_.remote(3)).find("interface up port " + port) != std::string::npos;
    });
  };
  ASSERT_TRUE(reports("up"));
  to_west_.SetBridgeState("listening");
  ASSERT_TRUE(reports("blocked"));
  // All that report a port status report this one.
  ASSERT_TRUE(west_.WaitFor([&] { return west_.events().Local(west_mep_.key())->defect_mac_status; }));
  to_west_.SetBridgeState("forwarding");
  ASSERT_TRUE(reports("up"));
  ASSERT_TRUE(west_.WaitFor([&] { return !west_.events().Local(west_mep_.key())->defect_mac_status; }));
}

// ---- Alarms for those behind ----

TEST_F(AChain, TellsTheClientsOfALostConnectionInTheMiddle) {
  EndPoint link = MiddleMep(to_west_, kDown);
  link.md = "link";
  link.level = 2;
  link.mep_ids = {1, 3};
  link.vid = 0;
  cfm::hierarchy hierarchy = HierarchyOf({link});
  hierarchy.mds.at("link").mas.at(link.ma).cfg.ais = {true, 5, 1, {10, 20}, 6, false};
  // A client in the middle itself, and two in the east.
  EndPoint inside = MiddleMep(to_east_, kUp);
  inside.md = "inside";
  inside.level = 5;
  inside.vid = 20;
  inside.mep_ids = {3};
  std::vector<EndPoint> clients;
  for (const std::uint16_t vid : std::array<std::uint16_t, 2>{10, 20}) {
    EndPoint& client = clients.emplace_back(east_mep_);
    client.md = "client " + std::to_string(vid);
    client.level = 5;
    client.vid = vid;
    client.mep_ids = {2};
  }
  cfm_test::Run(middle_, hierarchy);
  cfm_test::Run(east_, HierarchyOf(clients));
  Wire west_wire(west_port_);
  Wire east_wire(east_port_);
  std::optional<CcmSource> peer(std::in_place, west_wire, link, 1);
  ASSERT_TRUE(middle_.WaitForRemote(link.remote(1), kRemoteOk)) << middle_.server().Errors();
  ASSERT_TRUE(middle_.WaitForLocal(link.key(), kFaultlessInABridge));
  for (const EndPoint& client : clients) {
    ASSERT_TRUE(east_.WaitFor([&] { return east_.events().Local(client.key()) != nullptr; }));
  }
  east_wire.Clear();

  const auto hears = [](Element& element, const EndPoint& client, bool ais) {
    return element.WaitFor([&] {
      const auto* status = element.events().Local(client.key());
      return status != nullptr && status->defect_ais == ais;
    });
  };
  peer->Stop();
  for (const EndPoint& client : clients) EXPECT_TRUE(hears(east_, client, true)) << middle_.server().Errors();
  // One for each VLAN, every second.
  const auto frames = east_wire.Take(6, Is(Opcode::kAis));
  ASSERT_THAT(frames, SizeIs(6));
  std::array<std::uint8_t, 5> buffer;
  const auto size = cfm::pdu::EncodeAis({.level = 5, .version = 0, .period = cfm::pdu::AisPeriod::k1s}, buffer);
  for (std::size_t i = 0; i < frames.size(); ++i) {
    EthernetHeader header{cfm::pdu::ToAddress({GroupClass::k1, 5}), to_west_.address(), {}, {}};
    header.outer = Tag{6, false, static_cast<std::uint16_t>(i % 2 == 0 ? 10 : 20)};
    EXPECT_EQ(frames[i].octets, MakeFrame(header, cfm::pdu::Octets(buffer).first(size)));
    EXPECT_TRUE(i < 2 || frames[i].received - frames[i - 2].received >= 500ms);
  }
  EXPECT_THAT(west_wire.Take(), testing::Not(Contains(testing::ResultOf(Is(Opcode::kAis), true))))
      << "those behind hear of it, not those in front";

  // A client in the middle itself hears it, too, and keeps it from those behind.
  Add(hierarchy, inside);
  cfm_test::Run(middle_, hierarchy);
  EXPECT_TRUE(hears(middle_, inside, true)) << middle_.server().Errors();
  EXPECT_TRUE(hears(east_, clients[1], false));
  EXPECT_TRUE(east_.events().Local(clients[0].key())->defect_ais);

  peer.emplace(west_wire, link, 1);
  EXPECT_TRUE(hears(middle_, inside, false));
  EXPECT_TRUE(hears(east_, clients[0], false));
}

TEST_F(AChain, TellsTheClientsOfALostCarrierInTheMiddle) {
  EndPoint link = MiddleMep(to_west_, kDown);
  link.md = "link";
  link.level = 2;
  link.mep_ids = {1, 3};
  cfm::hierarchy hierarchy = HierarchyOf({link});
  hierarchy.mds.at("link").mas.at(link.ma).cfg.ais = {true, 4, 1, {10}, 6, false};
  EndPoint peer = west_mep_;
  peer.md = "link";
  peer.level = 2;
  peer.mep_ids = {1, 3};
  cfm_test::Run(middle_, hierarchy);
  cfm_test::Run(west_, HierarchyOf({west_mep_, peer}));
  cfm_test::Run(east_, HierarchyOf({east_mep_}));
  ASSERT_TRUE(middle_.WaitForRemote(link.remote(1), kRemoteOk));
  ASSERT_TRUE(east_.WaitForRemote(east_mep_.remote(1), kRemoteOk));
  west_port_.Down();
  ASSERT_TRUE(east_.WaitForRemote(east_mep_.remote(1), kRemoteFailed));
  EXPECT_TRUE(east_.WaitFor([&] { return east_.events().Local(east_mep_.key())->defect_ais; }));
  west_port_.Up();
  ASSERT_TRUE(east_.WaitForRemote(east_mep_.remote(1), kRemoteOk));
  EXPECT_TRUE(east_.WaitFor([&] { return !east_.events().Local(east_mep_.key())->defect_ais; }));
}

}  // namespace
}  // namespace cfm_test
