// Each request to the real server process, and what it answers and announces.
#include <gmock/gmock.h>

#include <set>
#include <string>
#include <type_traits>

#include "cfm/identities.h"
#include "from_text.h"
#include "raw_client.h"

namespace cfm_test {
namespace {

namespace pb = client_server;
using cfm_test::From;
class TheServer : public testing::Test {
 protected:
  TheServer() { EXPECT_TRUE(client_.WaitForServer()); }

  template <typename Message>
  void Send(const vorbus_sig_t* signal, const std::string& text) {
    client_.Send(signal, From<Message>(text));
  }
  void CreateDomain(const std::string& text) { Send<pb::OpCreateMaintenanceDomain>(CFM_MGR_C2S_SIG_MD_CREATE, text); }
  void CreateAssociation(const std::string& text) {
    Send<pb::OpCreateMaintenanceAssociation>(CFM_MGR_C2S_SIG_MA_CREATE, text);
  }
  void CreateEndpoint(const std::string& text) {
    Send<pb::OpCreateMaintenanceEndpoint>(CFM_MGR_C2S_SIG_MEP_CREATE, text);
  }
  void CreateProbe(const std::string& text) {
    Send<pb::OpCreateDelayMeasurementProbe>(CFM_MGR_C2S_SIG_DM_PROBE_CREATE, text);
  }
  void CreateSession(const std::string& text) {
    Send<pb::OpCreateDelayMeasurementSession>(CFM_MGR_C2S_SIG_DM_SESSION_CREATE, text);
  }
  void CreateTree() {
    CreateDomain("name: 'd'");
    CreateAssociation("md_name: 'd' ma_name: 'a'");
    CreateEndpoint("md_name: 'd' ma_name: 'a' mep_id: 11");
  }

  // The next reply or event as "NAME {fields}"; passes over the status of end points when another message is asked for.
  template <typename Message>
  static std::string NextText(RawClient& client) {
    constexpr bool kAnyEvent = std::is_same_v<Message, pb::StatusLocalMaintenanceEndpoint>;
    auto received = client.Next();
    while (!kAnyEvent && received && received->name == "CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP") received = client.Next();
    if (!received) return "nothing";
    return received->name + " {" + received->As<Message>().ShortDebugString() + "}";
  }

  std::string CacheText() { return client_.Cache().ShortDebugString(); }

  ServerProcess server_;
  RawClient client_{server_.directory()};
};

TEST_F(TheServer, IsEmptyAtFirst) {
  EXPECT_EQ(CacheText(), "");
}

TEST_F(TheServer, GivesTheWholeCacheBackSortedByKeys) {
  const std::string domain_a = "name: \"a\" format: 4 level: 7 sender_id: 1 mhf_creation: 2";
  const std::string domain_b = "name: \"b\" format: 1 level: 255 sender_id: 5 mhf_creation: 4";
  const std::string association =
      "md_name: \"b\" ma_name: \"a\" format: 32 ccm_interval: 4 sender_id: 5 mhf_creation: 4 vids: 30 vids: 10 vids: "
      "30 "
      "mep_ids: 1 mep_ids: 2 ais { enabled: true aux_flag: true aux_u8: 6 aux_u32: 60 aux_u16: 3 aux_ids: 100 }";
  const std::string endpoint_1 =
      "md_name: \"b\" ma_name: \"a\" mep_id: 1 direction: 1 ifindex: 1 primary_vid: 10 inner_vid: 20 ccm_priority: 7 "
      "admin_state: true tx_ccm_enabled: true aux_flag: false lowest_prio_defect_allowed: 2 fng_alarm_time: 250 "
      "fng_reset_time: 1000 action: 0";
  const std::string endpoint_2 = "md_name: \"b\" ma_name: \"a\" mep_id: 2";
  const std::string probe = "ma_name: \"a\" md_name: \"b\" probe_id: 9 interval: 60 local_mep_id: 1 remote_mep_id: 2";
  const std::string session_1 = "probe_id: 9 session_id: 1 interval: 100 count: 10 size: 64 pcp: 255";
  const std::string session_2 = "probe_id: 9 session_id: 2";
  CreateDomain(domain_b);
  CreateDomain(domain_a);
  CreateAssociation(association);
  CreateEndpoint(endpoint_2);
  CreateEndpoint(endpoint_1);
  CreateProbe(probe);
  CreateSession(session_2);
  CreateSession(session_1);
  EXPECT_EQ(CacheText(), "domains { " + domain_a + " } domains { " + domain_b + " } associations { " + association +
                             " } endpoints { " + endpoint_1 + " } endpoints { " + endpoint_2 + " } probes { " + probe +
                             " } sessions { " + session_1 + " } sessions { " + session_2 + " }");
}

TEST_F(TheServer, MergesUpdates) {
  CreateDomain("name: 'd' level: 3 sender_id: 1");
  CreateAssociation("md_name: 'd' ma_name: 'a' vids: 10 mep_ids: 1 ccm_interval: 4 ais { enabled: true aux_u8: 5 }");
  CreateEndpoint("md_name: 'd' ma_name: 'a' mep_id: 1 direction: 2 ifindex: 7 action: 1");
  Send<pb::OpUpdateMaintenanceDomain>(CFM_MGR_C2S_SIG_MD_UPDATE, "name: 'd' sender_id: 2");
  Send<pb::OpUpdateMaintenanceAssociation>(
      CFM_MGR_C2S_SIG_MA_UPDATE, "md_name: 'd' ma_name: 'a' ccm_interval: 5 mep_ids: 2 ais { enabled: false }");
  Send<pb::OpUpdateMaintenanceEndpoint>(CFM_MGR_C2S_SIG_MEP_UPDATE, "md_name: 'd' ma_name: 'a' mep_id: 1 action: 2");
  EXPECT_EQ(CacheText(),
            "domains { name: \"d\" level: 3 sender_id: 2 } "
            "associations { md_name: \"d\" ma_name: \"a\" ccm_interval: 5 vids: 10 mep_ids: 2 ais { enabled: false } } "
            "endpoints { md_name: \"d\" ma_name: \"a\" mep_id: 1 direction: 2 ifindex: 7 action: 2 }");
}

TEST_F(TheServer, AnnouncesTheEndPointsThatADeletedDomainTakesAlong) {
  CreateTree();
  CreateEndpoint("md_name: 'd' ma_name: 'a' mep_id: 12");
  Send<pb::OpDeleteMaintenanceDomain>(CFM_MGR_C2S_SIG_MD_DELETE, "name: 'd'");
  EXPECT_EQ(CacheText(), "");
  for (const char* id : {"11", "12"}) {
    EXPECT_EQ(
        NextText<pb::RemovedLocalMaintenanceEndpoint>(client_),
        std::string("CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP {md_name: \"d\" ma_name: \"a\" local_mep_id: ") + id + "}");
  }
}

TEST_F(TheServer, DeletesAssociationsEndPointsProbesAndSessions) {
  CreateTree();
  CreateAssociation("md_name: 'd' ma_name: 'b'");
  CreateEndpoint("md_name: 'd' ma_name: 'b' mep_id: 1");
  CreateProbe("probe_id: 1");
  CreateSession("probe_id: 1 session_id: 1");
  CreateSession("probe_id: 1 session_id: 2");
  CreateProbe("probe_id: 2");
  CreateSession("probe_id: 2 session_id: 1");
  Send<pb::OpDeleteMaintenanceAssociation>(CFM_MGR_C2S_SIG_MA_DELETE, "md_name: 'd' ma_name: 'a'");
  Send<pb::OpDeleteMaintenanceEndpoint>(CFM_MGR_C2S_SIG_MEP_DELETE, "md_name: 'd' ma_name: 'b' mep_id: 1");
  Send<pb::OpDeleteDelayMeasurementSession>(CFM_MGR_C2S_SIG_DM_SESSION_DELETE, "probe_id: 1 session_id: 1");
  Send<pb::OpDeleteDelayMeasurementProbe>(CFM_MGR_C2S_SIG_DM_PROBE_DELETE, "probe_id: 2");
  EXPECT_EQ(CacheText(),
            "domains { name: \"d\" } associations { md_name: \"d\" ma_name: \"b\" } probes { probe_id: 1 } "
            "sessions { probe_id: 1 session_id: 2 }");
}

TEST_F(TheServer, AnswersStatisticsWithNoneAndTakesTheirClear) {
  Send<pb::OpStatsClear>(CFM_MGR_C2S_SIG_STATS_CLEAR, "md_name: 'd'");
  client_.Send(CFM_MGR_C2S_SIG_STATS_GET);
  EXPECT_EQ(NextText<pb::OpReplyAllStats>(client_), "CFM_MGR_S2C_SIG_STATS_REPLY {}");
}

TEST_F(TheServer, AnswersAStatusRequestWithAnEventForEachEndPoint) {
  CreateTree();
  const std::string status =
      "CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP {md_name: \"d\" ma_name: \"a\" mac: \"\\000\\000\\000\\000\\000\\000\" "
      "local_mep_id: 11 highest_defect: 0 intf_status: 6 port_state: 0 block_state: 0 shutdown_state: 0 rdi: false "
      "defect_mac_status: false defect_remote_ccm: false defect_error_ccm: false defect_xcon_ccm: false defect_rdi: "
      "false defect_ais: false}";
  EXPECT_EQ(NextText<pb::StatusLocalMaintenanceEndpoint>(client_), status) << "at its creation";
  client_.Send(CFM_MGR_C2S_SIG_STATUS_GET_ALL);
  EXPECT_EQ(NextText<pb::StatusLocalMaintenanceEndpoint>(client_), status);
}

TEST_F(TheServer, RefusesTestsForTheirReasons) {
  CreateTree();
  Send<pb::OpLoopbackTriggerMsg>(CFM_MGR_C2S_SIG_LB_TRIGGER,
                                 "md_name: 'd' ma_name: 'a' trigger_id: 5 mep_id: 11 target_mep_id: 12");
  EXPECT_EQ(NextText<pb::OpLoopbackTriggerError>(client_),
            "CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR {md_name: \"d\" ma_name: \"a\" trigger_id: 5 error_code: 2 mep_id: 11 "
            "target_mep_id: 12}");
  Send<pb::OpDelayMeasurementTriggerMsg>(CFM_MGR_C2S_SIG_DM_TRIGGER,
                                         "md_name: 'd' ma_name: 'b' trigger_id: 6 mep_id: 11 target_mep_id: 12");
  EXPECT_EQ(NextText<pb::OpDelayMeasurementTriggerError>(client_),
            "CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR {md_name: \"d\" ma_name: \"b\" trigger_id: 6 error_code: 1 mep_id: 11 "
            "target_mep_id: 12}");
  Send<pb::OpLinktraceTriggerMsg>(
      CFM_MGR_C2S_SIG_LT_TRIGGER,
      "key { md_name: 'd' ma_name: 'a' trigger_id: 7 mep_id: 11 target_mep_id: 12 } ttl: 64");
  EXPECT_EQ(NextText<pb::OpLinktraceTriggerError>(client_),
            "CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR {key { md_name: \"d\" ma_name: \"a\" trigger_id: 7 mep_id: 11 "
            "target_mep_id: 12 } ttl: 64}");
}

TEST_F(TheServer, ServesSeveralClientsWithOneCache) {
  RawClient second(server_.directory());
  RawClient third(server_.directory());
  ASSERT_TRUE(second.WaitForServer());
  ASSERT_TRUE(third.WaitForServer());
  CreateTree();
  const std::string cache = CacheText();
  EXPECT_EQ(second.Cache().ShortDebugString(), cache);
  second.Send(CFM_MGR_C2S_SIG_MEP_DELETE,
              From<pb::OpDeleteMaintenanceEndpoint>("md_name: 'd' ma_name: 'a' mep_id: 11"));
  for (RawClient* client : {&client_, &second, &third}) {
    EXPECT_EQ(NextText<pb::RemovedLocalMaintenanceEndpoint>(*client),
              "CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP {md_name: \"d\" ma_name: \"a\" local_mep_id: 11}");
  }
  EXPECT_EQ(third.Cache().endpoints_size(), 0);
}

TEST_F(TheServer, AnswersTheOneWhoAsked) {
  RawClient second(server_.directory());
  ASSERT_TRUE(second.WaitForServer());
  second.Send(CFM_MGR_C2S_SIG_LB_TRIGGER, From<pb::OpLoopbackTriggerMsg>("trigger_id: 1"));
  EXPECT_EQ(second.Next()->name, "CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR");
  client_.Send(CFM_MGR_C2S_SIG_STATS_GET);
  EXPECT_EQ(client_.Next()->name, "CFM_MGR_S2C_SIG_STATS_REPLY") << "the other client's refusal came here";
}

TEST_F(TheServer, SurvivesClientsThatComeAndGo) {
  CreateTree();
  for (int i = 0; i < 20; ++i) {
    RawClient visitor(server_.directory());
    ASSERT_TRUE(visitor.WaitForServer());
    visitor.Send(CFM_MGR_C2S_SIG_CACHE_GET);  // and does not wait for the answer
  }
  EXPECT_EQ(client_.Cache().endpoints_size(), 1);
}

// On VLANs of its own, on a port that no end point can work on.
void Place(uint32_t association, pb::OpCreateMaintenanceEndpoint& endpoint) {
  endpoint.set_ifindex(1);
  endpoint.set_primary_vid(endpoint.mep_id());
  endpoint.set_inner_vid(1 + association);
}

#ifdef CFM_SANITIZED
constexpr uint32_t kAssociations = 10;  // that it can hold 100,000 end points is shown without sanitizers
#else
constexpr uint32_t kAssociations = 100;
#endif

TEST_F(TheServer, Holds100000EndPointsAndGivesThemBack) {
  constexpr uint32_t kEach = 1000;
  CreateDomain("name: 'd' format: 4");
  auto endpoint = From<pb::OpCreateMaintenanceEndpoint>(
      "md_name: 'd' direction: 1 ccm_priority: 7 admin_state: true "
      "tx_ccm_enabled: true aux_flag: false lowest_prio_defect_allowed: 2 fng_alarm_time: 250 fng_reset_time: 1000 "
      "action: 0");
  for (uint32_t a = 0; a < kAssociations; ++a) {
    CreateAssociation("md_name: 'd' format: 2 ma_name: '" + std::to_string(a) + "'");
    endpoint.set_ma_name(std::to_string(a));
    for (uint32_t id = 1; id <= kEach; ++id) {
      endpoint.set_mep_id(id);
      Place(a, endpoint);
      client_.Send(CFM_MGR_C2S_SIG_MEP_CREATE, endpoint);
    }
  }
  const pb::OpCacheSync cache = client_.Cache();
  std::set<std::pair<std::string, uint32_t>> distinct;
  for (const auto& held : cache.endpoints()) {
    distinct.emplace(held.ma_name(), held.mep_id());
    endpoint.set_ma_name(held.ma_name());
    endpoint.set_mep_id(held.mep_id());
    Place(static_cast<uint32_t>(std::stoul(held.ma_name())), endpoint);
    ASSERT_EQ(held.SerializeAsString(), endpoint.SerializeAsString());
  }
  EXPECT_EQ(distinct.size(), kAssociations * kEach);
  EXPECT_THAT(server_.process().Errors(),
              testing::MatchesRegex(".* port 'lo' is no Ethernet interface: its end points do not work [^\n]*\n"));
}

}  // namespace
}  // namespace cfm_test
