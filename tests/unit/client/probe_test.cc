// Probes and their sessions: the four requests, the reconciliation of a desired set, and its log text.
#include <gtest/gtest.h>

#include <locale>
#include <string>
#include <utility>
#include <vector>

#include "expected_requests.h"
#include "from_text.h"

namespace {

using cfm_test::From;
using expected::CreateProbe;
using expected::CreateSession;
using expected::DeleteProbe;
using expected::DeleteSession;
using expected::kServer;
using expected::Requests;
using expected::Session;
using recording::Journal;
using recording::Logged;
using recording::Same;
using recording::Sent;

// ---- Requests ----

class ProbeRequest : public expected::Fixture {
 protected:
  ProbeRequest() {
    middleware.Find(kServer);
    middleware.Take();
  }
};

TEST_F(ProbeRequest, CreateProbeCarriesEverySetting) {
  cfm::probe_cfg cfg{};
  cfg.probe_id = 3;
  cfg.interval = 65535;
  cfg.md_name = "md1";
  cfg.ma_name = "ma1";
  cfg.local_mep_id = 65534;
  cfg.remote_mep_id = 65533;
  client.CreateDelayMeasurementProbe(3, cfg);
  EXPECT_TRUE(Same(middleware.Take(), {Sent(CFM_MGR_C2S_SIG_DM_PROBE_CREATE, kServer,
                                            From<client_server::OpCreateDelayMeasurementProbe>(R"(
      ma_name: "ma1" md_name: "md1" probe_id: 3 interval: 65535 local_mep_id: 65534 remote_mep_id: 65533)"))}));
}

TEST_F(ProbeRequest, CreateProbeSetsFieldsThatAreZeroOrEmpty) {
  client.CreateDelayMeasurementProbe(0, {});
  EXPECT_TRUE(Same(middleware.Take(), {Sent(CFM_MGR_C2S_SIG_DM_PROBE_CREATE, kServer,
                                            From<client_server::OpCreateDelayMeasurementProbe>(R"(
      ma_name: "" md_name: "" probe_id: 0 interval: 0 local_mep_id: 0 remote_mep_id: 0)"))}));
}

TEST_F(ProbeRequest, CreateProbeSendsTheIdArgumentAndNotTheRecords) {
  cfm::probe_cfg cfg{};
  cfg.probe_id = 4;
  client.CreateDelayMeasurementProbe(65535, cfg);
  EXPECT_TRUE(Same(middleware.Take(), {Sent(CFM_MGR_C2S_SIG_DM_PROBE_CREATE, kServer,
                                            From<client_server::OpCreateDelayMeasurementProbe>(R"(
      ma_name: "" md_name: "" probe_id: 65535 interval: 0 local_mep_id: 0 remote_mep_id: 0)"))}));
}

TEST_F(ProbeRequest, CreateProbeDoesNotCreateItsSessions) {
  client.CreateDelayMeasurementProbe(1, expected::Probe(1, {1, 2}));
  EXPECT_TRUE(Same(middleware.Take(), {CreateProbe(1, expected::Probe(1))}));
}

TEST_F(ProbeRequest, DeleteProbeCarriesTheId) {
  client.DeleteDelayMeasurementProbe(65535);
  client.DeleteDelayMeasurementProbe(0);
  EXPECT_TRUE(Same(middleware.Take(), {Sent(CFM_MGR_C2S_SIG_DM_PROBE_DELETE, kServer,
                                            From<client_server::OpDeleteDelayMeasurementProbe>("probe_id: 65535")),
                                       Sent(CFM_MGR_C2S_SIG_DM_PROBE_DELETE, kServer,
                                            From<client_server::OpDeleteDelayMeasurementProbe>("probe_id: 0"))}));
}

TEST_F(ProbeRequest, CreateSessionCarriesEverySettingEachInItsField) {
  client.CreateDelayMeasurementSession(65535, 65534, {.count = 65533, .interval = 65532, .size = 65531, .pcp = 255});
  EXPECT_TRUE(Same(middleware.Take(), {Sent(CFM_MGR_C2S_SIG_DM_SESSION_CREATE, kServer,
                                            From<client_server::OpCreateDelayMeasurementSession>(R"(
      probe_id: 65535 session_id: 65534 interval: 65532 count: 65533 size: 65531 pcp: 255)"))}));
}

TEST_F(ProbeRequest, CreateSessionPutsIntervalBeforeCountOnTheWire) {
  client.CreateDelayMeasurementSession(1, 2, {.count = 4, .interval = 3, .size = 5, .pcp = 6});
  const Journal sent = middleware.Take();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].octets, std::string("\x08\x01\x10\x02\x18\x03\x20\x04\x28\x05\x30\x06"));
}

TEST_F(ProbeRequest, CreateSessionSetsFieldsThatAreZero) {
  client.CreateDelayMeasurementSession(0, 0, {});
  EXPECT_TRUE(Same(middleware.Take(), {Sent(CFM_MGR_C2S_SIG_DM_SESSION_CREATE, kServer,
                                            From<client_server::OpCreateDelayMeasurementSession>(R"(
      probe_id: 0 session_id: 0 interval: 0 count: 0 size: 0 pcp: 0)"))}));
}

TEST_F(ProbeRequest, DeleteSessionCarriesBothIds) {
  client.DeleteDelayMeasurementSession(65535, 65534);
  client.DeleteDelayMeasurementSession(0, 0);
  EXPECT_TRUE(Same(middleware.Take(),
                   {Sent(CFM_MGR_C2S_SIG_DM_SESSION_DELETE, kServer,
                         From<client_server::OpDeleteDelayMeasurementSession>("probe_id: 65535 session_id: 65534")),
                    Sent(CFM_MGR_C2S_SIG_DM_SESSION_DELETE, kServer,
                         From<client_server::OpDeleteDelayMeasurementSession>("probe_id: 0 session_id: 0"))}));
}

// ---- Reconciliation ----

class ProbeReconciliation : public expected::Fixture {
 protected:
  Journal RequestsFor(const cfm::probe& desired) {
    Journal requests = Requests(Update(desired));
    EXPECT_EQ(expected::Difference(client.applied_probes_, desired.probes), "");
    EXPECT_EQ(expected::Difference(client.desired_probes_, desired.probes), "");
    return requests;
  }

  static Journal Lines(const std::string& text) {
    return {Logged(10, "ApplyDelayMeasurementProbe", "Applying CFM Delay Measurement Probes config..."),
            Logged(10, "ApplyDelayMeasurementProbe", text)};
  }
};

TEST_F(ProbeReconciliation, OfANewSetCreatesEachProbeWithItsSessionsInAscendingOrder) {
  Synchronise();
  cfm::probe desired;
  desired.probes[300] = expected::Probe(300, {2, 1});
  desired.probes[7] = expected::Probe(7);
  desired.probes[8] = expected::Probe(8, {500});
  EXPECT_TRUE(Same(RequestsFor(desired), {CreateProbe(7, expected::Probe(7)), CreateProbe(8, expected::Probe(8)),
                                          CreateSession(8, 500, Session(500)), CreateProbe(300, expected::Probe(300)),
                                          CreateSession(300, 1, Session(1)), CreateSession(300, 2, Session(2))}));
}

TEST_F(ProbeReconciliation, OfTheSameSetTwiceSendsNothingAndStillLogs) {
  cfm::probe desired;
  desired.probes[7] = expected::Probe(7, {1});
  Hold(desired);
  EXPECT_TRUE(
      Same(Update(desired), Lines("CFM Delay Measurement Probes\n"
                                  "+ Probe Id: 7, Interval: 1000, MA: ma-a, MD: md-a, LMEP: 1, RMEP: 2, Sessions: \n"
                                  "  + Session Id: 1, Count: 11, Interval: 100, Size: 64, Pcp: 5\n")));
}

TEST_F(ProbeReconciliation, OfAChangedRemoteMepIdIsOneCreateAndNoSessionRequest) {
  cfm::probe desired;
  desired.probes[7] = expected::Probe(7, {1, 2});
  Hold(desired);
  desired.probes[7].remote_mep_id = 9;
  EXPECT_TRUE(Same(RequestsFor(desired), {CreateProbe(7, desired.probes[7])}));
}

TEST_F(ProbeReconciliation, OfAnyChangedSettingOfAProbeIsOneCreateForItsKey) {
  const std::vector<std::pair<const char*, void (*)(cfm::probe_cfg&)>> changes = {
      {"probe_id", [](cfm::probe_cfg& cfg) { cfg.probe_id = 0; }},
      {"interval", [](cfm::probe_cfg& cfg) { cfg.interval = 1; }},
      {"md_name", [](cfm::probe_cfg& cfg) { cfg.md_name = std::string("md-a\0", 5); }},
      {"ma_name", [](cfm::probe_cfg& cfg) { cfg.ma_name = "ma-b"; }},
      {"local_mep_id", [](cfm::probe_cfg& cfg) { cfg.local_mep_id = 5; }},
      {"remote_mep_id", [](cfm::probe_cfg& cfg) { cfg.remote_mep_id = 5; }},
  };
  cfm::probe before;
  before.probes[7] = expected::Probe(7, {1});
  for (const auto& [member, change] : changes) {
    SCOPED_TRACE(member);
    Hold(before);
    cfm::probe desired = before;
    change(desired.probes[7]);
    EXPECT_TRUE(Same(RequestsFor(desired), {CreateProbe(7, desired.probes[7])}));
  }
}

TEST_F(ProbeReconciliation, OfARecordWhoseProbeIdDiffersFromTheAppliedOneCreatesTheProbeAgainWithItsKey) {
  client_server::OpCacheSync cache;
  cfm::probe held;
  held.probes[7] = expected::Probe(7, {1});
  expected::AddToCache(held, &cache);
  cfm::probe desired = held;
  desired.probes[7].probe_id = 0;
  client.UpdateConfigProbe(desired);
  middleware.Find(kServer);
  middleware.Take();
  middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, cache);
  EXPECT_TRUE(Same(Requests(middleware.Take()),
                   {CreateProbe(7, held.probes[7]), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(ProbeReconciliation, OfAnyChangedSettingOfASessionIsOneCreateAndNoDelete) {
  const std::vector<std::pair<const char*, void (*)(cfm::session_cfg&)>> changes = {
      {"count", [](cfm::session_cfg& cfg) { cfg.count = 1; }},
      {"interval", [](cfm::session_cfg& cfg) { cfg.interval = 1; }},
      {"size", [](cfm::session_cfg& cfg) { cfg.size = 1; }},
      {"pcp", [](cfm::session_cfg& cfg) { cfg.pcp = 1; }},
  };
  cfm::probe before;
  before.probes[7] = expected::Probe(7, {1, 2, 3});
  for (const auto& [member, change] : changes) {
    SCOPED_TRACE(member);
    Hold(before);
    cfm::probe desired = before;
    change(desired.probes[7].sessions[2]);
    EXPECT_TRUE(Same(RequestsFor(desired), {CreateSession(7, 2, desired.probes[7].sessions[2])}));
  }
}

TEST_F(ProbeReconciliation, OfAChangedProbeWithAChangedSessionCreatesProbeThenSession) {
  cfm::probe desired;
  desired.probes[7] = expected::Probe(7, {1, 2});
  Hold(desired);
  desired.probes[7].interval = 5;
  desired.probes[7].sessions[2].size = 9;
  EXPECT_TRUE(Same(RequestsFor(desired),
                   {CreateProbe(7, desired.probes[7]), CreateSession(7, 2, desired.probes[7].sessions[2])}));
}

TEST_F(ProbeReconciliation, OfASessionThatMovedToAnotherIdCreatesBeforeItDeletes) {
  cfm::probe desired;
  desired.probes[7] = expected::Probe(7, {1});
  Hold(desired);
  desired.probes[7].sessions[2] = desired.probes[7].sessions[1];
  desired.probes[7].sessions.erase(1);
  EXPECT_TRUE(Same(RequestsFor(desired), {CreateSession(7, 2, Session(1)), DeleteSession(7, 1)}));
}

TEST_F(ProbeReconciliation, OfARemovedProbeIsOneDeleteWithoutItsSessions) {
  cfm::probe desired;
  desired.probes[7] = expected::Probe(7, {1, 2});
  desired.probes[8] = expected::Probe(8, {1});
  Hold(desired);
  desired.probes.erase(7);
  EXPECT_TRUE(Same(RequestsFor(desired), {DeleteProbe(7)}));
}

TEST_F(ProbeReconciliation, OfAnEmptySetDeletesTheProbesInAscendingOrderAndLogsTheHeadingAlone) {
  cfm::probe applied;
  applied.probes[300] = expected::Probe(300, {1});
  applied.probes[7] = expected::Probe(7, {1});
  Hold(applied);
  Journal all = Lines("CFM Delay Measurement Probes\n");
  all.push_back(DeleteProbe(7));
  all.push_back(DeleteProbe(300));
  EXPECT_TRUE(Same(Update(cfm::probe{}), all));
  EXPECT_TRUE(client.applied_probes_.empty());
}

TEST_F(ProbeReconciliation, SendsEveryCreateBeforeAnyDelete) {
  cfm::probe applied;
  applied.probes[1] = expected::Probe(1, {1});
  applied.probes[2] = expected::Probe(2, {1, 2, 3});
  Hold(applied);
  cfm::probe desired;
  desired.probes[2] = expected::Probe(2, {2, 4});
  desired.probes[9] = expected::Probe(9, {1});
  EXPECT_TRUE(Same(RequestsFor(desired),
                   {CreateSession(2, 4, Session(4)), CreateProbe(9, expected::Probe(9)),
                    CreateSession(9, 1, Session(1)), DeleteProbe(1), DeleteSession(2, 1), DeleteSession(2, 3)}));
}

TEST_F(ProbeReconciliation, SendsTheKeyOfAProbeWhoseRecordHasAnotherId) {
  Synchronise();
  cfm::probe desired;
  desired.probes[7] = expected::Probe(1000, {1});
  EXPECT_TRUE(Same(RequestsFor(desired), {CreateProbe(7, expected::Probe(7)), CreateSession(7, 1, Session(1))}));
  EXPECT_TRUE(Same(RequestsFor(desired), {}));
}

TEST_F(ProbeReconciliation, LogsBeforeItSends) {
  Synchronise();
  cfm::probe desired;
  desired.probes[7] = expected::Probe(7);
  Journal all = Lines(
      "CFM Delay Measurement Probes\n"
      "+ Probe Id: 7, Interval: 1000, MA: ma-a, MD: md-a, LMEP: 1, RMEP: 2, Sessions: \n");
  all.push_back(CreateProbe(7, expected::Probe(7)));
  EXPECT_TRUE(Same(Update(desired), all));
}

// A locale as an application may set it for itself.
class Grouping : public std::numpunct<char> {
 protected:
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST_F(ProbeReconciliation, LogsTheSameInEveryLocale) {
  Synchronise();
  cfm::probe desired;
  desired.probes[7] = expected::Probe(7);
  const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Grouping));
  const Journal logged = expected::Lines(Update(desired));
  std::locale::global(before);
  EXPECT_TRUE(Same(logged, Lines("CFM Delay Measurement Probes\n"
                                 "+ Probe Id: 7, Interval: 1000, MA: ma-a, MD: md-a, LMEP: 1, RMEP: 2, Sessions: \n")));
}

TEST_F(ProbeReconciliation, LogsKeysInAscendingOrderAndThePriorityAsANumber) {
  Synchronise();
  cfm::probe desired;
  desired.probes[300] = {};
  desired.probes[7] = {};
  desired.probes[7].probe_id = 99;
  desired.probes[7].interval = 65535;
  desired.probes[7].md_name = "md%s";
  desired.probes[7].ma_name = "ma%n";
  desired.probes[7].local_mep_id = 65534;
  desired.probes[7].remote_mep_id = 65533;
  desired.probes[7].sessions[65535] = {.count = 65532, .interval = 65531, .size = 65530, .pcp = 65};
  desired.probes[7].sessions[2] = {.count = 1, .interval = 2, .size = 3, .pcp = 255};
  EXPECT_TRUE(Same(expected::Lines(Update(desired)),
                   Lines("CFM Delay Measurement Probes\n"
                         "+ Probe Id: 7, Interval: 65535, MA: ma%n, MD: md%s, LMEP: 65534, RMEP: 65533, Sessions: \n"
                         "  + Session Id: 2, Count: 1, Interval: 2, Size: 3, Pcp: 255\n"
                         "  + Session Id: 65535, Count: 65532, Interval: 65531, Size: 65530, Pcp: 65\n"
                         "+ Probe Id: 300, Interval: 0, MA: , MD: , LMEP: 0, RMEP: 0, Sessions: \n")));
}

TEST_F(ProbeReconciliation, WithoutAServerIsDeferredWithOneLineAndOnlyTheLastSetStays) {
  cfm::probe first;
  first.probes[7] = expected::Probe(7);
  cfm::probe second;
  second.probes[8] = expected::Probe(8);
  const Journal deferred = {
      Logged(10, "UpdateConfigProbe", "Server unavailable, request will be handled later: pid 0 sync 0")};
  EXPECT_TRUE(Same(Update(first), deferred));
  EXPECT_TRUE(Same(Update(second), deferred));
  EXPECT_EQ(expected::Difference(client.desired_probes_, second.probes), "");
  EXPECT_TRUE(client.applied_probes_.empty());
  middleware.Find(kServer);
  EXPECT_TRUE(Same(Update(second), {Logged(10, "UpdateConfigProbe",
                                           "Server unavailable, request will be handled later: pid 7 sync 0")}));
  middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, "");
  EXPECT_TRUE(Same(Requests(middleware.Take()),
                   {CreateProbe(8, second.probes[8]), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(ProbeReconciliation, SendsAgainWhatASendLostOnlyWhenItDiffersAgain) {
  Synchronise();
  cfm::probe desired;
  desired.probes[7] = expected::Probe(7);
  middleware.send_result = -110;
  EXPECT_TRUE(Same(RequestsFor(desired), {CreateProbe(7, desired.probes[7])}));
  middleware.send_result = 0;
  EXPECT_TRUE(Same(RequestsFor(desired), {}));
}

}  // namespace
