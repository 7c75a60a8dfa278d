// How the client attaches to the middleware, follows the server, and detaches.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "expected_requests.h"
#include "noting_handlers.h"

namespace {

using expected::kServer;
using recording::Backtraced;
using recording::Deregistered;
using recording::Faulted;
using recording::Journal;
using recording::Logged;
using recording::Middleware;
using recording::Noted;
using recording::Registered;
using recording::Same;
using recording::Sent;
using recording::Subscribed;
using recording::TraceInitialised;
using recording::Unsubscribed;

Journal AttachJournal() {
  return {
      Subscribed("cfm-mgr"),
      TraceInitialised("cfm-mgr"),
      Logged(10, "ClientImpl", "CFM Manager client was initialized"),
      Registered(CFM_MGR_S2C_SIG_CACHE_REPLY),
      Registered(CFM_MGR_S2C_SIG_STATS_REPLY),
      Registered(CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR),
      Registered(CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR),
      Registered(CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR),
      Registered(CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP),
      Registered(CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP),
      Registered(CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP),
      Registered(CFM_MGR_SRV_EVENT_REMOVED_REMOTE_MEP),
      Registered(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED),
      Registered(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED),
      Registered(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX),
      Registered(CFM_MGR_SRV_EVENT_LOOPBACK_STARTED),
      Registered(CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX),
      Registered(CFM_MGR_SRV_EVENT_LOOPBACK_ENDED),
      Registered(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED),
      Registered(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX),
      Registered(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_ENDED),
      Registered(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED),
  };
}

// ---- Construction ----

TEST(Construction, SubscribesThenMakesTheCategoryThenLogsThenRegistersFiveSignalsAndFourteenEventsInOrder) {
  Middleware middleware;
  const cfm::ClientImpl client(middleware.token());
  EXPECT_TRUE(Same(middleware.Take(), AttachJournal()));
}

TEST(Construction, RegistersEverythingExactlyOnce) {
  Middleware middleware;
  const cfm::ClientImpl client(middleware.token());
  EXPECT_EQ(middleware.live_subscriptions(), 1U);
  EXPECT_EQ(middleware.live_registrations(), 19U);
}

TEST(Construction, RegistersLinktraceEventsStartedEndedReplyWhateverTheirNumbers) {
  Middleware middleware;
  const cfm::ClientImpl client(middleware.token());
  const Journal registered = recording::Only(middleware.Take(), {recording::Kind::kRegister});
  ASSERT_EQ(registered.size(), 19U);
  EXPECT_EQ(registered[9], Registered(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED));
  EXPECT_EQ(registered[10], Registered(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED));
  EXPECT_EQ(registered[11], Registered(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX));
}

TEST(Construction, NeverRegistersTheServersInternalSignal) {
  Middleware middleware;
  const cfm::ClientImpl client(middleware.token());
  EXPECT_THAT(middleware.Take(), testing::Not(testing::Contains(Registered(CFM_MGR_SIG_TICK_SCHED))));
}

TEST(Construction, StartsWithoutHandlersServerOrConfiguration) {
  Middleware middleware;
  const cfm::ClientImpl client(middleware.token());
  EXPECT_EQ(client.token_, middleware.token());
  EXPECT_EQ(client.status_handler_, nullptr);
  EXPECT_EQ(client.statistics_handler_, nullptr);
  EXPECT_EQ(client.linktrace_handler_, nullptr);
  EXPECT_EQ(client.loopback_handler_, nullptr);
  EXPECT_EQ(client.delay_measurement_handler_, nullptr);
  EXPECT_NE(client.server_subscription_, nullptr);
  EXPECT_EQ(client.server_pid_, 0U);
  EXPECT_FALSE(client.cache_synced_);
  EXPECT_TRUE(client.desired_hierarchy_.empty());
  EXPECT_TRUE(client.applied_hierarchy_.empty());
  EXPECT_TRUE(client.desired_probes_.empty());
  EXPECT_TRUE(client.applied_probes_.empty());
  EXPECT_EQ(client.signal_registrations_.size(), 5U);
  EXPECT_EQ(client.event_registrations_.size(), 14U);
  EXPECT_THAT(client.signal_registrations_, testing::Each(testing::NotNull()));
  EXPECT_THAT(client.event_registrations_, testing::Each(testing::NotNull()));
}

TEST(Construction, WithEveryRegistrationFailedIsLikeAnyOtherAndKeepsNullEntries) {
  Middleware middleware;
  middleware.registrations_fail = true;
  {
    const cfm::ClientImpl client(middleware.token());
    EXPECT_TRUE(Same(middleware.Take(), AttachJournal()));
    EXPECT_EQ(client.signal_registrations_, std::vector<vorbus_registration_t*>(5, nullptr));
    EXPECT_EQ(client.event_registrations_, std::vector<vorbus_eventreg_t*>(14, nullptr));
  }
  EXPECT_TRUE(
      Same(middleware.Take(), {Unsubscribed("cfm-mgr"), Logged(10, "~ClientImpl", "CFM Manager client was finished")}));
}

TEST(Construction, WithAFailedSubscriptionGoesOn) {
  Middleware middleware;
  middleware.subscribe_fails = true;
  const cfm::ClientImpl client(middleware.token());
  EXPECT_TRUE(Same(middleware.Take(), AttachJournal()));
  EXPECT_EQ(client.server_subscription_, nullptr);
}

// ---- The fatal paths ----

using ConstructionDeathTest = testing::Test;

TEST(ConstructionDeathTest, WithANullTokenReportsTheFaultAfterABacktraceAndExitsWithStatus1) {
  const std::string whole = Middleware::Dump(
      {Backtraced(), Faulted(1, "ClientImpl", "client_impl", "CFM manager client: invalid vorbus token")});
  EXPECT_EXIT(
      {
        const Middleware middleware;
        Middleware::DumpAtExit();
        const cfm::ClientImpl client(nullptr);
      },
      testing::ExitedWithCode(1), testing::HasSubstr(whole));
}

TEST(ConstructionDeathTest, WithoutALogCategoryReportsAnEmptyFaultAfterTheSubscriptionAndExitsWithStatus1) {
  const std::string whole = Middleware::Dump(
      {Subscribed("cfm-mgr"), TraceInitialised("cfm-mgr"), Backtraced(), Faulted(1, "ClientImpl", "client_impl", "")});
  EXPECT_EXIT(
      {
        Middleware middleware;
        middleware.trace_init_fails = true;
        Middleware::DumpAtExit();
        const cfm::ClientImpl client(middleware.token());
      },
      testing::ExitedWithCode(1), testing::HasSubstr(whole));
}

TEST(FaultRecord, Has350OctetsWithTheTextFirst) {
  EXPECT_EQ(sizeof(vorbus_fault_t), 350U);
  EXPECT_EQ(offsetof(vorbus_fault_t, text), 0U);
  // What the two death tests above compare with: the octets after the text are all zero.
  EXPECT_EQ(
      recording::Describe(Faulted(1, "ClientImpl", "client_impl", "CFM manager client: invalid vorbus token")),
      "fault of severity 1 in ClientImpl@client_impl: \"CFM manager client: invalid vorbus token\" and 310 zeros");
}

// ---- Destruction ----

TEST(Destruction, UnsubscribesThenDeregistersInOrderOfRegistrationThenLogs) {
  Middleware middleware;
  {
    const cfm::ClientImpl client(middleware.token());
    middleware.Take();
  }
  EXPECT_TRUE(Same(middleware.Take(), {
                                          Unsubscribed("cfm-mgr"),
                                          Deregistered(CFM_MGR_S2C_SIG_CACHE_REPLY),
                                          Deregistered(CFM_MGR_S2C_SIG_STATS_REPLY),
                                          Deregistered(CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR),
                                          Deregistered(CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR),
                                          Deregistered(CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR),
                                          Deregistered(CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP),
                                          Deregistered(CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP),
                                          Deregistered(CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP),
                                          Deregistered(CFM_MGR_SRV_EVENT_REMOVED_REMOTE_MEP),
                                          Deregistered(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED),
                                          Deregistered(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED),
                                          Deregistered(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX),
                                          Deregistered(CFM_MGR_SRV_EVENT_LOOPBACK_STARTED),
                                          Deregistered(CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX),
                                          Deregistered(CFM_MGR_SRV_EVENT_LOOPBACK_ENDED),
                                          Deregistered(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED),
                                          Deregistered(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX),
                                          Deregistered(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_ENDED),
                                          Deregistered(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED),
                                          Logged(10, "~ClientImpl", "CFM Manager client was finished"),
                                      }));
  EXPECT_EQ(middleware.live_subscriptions(), 0U);
  EXPECT_EQ(middleware.live_registrations(), 0U);
}

TEST(Destruction, WhileTheServerIsUpSendsItNothing) {
  Middleware middleware;
  {
    cfm::ClientImpl client(middleware.token());
    middleware.Find(kServer);
    middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, "");
    cfm::hierarchy tree;
    expected::AddMa(tree, "md1", "ma1", {1});
    client.UpdateConfig(tree);
    middleware.Take();
  }
  EXPECT_TRUE(Same(expected::Requests(middleware.Take()), {}));
}

// ---- The server comes and goes ----

class ServerPresence : public expected::Fixture {};

TEST_F(ServerPresence, WhenFoundIsLoggedAndTheCacheIsAskedForWithANullPayload) {
  EXPECT_EQ(middleware.Find(4294967295U), 1);
  EXPECT_TRUE(Same(middleware.Take(), {Logged(10, "ServerFound", "CFM manager server found"),
                                       Sent(CFM_MGR_C2S_SIG_CACHE_GET, 4294967295U)}));
  EXPECT_EQ(client.server_pid_, 4294967295U);
}

TEST_F(ServerPresence, WhenFoundWithoutAStatusHandlerCallsNothing) {
  NotingHandlers handlers(&middleware, "handlers");
  client.RegisterStatisticsHandler(&handlers);
  client.RegisterLinktraceHandler(&handlers);
  client.RegisterLoopbackHandler(&handlers);
  client.RegisterDelayMeasurementHandler(&handlers);
  middleware.Find(kServer);
  EXPECT_TRUE(Same(middleware.Take(),
                   {Logged(10, "ServerFound", "CFM manager server found"), Sent(CFM_MGR_C2S_SIG_CACHE_GET, kServer)}));
}

TEST_F(ServerPresence, WhenFoundIsToldToTheStatusHandlerRightAfterTheCacheRequest) {
  NotingHandlers handlers(&middleware, "status");
  client.RegisterStatusHandler(&handlers);
  middleware.Find(kServer);
  EXPECT_TRUE(Same(middleware.Take(), {Logged(10, "ServerFound", "CFM manager server found"),
                                       Sent(CFM_MGR_C2S_SIG_CACHE_GET, kServer), Noted("status OnServerFound")}));
}

TEST_F(ServerPresence, WhenLostIsLoggedAndToldToNobody) {
  NotingHandlers handlers(&middleware, "all");
  client.RegisterStatusHandler(&handlers);
  client.RegisterStatisticsHandler(&handlers);
  client.RegisterLinktraceHandler(&handlers);
  client.RegisterLoopbackHandler(&handlers);
  client.RegisterDelayMeasurementHandler(&handlers);
  Synchronise();
  EXPECT_EQ(middleware.Lose(), 1);
  EXPECT_TRUE(Same(middleware.Take(), {Logged(10, "ServerLost", "CFM manager server lost")}));
}

TEST_F(ServerPresence, WhenLostKeepsTheDesiredAndAppliedState) {
  cfm::hierarchy tree;
  expected::AddMa(tree, "md1", "ma1", {1});
  cfm::probe probes;
  probes.probes[7] = expected::Probe(7, {1});
  Hold(tree);
  Hold(probes);
  middleware.Lose();
  EXPECT_EQ(expected::Difference(client.desired_hierarchy_, tree.mds), "");
  EXPECT_EQ(expected::Difference(client.applied_hierarchy_, tree.mds), "");
  EXPECT_EQ(expected::Difference(client.desired_probes_, probes.probes), "");
  EXPECT_EQ(expected::Difference(client.applied_probes_, probes.probes), "");
}

TEST_F(ServerPresence, OfARestartedServerIsANewPidAFreshCacheRequestAndUpdatesHeldUntilThatSyncCompletes) {
  Synchronise();
  middleware.Lose();
  cfm::hierarchy between;
  expected::AddMa(between, "md1", "ma1");
  EXPECT_TRUE(Same(expected::Requests(Update(between)), {}));

  middleware.Find(8);
  EXPECT_TRUE(Same(middleware.Take(),
                   {Logged(10, "ServerFound", "CFM manager server found"), Sent(CFM_MGR_C2S_SIG_CACHE_GET, 8)}));
  EXPECT_EQ(client.server_pid_, 8U);
  expected::AddMa(between, "md2", "ma2");
  EXPECT_TRUE(Same(expected::Requests(Update(between)), {}));

  middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, "", 8);
  EXPECT_TRUE(
      Same(expected::Requests(middleware.Take()),
           {expected::CreateMd("md1", between.mds["md1"].cfg, 8), expected::CreateMd("md2", between.mds["md2"].cfg, 8),
            expected::CreateMa("md1", "ma1", between.mds["md1"].mas["ma1"].cfg, 8),
            expected::CreateMa("md2", "ma2", between.mds["md2"].mas["ma2"].cfg, 8),
            Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, 8)}));
}

TEST_F(ServerPresence, OfAnotherPidWithoutALossInBetweenReplacesThePidAndLeavesTheSyncedFlag) {
  Synchronise();
  middleware.Find(9);
  EXPECT_EQ(client.server_pid_, 9U);
  EXPECT_TRUE(client.cache_synced_);
}

// ---- The connection states against what can happen in them: one test per pair ----

class ConnectionState : public expected::Fixture {
 protected:
  enum Is { kNoServer, kFound, kSynced };

  void Enter(Is state) {
    if (state != kNoServer) {
      middleware.Find(kServer);
    }
    if (state == kSynced) {
      middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, "");
    }
    ExpectIs(state);
    middleware.Take();
  }

  void ExpectIs(Is state, vorbus_pid_t pid = kServer) const {
    EXPECT_EQ(client.server_pid_, state == kNoServer ? 0 : pid);
    EXPECT_EQ(client.cache_synced_, state == kSynced);
  }

  static cfm::hierarchy Tree() {
    cfm::hierarchy tree;
    tree.mds["md1"] = expected::Md();
    return tree;
  }

  static cfm::probe Probes() {
    cfm::probe probes;
    probes.probes[7] = expected::Probe(7);
    return probes;
  }

  void ExpectHeld(const char* sync_and_pid) {
    const std::string text = std::string("Server unavailable, request will be handled later: ") + sync_and_pid;
    EXPECT_TRUE(Same(Update(Tree()), {Logged(10, "UpdateConfig", text)}));
    EXPECT_TRUE(Same(Update(Probes()), {Logged(10, "UpdateConfigProbe", text)}));
    EXPECT_EQ(expected::Difference(client.desired_hierarchy_, Tree().mds), "");
    EXPECT_EQ(expected::Difference(client.desired_probes_, Probes().probes), "");
    EXPECT_TRUE(client.applied_hierarchy_.empty());
    EXPECT_TRUE(client.applied_probes_.empty());
  }
};

TEST_F(ConnectionState, NoServerWithFoundBecomesFound) {
  Enter(kNoServer);
  middleware.Find(kServer);
  ExpectIs(kFound);
}

TEST_F(ConnectionState, NoServerWithLostStays) {
  Enter(kNoServer);
  middleware.Lose();
  ExpectIs(kNoServer);
  EXPECT_TRUE(Same(middleware.Take(), {Logged(10, "ServerLost", "CFM manager server lost")}));
}

TEST_F(ConnectionState, NoServerWithACacheReplyIsProcessedAndSendsToPidZero) {
  Enter(kNoServer);
  client.UpdateConfig(Tree());
  middleware.Take();
  middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, "");
  EXPECT_EQ(client.server_pid_, 0U);
  EXPECT_TRUE(client.cache_synced_);
  EXPECT_TRUE(Same(expected::Requests(middleware.Take()),
                   {expected::CreateMd("md1", Tree().mds["md1"].cfg, 0), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, 0)}));
}

TEST_F(ConnectionState, NoServerThatTookACacheReplyHoldsNewConfigurationAllTheSame) {
  Enter(kNoServer);
  middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, "");
  ExpectHeld("pid 0 sync 1");
}

TEST_F(ConnectionState, NoServerWithNewConfigurationHoldsIt) {
  Enter(kNoServer);
  ExpectHeld("pid 0 sync 0");
}

TEST_F(ConnectionState, FoundWithFoundAgainTakesTheNewPid) {
  Enter(kFound);
  middleware.Find(8);
  ExpectIs(kFound, 8);
  EXPECT_TRUE(Same(middleware.Take(),
                   {Logged(10, "ServerFound", "CFM manager server found"), Sent(CFM_MGR_C2S_SIG_CACHE_GET, 8)}));
}

TEST_F(ConnectionState, FoundWithLostBecomesNoServer) {
  Enter(kFound);
  middleware.Lose();
  ExpectIs(kNoServer);
}

TEST_F(ConnectionState, FoundWithACacheReplyBecomesSynced) {
  Enter(kFound);
  middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, "");
  ExpectIs(kSynced);
}

TEST_F(ConnectionState, FoundWithNewConfigurationHoldsIt) {
  Enter(kFound);
  ExpectHeld("pid 7 sync 0");
}

TEST_F(ConnectionState, SyncedWithFoundAgainTakesTheNewPidAndStaysSynced) {
  Enter(kSynced);
  middleware.Find(8);
  ExpectIs(kSynced, 8);
}

TEST_F(ConnectionState, SyncedWithLostBecomesNoServer) {
  Enter(kSynced);
  middleware.Lose();
  ExpectIs(kNoServer);
}

TEST_F(ConnectionState, SyncedWithASecondCacheReplyRunsTheWholeSequenceAgain) {
  Enter(kSynced);
  client.UpdateConfig(Tree());
  middleware.Take();
  middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, "");
  ExpectIs(kSynced);
  EXPECT_TRUE(Same(expected::Requests(middleware.Take()),
                   {expected::CreateMd("md1", Tree().mds["md1"].cfg), expected::UpdateMd("md1", Tree().mds["md1"].cfg),
                    Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(ConnectionState, SyncedWithNewConfigurationSendsIt) {
  Enter(kSynced);
  EXPECT_TRUE(Same(expected::Requests(Update(Tree())), {expected::CreateMd("md1", Tree().mds["md1"].cfg)}));
  EXPECT_TRUE(Same(expected::Requests(Update(Probes())), {expected::CreateProbe(7, Probes().probes[7])}));
  EXPECT_EQ(expected::Difference(client.applied_hierarchy_, Tree().mds), "");
  EXPECT_EQ(expected::Difference(client.applied_probes_, Probes().probes), "");
}

// ---- The send road ----

class SendRoad : public expected::Fixture {};

TEST_F(SendRoad, IgnoresAFailedSend) {
  Synchronise();
  middleware.send_result = -ESRCH;
  cfm::hierarchy tree;
  expected::AddMa(tree, "md1", "ma1", {1});
  const cfm::hierarchy_ma& ma = tree.mds["md1"].mas["ma1"];
  EXPECT_TRUE(Same(expected::Requests(Update(tree)),
                   {expected::CreateMd("md1", tree.mds["md1"].cfg), expected::CreateMa("md1", "ma1", ma.cfg),
                    expected::CreateMep(ma.meps.at(1))}));
  EXPECT_EQ(expected::Difference(client.applied_hierarchy_, tree.mds), "");

  middleware.send_result = 0;
  EXPECT_TRUE(Same(expected::Requests(Update(tree)),
                   {expected::UpdateMd("md1", tree.mds["md1"].cfg), expected::UpdateMa("md1", "ma1", ma.cfg),
                    expected::UpdateMep(ma.meps.at(1))}));
}

TEST_F(SendRoad, IsTriedWithoutAServerByRequestsThatDoNotCheck) {
  client.DeleteMd("md1");
  EXPECT_TRUE(Same(middleware.Take(), {expected::DeleteMd("md1", 0)}));
}

TEST_F(SendRoad, LogsNothingForConfigurationRequests) {
  client.CreateMd("md1", {});
  client.DeleteMd("md1");
  client.DeleteMa("md1", "ma1");
  client.DeleteDelayMeasurementProbe(1);
  EXPECT_TRUE(Same(expected::Lines(middleware.Take()), {}));
}

TEST_F(SendRoad, CarriesNamesWithAnyOctets) {
  const std::string name("md\0\xff", 4);
  client.DeleteMd(name);
  const Journal sent = middleware.Take();
  ASSERT_EQ(sent.size(), 1U);
  client_server::OpDeleteMaintenanceDomain message;
  ASSERT_TRUE(message.ParseFromString(sent[0].octets.value()));
  EXPECT_EQ(message.name(), name);
}

// ---- Handlers ----

class HandlerRegistration : public expected::Fixture {
 protected:
  NotingHandlers first{&middleware, "first"};
  NotingHandlers second{&middleware, "second"};
};

TEST_F(HandlerRegistration, StoresEachPointerInItsOwnMember) {
  client.RegisterStatusHandler(&first);
  EXPECT_EQ(client.status_handler_, &first);
  EXPECT_EQ(client.statistics_handler_, nullptr);
  client.RegisterStatisticsHandler(&first);
  EXPECT_EQ(client.statistics_handler_, &first);
  EXPECT_EQ(client.linktrace_handler_, nullptr);
  client.RegisterLinktraceHandler(&first);
  EXPECT_EQ(client.linktrace_handler_, &first);
  EXPECT_EQ(client.loopback_handler_, nullptr);
  client.RegisterLoopbackHandler(&first);
  EXPECT_EQ(client.loopback_handler_, &first);
  EXPECT_EQ(client.delay_measurement_handler_, nullptr);
  client.RegisterDelayMeasurementHandler(&first);
  EXPECT_EQ(client.delay_measurement_handler_, &first);
  EXPECT_TRUE(Same(middleware.Take(), {}));
}

TEST_F(HandlerRegistration, KeepsOnlyTheSecondOfTwo) {
  client.RegisterStatusHandler(&first);
  client.RegisterStatusHandler(&second);
  client.RegisterStatisticsHandler(&first);
  client.RegisterStatisticsHandler(&second);
  client.RegisterLinktraceHandler(&first);
  client.RegisterLinktraceHandler(&second);
  client.RegisterLoopbackHandler(&first);
  client.RegisterLoopbackHandler(&second);
  client.RegisterDelayMeasurementHandler(&first);
  client.RegisterDelayMeasurementHandler(&second);
  EXPECT_EQ(client.status_handler_, &second);
  EXPECT_EQ(client.statistics_handler_, &second);
  EXPECT_EQ(client.linktrace_handler_, &second);
  EXPECT_EQ(client.loopback_handler_, &second);
  EXPECT_EQ(client.delay_measurement_handler_, &second);
  middleware.Find(kServer);
  EXPECT_TRUE(Same(recording::Only(middleware.Take(), {recording::Kind::kNote}), {Noted("second OnServerFound")}));
}

TEST_F(HandlerRegistration, OfNullSilences) {
  client.RegisterStatusHandler(&first);
  client.RegisterStatusHandler(nullptr);
  middleware.Find(kServer);
  EXPECT_TRUE(Same(recording::Only(middleware.Take(), {recording::Kind::kNote}), {}));
}

}  // namespace
