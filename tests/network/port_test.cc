// The port layer on real interfaces.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <linux/if.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/if_tun.h>
#include <linux/pkt_cls.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlog.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "link.h"
#include "namespace.h"
#include "pdu/ethernet.h"
#include "pdu/header.h"
#include "port/capabilities.h"
#include "port/clocks.h"
#include "port/linux_ports.h"
#include "port/traffic_control.h"
#include "wire.h"

namespace cfm::port {
namespace {

using cfm_test::Connect;
using cfm_test::Frame;
using cfm_test::Inside;
using cfm_test::Ip;
using cfm_test::MakeBridge;
using cfm_test::MakeFrame;
using cfm_test::Namespace;
using cfm_test::Wire;
using pdu::EthernetHeader;
using pdu::Tag;
using protocol::FaultAction;
using testing::ElementsAre;
using testing::IsEmpty;

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kMostFramesPerPoll = 256;

// A PDU of an opcode that nobody knows, with a number in it.
Bytes NumberedPdu(std::uint32_t number, std::size_t size = 60, std::uint8_t level = 4) {
  Bytes pdu(size);
  pdu[0] = static_cast<std::uint8_t>(level << 5);
  pdu[1] = 99;
  for (std::size_t i = 0; i < 4; ++i) pdu[4 + i] = static_cast<std::uint8_t>(number >> (24 - 8 * i));
  return pdu;
}

std::uint32_t NumberOf(pdu::Octets pdu) {
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < 4; ++i) number = number << 8 | pdu[4 + i];
  return number;
}

bool Any(const Frame& /*frame*/) {
  return true;
}

// The category that the layer logs to, and what was logged.
class Log {
 public:
  Log() {
    const std::string rules = directory_ / "rules";
    std::ofstream(rules) << "[formats]\nplain = \"%V %m%n\"\n[rules]\nport.* \"" << file() << "\"; plain\n";
    if (zlog_init(rules.c_str()) != 0) throw std::runtime_error("zlog_init");
  }
  ~Log() { zlog_fini(); }
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  zlog_category_t* category() { return zlog_get_category("port"); }
  std::vector<std::string> Lines() const {
    std::vector<std::string> lines;
    std::ifstream log(file());
    for (std::string line; std::getline(log, line);) lines.push_back(line);
    return lines;
  }

 private:
  std::string file() const { return directory_ / "log"; }

  cfm_test::TempDir directory_;
};

class Recorder final : public Listener {
 public:
  struct Arrival {
    Index index;
    EthernetHeader header;
    Bytes pdu;
    protocol::Stamps stamps;
  };
  struct Failure {
    Owner owner;
    Bytes pdu;
  };

  void LinkChanged(const Link& link) override {
    links[link.index] = link;
    history.push_back(link);
  }
  void LinkRemoved(Index index) override {
    links.erase(index);
    removed.push_back(index);
  }
  void Received(Index index, const protocol::ReceivedFrame& frame) override {
    received.push_back({index, frame.header, {frame.pdu.begin(), frame.pdu.end()}, frame.stamps});
    if (on_received) on_received();
  }
  void Stamped(Owner owner, std::uint32_t stamp_id, const protocol::Stamps& stamps) override {
    stamped.push_back({owner, stamp_id, stamps});
  }
  void NotSent(Owner owner, pdu::Octets pdu) override { not_sent.push_back({owner, {pdu.begin(), pdu.end()}}); }

  std::vector<std::uint32_t> Numbers() const {
    std::vector<std::uint32_t> numbers;
    for (const Arrival& arrival : received) numbers.push_back(NumberOf(arrival.pdu));
    return numbers;
  }

  std::map<Index, Link> links;
  std::vector<Link> history;
  std::vector<Index> removed;
  std::vector<Arrival> received;
  std::vector<port::Stamped> stamped;
  std::vector<Failure> not_sent;
  std::function<void()> on_received;
};

// Two namespaces with a cable between them: the ports are those of the near one, which the test runs in.
class ThePorts : public testing::Test {
 protected:
  ThePorts() { far_link_.AwaitRunning(); }

  Index near() const { return near_link_.index(); }

  bool WaitUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + cfm_test::kDeadline;
    while (!condition()) {
      const auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return false;
      pollfd ready{ports_.fd(), POLLIN, 0};
      poll(&ready, 1, static_cast<int>(left.count()));
      ports_.Poll();
    }
    return true;
  }

  bool WaitForFrames(std::size_t count) {
    return WaitUntil([this, count] { return told_.received.size() >= count; });
  }

  bool WaitForLink(const std::function<bool(const Link&)>& condition) {
    return WaitUntil([this, &condition] {
      const auto found = told_.links.find(near());
      return found != told_.links.end() && condition(found->second);
    });
  }

  // What is ready now, and no more.
  void PollAll() {
    for (pollfd ready{ports_.fd(), POLLIN, 0}; poll(&ready, 1, 0) > 0;) ports_.Poll();
  }

  EthernetHeader FromFar(std::optional<Tag> outer = {}, std::optional<Tag> inner = {}) const {
    return {near_address_, far_.address(), outer, inner};
  }
  EthernetHeader FromNear(std::optional<Tag> outer = {}, std::optional<Tag> inner = {}) const {
    return {far_.address(), near_address_, outer, inner};
  }

  bool Send(std::uint32_t number, const EthernetHeader& header, std::optional<std::uint32_t> stamp_id = {}) {
    const Bytes pdu = NumberedPdu(number);
    protocol::OutgoingFrame frame;
    frame.header = header;
    frame.pdu = pdu;
    frame.stamp_id = stamp_id;
    return ports_.Send(near(), frame, kOwner);
  }

  static constexpr Owner kOwner = 0x1234567890abcdef;

  Log log_;
  Namespace home_;
  Namespace away_;
  Inside inside_{home_};
  std::pair<cfm_test::Link, cfm_test::Link> ends_ = Connect(home_, "near", away_, "far");
  cfm_test::Link& near_link_ = ends_.first;
  cfm_test::Link& far_link_ = ends_.second;
  pdu::MacAddress near_address_ = near_link_.address();
  Wire far_{far_link_};
  Recorder told_;
  LinuxPorts ports_{told_, log_.category(), {}};
};

class ThePort : public ThePorts {
 protected:
  ThePort() {
    if (!ports_.Open(near())) throw std::runtime_error("the port does not open");
  }
};

// Plain, or a port of a bridge.
class OnEitherPort : public ThePort, public testing::WithParamInterface<bool> {
 protected:
  OnEitherPort() {
    if (GetParam()) near_link_.Join(MakeBridge(home_, "bridge"));
  }
};

INSTANTIATE_TEST_SUITE_P(Plain, OnEitherPort, testing::Values(false));
INSTANTIATE_TEST_SUITE_P(OfABridge, OnEitherPort, testing::Values(true));

TEST_P(OnEitherPort, EveryFormOfTagsIsHeardAndNothingElse) {
  const std::vector<EthernetHeader> headers = {
      FromFar(),
      FromFar(Tag{7, false, 0}),
      FromFar(Tag{5, true, 4094}),
      FromFar(Tag{1, false, 100}, Tag{2, false, 200}),
      {pdu::ToAddress({pdu::GroupClass::k2, 3}), far_.address(), Tag{3, false, 1}, {}}};
  Bytes other = MakeFrame(FromFar(), NumberedPdu(77));
  other[13] = 0xff;
  ASSERT_TRUE(far_.Send(other));
  for (std::uint32_t i = 0; i < headers.size(); ++i) ASSERT_TRUE(far_.Send(headers[i], NumberedPdu(i)));
  ASSERT_TRUE(WaitForFrames(headers.size()));
  ASSERT_EQ(told_.received.size(), headers.size());
  for (std::uint32_t i = 0; i < headers.size(); ++i) {
    EXPECT_EQ(told_.received[i].index, near());
    EXPECT_EQ(told_.received[i].header, headers[i]) << i;
    EXPECT_EQ(told_.received[i].pdu, NumberedPdu(i));
  }
  EXPECT_EQ(ports_.CountersOf(near()).received, headers.size());
  EXPECT_EQ(ports_.CountersOf(near()).malformed, 0U);
}

TEST_P(OnEitherPort, TagsInAFormThatIsNotInUseAreCountedAsMalformed) {
  Bytes service_only = MakeFrame(FromFar(Tag{1, false, 100}), NumberedPdu(1));
  service_only[12] = 0x88;
  service_only[13] = 0xa8;
  Bytes customer_twice = MakeFrame(FromFar(Tag{1, false, 100}, Tag{1, false, 200}), NumberedPdu(2));
  customer_twice[12] = 0x81;
  customer_twice[13] = 0x00;
  ASSERT_TRUE(far_.Send(service_only));
  ASSERT_TRUE(far_.Send(customer_twice));
  ASSERT_TRUE(far_.Send(FromFar(), NumberedPdu(3)));
  ASSERT_TRUE(WaitForFrames(1));
  EXPECT_THAT(told_.Numbers(), ElementsAre(3U));
  EXPECT_EQ(ports_.CountersOf(near()).malformed, 2U);
}

TEST_P(OnEitherPort, EveryFormOfTagsIsSentOctetForOctet) {
  const std::vector<EthernetHeader> headers = {FromNear(), FromNear(Tag{7, false, 0}), FromNear(Tag{5, true, 4094}),
                                               FromNear(Tag{1, false, 100}, Tag{2, false, 200})};
  for (std::uint32_t i = 0; i < headers.size(); ++i) ASSERT_TRUE(Send(i, headers[i]));
  ports_.Flush();
  const auto frames = far_.Take(headers.size(), Any);
  ASSERT_EQ(frames.size(), headers.size());
  for (std::uint32_t i = 0; i < headers.size(); ++i) EXPECT_EQ(frames[i].octets, MakeFrame(headers[i], NumberedPdu(i)));
  EXPECT_EQ(ports_.CountersOf(near()).sent, headers.size());
}

TEST_P(OnEitherPort, WhatLeavesByThePortIsNotHeard) {
  const Wire other_program(near_link_);
  ASSERT_TRUE(Send(1, FromNear()));
  ports_.Flush();
  ASSERT_TRUE(other_program.Send(FromNear(), NumberedPdu(2)));
  ASSERT_TRUE(far_.Send(FromFar(), NumberedPdu(3)));
  ASSERT_TRUE(WaitForFrames(1));
  EXPECT_EQ(far_.Take(2, Any).size(), 2U);
  PollAll();
  EXPECT_THAT(told_.Numbers(), ElementsAre(3U));
}

TEST_P(OnEitherPort, FramesComeWithTheSystemsStampAndNotWithACards) {
  // The kernel begins to stamp frames a moment after it is asked to.
  ASSERT_TRUE(WaitUntil([this] {
    if (!told_.received.empty() && told_.received.back().stamps.software) return true;
    far_.Send(FromFar(), NumberedPdu(0));
    return false;
  }));
  PollAll();
  told_.received.clear();
  const auto before = ReadClocks();
  ASSERT_TRUE(far_.Send(FromFar(), NumberedPdu(1)));
  ASSERT_TRUE(WaitUntil([this] { return std::ranges::count(told_.Numbers(), 1U) == 1; }));
  const auto after = ReadClocks();
  EXPECT_LT(before.monotonic, after.monotonic);
  const protocol::Stamps& stamps = told_.received.back().stamps;
  ASSERT_TRUE(stamps.software);
  EXPECT_GE(*stamps.software, before.system);
  EXPECT_LE(*stamps.software, after.system);
  EXPECT_FALSE(stamps.card);
}

TEST_P(OnEitherPort, AStampBelongsToTheFrameThatAskedForIt) {
  constexpr std::uint32_t kFrames = 20;
  std::vector<protocol::Duration> handed_over;
  std::vector<Frame> arrived;
  for (std::uint32_t i = 0; i < kFrames; ++i) {
    // One among others that ask for none.
    ASSERT_TRUE(Send(1000, FromNear()));
    ASSERT_TRUE(Send(i, FromNear(), i + 7));
    ASSERT_TRUE(Send(2000, FromNear()));
    handed_over.push_back(ReadClocks().system);
    ports_.Flush();
    const auto frame = far_.Next([i](const Frame& one) { return NumberOf(one.pdu()) == i; });
    ASSERT_TRUE(frame);
    arrived.push_back(*frame);
  }
  ASSERT_TRUE(WaitUntil([this] { return told_.stamped.size() >= kFrames; }));
  ASSERT_EQ(told_.stamped.size(), kFrames);
  for (std::uint32_t i = 0; i < kFrames; ++i) {
    EXPECT_EQ(told_.stamped[i].owner, kOwner);
    EXPECT_EQ(told_.stamped[i].stamp_id, i + 7);
    ASSERT_TRUE(told_.stamped[i].stamps.software);
    EXPECT_FALSE(told_.stamped[i].stamps.card);
    EXPECT_GE(*told_.stamped[i].stamps.software, handed_over[i]);
    EXPECT_LE(*told_.stamped[i].stamps.software, arrived[i].received.time_since_epoch());
  }
  EXPECT_THAT(told_.received, IsEmpty()) << "answers of the kernel are no frames";
}

TEST_F(ThePort, AStampIsToldBeforeTheAnswerToItsFrame) {
  std::size_t stamped_before = 0;
  told_.on_received = [this, &stamped_before] { stamped_before = told_.stamped.size(); };
  ASSERT_TRUE(Send(1, FromNear(), 7));
  ports_.Flush();
  ASSERT_TRUE(far_.Next([](const Frame& one) { return NumberOf(one.pdu()) == 1; }));
  ASSERT_TRUE(far_.Send(FromFar(), NumberedPdu(2)));
  ASSERT_TRUE(WaitForFrames(1));
  EXPECT_EQ(stamped_before, 1U);
}

TEST_F(ThePort, StampsStillMatchAfterFramesThatWereRefused) {
  far_link_.Down();
  ASSERT_TRUE(WaitForLink([](const Link& link) { return !link.state.lower_up; }));
  for (std::uint32_t i = 0; i < 3; ++i) ASSERT_TRUE(Send(i, FromNear(), i));
  ports_.Flush();
  EXPECT_THAT(told_.not_sent, IsEmpty()) << "comes from the loop only";
  ASSERT_TRUE(WaitUntil([this] { return told_.not_sent.size() >= 3; }));
  for (std::uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(told_.not_sent[i].owner, kOwner);
    EXPECT_EQ(told_.not_sent[i].pdu, NumberedPdu(i));
  }
  EXPECT_EQ(ports_.CountersOf(near()).refused, 3U);
  far_link_.Up();
  near_link_.AwaitRunning();
  const auto before = ReadClocks().system;
  for (std::uint32_t i = 10; i < 13; ++i) ASSERT_TRUE(Send(i, FromNear(), i));
  ports_.Flush();
  ASSERT_TRUE(WaitUntil([this] { return told_.stamped.size() >= 3; }));
  for (std::uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(told_.stamped[i].stamp_id, i + 10);
    EXPECT_GE(*told_.stamped[i].stamps.software, before);
  }
}

TEST_F(ThePort, TakesTheLargestFrameAndCountsLargerOnes) {
  for (const cfm_test::Link& end : {near_link_, far_link_}) end.SetMtu(20000);
  ASSERT_TRUE(far_.Send(FromFar(), NumberedPdu(1, protocol::kLargestPdu + pdu::kLongestEthernetHeader)));
  ASSERT_TRUE(far_.Send(FromFar(), NumberedPdu(2, 16000)));
  ASSERT_TRUE(far_.Send(FromFar(Tag{0, false, 1}, Tag{0, false, 2}), NumberedPdu(3, protocol::kLargestPdu)));
  ASSERT_TRUE(WaitForFrames(1));
  ASSERT_THAT(told_.Numbers(), ElementsAre(3U));
  EXPECT_EQ(told_.received[0].pdu, NumberedPdu(3, protocol::kLargestPdu));
  EXPECT_EQ(ports_.CountersOf(near()).oversized, 2U);

  const Bytes largest = NumberedPdu(4, protocol::kLargestPdu);
  const Bytes too_large = NumberedPdu(5, protocol::kLargestPdu + 1);
  protocol::OutgoingFrame frame;
  frame.header = FromNear(Tag{0, false, 1}, Tag{0, false, 2});
  frame.pdu = too_large;
  EXPECT_FALSE(ports_.Send(near(), frame, kOwner));
  frame.pdu = largest;
  EXPECT_TRUE(ports_.Send(near(), frame, kOwner));
  ports_.Flush();
  const auto sent = far_.Next(Any);
  ASSERT_TRUE(sent);
  EXPECT_EQ(sent->octets, MakeFrame(frame.header, largest));
}

TEST_F(ThePort, KeepsTheOrderOf100000FramesBothWays) {
  constexpr std::uint32_t kFrames = 100000;
  constexpr std::uint32_t kBurst = 100;  // fits into any socket's buffer
  std::uint32_t next_out = 0;
  for (std::uint32_t first = 0; first < kFrames; first += kBurst) {
    for (std::uint32_t i = 0; i < kBurst; ++i) ASSERT_TRUE(Send(first + i, FromNear()));
    ports_.Flush();
    for (std::uint32_t i = 0; i < kBurst; ++i) ASSERT_TRUE(far_.Send(FromFar(), NumberedPdu(first + i)));
    ASSERT_TRUE(WaitForFrames(kBurst));
    ASSERT_EQ(told_.received.size(), kBurst);
    for (std::uint32_t i = 0; i < kBurst; ++i) ASSERT_EQ(NumberOf(told_.received[i].pdu), first + i);
    told_.received.clear();
    const auto frames = far_.Take(kBurst, Any);
    ASSERT_EQ(frames.size(), kBurst);
    for (const Frame& frame : frames) ASSERT_EQ(NumberOf(frame.pdu()), next_out++);
  }
  EXPECT_EQ(ports_.CountersOf(near()).overrun, 0U);
}

TEST_F(ThePort, SendsMoreThanItKeepsBackForOneFlush) {
  // Beyond what one call of the kernel is given; the far end's buffer need not hold them all.
  for (std::uint32_t i = 0; i < 3000; ++i) ASSERT_TRUE(Send(i, FromNear()));
  ports_.Flush();
  PollAll();
  EXPECT_EQ(ports_.CountersOf(near()).sent, 3000U);
  EXPECT_THAT(told_.not_sent, IsEmpty());
}

TEST_F(ThePort, ComesThroughAHundredTimesDownAndUp) {
  for (std::uint32_t i = 0; i < 100; ++i) {
    near_link_.Down();
    ASSERT_TRUE(Send(1000 + i, FromNear()));
    ports_.Flush();
    ASSERT_TRUE(WaitUntil([this, i] { return told_.not_sent.size() > i; }));
    near_link_.Up();
    ASSERT_TRUE(far_.Send(FromFar(), NumberedPdu(i)));
    ASSERT_TRUE(WaitForFrames(i + 1));
    ASSERT_TRUE(Send(i, FromNear()));
    ports_.Flush();
    ASSERT_TRUE(far_.Next([i](const Frame& frame) { return NumberOf(frame.pdu()) == i; }));
  }
  EXPECT_EQ(told_.received.size(), 100U);
  EXPECT_THAT(log_.Lines(), IsEmpty());
}

TEST_F(ThePort, FollowsTheCarrier) {
  ASSERT_TRUE(WaitForLink([](const Link& link) { return link.state.lower_up && link.state.operstate == IF_OPER_UP; }));
  far_link_.Down();
  ASSERT_TRUE(
      WaitForLink([](const Link& link) { return !link.state.lower_up && link.state.operstate == IF_OPER_DOWN; }));
  far_link_.Up();
  ASSERT_TRUE(WaitForLink([](const Link& link) { return link.state.lower_up && link.state.operstate == IF_OPER_UP; }));
}

TEST_F(ThePort, FollowsNameAddressAndSize) {
  const pdu::MacAddress address = {2, 0, 0, 0, 0, 42};
  const Index index = near();
  near_link_.SetAddress(address);
  near_link_.SetMtu(1400);
  near_link_.Rename("other");
  ASSERT_TRUE(WaitForLink(
      [&address](const Link& link) { return link.name == "other" && link.address == address && link.mtu == 1400; }));
  EXPECT_EQ(near(), index);
  EXPECT_THAT(told_.removed, IsEmpty());
  EXPECT_EQ(ports_.FindByName("near"), nullptr);
  ASSERT_NE(ports_.FindByName("other"), nullptr);
  EXPECT_EQ(ports_.FindByName("other")->index, index);
  ASSERT_TRUE(far_.Send(FromFar(), NumberedPdu(1)));
  EXPECT_TRUE(WaitForFrames(1)) << "open as before";
}

TEST_F(ThePort, FollowsItsBridge) {
  const cfm_test::Link bridge = MakeBridge(home_, "bridge");
  near_link_.Join(bridge);
  ASSERT_TRUE(WaitForLink([&bridge](const Link& link) {
    return link.bridge == bridge.index() && link.port_status == pdu::PortStatus::kUp;
  }));
  near_link_.SetBridgeState("listening");
  ASSERT_TRUE(WaitForLink([](const Link& link) { return link.port_status == pdu::PortStatus::kBlocked; }));
  near_link_.SetBridgeState("forwarding");
  ASSERT_TRUE(WaitForLink([](const Link& link) { return link.port_status == pdu::PortStatus::kUp; }));
  near_link_.Leave();
  ASSERT_TRUE(
      WaitForLink([](const Link& link) { return link.bridge == 0 && link.port_status == pdu::PortStatus::kNone; }));
  EXPECT_THAT(told_.removed, IsEmpty());
}

TEST_F(ThePort, TellsOfFramesThatItsEndKeptFromLeaving) {
  ASSERT_TRUE(Send(1, FromNear()));
  near_link_.Delete();
  ASSERT_TRUE(WaitUntil([this] { return !told_.not_sent.empty(); }));
  EXPECT_EQ(told_.not_sent[0].pdu, NumberedPdu(1));
}

TEST_F(ThePorts, AreUpWhenTheyWorkAndTheirDriverDoesNotSay) {
  const int tap = open("/dev/net/tun", O_RDWR | O_CLOEXEC);
  ifreq request{};
  std::string("tap").copy(request.ifr_name, sizeof request.ifr_name - 1);
  request.ifr_flags = IFF_TAP | IFF_NO_PI;
  if (tap < 0 || ioctl(tap, TUNSETIFF, &request) != 0) GTEST_SKIP() << "no tap devices here";
  Ip(home_, "link set dev tap up");
  EXPECT_TRUE(WaitUntil([this] {
    const Link* link = ports_.FindByName("tap");
    return link != nullptr && link->state.lower_up && link->is_ethernet;
  }));
  EXPECT_EQ(ports_.FindByName("tap")->state.operstate, IF_OPER_UNKNOWN);
  EXPECT_EQ(ToInterfaceStatus(ports_.FindByName("tap")->state), pdu::InterfaceStatus::kUp);
  close(tap);
}

TEST_F(ThePort, IsGoneWithItsInterfaceAndAnotherOneWhenThatComesBack) {
  const Index old = near();
  near_link_.Delete();
  ASSERT_TRUE(WaitUntil([this, old] { return std::ranges::count(told_.removed, old) == 1; }));
  EXPECT_EQ(ports_.Find(old), nullptr);
  protocol::OutgoingFrame frame;
  EXPECT_FALSE(ports_.Send(old, frame, kOwner));

  ends_ = Connect(home_, "near", away_, "far");
  const Wire far(far_link_);
  ASSERT_NE(near(), old);
  ASSERT_TRUE(WaitForLink([](const Link& link) { return link.name == "near" && link.state.lower_up; }));
  ASSERT_TRUE(ports_.Open(near()));
  ASSERT_TRUE(far.Send({near_link_.address(), far.address(), {}, {}}, NumberedPdu(1)));
  EXPECT_TRUE(WaitForFrames(1));
}

TEST_F(ThePort, IsGoneWhenItMovesToAnotherNamespace) {
  const Index index = near();
  near_link_.Set("netns " + away_.path());
  EXPECT_TRUE(WaitUntil([this, index] { return std::ranges::count(told_.removed, index) == 1; }));
  EXPECT_EQ(ports_.Find(index), nullptr);
}

// Whether a netlink socket of this namespace had no room for what the kernel had to tell.
bool HasLostNotices() {
  std::ifstream table("/proc/thread-self/net/netlink");
  std::string line;
  std::getline(table, line);
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    std::string skipped;
    for (int i = 0; i < 8; ++i) fields >> skipped;
    std::uint64_t drops = 0;
    if (fields >> drops && drops > 0) return true;
  }
  return false;
}

TEST_F(ThePorts, AreFollowedWhenTheKernelTellsMoreThanTheyListenTo) {
  ASSERT_TRUE(ports_.Open(near()));
  PollAll();
  std::string made;
  std::string unmade;
  for (int i = 0; i < 200; ++i) {
    const std::string name = "port" + std::to_string(i);
    made += "link add name " + name + " type veth peer name peer" + std::to_string(i) + "\n";
    if (i % 2 == 0) unmade += "link delete dev " + name + "\n";
  }
  Ip(home_, made);
  EXPECT_TRUE(HasLostNotices());
  PollAll();
  EXPECT_NE(ports_.FindByName("peer199"), nullptr);
  Ip(home_, unmade);
  Ip(home_, "link set dev port199 mtu 1234");
  ASSERT_TRUE(WaitUntil([this] { return ports_.FindByName("port199")->mtu == 1234; }));
  PollAll();
  EXPECT_EQ(ports_.FindByName("port198"), nullptr);
  EXPECT_EQ(told_.removed.size(), 200U);
  for (const Index index : told_.removed) EXPECT_EQ(told_.links.count(index), 0U);
  EXPECT_EQ(told_.links.size(), 2U + 200U) << "the loopback, the near end and what is left";
  ASSERT_TRUE(far_.Send(FromFar(), NumberedPdu(1)));
  EXPECT_TRUE(WaitForFrames(1));
}

TEST_F(ThePort, HasJoinedEveryGroupOfCfm) {
  const auto groups = [] {
    std::ifstream table("/proc/thread-self/net/dev_mcast");
    std::vector<std::string> found;
    for (std::string line; std::getline(table, line);) {
      std::istringstream words(line);
      std::string index, name, users, global, address;
      words >> index >> name >> users >> global >> address;
      if (name == "near" && address.starts_with("0180c200003")) found.push_back(address.substr(11));
    }
    std::ranges::sort(found);
    return found;
  };
  EXPECT_THAT(groups(), ElementsAre("0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "a", "b", "c", "d", "e", "f"));
  ports_.Close(near());
  ports_.Poll();
  EXPECT_THAT(groups(), IsEmpty());
}

TEST_F(ThePorts, OpenNothingThatIsNoEthernetAndSaySoOncePerSecond) {
  ASSERT_NE(ports_.FindByName("lo"), nullptr);
  EXPECT_FALSE(ports_.FindByName("lo")->is_ethernet);
  const Index loopback = ports_.FindByName("lo")->index;
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 1000; ++i) {
    EXPECT_FALSE(ports_.Open(loopback));
    EXPECT_FALSE(ports_.Open(12345));
  }
  const auto seconds = std::chrono::ceil<std::chrono::seconds>(std::chrono::steady_clock::now() - start).count();
  const auto lines = log_.Lines();
  ASSERT_FALSE(lines.empty());
  EXPECT_LE(lines.size(), static_cast<std::size_t>(seconds));
  EXPECT_THAT(lines[0], testing::StartsWith("ERROR port lo (1): "));
}

TEST_F(ThePort, GivesATurnToEveryPortHoweverMuchArrivesAtOne) {
  const auto second = Connect(home_, "near2", away_, "far2");
  const Wire far2(second.second);
  PollAll();
  ASSERT_TRUE(ports_.Open(second.first.index()));
  constexpr std::uint32_t kFlood = 200;
  for (std::uint32_t i = 0; i < kFlood; ++i) ASSERT_TRUE(far_.Send(FromFar(), NumberedPdu(i)));
  ASSERT_TRUE(far2.Send({second.first.address(), far2.address(), {}, {}}, NumberedPdu(9999)));
  // The frames are there: a veth delivers before it returns, or a softirq does soon after.
  std::size_t polls = 0;
  std::size_t before_other = 0;
  ASSERT_TRUE(WaitUntil([&] {
    ++polls;
    const auto numbers = told_.Numbers();
    const auto other = std::ranges::find(numbers, 9999U);
    before_other = static_cast<std::size_t>(other - numbers.begin());
    EXPECT_LE(numbers.size(), polls * kMostFramesPerPoll);
    return other != numbers.end();
  }));
  EXPECT_LE(before_other, ReceiveBatch::kFrames) << "one batch of the other's";
  EXPECT_TRUE(WaitForFrames(kFlood + 1)) << "and nothing is left behind";
}

TEST_F(ThePort, MayBeClosedByTheOneWhoIsToldOfAFrame) {
  told_.on_received = [this] { ports_.Close(near()); };
  for (std::uint32_t i = 0; i < 10; ++i) ASSERT_TRUE(far_.Send(FromFar(), NumberedPdu(i)));
  ASSERT_TRUE(WaitForFrames(1));
  PollAll();
  EXPECT_THAT(told_.Numbers(), ElementsAre(0U));
  EXPECT_FALSE(Send(1, FromNear()));
}

// A socket that sends and sees what is no CFM.
class Plain {
 public:
  explicit Plain(const cfm_test::Link& link) {
    const Inside inside(link.network());
    fd_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(kType));
    sockaddr_ll here{};
    here.sll_family = AF_PACKET;
    here.sll_protocol = htons(kType);
    here.sll_ifindex = static_cast<int>(link.index());
    if (fd_ < 0 || bind(fd_, reinterpret_cast<const sockaddr*>(&here), sizeof here) != 0) {
      throw std::runtime_error("packet socket");
    }
  }
  ~Plain() { close(fd_); }
  Plain(const Plain&) = delete;
  Plain& operator=(const Plain&) = delete;

  void Send(const EthernetHeader& header) const {
    Bytes frame = MakeFrame(header, NumberedPdu(0));
    frame[frame.size() - 60 - 2] = kType >> 8;
    frame[frame.size() - 60 - 1] = kType & 0xff;
    // That a filter on the way out drops it is an error here.
    static_cast<void>(send(fd_, frame.data(), frame.size(), 0));
  }
  std::size_t TakeAll() const {
    std::array<std::uint8_t, 2000> frame;
    std::size_t count = 0;
    while (recv(fd_, frame.data(), frame.size(), MSG_DONTWAIT) >= 0) ++count;
    return count;
  }

 private:
  static constexpr std::uint16_t kType = 0x88b5;  // for local experiments

  int fd_ = -1;
};

// far -- near (bridge) out -- beyond
class TheBridgedPort : public ThePort {
 protected:
  TheBridgedPort() {
    Ip(home_, "link set dev bridge type bridge mcast_snooping 0");
    near_link_.Join(bridge_);
    out_.first.Join(bridge_);
    WaitForLink([](const Link& link) { return link.port_status == pdu::PortStatus::kUp; });
  }

  static constexpr pdu::MacAddress kAll = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

  // How many frames that are no CFM the bridge carries each way. A CFM frame that follows them says when they are
  // there, where the bridge carries those.
  std::pair<std::size_t, std::size_t> Carried(bool bridge_forwards = true) {
    plain_far_.TakeAll();
    plain_beyond_.TakeAll();
    const std::uint32_t marker = ++last_marker_;
    const auto is_marker = [marker](const Frame& frame) { return NumberOf(frame.pdu()) == marker; };
    plain_far_.Send({kAll, far_.address(), {}, {}});
    far_.Send({kAll, far_.address(), {}, {}}, NumberedPdu(marker));
    EXPECT_TRUE(!bridge_forwards || beyond_.Next(is_marker));
    plain_beyond_.Send({kAll, beyond_.address(), {}, {}});
    beyond_.Send({kAll, beyond_.address(), {}, {}}, NumberedPdu(marker));
    EXPECT_TRUE(!bridge_forwards || far_.Next(is_marker));
    return {plain_beyond_.TakeAll(), plain_far_.TakeAll()};
  }

  TrafficControl::Present LookAt(Hook hook) {
    NetlinkSocket netlink;
    return TrafficControl(netlink, near()).Look(hook);
  }

  cfm_test::Link bridge_ = MakeBridge(home_, "bridge");
  Namespace elsewhere_;
  std::pair<cfm_test::Link, cfm_test::Link> out_ = Connect(home_, "out", elsewhere_, "beyond");
  Wire beyond_{out_.second};
  Plain plain_far_{far_link_};
  Plain plain_beyond_{out_.second};
  std::uint32_t last_marker_ = 0;
};

TEST_F(TheBridgedPort, CarriesNothingButCfmWhileItIsBlocked) {
  const std::pair<std::size_t, std::size_t> one_each_way{1, 1};
  const std::pair<std::size_t, std::size_t> nothing{0, 0};
  EXPECT_EQ(Carried(), one_each_way);
  ports_.SetFaultAction(near(), FaultAction::kBlock);
  EXPECT_EQ(Carried(), nothing);
  EXPECT_EQ(LookAt(Hook::kIngress).own, HookMark::kFilter);
  PollAll();
  told_.received.clear();
  far_.Clear();
  ASSERT_TRUE(far_.Send(FromFar(Tag{1, false, 5}), NumberedPdu(1)));
  EXPECT_TRUE(WaitForFrames(1));
  ASSERT_TRUE(Send(2, FromNear()));
  ports_.Flush();
  EXPECT_TRUE(far_.Next([](const Frame& frame) { return NumberOf(frame.pdu()) == 2; }));
  ports_.SetFaultAction(near(), FaultAction::kNone);
  EXPECT_EQ(Carried(), one_each_way);
  EXPECT_FALSE(LookAt(Hook::kIngress).own);
  EXPECT_THAT(log_.Lines(), IsEmpty());
}

TEST_F(TheBridgedPort, IsDormantButSaysItIsNotWhileItIsShutDown) {
  const auto as_without = *ports_.Find(near());
  ports_.SetFaultAction(near(), FaultAction::kShutdown);
  ASSERT_TRUE(WaitForLink([](const Link& link) { return link.state.operstate == IF_OPER_DORMANT; }));
  const Link held = *ports_.Find(near());
  EXPECT_TRUE(held.state.held_dormant);
  EXPECT_EQ(held.port_status, pdu::PortStatus::kUp);
  EXPECT_EQ(ToInterfaceStatus(held.state), pdu::InterfaceStatus::kUp);
  EXPECT_EQ(held.bridge, bridge_.index());
  Carried(false);

  // CFM goes on.
  told_.received.clear();
  ASSERT_TRUE(far_.Send(FromFar(), NumberedPdu(101)));
  EXPECT_TRUE(WaitUntil([this] { return std::ranges::count(told_.Numbers(), 101U) == 1; }));
  ASSERT_TRUE(Send(102, FromNear()));
  ports_.Flush();
  EXPECT_TRUE(far_.Next([](const Frame& frame) { return NumberOf(frame.pdu()) == 102; }));
  EXPECT_EQ(plain_beyond_.TakeAll() + plain_far_.TakeAll(), 0U);

  // A carrier that is lost meanwhile is told, and one that comes back is not a reason to be down.
  far_link_.Down();
  ASSERT_TRUE(WaitForLink([](const Link& link) {
    return ToInterfaceStatus(link.state) == pdu::InterfaceStatus::kDown &&
           link.port_status == pdu::PortStatus::kBlocked;
  }));
  far_link_.Up();
  ASSERT_TRUE(WaitForLink([](const Link& link) {
    return ToInterfaceStatus(link.state) == pdu::InterfaceStatus::kUp && link.port_status == pdu::PortStatus::kUp;
  }));
  EXPECT_EQ(ports_.Find(near())->state.operstate, IF_OPER_DORMANT);

  told_.history.clear();
  ports_.SetFaultAction(near(), FaultAction::kNone);
  ASSERT_TRUE(WaitForLink([&as_without](const Link& link) { return link == as_without; }));
  for (const Link& link : told_.history) EXPECT_EQ(link.port_status, pdu::PortStatus::kUp) << "no blink";
  EXPECT_EQ(Carried(), (std::pair<std::size_t, std::size_t>{1, 1}));
}

TEST_F(TheBridgedPort, IsItselfAgainWhenItIsClosed) {
  ports_.SetFaultAction(near(), FaultAction::kShutdown);
  ASSERT_TRUE(WaitForLink([](const Link& link) { return link.state.operstate == IF_OPER_DORMANT; }));
  ports_.Close(near());
  ASSERT_TRUE(WaitForLink([](const Link& link) {
    return link.state.operstate == IF_OPER_UP && !link.state.held_dormant && link.port_status == pdu::PortStatus::kUp;
  }));
  EXPECT_EQ(Carried(), (std::pair<std::size_t, std::size_t>{1, 1}));
}

TEST_F(TheBridgedPort, DropsLevelsBeforeTheBridgeAndBehindItButSeesThem) {
  const Tag tag{5, false, 10};
  const auto levels_through = [](Wire& from, Wire& to, std::optional<Tag> outer) {
    to.Clear();
    for (std::uint8_t level = 0; level <= 7; ++level) {
      EXPECT_TRUE(from.Send({kAll, from.address(), outer, {}}, NumberedPdu(level, 60, level)));
    }
    std::string levels;
    // The highest level is never filtered here, so that it says when the others are there.
    do {
      const auto frame = to.Next(Any);
      if (!frame) break;
      levels += std::to_string(NumberOf(frame->pdu()));
    } while (levels.back() != '7');
    return levels;
  };
  ASSERT_TRUE(
      ports_.SetLevelFilter(near(), {{.vlan = {}, .up_to_level = 4, .linktrace_level = {}},
                                     {.vlan = {.vid = 10, .inner_vid = 0}, .up_to_level = 2, .linktrace_level = {}}}));
  EXPECT_EQ(levels_through(far_, beyond_, {}), "567");
  EXPECT_EQ(levels_through(beyond_, far_, {}), "567");
  EXPECT_EQ(levels_through(far_, beyond_, tag), "34567");
  EXPECT_EQ(levels_through(beyond_, far_, tag), "34567");
  EXPECT_TRUE(WaitForFrames(16)) << "dropped behind the socket";

  for (std::uint32_t i = 100; i < 103; ++i) ASSERT_TRUE(Send(i, FromNear()));
  ports_.Flush();
  EXPECT_EQ(far_.Take(3, Any).size(), 3U) << "own frames are not subject to it";

  ASSERT_TRUE(ports_.SetLevelFilter(near(), {}));
  EXPECT_EQ(levels_through(far_, beyond_, {}), "01234567");
  EXPECT_EQ(levels_through(beyond_, far_, tag), "01234567");
  EXPECT_FALSE(LookAt(Hook::kEgress).own);
}

TEST_F(TheBridgedPort, FiltersLevelsAndBlocksAtOnce) {
  const std::vector<protocol::LevelFilter> filters = {{.vlan = {}, .up_to_level = 1, .linktrace_level = {}}};
  ASSERT_TRUE(ports_.SetLevelFilter(near(), filters));
  ports_.SetFaultAction(near(), FaultAction::kBlock);
  EXPECT_EQ(Carried(), (std::pair<std::size_t, std::size_t>{0, 0}));
  ports_.SetFaultAction(near(), FaultAction::kNone);
  EXPECT_EQ(Carried(), (std::pair<std::size_t, std::size_t>{1, 1}));
  beyond_.Clear();
  ASSERT_TRUE(far_.Send({kAll, far_.address(), {}, {}}, NumberedPdu(1, 60, 1)));
  ASSERT_TRUE(far_.Send({kAll, far_.address(), {}, {}}, NumberedPdu(2, 60, 2)));
  const auto frame = beyond_.Next(Any);
  ASSERT_TRUE(frame);
  EXPECT_EQ(NumberOf(frame->pdu()), 2U) << "the levels are filtered as before";
}

TEST_F(TheBridgedPort, KeepsItsFiltersWhenNewOnesAreTooMany) {
  ASSERT_TRUE(ports_.SetLevelFilter(near(), {{.vlan = {}, .up_to_level = 4, .linktrace_level = {}}}));
  std::vector<protocol::LevelFilter> many;
  for (std::uint16_t vid = 2; vid < 4095; vid = static_cast<std::uint16_t>(vid + 2)) {
    many.push_back({.vlan = {.vid = vid, .inner_vid = 0}, .up_to_level = 1, .linktrace_level = {}});
  }
  EXPECT_FALSE(ports_.SetLevelFilter(near(), many));
  beyond_.Clear();
  ASSERT_TRUE(far_.Send({kAll, far_.address(), {}, {}}, NumberedPdu(1, 60, 4)));
  ASSERT_TRUE(far_.Send({kAll, far_.address(), {}, {}}, NumberedPdu(2, 60, 5)));
  const auto frame = beyond_.Next(Any);
  ASSERT_TRUE(frame);
  EXPECT_EQ(NumberOf(frame->pdu()), 2U);
  EXPECT_EQ(log_.Lines().size(), 1U);
}

TEST_F(ThePort, KeepsTheSystemFromSendingByItWhileItIsShutDown) {
  const Plain plain_near(near_link_);
  const Plain plain_far(far_link_);
  auto carried = [&, marker = 0U]() mutable {
    ++marker;
    plain_near.Send(FromNear());
    EXPECT_TRUE(Send(marker, FromNear()));
    ports_.Flush();
    EXPECT_TRUE(far_.Next([&marker](const Frame& frame) { return NumberOf(frame.pdu()) == marker; }));
    return plain_far.TakeAll();
  };
  EXPECT_EQ(carried(), 1U);
  ports_.SetFaultAction(near(), FaultAction::kShutdown);
  EXPECT_EQ(carried(), 0U);
  ports_.SetFaultAction(near(), FaultAction::kNone);
  EXPECT_EQ(carried(), 1U);
}

// Somebody else's filter that lets everything pass.
int AddForeignFilter(Index index, bool with_hooks) {
  NetlinkSocket netlink;
  if (with_hooks) TrafficControl(netlink, index).AddHooks();
  tcmsg which{};
  which.tcm_ifindex = static_cast<int>(index);
  which.tcm_parent = TC_H_MAKE(TC_H_CLSACT, TC_H_MIN_INGRESS);
  which.tcm_info = TC_H_MAKE(7U << 16, htons(ETH_P_ALL));
  Request request(RTM_NEWTFILTER, NLM_F_CREATE | NLM_F_EXCL, which);
  request.Add(TCA_KIND, "bpf");
  const sock_filter pass = BPF_STMT(BPF_RET | BPF_K, static_cast<std::uint32_t>(TC_ACT_UNSPEC));
  const std::size_t options = request.Begin(TCA_OPTIONS);
  request.Add(TCA_BPF_OPS_LEN, std::uint16_t{1});
  request.Add(TCA_BPF_OPS, pass);
  request.Add(TCA_BPF_FLAGS, std::uint32_t{TCA_BPF_FLAG_ACT_DIRECT});
  request.End(options);
  return netlink.Ask(std::move(request));
}

// -EEXIST when they are there.
int TryAddHooks(Index index) {
  NetlinkSocket netlink;
  return TrafficControl(netlink, index).AddHooks();
}

TEST_F(TheBridgedPort, LeavesOtherFiltersAlone) {
  ASSERT_EQ(AddForeignFilter(near(), true), 0);
  ports_.SetFaultAction(near(), FaultAction::kBlock);
  EXPECT_TRUE(LookAt(Hook::kIngress).own);
  ports_.SetFaultAction(near(), FaultAction::kNone);
  EXPECT_FALSE(LookAt(Hook::kIngress).own);
  EXPECT_TRUE(LookAt(Hook::kIngress).is_shared);
}

TEST_F(TheBridgedPort, LeavesHooksThatSomebodyHasComeToUse) {
  ports_.SetFaultAction(near(), FaultAction::kBlock);
  ASSERT_EQ(AddForeignFilter(near(), false), 0);
  ports_.SetFaultAction(near(), FaultAction::kNone);
  EXPECT_TRUE(LookAt(Hook::kIngress).is_shared);
}

TEST_F(TheBridgedPort, RemovesTheHooksThatItMade) {
  ports_.SetFaultAction(near(), FaultAction::kBlock);
  EXPECT_EQ(TryAddHooks(near()), -EEXIST);
  ports_.SetFaultAction(near(), FaultAction::kNone);
  EXPECT_EQ(TryAddHooks(near()), 0);
}

TEST_F(TheBridgedPort, LeavesEmptyHooksThatItFound) {
  ASSERT_EQ(TryAddHooks(near()), 0);
  ports_.SetFaultAction(near(), FaultAction::kBlock);
  ports_.SetFaultAction(near(), FaultAction::kNone);
  EXPECT_EQ(TryAddHooks(near()), -EEXIST);
}

TEST_F(TheBridgedPort, StaysDormantWhenSomebodyElseHasMadeItSo) {
  near_link_.Set("state dormant mode dormant");
  ASSERT_TRUE(WaitForLink([](const Link& link) { return link.state.operstate == IF_OPER_DORMANT; }));
  EXPECT_EQ(ToInterfaceStatus(ports_.Find(near())->state), pdu::InterfaceStatus::kDormant);
  EXPECT_EQ(ports_.Find(near())->port_status, pdu::PortStatus::kBlocked);
  ports_.SetFaultAction(near(), FaultAction::kShutdown);
  PollAll();
  EXPECT_FALSE(ports_.Find(near())->state.held_dormant);
  ports_.Close(near());
  ASSERT_TRUE(ports_.Open(near()));
  PollAll();
  EXPECT_EQ(ports_.Find(near())->state.operstate, IF_OPER_DORMANT);
}

// A process of its own, which says when it is ready and is killed then.
void RunAndKill(const std::function<void(const std::function<void()>& await_death)>& work) {
  std::array<int, 2> pipe_ends{};
  ASSERT_EQ(pipe(pipe_ends.data()), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    work([&pipe_ends] {
      while (write(pipe_ends[1], "r", 1) == 1) pause();
    });
    _exit(1);
  }
  close(pipe_ends[1]);
  char ready = 0;
  EXPECT_EQ(read(pipe_ends[0], &ready, 1), 1);
  close(pipe_ends[0]);
  kill(child, SIGKILL);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status));
}

// Without threads, which a child would not have.
class AServerThatIsKilled : public testing::TestWithParam<FaultAction> {
 protected:
  AServerThatIsKilled() { Ip(home_, "link set dev near master " + MakeBridge(home_, "bridge").name()); }

  Index near() const { return ends_.first.index(); }

  bool HasFilters() {
    TrafficControl control(netlink_, near());
    return control.Look(Hook::kIngress).own || control.Look(Hook::kEgress).own;
  }
  bool HasHooks() {
    TrafficControl control(netlink_, near());
    if (control.AddHooks() != 0) return true;
    control.RemoveHooks();
    return false;
  }
  std::uint8_t LinkMode() { return LinkMonitor(netlink_).LinkModeOf(near()); }
  std::uint8_t Operstate() { return LinkMonitor(netlink_).Find(near())->state.operstate; }

  // As a server would, with the action of this test.
  bool ActOn(LinuxPorts& ports) {
    if (!ports.Open(near())) return false;
    if (!ports.SetLevelFilter(near(), {{.vlan = {}, .up_to_level = 3, .linktrace_level = {}}})) return false;
    ports.SetFaultAction(near(), GetParam());
    return true;
  }
  void KillOne() {
    RunAndKill([this](const auto& await_death) {
      Recorder told;
      LinuxPorts ports(told, log_.category(), {});
      if (ActOn(ports)) await_death();
    });
  }

  Log log_;
  Namespace home_;
  Namespace away_;
  Inside inside_{home_};
  std::pair<cfm_test::Link, cfm_test::Link> ends_ = Connect(home_, "near", away_, "far");
  NetlinkSocket netlink_;
};

INSTANTIATE_TEST_SUITE_P(WithAFilter, AServerThatIsKilled, testing::Values(FaultAction::kNone));
INSTANTIATE_TEST_SUITE_P(WhileItBlocks, AServerThatIsKilled, testing::Values(FaultAction::kBlock));
INSTANTIATE_TEST_SUITE_P(WhileItShutsDown, AServerThatIsKilled, testing::Values(FaultAction::kShutdown));

TEST_P(AServerThatIsKilled, LeavesNothingThatTheNextOneDoesNotUndo) {
  KillOne();
  EXPECT_TRUE(HasFilters());
  const bool is_dormant = GetParam() == FaultAction::kShutdown;
  EXPECT_EQ(LinkMode(), is_dormant ? IF_LINK_MODE_DORMANT : IF_LINK_MODE_DEFAULT);
  EXPECT_EQ(Operstate(), is_dormant ? IF_OPER_DORMANT : IF_OPER_UP);

  Recorder told;
  LinuxPorts next(told, log_.category(), {});
  EXPECT_TRUE(HasFilters()) << "until the port is used";
  ASSERT_TRUE(next.Open(near()));
  EXPECT_FALSE(HasFilters());
  EXPECT_FALSE(HasHooks());
  EXPECT_EQ(LinkMode(), IF_LINK_MODE_DEFAULT);
  EXPECT_EQ(Operstate(), IF_OPER_UP);
  EXPECT_EQ(next.Find(near())->state.operstate, IF_OPER_UP);
  EXPECT_EQ(next.Find(near())->port_status, pdu::PortStatus::kUp);
  EXPECT_THAT(log_.Lines(), ElementsAre("WARN port near: undoes what an earlier server has left there"));
}

TEST_P(AServerThatIsKilled, LeavesOneProgramOnlyWhenTheNextOneFiltersToo) {
  KillOne();
  AddForeignFilter(near(), false);
  Recorder told;
  {
    LinuxPorts next(told, log_.category(), {});
    ASSERT_TRUE(ActOn(next));
    EXPECT_TRUE(HasFilters());
    EXPECT_FALSE(TrafficControl(netlink_, near()).Look(Hook::kEgress).is_shared);
  }
  EXPECT_FALSE(HasFilters());
  EXPECT_EQ(LinkMode(), IF_LINK_MODE_DEFAULT);
  EXPECT_EQ(Operstate(), IF_OPER_UP);
  EXPECT_TRUE(TrafficControl(netlink_, near()).Look(Hook::kIngress).is_shared) << "somebody else's";
}

// What a process says of itself after it has done something to its privileges.
std::string TellFromChild(const std::function<std::string()>& work) {
  std::array<int, 2> pipe_ends{};
  if (pipe(pipe_ends.data()) != 0) throw std::runtime_error("pipe");
  const pid_t child = fork();
  if (child == 0) {
    std::string text;
    try {
      text = work();
    } catch (const std::exception& error) {
      text = error.what();
    }
    _exit(write(pipe_ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1);
  }
  close(pipe_ends[1]);
  std::string text;
  std::array<char, 1000> part{};
  for (ssize_t size = 0; (size = read(pipe_ends[0], part.data(), part.size())) > 0;) {
    text.append(part.data(), static_cast<std::size_t>(size));
  }
  close(pipe_ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return text;
}

// All but these in this process.
void DropCapabilities(std::uint32_t dropped) {
  __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  std::array<__user_cap_data_struct, 2> sets{};
  if (syscall(SYS_capget, &header, sets.data()) != 0) throw std::runtime_error("capget");
  sets[0].effective &= ~dropped;
  sets[0].permitted &= ~dropped;
  if (syscall(SYS_capset, &header, sets.data()) != 0) throw std::runtime_error("capset");
}

// The lines of /proc/self/status that tell privileges.
std::string Privileges() {
  std::ifstream status("/proc/thread-self/status");
  std::string told;
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("Cap") || line.starts_with("NoNewPrivs")) told += line + "\n";
  }
  return told;
}

constexpr std::uint32_t kRaw = 1U << CAP_NET_RAW;
constexpr std::uint32_t kAdmin = 1U << CAP_NET_ADMIN;

TEST(TheProcess, NamesThePrivilegesThatItMisses) {
  const auto missing_without = [](std::uint32_t dropped) {
    return TellFromChild([dropped] {
      DropCapabilities(dropped);
      return MissingCapabilities();
    });
  };
  EXPECT_EQ(missing_without(0), "");
  EXPECT_EQ(missing_without(kRaw), "CAP_NET_RAW");
  EXPECT_EQ(missing_without(kAdmin), "CAP_NET_ADMIN");
  EXPECT_EQ(missing_without(kRaw | kAdmin), "CAP_NET_RAW, CAP_NET_ADMIN");
}

TEST(TheProcess, GivesUpEveryOtherPrivilege) {
  const std::string after = TellFromChild([] {
    KeepNetworkCapabilitiesOnly();
    return Privileges();
  });
  EXPECT_EQ(after,
            "CapInh:\t0000000000000000\n"
            "CapPrm:\t0000000000003000\n"
            "CapEff:\t0000000000003000\n"
            "CapBnd:\t0000000000003000\n"
            "CapAmb:\t0000000000000000\n"
            "NoNewPrivs:\t1\n");
}

TEST(TheProcess, GivesUpWhatItMayWhenItWasStartedWithFewPrivileges) {
  const std::string after = TellFromChild([] {
    DropCapabilities(~kRaw);
    KeepNetworkCapabilitiesOnly();
    return Privileges() + MissingCapabilities();
  });
  EXPECT_THAT(after, testing::HasSubstr("CapPrm:\t0000000000002000\nCapEff:\t0000000000002000\n"));
  EXPECT_THAT(after, testing::EndsWith("NoNewPrivs:\t1\nCAP_NET_ADMIN"));
}

class AServerWithTwoPrivileges : public ThePorts {};

TEST_F(AServerWithTwoPrivileges, DoesAllThatThePortsNeed) {
  const std::string told = TellFromChild([this, port = near()] {
    KeepNetworkCapabilitiesOnly();
    Recorder listener;
    LinuxPorts ports(listener, log_.category(), {});
    if (!ports.Open(port)) return "does not open";
    if (!ports.SetLevelFilter(port, {{.vlan = {}, .up_to_level = 3, .linktrace_level = {}}})) return "no filter";
    ports.SetFaultAction(port, FaultAction::kShutdown);
    return ports.Find(port)->state.operstate == IF_OPER_DORMANT ? "works" : "is not dormant";
  });
  EXPECT_EQ(told, "works");
}

TEST_F(AServerWithTwoPrivileges, SaysWhatTheSystemRefusesWithoutThem) {
  const std::string told = TellFromChild([this] {
    DropCapabilities(kRaw);
    Recorder listener;
    LinuxPorts ports(listener, log_.category(), {});
    return ports.Open(near()) ? "opens" : "does not open";
  });
  EXPECT_EQ(told, "does not open");
  ASSERT_EQ(log_.Lines().size(), 1U);
  EXPECT_THAT(log_.Lines()[0], testing::HasSubstr("Operation not permitted"));
}

}  // namespace
}  // namespace cfm::port
