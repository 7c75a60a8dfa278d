// What becomes of end points when their ports change, and of ports when their end points see a fault.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <iostream>
#include <map>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "fixture.h"
#include "pdu/ccm.h"

namespace cfm_test {
namespace {

using namespace std::chrono_literals;
using cfm::CcmInterval;
using cfm::FaultAction;
using cfm::pdu::Ccm;
using cfm::pdu::MacAddress;
using cfm::pdu::Opcode;
using testing::Each;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;
using testing::Truly;

Ccm LastCcm(Wire& wire) {
  wire.Clear();
  const auto frame = wire.Next(Opcode::kCcm);
  EXPECT_TRUE(frame);
  const auto ccm = cfm::pdu::DecodeCcm(frame->pdu());
  EXPECT_TRUE(ccm);
  return *ccm;
}

class AnEndPointOnAPort : public OneElement {};

TEST_F(AnEndPointOnAPort, RevivesOnAPortThatComesBackUnderItsName) {
  RunWithPeer();
  for (int i = 0; i < 3; ++i) {
    peer_.reset();
    port_.Delete();
    ASSERT_TRUE(element_.WaitForRemote(mep_.remote(2), kRemoteFailed));
    ASSERT_TRUE(element_.WaitFor([&] { return element_.events().Local(mep_.key())->intf_status == 6; }))
        << element_.events().LocalText(mep_.key());
    const auto cable = Connect(element_.network(), "port", far_, "far");
    Wire wire(cable.second);
    const auto ccm = wire.Next(Opcode::kCcm);
    ASSERT_TRUE(ccm) << element_.server().Errors();
    EXPECT_EQ(ccm->header(), GroupHeader(mep_, cable.first.address()));
    CcmSource peer(wire, mep_, 2);
    ASSERT_TRUE(element_.WaitForRemote(mep_.remote(2), kRemoteOk));
    ASSERT_TRUE(element_.WaitForLocal(mep_.key(), kFaultless));
    EXPECT_EQ(element_.events().LocalText(mep_.key()), ToText(cable.first.address()) + " " + kFaultless);
  }
  EXPECT_THAT(element_.events().removed, IsEmpty());
}

TEST_F(AnEndPointOnAPort, IsNotOperationalWithoutItsPort) {
  RunWithPeer();
  peer_.reset();
  port_.Delete();
  ASSERT_TRUE(element_.WaitFor([&] { return element_.events().Local(mep_.key())->intf_status == 6; }));
  element_.client().LoopbackTrigger({7, mep_.md, mep_.ma, 1, 2, 1, 0});
  ASSERT_TRUE(element_.WaitFor([&] { return !element_.events().loopback.empty(); }));
  EXPECT_EQ(element_.events().loopback.front(), "error 7 2 domain association 1 2");
}

TEST_F(AnEndPointOnAPort, TellsThatItsInterfaceIsDownAndGoesOnWhenItIsUp) {
  RunWithPeer();
  for (int i = 0; i < 5; ++i) {
    port_.Down();
    ASSERT_TRUE(element_.WaitFor([&] { return element_.events().Local(mep_.key())->intf_status == 2; }))
        << element_.events().LocalText(mep_.key());
    ASSERT_TRUE(element_.WaitForRemote(mep_.remote(2), kRemoteFailed));
    port_.Up();
    ASSERT_TRUE(element_.WaitForRemote(mep_.remote(2), kRemoteOk));
    ASSERT_TRUE(element_.WaitForLocal(mep_.key(), kFaultless));
    EXPECT_EQ(LastCcm(wire_).interface_status, cfm::pdu::InterfaceStatus::kUp);
  }
  // The same without a look at anything in between.
  for (int i = 0; i < 20; ++i) {
    port_.Down();
    port_.Up();
  }
  const std::uint32_t sequence_number = LastCcm(wire_).sequence_number;
  EXPECT_GT(LastCcm(wire_).sequence_number, sequence_number);
  ASSERT_TRUE(element_.WaitForRemote(mep_.remote(2), kRemoteOk));
  ASSERT_TRUE(element_.WaitForLocal(mep_.key(), kFaultless));
}

TEST_F(AnEndPointOnAPort, SeesThatTheOtherEndOfItsCableIsDown) {
  RunWithPeer();
  cable_.second.Down();
  // Down or lower layer down: the kernel looks for the other end in the wrong namespace.
  ASSERT_TRUE(element_.WaitFor([&] {
    const auto status = element_.events().Local(mep_.key())->intf_status;
    return status == 2 || status == 7;
  })) << element_.events().LocalText(mep_.key());
  cable_.second.Up();
  ASSERT_TRUE(element_.WaitForRemote(mep_.remote(2), kRemoteOk));
  ASSERT_TRUE(element_.WaitForLocal(mep_.key(), kFaultless));
}

TEST_F(AnEndPointOnAPort, SpeaksFromTheNewAddressOfItsPort) {
  RunWithPeer();
  const MacAddress old = port_.address();
  const MacAddress address{2, 0, 0, 0, 0, 9};
  port_.SetAddress(address);
  ASSERT_TRUE(element_.WaitFor([&] {
    return element_.events().LocalText(mep_.key()) == ToText(address) + " " + kFaultless;
  })) << element_.events().LocalText(mep_.key());
  wire_.Clear();
  const auto ccm = wire_.Next(Opcode::kCcm);
  ASSERT_TRUE(ccm);
  EXPECT_EQ(ccm->header().source, address);
  // A message to the old address is not answered, or its answer would come before that of the one to the new.
  const std::vector<std::uint8_t> lbm = {static_cast<std::uint8_t>(mep_.level << 5), 3, 0, 4, 0, 0, 0, 1, 0};
  ASSERT_TRUE(wire_.Send(StationHeader(mep_, wire_.address(), old), lbm));
  for (const Frame& frame : cfm_test::Drain(wire_, mep_, address)) EXPECT_EQ(frame.opcode(), Opcode::kCcm);
  EXPECT_EQ(element_.events().Remote(mep_.remote(2))->fsm_state, kRemoteOk);
}

TEST_F(AnEndPointOnAPort, DoesNotCareHowItsPortIsCalled) {
  RunWithPeer();
  const std::uint32_t sequence_number = LastCcm(wire_).sequence_number;
  wire_.Clear();
  // Kernels before 6.2 rename no port that is up.
  port_.Down();
  port_.Rename("renamed");
  port_.Up();
  EXPECT_GT(LastCcm(wire_).sequence_number, sequence_number);
  ASSERT_TRUE(element_.WaitForRemote(mep_.remote(2), kRemoteOk));
  ASSERT_TRUE(element_.WaitForLocal(mep_.key(), kFaultless));
}

TEST(EndPointsWithoutAPort, WaitForItBesideOthersThatWork) {
  Element element;
  Namespace far;
  element.StartServer();
  const auto cable = Connect(element.network(), "here", far, "there");
  Wire wire(cable.second);
  const EndPoint works{.port = cable.first.index(), .mep_ids = {1}};
  const auto lost = Connect(element.network(), "lost", far, "lost-far");
  const EndPoint waits{.port = lost.first.index(), .ma = "waits", .mep_ids = {1}};
  element.Configure({works, waits});
  ASSERT_TRUE(element.Settle());
  ASSERT_TRUE(element.WaitForLocal(waits.key(), kFaultless));
  lost.first.Delete();
  ASSERT_TRUE(wire.Next(Opcode::kCcm));
  ASSERT_TRUE(element.WaitFor([&] { return element.events().Local(waits.key())->intf_status == 6; }));
  const auto found = Connect(element.network(), "lost", far, "found-far");
  Wire other(found.second);
  ASSERT_TRUE(other.Next(Opcode::kCcm)) << element.server().Errors();
}

// ---- Bridges ----

TEST_F(AnEndPointOnAPort, TellsHowItsBridgePortIs) {
  Run();
  EXPECT_EQ(LastCcm(wire_).port_status, cfm::pdu::PortStatus::kNone);
  const Link bridge = MakeBridge(element_.network(), "bridge");
  port_.Join(bridge);
  const auto await = [&](cfm::pdu::PortStatus status) {
    return wire_.Next([&](const Frame& frame) {
      const auto ccm = cfm::pdu::DecodeCcm(frame.pdu());
      return ccm && ccm->port_status == status;
    });
  };
  ASSERT_TRUE(await(cfm::pdu::PortStatus::kUp));
  ASSERT_TRUE(element_.WaitFor([&] { return element_.events().Local(mep_.key())->port_state == 2; }));
  CcmSource peer(wire_, mep_, 2);
  ASSERT_TRUE(element_.WaitForRemote(mep_.remote(2), kRemoteOk)) << "frames that come in by a bridge port";
  port_.SetBridgeState("disabled");
  ASSERT_TRUE(await(cfm::pdu::PortStatus::kBlocked));
  ASSERT_TRUE(element_.WaitFor([&] { return element_.events().Local(mep_.key())->port_state == 1; }));
  port_.SetBridgeState("forwarding");
  ASSERT_TRUE(await(cfm::pdu::PortStatus::kUp));
  port_.Leave();
  ASSERT_TRUE(await(cfm::pdu::PortStatus::kNone));
}

// ---- Many ----

TEST(SixtyFourEndPoints, ShareAPortAndOutliveTheirServer) {
  Element near;
  Element far;
  const auto cable = Connect(near.network(), "port", far.network(), "port");
  std::vector<EndPoint> near_meps;
  std::vector<EndPoint> far_meps;
  for (std::uint16_t vid = 0; vid < 8; ++vid) {
    for (std::uint8_t level = 0; level < 8; ++level) {
      EndPoint mep{.port = cable.first.index(), .mep_id = 1, .interval = CcmInterval::k1s};
      mep.md = "level " + std::to_string(level);
      mep.ma = "vlan " + std::to_string(vid);
      mep.level = level;
      mep.vid = vid;
      near_meps.push_back(mep);
      mep.mep_id = 2;
      mep.port = cable.second.index();
      far_meps.push_back(mep);
    }
  }
  near.StartServer();
  far.StartServer();
  near.Configure(near_meps);
  far.Configure(far_meps);
  ASSERT_TRUE(near.Settle());
  ASSERT_TRUE(far.Settle());
  // An end point hears what its higher neighbours send only once they are all there; until then it may see a lower
  // level than its own pass.
  const auto see_each_other = [](Element& element, const std::vector<EndPoint>& meps) {
    return element.WaitFor([&] {
      return std::all_of(meps.begin(), meps.end(), [&](const EndPoint& mep) {
        const auto* remote = element.events().Remote(mep.remote(static_cast<std::uint16_t>(3 - mep.mep_id)));
        return remote != nullptr && remote->fsm_state == kRemoteOk &&
               element.events().LocalText(mep.key()).ends_with(kFaultless);
      });
    });
  };
  ASSERT_TRUE(see_each_other(near, near_meps)) << near.server().Errors();
  ASSERT_TRUE(see_each_other(far, far_meps)) << far.server().Errors();

  // Who is killed and configured anew within three intervals was never away.
  near.events().Clear();
  Wire wire(cable.first);
  // Each of the killed one's end points has been heard once more.
  ASSERT_THAT(wire.Take(128, [](const Frame&) { return true; }), SizeIs(128));
  const WallTime killed = std::chrono::system_clock::now();
  far.KillServer();
  wire.Clear();
  far.events().Clear();
  far.StartServer();
  ASSERT_TRUE(see_each_other(far, far_meps)) << far.server().Errors();
  std::map<std::pair<MacAddress, std::uint16_t>, WallTime> heard;
  const auto is_first_of_its_end_point = [&](const Frame& frame) {
    const auto header = frame.header();
    const std::uint16_t vid = header.outer ? header.outer->vid : std::uint16_t{0};
    return heard.try_emplace({header.destination, vid}, frame.received).second;
  };
  ASSERT_THAT(wire.Take(64, is_first_of_its_end_point), SizeIs(64));
  ASSERT_TRUE(near.Settle());
  const bool in_time =
      std::all_of(heard.begin(), heard.end(), [&](const auto& each) { return each.second - killed < 2s; });
  if (in_time) {
    // What comes late of the answer to the client library's first question says that all is well.
    EXPECT_THAT(near.events().remote,
                Each(Field(&RemoteEvent::status, Field(&cfm::st_remote_mep_status::fsm_state, kRemoteOk))));
    EXPECT_THAT(near.events().local,
                Each(Truly([](const LocalEvent& event) { return ToText(event.status).ends_with(kFaultless); })));
  } else {
    std::cout << "this machine is too busy to say anything about the restart" << std::endl;
  }
  near.Configure(std::vector<EndPoint>{});
  ASSERT_TRUE(near.WaitFor([&] { return near.events().removed.size() == 128; }));
}

// ---- Fault actions ----

/// Packets of an ordinary protocol between the ends of the cable.
class Packets {
 public:
  Packets(const Link& from, const std::string& from_address, const Link& to, const std::string& to_address)
      : from_(Open(from.network())), to_(Open(to.network())) {
    Ip(from.network(), "address replace " + from_address + "/24 dev " + from.name() + "\nneighbour replace " +
                           to_address + " lladdr " + ToText(to.address()) + " dev " + from.name());
    Ip(to.network(), "address replace " + to_address + "/24 dev " + to.name());
    sockaddr_in any{};
    any.sin_family = AF_INET;
    socklen_t size = sizeof any;
    if (bind(to_, reinterpret_cast<const sockaddr*>(&any), size) != 0 ||
        getsockname(to_, reinterpret_cast<sockaddr*>(&any), &size) != 0) {
      throw std::system_error(errno, std::generic_category(), "bind");
    }
    target_.sin_family = AF_INET;
    target_.sin_port = any.sin_port;
    inet_pton(AF_INET, to_address.c_str(), &target_.sin_addr);
  }
  ~Packets() {
    close(from_);
    close(to_);
  }
  Packets(const Packets&) = delete;
  Packets& operator=(const Packets&) = delete;

  void Send() const { sendto(from_, "", 1, 0, reinterpret_cast<const sockaddr*>(&target_), sizeof target_); }
  /// How many have arrived since.
  int Arrived() const {
    char octet = 0;
    int count = 0;
    while (recv(to_, &octet, 1, MSG_DONTWAIT) == 1) ++count;
    return count;
  }

 private:
  static int Open(const Namespace& network) {
    const Inside inside(network);
    return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  }

  int from_;
  int to_;
  sockaddr_in target_{};
};

class AFaultAction : public OneElement {
 protected:
  void RunInto(FaultAction action) {
    mep_.action = action;
    RunWithPeer();
    ASSERT_TRUE(AwaitPassing());
    peer_.reset();
    AwaitAction(action);
  }
  void AwaitAction(FaultAction action) {
    const std::string words = action == FaultAction::kBlock      ? " block 1 shutdown 0 "
                              : action == FaultAction::kShutdown ? " block 0 shutdown 1 "
                                                                 : " block 0 shutdown 0 ";
    ASSERT_TRUE(element_.WaitFor([&] {
      return element_.events().LocalText(mep_.key()).find(words) != std::string::npos;
    })) << element_.events().LocalText(mep_.key());
  }
  void Recover() {
    peer_.emplace(wire_, mep_, 2);
    ASSERT_TRUE(element_.WaitForLocal(mep_.key(), kFaultless)) << element_.events().LocalText(mep_.key());
  }
  /// Of one packet each way.
  std::pair<int, int> PacketsThatPass() {
    in_.Send();
    out_.Send();
    Drain();
    return {in_.Arrived(), out_.Arrived()};
  }
  bool AwaitPassing() {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (std::chrono::steady_clock::now() < deadline) {
      const auto [in, out] = PacketsThatPass();
      if (in == 1 && out == 1) return true;
    }
    return false;
  }

  Packets in_{cable_.second, "192.0.2.2", cable_.first, "192.0.2.1"};
  Packets out_{cable_.first, "192.0.2.1", cable_.second, "192.0.2.2"};
};

TEST_F(AFaultAction, BlocksAllButCfmUntilThePeerIsBack) {
  RunInto(FaultAction::kBlock);
  EXPECT_EQ(PacketsThatPass(), std::pair(0, 0));
  EXPECT_TRUE(port_.running());
  EXPECT_EQ(LastCcm(wire_).interface_status, cfm::pdu::InterfaceStatus::kUp) << "as without the action";
  Recover();
  EXPECT_TRUE(AwaitPassing());
}

TEST_F(AFaultAction, ShutsThePortDownUntilThePeerIsBack) {
  RunInto(FaultAction::kShutdown);
  EXPECT_FALSE(port_.running());
  EXPECT_EQ(PacketsThatPass(), std::pair(0, 0));
  const Ccm ccm = LastCcm(wire_);
  EXPECT_TRUE(ccm.rdi);
  EXPECT_EQ(ccm.interface_status, cfm::pdu::InterfaceStatus::kUp) << "as without the action";
  Recover();
  port_.AwaitRunning();
  EXPECT_TRUE(AwaitPassing());
}

class AFaultActionThatItsServerDoesNotOutlive : public AFaultAction, public testing::WithParamInterface<FaultAction> {};

TEST_P(AFaultActionThatItsServerDoesNotOutlive, IsUndoneByTheNextOne) {
  RunInto(GetParam());
  element_.KillServer();
  EXPECT_EQ(port_.running(), GetParam() == FaultAction::kBlock) << "what was done to the port is still there";
  element_.events().Clear();
  element_.StartServer();
  Recover();
  port_.AwaitRunning();
  EXPECT_TRUE(AwaitPassing());
}

TEST_P(AFaultActionThatItsServerDoesNotOutlive, IsUndoneWhenTheServerEnds) {
  RunInto(GetParam());
  element_.server().Signal(SIGTERM);
  ASSERT_EQ(element_.server().Wait(), (End{0, 0}));
  port_.AwaitRunning();
  in_.Send();
  out_.Send();
  const auto deadline = std::chrono::steady_clock::now() + kDeadline;
  int in = 0;
  int out = 0;
  while ((in == 0 || out == 0) && std::chrono::steady_clock::now() < deadline) {
    in += in_.Arrived();
    out += out_.Arrived();
  }
  EXPECT_EQ(std::pair(in, out), std::pair(1, 1));
}

INSTANTIATE_TEST_SUITE_P(Each, AFaultActionThatItsServerDoesNotOutlive,
                         testing::Values(FaultAction::kBlock, FaultAction::kShutdown),
                         [](const testing::TestParamInfo<FaultAction>& test) {
                           return test.param == FaultAction::kBlock ? "Block" : "Shutdown";
                         });

// Each would see the other's port as down for ever if it told what its action does to it.
class TwoFaultActions : public TwoElements {};

TEST_F(TwoFaultActions, EndWhenTheWayIsMended) {
  near_mep_.action = far_mep_.action = FaultAction::kShutdown;
  Run();
  far_cable_.second.SetBridgeState("disabled");
  const auto is_shut_down = [](Element& element, const EndPoint& mep) {
    return element.WaitFor([&] { return element.events().Local(mep.key())->shutdown_state == 1; });
  };
  ASSERT_TRUE(is_shut_down(near_, near_mep_));
  ASSERT_TRUE(is_shut_down(far_, far_mep_));
  far_cable_.second.SetBridgeState("forwarding");
  ASSERT_TRUE(near_.WaitForLocal(near_mep_.key(), kFaultless)) << near_.events().LocalText(near_mep_.key());
  ASSERT_TRUE(far_.WaitForLocal(far_mep_.key(), kFaultless)) << far_.events().LocalText(far_mep_.key());
}

}  // namespace
}  // namespace cfm_test
