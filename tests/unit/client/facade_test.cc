// cfm::Client as an application built earlier sees it: by size, by slot, by type.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <typeinfo>

#include "expected_requests.h"
#include "noting_handlers.h"

namespace {

using cfm::Client;
using cfm::ClientImpl;
using expected::kServer;
using recording::Journal;
using recording::Logged;
using recording::Middleware;
using recording::Noted;
using recording::Same;
using recording::Sent;

// ---- Types ----

static_assert(sizeof(Client) == 2 * sizeof(void*));
static_assert(std::is_polymorphic_v<Client>);
static_assert(std::has_virtual_destructor_v<Client>);
static_assert(!std::is_copy_constructible_v<Client> && !std::is_copy_assignable_v<Client>);
static_assert(std::is_constructible_v<Client, vorbus_t*>);

template <auto Operation, typename Type>
constexpr bool kIs = std::is_same_v<decltype(Operation), Type>;

// Only the two statistics requests are const on the facade; behind it, two of the triggers are as well.
static_assert(kIs<&Client::UpdateConfig, void (Client::*)(const cfm::hierarchy&)>);
static_assert(kIs<&Client::UpdateConfigProbe, void (Client::*)(const cfm::probe&)>);
static_assert(kIs<&Client::RequestStatistics, void (Client::*)() const>);
static_assert(kIs<&Client::ClearStatistics, void (Client::*)(const char*, const char*, unsigned short) const>);
static_assert(kIs<&Client::LinktraceTrigger, void (Client::*)(const cfm::linktrace_trigger&)>);
static_assert(kIs<&Client::LoopbackTrigger, void (Client::*)(const cfm::loopback_trigger&)>);
static_assert(kIs<&Client::DelayMeasurementTrigger, void (Client::*)(const cfm::delay_measurement_trigger&)>);
static_assert(kIs<&ClientImpl::RequestStatistics, void (ClientImpl::*)() const>);
static_assert(kIs<&ClientImpl::ClearStatistics, void (ClientImpl::*)(const char*, const char*, unsigned short) const>);
static_assert(kIs<&ClientImpl::LinktraceTrigger, void (ClientImpl::*)(const cfm::linktrace_trigger&)>);
static_assert(kIs<&ClientImpl::LoopbackTrigger, void (ClientImpl::*)(const cfm::loopback_trigger&) const>);
static_assert(
    kIs<&ClientImpl::DelayMeasurementTrigger, void (ClientImpl::*)(const cfm::delay_measurement_trigger&) const>);

TEST(Facade, PublishesItsRunTimeTypeAsCfmClient) {
  EXPECT_STREQ(typeid(Client).name(), "N3cfm6ClientE");
}

// ---- Slots ----

// Calls slot `number` of the object's virtual table (Itanium C++ ABI: an array of function pointers, the object first).
template <typename... Arguments>
void CallSlot(Client& client, std::size_t number, Arguments... arguments) {
  void** const table = *reinterpret_cast<void***>(&client);
  reinterpret_cast<void (*)(Client*, Arguments...)>(table[number])(&client, arguments...);
}

class FacadeSlot : public testing::Test {
 protected:
  Middleware middleware;
  std::unique_ptr<Client> client = std::make_unique<Client>(middleware.token());
  NotingHandlers handlers{&middleware, "called"};

  FacadeSlot() { middleware.Take(); }

  // What the handlers heard when each kind of notification came once.
  Journal Heard() {
    middleware.Take();
    middleware.Find(kServer);
    middleware.Deliver(CFM_MGR_S2C_SIG_STATS_REPLY, "");
    middleware.Deliver(CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR, "");
    middleware.Deliver(CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR, "");
    middleware.Deliver(CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR, "");
    return recording::Only(middleware.Take(), {recording::Kind::kNote});
  }
};

TEST_F(FacadeSlot, 0RegistersTheStatusHandler) {
  CallSlot<cfm::ReceivedStatusHandlerIntf*>(*client, 0, &handlers);
  EXPECT_TRUE(Same(Heard(), {Noted("called OnServerFound")}));
  CallSlot<cfm::ReceivedStatusHandlerIntf*>(*client, 0, nullptr);
  EXPECT_TRUE(Same(Heard(), {}));
}

TEST_F(FacadeSlot, 1RegistersTheStatisticsHandler) {
  CallSlot<cfm::ReceivedStatisticsHandlerIntf*>(*client, 1, &handlers);
  EXPECT_TRUE(Same(Heard(), {Noted("called OnStatisticsEnd")}));
  CallSlot<cfm::ReceivedStatisticsHandlerIntf*>(*client, 1, nullptr);
  EXPECT_TRUE(Same(Heard(), {}));
}

TEST_F(FacadeSlot, 2RegistersTheLinktraceHandler) {
  CallSlot<cfm::ReceivedLinktraceHandlerIntf*>(*client, 2, &handlers);
  EXPECT_TRUE(Same(Heard(), {Noted("called OnLinktraceTriggerError")}));
  CallSlot<cfm::ReceivedLinktraceHandlerIntf*>(*client, 2, nullptr);
  EXPECT_TRUE(Same(Heard(), {}));
}

TEST_F(FacadeSlot, 3RegistersTheLoopbackHandler) {
  CallSlot<cfm::ReceivedLoopbackHandlerIntf*>(*client, 3, &handlers);
  EXPECT_TRUE(Same(Heard(), {Noted("called OnLoopbackTriggerError")}));
  CallSlot<cfm::ReceivedLoopbackHandlerIntf*>(*client, 3, nullptr);
  EXPECT_TRUE(Same(Heard(), {}));
}

TEST_F(FacadeSlot, 4RegistersTheDelayMeasurementHandler) {
  CallSlot<cfm::ReceivedDelayMeasurementHandlerIntf*>(*client, 4, &handlers);
  EXPECT_TRUE(Same(Heard(), {Noted("called OnDelayMeasurementTriggerError")}));
  CallSlot<cfm::ReceivedDelayMeasurementHandlerIntf*>(*client, 4, nullptr);
  EXPECT_TRUE(Same(Heard(), {}));
}

TEST_F(FacadeSlot, 5DestroysTheObjectAndLeavesItsStorage) {
  alignas(Client) std::byte storage[sizeof(Client)];
  auto* const placed = new (storage) Client(middleware.token());
  EXPECT_EQ(middleware.live_registrations(), 2U * 19);
  middleware.Take();
  CallSlot(*placed, 5);
  EXPECT_EQ(middleware.Take().back(), Logged(10, "~ClientImpl", "CFM Manager client was finished"));
  EXPECT_EQ(middleware.live_registrations(), 19U);
}

TEST_F(FacadeSlot, 6DestroysTheObjectAndFreesIt) {
  CallSlot(*client.release(), 6);
  EXPECT_EQ(middleware.Take().back(), Logged(10, "~ClientImpl", "CFM Manager client was finished"));
  EXPECT_EQ(middleware.live_registrations(), 0U);
}

TEST_F(FacadeSlot, 7UpdatesTheConfiguration) {
  const cfm::hierarchy tree;
  CallSlot<const cfm::hierarchy&>(*client, 7, tree);
  EXPECT_TRUE(Same(middleware.Take(),
                   {Logged(10, "UpdateConfig", "Server unavailable, request will be handled later: pid 0 sync 0")}));
}

TEST_F(FacadeSlot, 8UpdatesTheProbes) {
  const cfm::probe probes;
  CallSlot<const cfm::probe&>(*client, 8, probes);
  EXPECT_TRUE(Same(middleware.Take(), {Logged(10, "UpdateConfigProbe",
                                              "Server unavailable, request will be handled later: pid 0 sync 0")}));
}

TEST_F(FacadeSlot, 9RequestsStatistics) {
  middleware.Find(kServer);
  middleware.Take();
  CallSlot(*client, 9);
  EXPECT_TRUE(Same(expected::Requests(middleware.Take()), {Sent(CFM_MGR_C2S_SIG_STATS_GET, kServer)}));
}

TEST_F(FacadeSlot, 10ClearsStatistics) {
  middleware.Find(kServer);
  middleware.Take();
  CallSlot<const char*, const char*, unsigned short>(*client, 10, "md1", "ma1", 65535);
  client_server::OpStatsClear message;
  message.set_md_name("md1");
  message.set_ma_name("ma1");
  message.set_local_mep_id(65535);
  EXPECT_TRUE(Same(expected::Requests(middleware.Take()), {Sent(CFM_MGR_C2S_SIG_STATS_CLEAR, kServer, message)}));
}

TEST_F(FacadeSlot, 11TriggersALinktrace) {
  CallSlot<const cfm::linktrace_trigger&>(
      *client, 11,
      cfm::linktrace_trigger{
          .trigger_id = 1, .md_name = "md1", .ma_name = "ma1", .mep_id = 2, .target_mep_id = 3, .ttl = 64});
  client_server::OpLinktraceTriggerMsg message;
  message.mutable_key()->set_md_name("md1");
  message.mutable_key()->set_ma_name("ma1");
  message.mutable_key()->set_trigger_id(1);
  message.mutable_key()->set_mep_id(2);
  message.mutable_key()->set_target_mep_id(3);
  message.set_ttl(64);
  EXPECT_TRUE(Same(expected::Requests(middleware.Take()), {Sent(CFM_MGR_C2S_SIG_LT_TRIGGER, 0, message)}));
}

TEST_F(FacadeSlot, 12TriggersALoopback) {
  CallSlot<const cfm::loopback_trigger&>(*client, 12,
                                         cfm::loopback_trigger{.trigger_id = 1,
                                                               .md_name = "md1",
                                                               .ma_name = "ma1",
                                                               .mep_id = 2,
                                                               .target_mep_id = 3,
                                                               .lb_param_1 = 4,
                                                               .lb_param_2 = 5});
  client_server::OpLoopbackTriggerMsg message;
  message.set_md_name("md1");
  message.set_ma_name("ma1");
  message.set_trigger_id(1);
  message.set_mep_id(2);
  message.set_target_mep_id(3);
  message.set_lb_param_1(4);
  message.set_lb_param_2(5);
  EXPECT_TRUE(Same(expected::Requests(middleware.Take()), {Sent(CFM_MGR_C2S_SIG_LB_TRIGGER, 0, message)}));
}

TEST_F(FacadeSlot, 13TriggersADelayMeasurement) {
  CallSlot<const cfm::delay_measurement_trigger&>(*client, 13,
                                                  cfm::delay_measurement_trigger{.trigger_id = 1,
                                                                                 .md_name = "md1",
                                                                                 .ma_name = "ma1",
                                                                                 .mep_id = 2,
                                                                                 .target_mep_id = 3,
                                                                                 .dm_param_1 = 4,
                                                                                 .dm_param_2 = 5,
                                                                                 .dm_param_3 = 6,
                                                                                 .dm_param_4 = 7});
  client_server::OpDelayMeasurementTriggerMsg message;
  message.set_md_name("md1");
  message.set_ma_name("ma1");
  message.set_trigger_id(1);
  message.set_mep_id(2);
  message.set_target_mep_id(3);
  message.set_dm_param_1(4);
  message.set_dm_param_2(5);
  message.set_dm_param_3(6);
  message.set_dm_param_4(7);
  EXPECT_TRUE(Same(expected::Requests(middleware.Take()), {Sent(CFM_MGR_C2S_SIG_DM_TRIGGER, 0, message)}));
}

TEST_F(FacadeSlot, TableIsFollowedInTheObjectByTheImplementation) {
  const auto* const impl = reinterpret_cast<const ClientImpl* const*>(client.get())[1];
  EXPECT_EQ(impl->token_, middleware.token());
  EXPECT_EQ(impl->signal_registrations_.size(), 5U);
}

// ---- Life ----

TEST(FacadeLife, DestroysItsImplementationExactlyOnce) {
  Middleware middleware;
  { const Client client(middleware.token()); }
  const Journal journal = middleware.Take();
  EXPECT_EQ(std::count(journal.begin(), journal.end(), Logged(10, "~ClientImpl", "CFM Manager client was finished")),
            1);
  EXPECT_EQ(std::count(journal.begin(), journal.end(), recording::Unsubscribed("cfm-mgr")), 1);
  EXPECT_EQ(recording::Only(journal, {recording::Kind::kDeregister}).size(), 19U);
  EXPECT_EQ(middleware.live_subscriptions(), 0U);
  EXPECT_EQ(middleware.live_registrations(), 0U);
}

TEST(FacadeLife, PassesOnWhatItsImplementationsConstructionThrows) {
  Middleware middleware;
  middleware.subscribe_throws = true;
  EXPECT_THROW(const Client client(middleware.token()), std::bad_alloc);
  EXPECT_TRUE(Same(middleware.Take(), {recording::Subscribed("cfm-mgr")}));
}

TEST(FacadeLife, LetsTwoClientsLiveOnOneTokenEachWithItsOwnRegistrations) {
  Middleware middleware;
  const auto first = std::make_unique<Client>(middleware.token());
  {
    const Client second(middleware.token());
    EXPECT_EQ(middleware.Find(kServer), 2);
  }
  EXPECT_EQ(middleware.live_registrations(), 19U);
  EXPECT_EQ(middleware.Find(kServer), 1);
}

using FacadeDeathTest = testing::Test;

TEST(FacadeDeathTest, WithANullTokenEndsTheProcessWithStatus1) {
  EXPECT_EXIT(
      {
        const Middleware middleware;
        const Client client(nullptr);
      },
      testing::ExitedWithCode(1), "");
}

// ---- Handlers, through the front door ----

TEST(FacadeHandlers, OfTwoRegisteredOnlyTheSecondIsCalledAndAfterNullNone) {
  Middleware middleware;
  Client client(middleware.token());
  NotingHandlers first(&middleware, "first");
  NotingHandlers second(&middleware, "second");
  const auto heard = [&] {
    middleware.Take();
    middleware.Find(kServer);
    return recording::Only(middleware.Take(), {recording::Kind::kNote});
  };
  client.RegisterStatusHandler(&first);
  client.RegisterStatusHandler(&second);
  EXPECT_TRUE(Same(heard(), {Noted("second OnServerFound")}));
  client.RegisterStatusHandler(nullptr);
  EXPECT_TRUE(Same(heard(), {}));
  client.RegisterStatusHandler(&first);
  EXPECT_TRUE(Same(heard(), {Noted("first OnServerFound")}));
}

TEST(FacadeHandlers, MayBeRegisteredAtAnyTimeAndReceiveNothingBefore) {
  Middleware middleware;
  Client client(middleware.token());
  middleware.Find(kServer);
  middleware.Deliver(CFM_MGR_S2C_SIG_STATS_REPLY, "");
  EXPECT_TRUE(Same(recording::Only(middleware.Take(), {recording::Kind::kNote}), {}));
  NotingHandlers handlers(&middleware, "late");
  client.RegisterStatisticsHandler(&handlers);
  middleware.Deliver(CFM_MGR_S2C_SIG_STATS_REPLY, "");
  EXPECT_TRUE(Same(recording::Only(middleware.Take(), {recording::Kind::kNote}), {Noted("late OnStatisticsEnd")}));
}

TEST(FacadeOperations, SendTheConfigurationOfASynchronisedClient) {
  Middleware middleware;
  Client client(middleware.token());
  cfm::hierarchy tree;
  expected::AddMa(tree, "md1", "ma1", {1});
  cfm::probe probes;
  probes.probes[7] = expected::Probe(7, {1});
  client.UpdateConfig(tree);
  client.UpdateConfigProbe(probes);
  middleware.Find(kServer);
  middleware.Take();
  middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, "");
  const Journal creates = {expected::CreateMd("md1", tree.mds["md1"].cfg),
                           expected::CreateMa("md1", "ma1", tree.mds["md1"].mas["ma1"].cfg),
                           expected::CreateMep(expected::Mep("md1", "ma1", 1)),
                           expected::CreateProbe(7, probes.probes[7]),
                           expected::CreateSession(7, 1, expected::Session(1)),
                           Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)};
  EXPECT_TRUE(Same(expected::Requests(middleware.Take()), creates));
}

}  // namespace
