// The server as its clients know it, while it speaks CFM on real ports.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "configuration.h"
#include "fixture.h"
#include "pdu/ccm.h"

namespace cfm_test {
namespace {

using namespace std::chrono_literals;
using cfm::CcmInterval;
using cfm::pdu::Ccm;
using cfm::pdu::Opcode;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;
namespace pb = client_server;

Ccm CcmIn(const Frame& frame) {
  const auto ccm = cfm::pdu::DecodeCcm(frame.pdu());
  EXPECT_TRUE(ccm);
  return ccm ? *ccm : Ccm{};
}

class AServer : public OneElement {
 protected:
  /// CCMs of that end point alone.
  Wire::Predicate CcmsOf(const EndPoint& end_point) const {
    return [maid = CcmOf(end_point, 1).maid](const Frame& frame) {
      const auto ccm = cfm::pdu::DecodeCcm(frame.pdu());
      return ccm && ccm->maid == maid;
    };
  }
};

// ---- Requests that say nothing new ----

/// The requests that the client library would send for each object of the configuration, had it changed.
std::vector<std::pair<const vorbus_sig_t*, std::string>> RequestsFor(const pb::OpCacheSync& cache) {
  std::vector<std::pair<const vorbus_sig_t*, std::string>> requests;
  // A create request has every field of the update request under the same name.
  const auto add = [&](const auto& create, auto update, const vorbus_sig_t* create_signal,
                       const vorbus_sig_t* update_signal) {
    for (int i = 0; i < update.GetDescriptor()->field_count(); ++i) {
      const auto* to = update.GetDescriptor()->field(i);
      const auto* from = create.GetDescriptor()->FindFieldByName(to->name());
      ASSERT_NE(from, nullptr) << to->full_name();
      if (to->is_repeated()) {
        for (int j = 0; j < create.GetReflection()->FieldSize(create, from); ++j) {
          update.GetReflection()->AddUInt32(&update, to, create.GetReflection()->GetRepeatedUInt32(create, from, j));
        }
      } else if (!create.GetReflection()->HasField(create, from)) {
        continue;
      } else if (to->cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_UINT32) {
        update.GetReflection()->SetUInt32(&update, to, create.GetReflection()->GetUInt32(create, from));
      } else if (to->cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_BOOL) {
        update.GetReflection()->SetBool(&update, to, create.GetReflection()->GetBool(create, from));
      } else if (to->cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_STRING) {
        update.GetReflection()->SetString(&update, to, create.GetReflection()->GetString(create, from));
      } else {
        update.GetReflection()->MutableMessage(&update, to)->CopyFrom(create.GetReflection()->GetMessage(create, from));
      }
    }
    requests.emplace_back(create_signal, create.SerializeAsString());
    requests.emplace_back(update_signal, update.SerializeAsString());
  };
  for (const auto& domain : cache.domains()) {
    add(domain, pb::OpUpdateMaintenanceDomain(), CFM_MGR_C2S_SIG_MD_CREATE, CFM_MGR_C2S_SIG_MD_UPDATE);
  }
  for (const auto& association : cache.associations()) {
    add(association, pb::OpUpdateMaintenanceAssociation(), CFM_MGR_C2S_SIG_MA_CREATE, CFM_MGR_C2S_SIG_MA_UPDATE);
  }
  for (const auto& end_point : cache.endpoints()) {
    add(end_point, pb::OpUpdateMaintenanceEndpoint(), CFM_MGR_C2S_SIG_MEP_CREATE, CFM_MGR_C2S_SIG_MEP_UPDATE);
  }
  return requests;
}

TEST_F(AServer, IsNotDisturbedByRequestsThatRepeatWhatItKnows) {
  EndPoint fast = mep_;
  fast.ma = "fast";
  fast.vid = 7;
  fast.interval = CcmInterval::k10ms;
  fast.mep_ids = {1};
  Run({mep_, fast});
  peer_.emplace(wire_, mep_, 2);
  ASSERT_TRUE(element_.WaitForRemote(mep_.remote(2), kRemoteOk));
  ASSERT_TRUE(element_.WaitForLocal(mep_.key(), kFaultless));
  Configuration configuration{HierarchyOf({mep_, fast}), {}};
  std::vector<std::pair<const vorbus_sig_t*, std::string>> requests;
  {
    const Inside inside(element_.network());
    requests = RequestsFor(CacheOf(configuration));
  }
  ASSERT_THAT(requests, SizeIs(2 * 5));
  ForgetTheBeginning();
  wire_.Clear();

  // Each request falls between two of these CCMs. A timer that began anew would lie elsewhere in its interval.
  std::vector<Frame> ccms = wire_.Take(20, CcmsOf(fast));
  for (const auto& [signal, octets] : requests) {
    ASSERT_TRUE(element_.Request(signal, octets));
    for (Frame& ccm : wire_.Take(20, CcmsOf(fast))) ccms.push_back(std::move(ccm));
  }
  ASSERT_THAT(ccms, SizeIs(20 * (requests.size() + 1)));
  std::vector<std::chrono::nanoseconds> phases;
  for (std::size_t i = 0; i < ccms.size(); ++i) {
    EXPECT_EQ(CcmIn(ccms[i]).sequence_number, CcmIn(ccms[0]).sequence_number + i);
    phases.push_back((ccms[i].received - ccms[0].received + 5ms) % 10ms - 5ms);
  }
  // Of each twenty the one in the middle: a busy machine delays some.
  const auto middle = [&](std::size_t begin) {
    std::vector part(phases.begin() + static_cast<std::ptrdiff_t>(begin),
                     phases.begin() + static_cast<std::ptrdiff_t>(begin + 20));
    std::nth_element(part.begin(), part.begin() + 10, part.end());
    return part[10];
  };
  for (std::size_t begin = 20; begin < phases.size(); begin += 20) {
    EXPECT_LT(std::chrono::abs(middle(begin) - middle(0)), 2ms) << "after request " << begin / 20;
  }
  const auto statistics = element_.Settle();
  ASSERT_TRUE(statistics);
  EXPECT_GE(statistics->local.at(fast.key()).ccm_tx_total, ccms.size());
  EXPECT_THAT(element_.events().local, IsEmpty());
  EXPECT_THAT(element_.events().remote, IsEmpty());
  EXPECT_THAT(element_.events().removed, IsEmpty());
}

TEST_F(AServer, ChangesOnlyWhatAnUpdateNames) {
  RunWithPeer();
  ForgetTheBeginning();
  const std::uint32_t sequence_number = CcmIn(*wire_.Next(Opcode::kCcm)).sequence_number;
  mep_.priority = 2;
  mep_.alarm_time = 500;
  mep_.reset_time = 500;
  mep_.sender_id = cfm::SenderIdTlvContent::kChassis;
  element_.Configure({mep_});
  ASSERT_TRUE(element_.Settle());
  wire_.Clear();
  const auto frame = wire_.Next(Opcode::kCcm);
  ASSERT_TRUE(frame);
  EXPECT_TRUE(CcmIn(*frame).sender_id);
  EXPECT_GT(CcmIn(*frame).sequence_number, sequence_number);
  EXPECT_THAT(element_.events().local, IsEmpty());
  EXPECT_THAT(element_.events().remote, IsEmpty());

  // A slower pace of both: nobody is lost on the way.
  mep_.interval = CcmInterval::k1s;
  element_.Configure({mep_});
  ASSERT_TRUE(wire_.Next([](const Frame& candidate) { return CcmIn(candidate).interval == 4; }));
  peer_.emplace(wire_, mep_, 2);
  // What the peer sent meanwhile had the wrong interval; that passes.
  ASSERT_TRUE(element_.Settle());
  EXPECT_TRUE(std::none_of(element_.events().remote.begin(), element_.events().remote.end(),
                           [](const RemoteEvent& event) { return event.status.fsm_state == kRemoteFailed; }));
}

// ---- Status ----

TEST_F(AServer, TellsTheStatusOfEachOnceHoweverManyAsk) {
  EndPoint other = mep_;
  other.ma = "other";
  other.vid = 7;
  other.mep_ids = {1, 2, 3};
  Run({mep_, other});
  CcmSource one(wire_, mep_, 2);
  CcmSource two(wire_, other, 2);
  CcmSource three(wire_, other, 3);
  ASSERT_TRUE(element_.WaitForRemote(mep_.remote(2), kRemoteOk));
  ASSERT_TRUE(element_.WaitForRemote(other.remote(2), kRemoteOk));
  ASSERT_TRUE(element_.WaitForRemote(other.remote(3), kRemoteOk));
  ASSERT_TRUE(element_.WaitForLocal(mep_.key(), kFaultless));
  ASSERT_TRUE(element_.WaitForLocal(other.key(), kFaultless));
  // Answers to the requests that the client library has sent may still be on their way.
  element_.Listen(300ms);
  const auto local = element_.events().LocalText(mep_.key());
  const auto remote = element_.events().RemoteText(mep_.remote(2));
  element_.events().Clear();
  for (int i = 0; i < 10; ++i) ASSERT_TRUE(element_.Request(CFM_MGR_C2S_SIG_STATUS_GET_ALL, ""));
  ASSERT_TRUE(
      element_.WaitFor([&] { return element_.events().local.size() >= 2 && element_.events().remote.size() >= 3; }));
  element_.Listen(300ms);
  ASSERT_TRUE(element_.Settle());
  ASSERT_THAT(element_.events().local, SizeIs(2));
  ASSERT_THAT(element_.events().remote, SizeIs(3));
  EXPECT_EQ(element_.events().LocalText(mep_.key()), local);
  EXPECT_EQ(element_.events().RemoteText(mep_.remote(2)), remote);
  EXPECT_NE(element_.events().Local(other.key()), nullptr);
  EXPECT_NE(element_.events().Remote(other.remote(2)), nullptr);
  EXPECT_NE(element_.events().Remote(other.remote(3)), nullptr);
}

TEST_F(AServer, TellsOfAFlappingPeerAtMostTenTimesASecond) {
  RunWithPeer();
  ForgetTheBeginning();
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 1000; ++i) {
    Ccm ccm = CcmOf(mep_, 2);
    ccm.rdi = i % 2 == 0;
    ASSERT_TRUE(wire_.Send(GroupHeader(mep_, wire_.address()), PduOf(ccm)));
  }
  peer_->Change([](Ccm& ccm) { ccm.rdi = true; });
  Drain();
  element_.Listen(300ms);
  ASSERT_TRUE(element_.WaitFor([&] {
    const auto* status = element_.events().Remote(mep_.remote(2));
    return status != nullptr && status->rdi;
  }));
  const auto tenths = static_cast<std::size_t>((std::chrono::steady_clock::now() - begin) / 100ms);
  EXPECT_LE(element_.events().remote.size(), tenths + 2);
  EXPECT_LE(element_.events().local.size(), tenths + 2);
}

TEST_F(AServer, TellsOfEachEndPointThatGoesAndSendsNothingForItAnyMore) {
  EndPoint other = mep_;
  other.md = "upper";
  other.level = 6;
  other.ma = "first";
  EndPoint third = other;
  third.ma = "second";
  third.vid = 7;
  Run({mep_, other, third});
  for (const EndPoint& end_point : {mep_, other, third}) ASSERT_TRUE(wire_.Next(CcmsOf(end_point)));
  element_.Configure({mep_});
  ASSERT_TRUE(element_.WaitFor([&] { return element_.events().removed.size() == 4; }));
  EXPECT_THAT(element_.events().removed,
              UnorderedElementsAre("upper first 1 2", "upper first 1", "upper second 1 2", "upper second 1"));
  // Children before their parents.
  const auto& removed = element_.events().removed;
  EXPECT_LT(std::find(removed.begin(), removed.end(), "upper first 1 2"),
            std::find(removed.begin(), removed.end(), "upper first 1"));
  wire_.Clear();
  for (const Frame& frame : wire_.Take(5, [](const Frame&) { return true; })) {
    EXPECT_EQ(CcmIn(frame).maid, CcmOf(mep_, 1).maid);
  }
}

TEST_F(AServer, SendsNothingForADisabledOrSilentEndPoint) {
  EndPoint silent = mep_;
  silent.ma = "silent";
  silent.vid = 7;
  silent.send_ccms = false;
  EndPoint disabled = mep_;
  disabled.ma = "disabled";
  disabled.vid = 8;
  disabled.enabled = false;
  EndPoint idle = mep_;
  idle.ma = "idle";
  idle.vid = 9;
  idle.interval = CcmInterval::kInvalid;
  Run({mep_, silent, disabled, idle});
  // The silent one watches all the same.
  CcmSource peer(wire_, silent, 2);
  ASSERT_TRUE(element_.WaitForRemote(silent.remote(2), kRemoteOk));
  wire_.Clear();
  for (const Frame& frame : wire_.Take(10, [](const Frame&) { return true; })) {
    EXPECT_EQ(CcmIn(frame).maid, CcmOf(mep_, 1).maid);
  }
  EXPECT_EQ(element_.events().Remote(disabled.remote(2)), nullptr);
}

TEST_F(AServer, ReportsWhatItCannotRunAndRunsTheRest) {
  EndPoint bad_level = mep_;
  bad_level.md = "level";
  bad_level.level = 8;
  EndPoint bad_id = mep_;
  bad_id.ma = "id";
  bad_id.vid = 7;
  bad_id.mep_id = 8192;
  EndPoint same_place = mep_;
  same_place.ma = "same place";
  element_.Configure({mep_});
  ASSERT_TRUE(element_.Settle());
  Run({mep_, bad_level, bad_id, same_place});
  for (const EndPoint& end_point : {bad_level, bad_id, same_place}) {
    element_.client().LoopbackTrigger({1, end_point.md, end_point.ma, end_point.mep_id, 2, 1, 0});
  }
  ASSERT_TRUE(element_.WaitFor([&] { return element_.events().loopback.size() == 3; }));
  EXPECT_THAT(element_.events().loopback, ElementsAre("error 1 2 level association 1 2", "error 1 2 domain id 8192 2",
                                                      "error 1 2 domain same place 1 2"));
  wire_.Clear();
  for (const Frame& frame : wire_.Take(5, [](const Frame&) { return true; })) {
    EXPECT_EQ(CcmIn(frame).maid, CcmOf(mep_, 1).maid);
  }
  const std::string log = element_.server().Errors();
  EXPECT_THAT(log, HasSubstr("8192"));
  EXPECT_TRUE(element_.server().Running());
}

TEST_F(AServer, AnswersOnEachVlanOfAnAssociationAndSpeaksOnThePrimaryOne) {
  mep_.vid = 100;
  mep_.further_vids = {101, 4094};
  Run();
  for (const std::uint16_t vid : {std::uint16_t{100}, std::uint16_t{101}, std::uint16_t{4094}}) {
    EndPoint sender = mep_;
    sender.vid = vid;
    sender.priority = 2;
    wire_.Clear();
    const std::vector<std::uint8_t> lbm = {static_cast<std::uint8_t>(mep_.level << 5), 3, 0, 4, 0, 0, 0, 1, 0};
    ASSERT_TRUE(wire_.Send(StationHeader(sender, wire_.address(), port_.address()), lbm));
    const auto answer = wire_.Next(Opcode::kLbr);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->header(), StationHeader(sender, port_.address(), wire_.address()));
    const auto ccm = wire_.Next(Opcode::kCcm);
    ASSERT_TRUE(ccm);
    EXPECT_EQ(ccm->header(), GroupHeader(mep_, port_.address()));
  }
  // A peer may be heard on any of them.
  EndPoint peer = mep_;
  peer.vid = 4094;
  peer_.emplace(wire_, peer, 2);
  ASSERT_TRUE(element_.WaitForRemote(mep_.remote(2), kRemoteOk));
}

// Other clients than ours read the events too.
TEST_F(AServer, FillsEveryFieldOfItsStatusEvents) {
  struct Heard {
    std::vector<pb::StatusLocalMaintenanceEndpoint> local;
    std::vector<pb::StatusRemoteMaintenanceEndpoint> remote;
  } heard;
  vorbus_eventreg_t* local = vorbus_event_register_sized(
      element_.token(), CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP,
      [](vorbus_t* /*token*/, void* user, void* data, size_t size) {
        ASSERT_TRUE(static_cast<Heard*>(user)->local.emplace_back().ParseFromArray(data, static_cast<int>(size)));
      },
      &heard);
  vorbus_eventreg_t* remote = vorbus_event_register_sized(
      element_.token(), CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP,
      [](vorbus_t* /*token*/, void* user, void* data, size_t size) {
        ASSERT_TRUE(static_cast<Heard*>(user)->remote.emplace_back().ParseFromArray(data, static_cast<int>(size)));
      },
      &heard);
  RunWithPeer();  // from before its first CCM on
  peer_->Stop();
  ASSERT_TRUE(element_.WaitForRemote(mep_.remote(2), kRemoteFailed));
  ASSERT_GE(heard.local.size(), 1U);
  ASSERT_GE(heard.remote.size(), 3U) << "start, ok, failed";
  const auto has_all_fields = [](const google::protobuf::Message& message) {
    for (int i = 0; i < message.GetDescriptor()->field_count(); ++i) {
      EXPECT_TRUE(message.GetReflection()->HasField(message, message.GetDescriptor()->field(i)))
          << message.GetDescriptor()->field(i)->full_name();
    }
  };
  for (const auto& message : heard.local) {
    has_all_fields(message);
    EXPECT_THAT(message.mac(), SizeIs(6));
    EXPECT_LE(message.highest_defect(), 5U);
    EXPECT_LE(message.intf_status(), 7U);
    EXPECT_LE(message.port_state(), 2U);
  }
  for (const auto& message : heard.remote) {
    has_all_fields(message);
    EXPECT_THAT(message.mac(), SizeIs(6));
    EXPECT_THAT(message.fsm_state(), testing::AllOf(testing::Ge(1U), testing::Le(4U)));
  }
  EXPECT_EQ(heard.remote.front().fsm_state(), 2U);
  EXPECT_EQ(heard.remote.front().mac(), std::string(6, '\0'));
  vorbus_event_deregister(&local);
  vorbus_event_deregister(&remote);
}

// ---- Statistics ----

TEST_F(AServer, CountsAndClearsWithinTheScopeThatIsNamed) {
  EndPoint same_ma = mep_;
  same_ma.mep_id = 3;
  same_ma.vid = 6;
  EndPoint same_md = mep_;
  same_md.ma = "other";
  same_md.vid = 7;
  EndPoint other_md = mep_;
  other_md.md = "upper";
  other_md.level = 6;
  std::vector<EndPoint> all = {mep_, same_ma, same_md, other_md};
  for (EndPoint& end_point : all) {
    end_point.mep_ids = {1, 2, 3};
    end_point.interval = CcmInterval::k10ms;
  }
  mep_ = all[0];
  Run(all);
  // CCMs of MEP 2 with gaps in their numbers; 0 is not counted.
  for (const std::uint32_t number : {1U, 2U, 5U, 6U, 4U, 0U, 9U, 10U, 1U}) {
    Ccm ccm = CcmOf(mep_, 2);
    ccm.sequence_number = number;
    ASSERT_TRUE(wire_.Send(GroupHeader(mep_, wire_.address()), PduOf(ccm)));
  }
  Drain();
  for (const EndPoint& end_point : all) ASSERT_THAT(wire_.Take(30, CcmsOf(end_point)), SizeIs(30));
  auto statistics = element_.Settle();
  ASSERT_TRUE(statistics);
  EXPECT_THAT(statistics->local, SizeIs(4));
  EXPECT_THAT(statistics->remote, SizeIs(8));
  EXPECT_EQ(statistics->local.at(mep_.key()).ccm_rx_seq_errors, 3U);
  EXPECT_EQ(statistics->remote.at(mep_.remote(2)).last_ccm_seq, 1U);
  for (const EndPoint& end_point : all) {
    const auto& counters = statistics->local.at(end_point.key());
    EXPECT_GE(counters.ccm_tx_total, 30U);
    EXPECT_EQ(counters.ccm_tx_total, counters.ccm_tx_current_seq);
  }

  const auto cleared = [&](const char* md, const char* ma, std::uint16_t mep) {
    const auto before = element_.Settle();
    element_.client().ClearStatistics(md, ma, mep);
    const auto after = element_.Settle();
    std::vector<std::string> names;
    if (!before || !after) return names;
    for (const auto& [key, counters] : after->local) {
      // The sequence goes on whatever is cleared.
      EXPECT_GE(counters.ccm_tx_current_seq, before->local.at(key).ccm_tx_current_seq);
      if (counters.ccm_tx_total < before->local.at(key).ccm_tx_total) {
        names.push_back(key.md + " " + key.ma + " " + std::to_string(key.mep_id));
      }
    }
    // So that there is something to clear the next time.
    for (const EndPoint& end_point : all) wire_.Take(30, CcmsOf(end_point));
    return names;
  };
  EXPECT_THAT(cleared("domain", "association", 1), UnorderedElementsAre("domain association 1"));
  EXPECT_EQ(element_.Settle()->local.at(mep_.key()).ccm_rx_seq_errors, 0U);
  EXPECT_THAT(cleared("domain", "association", 0),
              UnorderedElementsAre("domain association 1", "domain association 3"));
  EXPECT_THAT(cleared("domain", nullptr, 0),
              UnorderedElementsAre("domain association 1", "domain association 3", "domain other 1"));
  EXPECT_THAT(cleared(nullptr, nullptr, 0), SizeIs(4));
  EXPECT_THAT(cleared("no such", nullptr, 0), IsEmpty());
}

// ---- Life and death ----

class TwoServers : public TwoElements {};

TEST_F(TwoServers, MeetAgainAfterOneIsKilledUnderTraffic) {
  near_mep_.interval = far_mep_.interval = CcmInterval::k10ms;
  cfm::probe probe;
  probe.probes[1] = {1, 1, near_mep_.md, near_mep_.ma, 1, 2, {{1, {1000, 10, 100, 7}}}};
  near_.Configure(probe);
  Run();
  Wire traffic(far_cable_.first);
  for (int i = 0; i < 3; ++i) {
    traffic.Clear();
    ASSERT_TRUE(traffic.Next(Opcode::kDmm));
    Element& killed = i % 2 == 0 ? far_ : near_;
    Element& survivor = i % 2 == 0 ? near_ : far_;
    const EndPoint& survivor_mep = i % 2 == 0 ? near_mep_ : far_mep_;
    killed.KillServer();
    ASSERT_TRUE(survivor.WaitForRemote(survivor_mep.remote(static_cast<std::uint16_t>(3 - survivor_mep.mep_id)),
                                       kRemoteFailed));
    killed.events().Clear();
    killed.StartServer();
    ASSERT_TRUE(killed.Settle()) << killed.server().Errors();
    AwaitBoth();
    ASSERT_TRUE(near_.WaitForLocal(near_mep_.key(), kFaultless));
    ASSERT_TRUE(far_.WaitForLocal(far_mep_.key(), kFaultless));
  }
}

TEST(AServerWithoutPrivileges, SaysWhichAreMissingAndEnds) {
  for (const auto& [taken, named] : {std::pair("-net_raw", "CAP_NET_RAW"), std::pair("-net_admin", "CAP_NET_ADMIN")}) {
    TempDir directory;
    Process server({SETPRIV_PROGRAM, std::string("--bounding-set=") + taken, "--inh-caps=-all", CFM_MGR},
                   {{"VORBUS_DIR", directory.path()}});
    EXPECT_EQ(server.Wait(), (End{5, 0}));
    EXPECT_THAT(server.Errors(), HasSubstr(std::string("needs ") + named));
  }
}

}  // namespace
}  // namespace cfm_test
