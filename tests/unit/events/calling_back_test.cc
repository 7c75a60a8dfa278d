// Handlers that call the client from within their call, for every operation of every handler.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "client_server.pb.h"
#include "noting_handlers.h"

namespace {

using recording::ClientUnderTest;
using recording::Entry;
using recording::Journal;
using recording::Kind;
namespace pb = client_server;

// An operation, and what the middleware does to have it called.
struct Operation {
  std::string handler;
  std::string name;
  std::function<void(recording::Middleware&)> stimulus;
};

void PrintTo(const Operation& operation, std::ostream* out) {
  *out << operation.handler << '.' << operation.name;
}

template <typename Message, typename Identity>
Operation Through(const char* handler, const char* name, const Identity* identity) {
  return {handler, name, [identity](recording::Middleware& middleware) { middleware.Deliver(identity, Message()); }};
}

pb::OpReplyAllStats Statistics() {
  pb::OpReplyAllStats reply;
  for (const std::uint32_t id : {1U, 2U}) {
    reply.add_local_stats()->set_local_mep_id(id);
    reply.add_remote_stats()->set_remote_mep_id(id);
  }
  return reply;
}

Operation InStatistics(const char* name) {
  return {"statistics", name,
          [](recording::Middleware& middleware) { middleware.Deliver(CFM_MGR_S2C_SIG_STATS_REPLY, Statistics()); }};
}

const std::vector<Operation>& Operations() {
  static const std::vector<Operation> operations = {
      Through<pb::StatusLocalMaintenanceEndpoint>("status", "OnLocalMepStatus", CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP),
      Through<pb::StatusRemoteMaintenanceEndpoint>("status", "OnRemoteMepStatus", CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP),
      Through<pb::RemovedLocalMaintenanceEndpoint>("status", "OnLocalMepRemoved", CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP),
      Through<pb::RemovedRemoteMaintenanceEndpoint>("status", "OnRemoteMepRemoved",
                                                    CFM_MGR_SRV_EVENT_REMOVED_REMOTE_MEP),
      Through<pb::OpLinktraceStarted>("status", "OnLinktraceStarted", CFM_MGR_SRV_EVENT_LINKTRACE_STARTED),
      Through<pb::OpLinktraceEnded>("status", "OnLinktraceEnded", CFM_MGR_SRV_EVENT_LINKTRACE_ENDED),
      Through<pb::OpLinktraceReplyRx>("status", "OnLinktraceReply", CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX),
      Through<pb::OpDelayMeasurementSessionEnded>("status", "OnDelayMeasurementSessionEnded",
                                                  CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED),
      {"status", "OnServerFound", [](recording::Middleware& middleware) { middleware.Find(8); }},
      InStatistics("OnLocalMepStatistics"),
      InStatistics("OnRemoteMepStatistics"),
      InStatistics("OnStatisticsEnd"),
      Through<pb::OpLinktraceStarted>("linktrace", "OnLinktraceStarted", CFM_MGR_SRV_EVENT_LINKTRACE_STARTED),
      Through<pb::OpLinktraceEnded>("linktrace", "OnLinktraceEnded", CFM_MGR_SRV_EVENT_LINKTRACE_ENDED),
      Through<pb::OpLinktraceReplyRx>("linktrace", "OnLinktraceReply", CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX),
      Through<pb::OpLinktraceTriggerError>("linktrace", "OnLinktraceTriggerError", CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR),
      Through<pb::OpLoopbackTriggerError>("loopback", "OnLoopbackTriggerError", CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR),
      Through<pb::OpLoopbackStarted>("loopback", "OnLoopbackStarted", CFM_MGR_SRV_EVENT_LOOPBACK_STARTED),
      Through<pb::OpLoopbackReplyRx>("loopback", "OnLoopbackReply", CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX),
      Through<pb::OpLoopbackEnded>("loopback", "OnLoopbackEnded", CFM_MGR_SRV_EVENT_LOOPBACK_ENDED),
      Through<pb::OpDelayMeasurementTriggerError>("delay", "OnDelayMeasurementTriggerError",
                                                  CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR),
      Through<pb::OpDelayMeasurementStarted>("delay", "OnDelayMeasurementStarted",
                                             CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED),
      Through<pb::OpDelayMeasurementReplyRx>("delay", "OnDelayMeasurementReply",
                                             CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX),
      Through<pb::OpDelayMeasurementEnded>("delay", "OnDelayMeasurementEnded",
                                           CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_ENDED),
  };
  return operations;
}

using Action = std::function<void(cfm::Client&)>;

// A client that is synchronised with server 7, all handlers registered, and a second handler of each kind at hand.
struct Scene : ClientUnderTest {
  Scene() {
    RegisterAll();
    middleware.Find(7);
    middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, pb::OpCacheSync());
    middleware.Take();
  }

  recording::NotingHandler& Handler(const std::string& name) {
    if (name == "status") {
      return status;
    }
    if (name == "statistics") {
      return statistics;
    }
    if (name == "linktrace") {
      return linktrace;
    }
    if (name == "loopback") {
      return loopback;
    }
    return delay;
  }

  void Unregister(const std::string& name) {
    if (name == "status") {
      client.RegisterStatusHandler(nullptr);
    } else if (name == "statistics") {
      client.RegisterStatisticsHandler(nullptr);
    } else if (name == "linktrace") {
      client.RegisterLinktraceHandler(nullptr);
    } else if (name == "loopback") {
      client.RegisterLoopbackHandler(nullptr);
    } else {
      client.RegisterDelayMeasurementHandler(nullptr);
    }
  }

  void RegisterAnother(const std::string& name) {
    if (name == "status") {
      client.RegisterStatusHandler(&other_status);
    } else if (name == "statistics") {
      client.RegisterStatisticsHandler(&other_statistics);
    } else if (name == "linktrace") {
      client.RegisterLinktraceHandler(&other_linktrace);
    } else if (name == "loopback") {
      client.RegisterLoopbackHandler(&other_loopback);
    } else {
      client.RegisterDelayMeasurementHandler(&other_delay);
    }
  }

  Journal After(const Operation& operation) {
    operation.stimulus(middleware);
    return middleware.Take();
  }

  Journal AfterAction(const Action& action) {
    action(client);
    return middleware.Take();
  }

  recording::StatusNotes other_status{middleware, "other"};
  recording::StatisticsNotes other_statistics{middleware, "other"};
  recording::LinktraceNotes other_linktrace{middleware, "other"};
  recording::LoopbackNotes other_loopback{middleware, "other"};
  recording::DelayMeasurementNotes other_delay{middleware, "other"};
};

class AHandlerThatCallsBack : public testing::TestWithParam<Operation> {
 protected:
  // Where in the journal the operation's first call stands.
  static std::size_t IndexOfCall(const Journal& journal) {
    const std::string call = "note: " + GetParam().handler + "." + GetParam().name + "(";
    const auto found =
        std::find_if(journal.begin(), journal.end(), [&](const Entry& entry) { return entry.text.starts_with(call); });
    EXPECT_NE(found, journal.end()) << call;
    return static_cast<std::size_t>(found - journal.begin());
  }

  // Within its call the action does what it does after it; around it everything goes on as without it.
  static void ExpectActionToWorkWithinTheCall(const Action& action) {
    Journal expected;
    Journal expected_later;
    Journal expected_repeated;
    {
      Scene plain;
      expected = plain.After(GetParam());
      const std::size_t index = IndexOfCall(expected);
      ASSERT_LT(index, expected.size());
      const Journal alone = plain.AfterAction(action);
      ASSERT_FALSE(alone.empty());
      expected.insert(expected.begin() + static_cast<std::ptrdiff_t>(index) + 1, alone.begin(), alone.end());
      expected_later = plain.After(GetParam());
      expected_repeated = plain.AfterAction(action);
    }
    Scene scene;
    bool acted = false;
    scene.Handler(GetParam().handler).Once(GetParam().name, [&] {
      acted = true;
      action(scene.client);
    });
    EXPECT_TRUE(Same(scene.After(GetParam()), expected));
    EXPECT_TRUE(acted);
    // The client is in the same state as the one that acted after the call.
    EXPECT_TRUE(Same(scene.After(GetParam()), expected_later));
    EXPECT_TRUE(Same(scene.AfterAction(action), expected_repeated));
  }

  // What the first two deliveries do while the handler stays as it is.
  static std::pair<Journal, Journal> Undisturbed() {
    Scene scene;
    Journal first = scene.After(GetParam());
    return {std::move(first), scene.After(GetParam())};
  }

  static bool IsCallOf(const Entry& entry, const std::string& handler) {
    return entry.kind == Kind::kNote && entry.text.starts_with("note: " + handler + ".");
  }
};

INSTANTIATE_TEST_SUITE_P(, AHandlerThatCallsBack, testing::ValuesIn(Operations()),
                         [](const testing::TestParamInfo<Operation>& instance) {
                           return instance.param.handler + "_" + instance.param.name;
                         });

TEST_P(AHandlerThatCallsBack, MayTriggerALinktrace) {
  ExpectActionToWorkWithinTheCall([](cfm::Client& client) {
    cfm::linktrace_trigger trigger{};
    trigger.trigger_id = 5;
    trigger.md_name = "MD1";
    client.LinktraceTrigger(trigger);
  });
}

TEST_P(AHandlerThatCallsBack, MayTriggerALoopback) {
  ExpectActionToWorkWithinTheCall([](cfm::Client& client) {
    cfm::loopback_trigger trigger{};
    trigger.trigger_id = 5;
    trigger.md_name = "MD1";
    client.LoopbackTrigger(trigger);
  });
}

TEST_P(AHandlerThatCallsBack, MayTriggerADelayMeasurement) {
  ExpectActionToWorkWithinTheCall([](cfm::Client& client) {
    cfm::delay_measurement_trigger trigger{};
    trigger.trigger_id = 5;
    trigger.md_name = "MD1";
    client.DelayMeasurementTrigger(trigger);
  });
}

TEST_P(AHandlerThatCallsBack, MayUpdateTheConfiguration) {
  ExpectActionToWorkWithinTheCall([](cfm::Client& client) {
    cfm::hierarchy desired;
    cfm::hierarchy_ma& ma = desired.mds["MD1"].mas["MA1"];
    ma.md_name = "MD1";
    cfm::hierarchy_mep& mep = ma.meps[101];
    mep.md_name = "MD1";
    mep.ma_name = "MA1";
    mep.cfg.mep_id = 101;
    mep.cfg.port = 1;
    client.UpdateConfig(desired);
  });
}

TEST_P(AHandlerThatCallsBack, MayUpdateTheProbes) {
  ExpectActionToWorkWithinTheCall([](cfm::Client& client) {
    cfm::probe desired;
    cfm::probe_cfg& probe = desired.probes[1];
    probe.probe_id = 1;
    probe.md_name = "MD1";
    probe.sessions[1].count = 10;
    client.UpdateConfigProbe(desired);
  });
}

TEST_P(AHandlerThatCallsBack, MayRequestStatistics) {
  ExpectActionToWorkWithinTheCall([](cfm::Client& client) { client.RequestStatistics(); });
}

TEST_P(AHandlerThatCallsBack, MayClearStatistics) {
  ExpectActionToWorkWithinTheCall([](cfm::Client& client) { client.ClearStatistics("MD1", nullptr, 0); });
}

TEST_P(AHandlerThatCallsBack, MayRegisterAnotherInItsPlaceWhichGetsTheCallsFromThereOn) {
  const std::string handler = GetParam().handler;
  const auto as_other = [&](Entry& entry) {
    if (IsCallOf(entry, handler)) {
      entry.text.replace(0, ("note: " + handler).size(), "note: other");
    }
  };
  auto [first, second] = Undisturbed();
  const std::size_t index = IndexOfCall(first);
  ASSERT_LT(index, first.size());
  std::for_each(first.begin() + static_cast<std::ptrdiff_t>(index) + 1, first.end(), as_other);
  std::for_each(second.begin(), second.end(), as_other);

  Scene scene;
  scene.Handler(handler).Once(GetParam().name, [&] { scene.RegisterAnother(handler); });
  EXPECT_TRUE(Same(scene.After(GetParam()), first));
  EXPECT_TRUE(Same(scene.After(GetParam()), second));
}

TEST_P(AHandlerThatCallsBack, MayUnregisterItselfAndIsNotCalledAgain) {
  const std::string handler = GetParam().handler;
  auto [first, second] = Undisturbed();
  first = Only(first, {Kind::kNote});
  second = Only(second, {Kind::kNote});
  const auto is_call = [&](const Entry& entry) { return IsCallOf(entry, handler); };
  const std::size_t index = IndexOfCall(first);
  ASSERT_LT(index, first.size());
  first.erase(std::remove_if(first.begin() + static_cast<std::ptrdiff_t>(index) + 1, first.end(), is_call),
              first.end());
  std::erase_if(second, is_call);

  Scene scene;
  scene.Handler(handler).Once(GetParam().name, [&] { scene.Unregister(handler); });
  EXPECT_TRUE(Same(Only(scene.After(GetParam()), {Kind::kNote}), first));
  EXPECT_TRUE(Same(Only(scene.After(GetParam()), {Kind::kNote}), second));
}

// ---- Handlers that die within their call ----

TEST(AStatisticsHandlerThatUnregistersAndDestroysItself, IsNotTouchedInTheRestOfTheReply) {
  for (const char* operation : {"OnLocalMepStatistics", "OnRemoteMepStatistics", "OnStatisticsEnd"}) {
    ClientUnderTest scene;
    auto dying = std::make_unique<recording::StatisticsNotes>(scene.middleware, "dying");
    scene.client.RegisterStatisticsHandler(dying.get());
    dying->Once(operation, [&] {
      scene.client.RegisterStatisticsHandler(nullptr);
      dying.reset();
    });
    const Journal calls = Only(scene.After(CFM_MGR_S2C_SIG_STATS_REPLY, Statistics()), {Kind::kNote});
    EXPECT_EQ(dying, nullptr);
    ASSERT_FALSE(calls.empty());
    EXPECT_TRUE(calls.back().text.starts_with(std::string("note: dying.") + operation + "(")) << calls.back().text;
  }
}

TEST(AStatusHandlerThatUnregistersAndDestroysItself, LeavesTheLinktraceHandlerItsCall) {
  ClientUnderTest scene;
  auto dying = std::make_unique<recording::StatusNotes>(scene.middleware, "dying");
  scene.client.RegisterStatusHandler(dying.get());
  scene.client.RegisterLinktraceHandler(&scene.linktrace);
  dying->Once("OnLinktraceEnded", [&] {
    scene.client.RegisterStatusHandler(nullptr);
    dying.reset();
  });
  EXPECT_TRUE(Same(Only(scene.After(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED, pb::OpLinktraceEnded()), {Kind::kNote}),
                   {recording::Called("dying.OnLinktraceEnded", "", "", 0, 0),
                    recording::Called("linktrace.OnLinktraceEnded", "", "", 0, 0)}));
}

TEST(AStatusHandlerThatDestroysTheLinktraceHandler, SparesItTheEventsCall) {
  const std::vector<std::pair<const char*, std::function<void(recording::Middleware&)>>> events = {
      {"OnLinktraceStarted",
       [](recording::Middleware& middleware) { middleware.Deliver(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, ""); }},
      {"OnLinktraceEnded",
       [](recording::Middleware& middleware) { middleware.Deliver(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED, ""); }},
      {"OnLinktraceReply",
       [](recording::Middleware& middleware) { middleware.Deliver(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, ""); }},
  };
  for (const auto& [operation, deliver] : events) {
    ClientUnderTest scene;
    auto dying = std::make_unique<recording::LinktraceNotes>(scene.middleware, "dying");
    scene.client.RegisterStatusHandler(&scene.status);
    scene.client.RegisterLinktraceHandler(dying.get());
    scene.status.Once(operation, [&] {
      scene.client.RegisterLinktraceHandler(nullptr);
      dying.reset();
    });
    scene.middleware.Take();
    deliver(scene.middleware);
    const Journal calls = Only(scene.middleware.Take(), {Kind::kNote});
    ASSERT_EQ(calls.size(), 1U) << operation;
    EXPECT_TRUE(calls[0].text.starts_with(std::string("note: status.") + operation + "(")) << calls[0].text;
  }
}

TEST(AStatusHandlerThatRegistersTheLinktraceHandler, HasItCalledForTheSameEvent) {
  ClientUnderTest scene;
  scene.client.RegisterStatusHandler(&scene.status);
  scene.status.Once("OnLinktraceEnded", [&] { scene.client.RegisterLinktraceHandler(&scene.linktrace); });
  EXPECT_TRUE(Same(Only(scene.After(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED, pb::OpLinktraceEnded()), {Kind::kNote}),
                   {recording::Called("status.OnLinktraceEnded", "", "", 0, 0),
                    recording::Called("linktrace.OnLinktraceEnded", "", "", 0, 0)}));
}

}  // namespace
