// The exchange that brings the server's cache over, what each side's state makes of it, and what follows.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "expected_requests.h"

namespace {

using expected::AddMa;
using expected::AddToCache;
using expected::CreateMa;
using expected::CreateMd;
using expected::CreateMep;
using expected::CreateProbe;
using expected::CreateSession;
using expected::DeleteMd;
using expected::DeleteProbe;
using expected::kServer;
using expected::Md;
using expected::Mep;
using expected::Requests;
using expected::Session;
using expected::UpdateMa;
using expected::UpdateMd;
using expected::UpdateMep;
using recording::AskedIfindex;
using recording::AskedLimid;
using recording::AskedName;
using recording::Journal;
using recording::Logged;
using recording::Same;
using recording::Sent;

const char* const kBothEmpty = "Client and server caches are empty, nothing to do";
const char* const kServerDied = "Server died, will re-apply using last cached status of client";
const char* const kAppDied = "App died, will use last cached status from server";
const char* const kBothHold = "App and server have an existing configuration, assume that from the server";

class CacheReply : public expected::Fixture {
 protected:
  Journal Reply(const client_server::OpCacheSync& cache) { return ReplyOctets(cache.SerializeAsString()); }

  Journal ReplyOctets(const std::string& octets) {
    middleware.Take();
    EXPECT_EQ(middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, octets), 1);
    EXPECT_TRUE(client.cache_synced_);
    return middleware.Take();
  }

  // The server dies and comes back.
  void Restart() {
    middleware.Lose();
    middleware.Find(kServer);
    middleware.Take();
  }

  // The two lines in which the policies say what they found.
  static Journal Policies(const Journal& journal) {
    Journal policies;
    for (const recording::Entry& entry : journal) {
      if (entry.text.find("ReqCacheReplyHierarchy@") != std::string::npos ||
          entry.text.find("ReqCacheReplyProbe@") != std::string::npos) {
        policies.push_back(entry);
      }
    }
    return policies;
  }

  static cfm::hierarchy Tree() {
    cfm::hierarchy tree;
    AddMa(tree, "md1", "ma1", {1});
    return tree;
  }

  static cfm::probe Probes() {
    cfm::probe probes;
    probes.probes[7] = expected::Probe(7, {1});
    return probes;
  }

  static client_server::OpCacheSync CacheOf(const cfm::hierarchy& tree, const cfm::probe& probes = {}) {
    client_server::OpCacheSync cache;
    AddToCache(tree, &cache);
    AddToCache(probes, &cache);
    return cache;
  }

  static Journal Both(const char* hierarchy, const char* probe) {
    return {Logged(10, "ReqCacheReplyHierarchy", hierarchy), Logged(10, "ReqCacheReplyProbe", probe)};
  }
};

// ---- The sequence ----

TEST_F(CacheReply, WithBothSidesEmptyLogsBothPoliciesReconcilesAndSendsTheStatusRequestAlone) {
  middleware.Find(kServer);
  EXPECT_TRUE(
      Same(Reply({}), {Logged(10, "ReqCacheReply", "Cache reply received"),
                       Logged(10, "ReqCacheReplyHierarchy", kBothEmpty), Logged(10, "ReqCacheReplyProbe", kBothEmpty),
                       Logged(10, "ReqCacheReply", "Cache sync apply: pending requests will be processed, if any"),
                       Logged(10, "Apply", "Applying CFM config..."), Logged(10, "Apply", "CFM Hierarchy\n"),
                       Logged(10, "ApplyDelayMeasurementProbe", "Applying CFM Delay Measurement Probes config..."),
                       Logged(10, "ApplyDelayMeasurementProbe", "CFM Delay Measurement Probes\n"),
                       Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(CacheReply, OfAnEmptyMessageIsAValidReply) {
  middleware.Find(kServer);
  const Journal empty = ReplyOctets("");
  EXPECT_EQ(client_server::OpCacheSync().SerializeAsString(), "");
  EXPECT_TRUE(Same(Policies(empty), Both(kBothEmpty, kBothEmpty)));
  EXPECT_TRUE(client.cache_synced_);
}

TEST_F(CacheReply, AfterAServerRestartRecreatesDepthFirstThenReconcilesThenProbesThenAsksForTheStatus) {
  cfm::hierarchy applied;
  AddMa(applied, "md1", "ma1", {1, 2});
  AddMa(applied, "md1", "ma2", {3});
  AddMa(applied, "md2", "ma1", {4});
  Hold(applied);
  Hold(Probes());
  Restart();
  // Handed over while the server was away: end point 2 is gone, md3 is new.
  cfm::hierarchy desired = applied;
  desired.mds["md1"].mas["ma1"].meps.erase(2);
  desired.mds["md3"] = Md();
  client.UpdateConfig(desired);

  const auto& ma = expected::Ma("md1").cfg;
  const Journal journal = Reply({});
  EXPECT_TRUE(Same(Policies(journal), Both(kServerDied, kBothHold)));
  EXPECT_TRUE(Same(
      Requests(journal),
      {CreateMd("md1", Md().cfg), CreateMa("md1", "ma1", ma), CreateMep(Mep("md1", "ma1", 1)),
       CreateMep(Mep("md1", "ma1", 2)), CreateMa("md1", "ma2", ma), CreateMep(Mep("md1", "ma2", 3)),
       CreateMd("md2", Md().cfg), CreateMa("md2", "ma1", ma), CreateMep(Mep("md2", "ma1", 4)),
       // the difference between applied and desired
       expected::DeleteMep(Mep("md1", "ma1", 2)), CreateMd("md3", Md().cfg), UpdateMd("md1", Md().cfg),
       UpdateMd("md2", Md().cfg), UpdateMa("md1", "ma1", ma), UpdateMa("md1", "ma2", ma), UpdateMa("md2", "ma1", ma),
       UpdateMep(Mep("md1", "ma1", 1)), UpdateMep(Mep("md1", "ma2", 3)), UpdateMep(Mep("md2", "ma1", 4)),
       // the probes, created anew from the desired set
       CreateProbe(7, expected::Probe(7)), CreateSession(7, 1, Session(1)),
       Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
  EXPECT_EQ(expected::Difference(client.applied_hierarchy_, desired.mds), "");
}

TEST_F(CacheReply, LogsItsLinesAroundTheRequestsInThisOrder) {
  Hold(Tree());
  Hold(Probes());
  Restart();
  const cfm::hierarchy tree = Tree();
  const cfm::hierarchy_ma& ma = tree.mds.at("md1").mas.at("ma1");
  EXPECT_TRUE(
      Same(Reply({}),
           {Logged(10, "ReqCacheReply", "Cache reply received"), Logged(10, "ReqCacheReplyHierarchy", kServerDied),
            CreateMd("md1", Md().cfg), CreateMa("md1", "ma1", ma.cfg), AskedIfindex(11), CreateMep(ma.meps.at(1)),
            Logged(10, "ReqCacheReplyProbe", kBothHold),
            Logged(10, "ReqCacheReply", "Cache sync apply: pending requests will be processed, if any"),
            AskedName(11, 64), Logged(10, "Apply", "Applying CFM config..."),
            Logged(10, "Apply",
                   "CFM Hierarchy\n"
                   "+ MD Id: md1, Format: 4, Level: 3, Sender Id: 2, Mhf Creation: 3\n"
                   "  + MA Id: ma1, MD Name: md1, Format: 32, VID List: { 10 20 }, CCM Interval: 4, "
                   "MEP Id List : { 1 2 3 }, Sender Id: 5, Mhf Creation: 2\n"
                   "    + MEP Id: 1, MD Name: md1, MA Name: ma1, Id: 1, Direction: 2, Port: port11, Primary VID: 10, "
                   "Inner VID: 20, Admin State: 1, TX CCM Enabled: 0, CCM Priority: 7, LowestPrioDefectAllowed: 3, "
                   "FNG Alarm Time: 250, FNG Reset Time: 1000, Action: 2\n"),
            UpdateMd("md1", Md().cfg), UpdateMa("md1", "ma1", ma.cfg), UpdateMep(ma.meps.at(1)),
            Logged(10, "ApplyDelayMeasurementProbe", "Applying CFM Delay Measurement Probes config..."),
            Logged(10, "ApplyDelayMeasurementProbe",
                   "CFM Delay Measurement Probes\n"
                   "+ Probe Id: 7, Interval: 1000, MA: ma-a, MD: md-a, LMEP: 1, RMEP: 2, Sessions: \n"
                   "  + Session Id: 1, Count: 11, Interval: 100, Size: 64, Pcp: 5\n"),
            CreateProbe(7, expected::Probe(7)), CreateSession(7, 1, Session(1)),
            Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(CacheReply, AsksForTheInterfaceOfEachEndPointOfTheCacheBeforeItNamesThePolicy) {
  client.UpdateConfig(Tree());
  const Journal journal = Reply(CacheOf(Tree()));
  ASSERT_GE(journal.size(), 3U);
  EXPECT_EQ(journal[0], Logged(10, "ReqCacheReply", "Cache reply received"));
  EXPECT_EQ(journal[1], AskedLimid(1011));
  EXPECT_EQ(journal[2], Logged(10, "ReqCacheReplyHierarchy", kAppDied));
}

TEST_F(CacheReply, SendsTheStatusRequestWithANullPayloadLast) {
  middleware.Find(kServer);
  client.UpdateConfig(Tree());
  client.UpdateConfigProbe(Probes());
  const Journal requests = Requests(Reply({}));
  ASSERT_EQ(requests.size(), 6U);
  EXPECT_EQ(requests.back(), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer));
}

TEST_F(CacheReply, IsSynchronisedFromBeforeTheFirstReconciliationOn) {
  middleware.Find(kServer);
  client.UpdateConfig(Tree());
  middleware.Take();
  Journal before;
  middleware.observer = [&](const recording::Entry& entry) {
    if (!client.cache_synced_) {
      before.push_back(entry);
    }
  };
  Reply({});
  EXPECT_TRUE(
      Same(before, {Logged(10, "ReqCacheReply", "Cache reply received"),
                    Logged(10, "ReqCacheReplyHierarchy", kBothEmpty), Logged(10, "ReqCacheReplyProbe", kBothEmpty),
                    Logged(10, "ReqCacheReply", "Cache sync apply: pending requests will be processed, if any")}));
}

TEST_F(CacheReply, DoesNotLookAtTheSender) {
  middleware.Find(kServer);
  client.UpdateConfig(Tree());
  middleware.Take();
  middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, "", 12345);
  EXPECT_EQ(client.server_pid_, kServer);
  EXPECT_EQ(Requests(middleware.Take()).back(), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer));
}

TEST_F(CacheReply, UsesNeitherTokenNorSender) {
  client.UpdateConfig(Tree());
  middleware.Take();
  cfm::ClientImpl::ReqCacheReply(nullptr, &client, nullptr, nullptr, 0);
  EXPECT_TRUE(Same(Requests(middleware.Take()),
                   {CreateMd("md1", Md().cfg, 0), CreateMa("md1", "ma1", expected::Ma("md1").cfg, 0),
                    CreateMep(Mep("md1", "ma1", 1), 0), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, 0)}));
}

TEST_F(CacheReply, AfterTheServerWasLostIsProcessedAndSendsToPidZero) {
  Hold(Tree());
  middleware.Lose();
  const Journal journal = Reply({});
  EXPECT_TRUE(Same(Policies(journal), Both(kServerDied, kBothEmpty)));
  EXPECT_EQ(Requests(journal).front(), CreateMd("md1", Md().cfg, 0));
  EXPECT_EQ(Requests(journal).back(), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, 0));
  EXPECT_EQ(client.server_pid_, 0U);
}

TEST_F(CacheReply, ThatComesASecondTimeRunsTheWholeSequenceAgain) {
  middleware.Find(kServer);
  client.UpdateConfig(Tree());
  const client_server::OpCacheSync cache = CacheOf(Tree());
  const Journal first = Reply(cache);
  EXPECT_TRUE(Same(Policies(first), Both(kAppDied, kBothEmpty)));
  const Journal second = Reply(cache);
  EXPECT_TRUE(Same(Policies(second), Both(kBothHold, kBothEmpty)));
  EXPECT_TRUE(Same(Requests(second), Requests(first)));
  EXPECT_EQ(expected::Lines(second).size(), 8U);
}

// ---- The policies, row by row ----

TEST_F(CacheReply, OfAnEmptyServerToAnEmptyClientDoesNothingToTheHierarchy) {
  EXPECT_TRUE(Same(Policies(Reply({})), Both(kBothEmpty, kBothEmpty)));
  EXPECT_TRUE(client.applied_hierarchy_.empty());
}

TEST_F(CacheReply, OfAnEmptyServerToAClientWithAHierarchyRecreatesItFromTheAppliedState) {
  Hold(Tree());
  Restart();
  // What is desired meanwhile does not decide: the applied state is recreated, then removed again.
  client.UpdateConfig({});
  const Journal journal = Reply({});
  EXPECT_TRUE(Same(Policies(journal), Both(kServerDied, kBothEmpty)));
  EXPECT_TRUE(Same(Requests(journal),
                   {CreateMd("md1", Md().cfg), CreateMa("md1", "ma1", expected::Ma("md1").cfg),
                    CreateMep(Mep("md1", "ma1", 1)), DeleteMd("md1"), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(CacheReply, OfAnEmptyServerKeepsTheAppliedHierarchyAsItIs) {
  Hold(Tree());
  Restart();
  client.ReqCacheReplyHierarchy({});
  EXPECT_EQ(expected::Difference(client.applied_hierarchy_, Tree().mds), "");
}

TEST_F(CacheReply, ByAServerThatDiedRecreatesWithTheKeysOfDomainsAndAssociationsAndTheNamesInTheRecords) {
  cfm::hierarchy applied;
  cfm::hierarchy_ma& ma = AddMa(applied, "md1", "ma1", {1});
  ma.md_name = "other md";
  ma.meps[1].md_name = "third md";
  ma.meps[1].ma_name = "third ma";
  ma.meps[1].cfg.mep_id = 99;
  Hold(applied);
  Restart();
  client.ReqCacheReplyHierarchy({});
  EXPECT_TRUE(Same(Requests(middleware.Take()),
                   {CreateMd("md1", Md().cfg), CreateMa("other md", "ma1", ma.cfg), CreateMep(ma.meps[1])}));
}

TEST_F(CacheReply, OfAServerWithAHierarchyToAnEmptyClientTakesItAsTheBaseline) {
  middleware.Find(kServer);
  cfm::hierarchy held = Tree();
  AddMa(held, "md2", "ma1", {5});
  client.UpdateConfig(Tree());
  const Journal journal = Reply(CacheOf(held));
  EXPECT_TRUE(Same(Policies(journal), Both(kAppDied, kBothEmpty)));
  EXPECT_TRUE(Same(Requests(journal),
                   {DeleteMd("md2"), UpdateMd("md1", Md().cfg), UpdateMa("md1", "ma1", expected::Ma("md1").cfg),
                    UpdateMep(Mep("md1", "ma1", 1)), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(CacheReply, OfAServerWithAHierarchyReplacesTheAppliedOneWhole) {
  cfm::hierarchy held;
  AddMa(held, "md9", "ma9", {9});
  for (const bool client_holds : {false, true}) {
    SCOPED_TRACE(client_holds);
    client.applied_hierarchy_ = client_holds ? Tree().mds : cfm::ClientImpl::MdMap{};
    middleware.Take();
    client.ReqCacheReplyHierarchy(CacheOf(held));
    EXPECT_EQ(expected::Difference(client.applied_hierarchy_, held.mds), "");
    EXPECT_TRUE(Same(middleware.Take(),
                     {AskedLimid(1011), Logged(10, "ReqCacheReplyHierarchy", client_holds ? kBothHold : kAppDied)}));
  }
}

TEST_F(CacheReply, OfAServerWithAHierarchyToAClientWithOneTakesTheServersAsTheBaseline) {
  cfm::hierarchy desired = Tree();
  AddMa(desired, "md2", "ma2");
  Hold(desired);
  Restart();
  cfm::hierarchy held = Tree();
  AddMa(held, "md3", "ma3", {1});
  const Journal journal = Reply(CacheOf(held));
  EXPECT_TRUE(Same(Policies(journal), Both(kBothHold, kBothEmpty)));
  EXPECT_TRUE(Same(Requests(journal),
                   {DeleteMd("md3"), CreateMd("md2", Md().cfg), CreateMa("md2", "ma2", expected::Ma("md2").cfg),
                    UpdateMd("md1", Md().cfg), UpdateMa("md1", "ma1", expected::Ma("md1").cfg),
                    UpdateMep(Mep("md1", "ma1", 1)), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(CacheReply, OfAServerWithProbesToAnEmptyClientTakesThemAsTheBaseline) {
  cfm::probe held = Probes();
  held.probes[8] = expected::Probe(8);
  client.UpdateConfigProbe(Probes());
  middleware.Find(kServer);
  const Journal journal = Reply(CacheOf({}, held));
  EXPECT_TRUE(Same(Policies(journal), Both(kBothEmpty, kAppDied)));
  EXPECT_TRUE(Same(Requests(journal), {DeleteProbe(8), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(CacheReply, OfAServerWithProbesToAClientWithProbesTakesTheServersAsTheBaseline) {
  Hold(Probes());
  Restart();
  cfm::probe held;
  held.probes[8] = expected::Probe(8);
  const Journal journal = Reply(CacheOf({}, held));
  EXPECT_TRUE(Same(Policies(journal), Both(kBothEmpty, kBothHold)));
  EXPECT_TRUE(Same(Requests(journal), {CreateProbe(7, expected::Probe(7)), CreateSession(7, 1, Session(1)),
                                       DeleteProbe(8), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(CacheReply, OfAServerWithoutProbesToAClientWithProbesIsNoServerDeathAndCreatesEveryDesiredProbeAgain) {
  Hold(Probes());
  Restart();
  const Journal journal = Reply({});
  EXPECT_TRUE(Same(Policies(journal), Both(kBothEmpty, kBothHold)));
  EXPECT_TRUE(Same(Requests(journal), {CreateProbe(7, expected::Probe(7)), CreateSession(7, 1, Session(1)),
                                       Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(CacheReply, OfAServerWithoutProbesLeavesTheAppliedProbesEmpty) {
  Hold(Probes());
  middleware.Take();
  client.ReqCacheReplyProbe({});
  EXPECT_TRUE(client.applied_probes_.empty());
  EXPECT_TRUE(Same(middleware.Take(), {Logged(10, "ReqCacheReplyProbe", kBothHold)}));
}

TEST_F(CacheReply, TakesServerDeathForTheHierarchyAndTheServersProbesInOneReply) {
  Hold(Tree());
  Hold(Probes());
  Restart();
  const Journal journal = Reply(CacheOf({}, Probes()));
  EXPECT_TRUE(Same(Policies(journal), Both(kServerDied, kBothHold)));
  EXPECT_TRUE(Same(Requests(journal), {CreateMd("md1", Md().cfg), CreateMa("md1", "ma1", expected::Ma("md1").cfg),
                                       CreateMep(Mep("md1", "ma1", 1)), UpdateMd("md1", Md().cfg),
                                       UpdateMa("md1", "ma1", expected::Ma("md1").cfg), UpdateMep(Mep("md1", "ma1", 1)),
                                       Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

// ---- What the application sees ----

TEST_F(CacheReply, OfAServerThatHoldsConfigurationToAClientThatWantsNothingYetRemovesEverything) {
  middleware.Find(kServer);
  EXPECT_TRUE(Same(Requests(Reply(CacheOf(Tree(), Probes()))),
                   {DeleteMd("md1"), DeleteProbe(7), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(CacheReply, SendsWhatWasHandedOverBeforeIt) {
  middleware.Find(kServer);
  middleware.Take();
  EXPECT_TRUE(Same(Update(Tree()),
                   {Logged(10, "UpdateConfig", "Server unavailable, request will be handled later: pid 7 sync 0")}));
  EXPECT_TRUE(client.applied_hierarchy_.empty());
  EXPECT_EQ(expected::Difference(client.desired_hierarchy_, Tree().mds), "");
  EXPECT_TRUE(
      Same(Requests(Reply({})), {CreateMd("md1", Md().cfg), CreateMa("md1", "ma1", expected::Ma("md1").cfg),
                                 CreateMep(Mep("md1", "ma1", 1)), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(CacheReply, DoesNotTouchTheDesiredState) {
  client.UpdateConfig(Tree());
  client.UpdateConfigProbe(Probes());
  cfm::hierarchy held;
  AddMa(held, "md9", "ma9", {9});
  cfm::probe held_probes;
  held_probes.probes[9] = expected::Probe(9);
  Reply(CacheOf(held, held_probes));
  EXPECT_EQ(expected::Difference(client.desired_hierarchy_, Tree().mds), "");
  EXPECT_EQ(expected::Difference(client.desired_probes_, Probes().probes), "");
  EXPECT_EQ(expected::Difference(client.applied_hierarchy_, Tree().mds), "");
  EXPECT_EQ(expected::Difference(client.applied_probes_, Probes().probes), "");
}

// ---- Payloads that do not parse ----

TEST_F(CacheReply, ThatDoesNotParseIsAnEmptyServerCache) {
  const std::vector<std::string> payloads = {
      std::string("\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff", 11),  // an endless varint
      std::string(1, '\0'),                                             // tag 0
      "\x0c",                                                           // the end of a group that did not begin
  };
  for (const std::string& payload : payloads) {
    Hold(Tree());
    Restart();
    const Journal journal = ReplyOctets(payload);
    EXPECT_EQ(journal.at(0), Logged(10, "ReqCacheReply", "Cache reply received"));
    EXPECT_TRUE(Same(Policies(journal), Both(kServerDied, kBothEmpty)));
    EXPECT_EQ(Requests(journal).back(), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer));
  }
}

TEST_F(CacheReply, ThatBreaksOffGoesOnWithWhatWasRead) {
  std::string octets = CacheOf(Tree()).SerializeAsString();
  octets.push_back('\0');  // tag 0, which no field has
  client.UpdateConfig({});
  middleware.Find(kServer);
  const Journal journal = ReplyOctets(octets);
  EXPECT_TRUE(Same(Policies(journal), Both(kAppDied, kBothEmpty)));
  EXPECT_TRUE(Same(Requests(journal), {DeleteMd("md1"), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(CacheReply, ThatBreaksOffInADomainGoesOnWithThatDomainAsFarAsItWasRead) {
  middleware.Find(kServer);
  const Journal journal = ReplyOctets("\x0a\x7f");  // a domain of 127 octets, none of them there
  EXPECT_TRUE(Same(Policies(journal), Both(kAppDied, kBothEmpty)));
  EXPECT_TRUE(Same(Requests(journal), {DeleteMd(""), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(CacheReply, CutAnywhereEndsSynchronised) {
  cfm::hierarchy tree = Tree();
  const std::string octets = CacheOf(tree, Probes()).SerializeAsString();
  for (std::size_t length = 0; length <= octets.size(); ++length) {
    SCOPED_TRACE(length);
    client.cache_synced_ = false;
    EXPECT_EQ(Requests(ReplyOctets(octets.substr(0, length))).back(), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, 0));
  }
}

}  // namespace
