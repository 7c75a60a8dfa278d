#include "contract/server.h"

#include <gmock/gmock.h>
#include <google/protobuf/stubs/logging.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "cfm/identities.h"
#include "contract/outbox.h"
#include "engine/engine.h"
#include "recording_middleware.h"

namespace {

namespace pb = client_server;
using recording::Journal;
using recording::Kind;
using recording::Only;
using recording::Sent;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// What the server announces; the recording middleware knows clients only.
struct Announcement {
  const vorbus_event_t* event;
  std::string octets;
};
std::vector<Announcement> announcements;
int publish_result = 0;
int ready_result = 1;

}  // namespace

int vorbus_event_publish(vorbus_t* /*token*/, const vorbus_event_t* event, const void* data, size_t size) {
  announcements.push_back({event, std::string(static_cast<const char*>(data), size)});
  return publish_result;
}

int vorbus_event_ready(vorbus_t* /*token*/, const vorbus_event_t* /*event*/) {
  return ready_result;
}

namespace {

using cfm::contract::Cache;
using cfm::contract::Outbox;
using cfm::contract::Server;
using cfm::engine::Engine;

// An element without ports.
class NoPorts final : public cfm::port::Ports {
 public:
  const cfm::port::Link* Find(cfm::port::Index /*index*/) const override { return nullptr; }
  bool Open(cfm::port::Index /*index*/) override { return false; }
  void Close(cfm::port::Index /*index*/) override {}
  bool Send(cfm::port::Index /*index*/, const cfm::protocol::OutgoingFrame& /*frame*/,
            cfm::port::Owner /*owner*/) override {
    return false;
  }
  cfm::protocol::ClockReading ReadClocks() override { return {}; }
  void SetFaultAction(cfm::port::Index /*index*/, cfm::protocol::FaultAction /*action*/) override {}
  bool SetLevelFilter(cfm::port::Index /*index*/, std::vector<cfm::protocol::LevelFilter> /*filters*/) override {
    return false;
  }
  std::optional<cfm::port::Index> FindStation(cfm::port::Index /*bridge*/,
                                              const cfm::pdu::MacAddress& /*address*/) const override {
    return std::nullopt;
  }
  cfm::port::Counters CountersOf(cfm::port::Index /*index*/) const override { return {}; }
};

constexpr vorbus_pid_t kClient = 7;
constexpr vorbus_pid_t kOther = 8;

const std::array kRequests = {
    &CFM_MGR_C2S_SIG_MD_CREATE,         &CFM_MGR_C2S_SIG_MD_UPDATE,         &CFM_MGR_C2S_SIG_MD_DELETE,
    &CFM_MGR_C2S_SIG_MA_CREATE,         &CFM_MGR_C2S_SIG_MA_UPDATE,         &CFM_MGR_C2S_SIG_MA_DELETE,
    &CFM_MGR_C2S_SIG_MEP_CREATE,        &CFM_MGR_C2S_SIG_MEP_UPDATE,        &CFM_MGR_C2S_SIG_MEP_DELETE,
    &CFM_MGR_C2S_SIG_CACHE_GET,         &CFM_MGR_C2S_SIG_STATS_GET,         &CFM_MGR_C2S_SIG_STATS_CLEAR,
    &CFM_MGR_C2S_SIG_STATUS_GET_ALL,    &CFM_MGR_C2S_SIG_LT_TRIGGER,        &CFM_MGR_C2S_SIG_LB_TRIGGER,
    &CFM_MGR_C2S_SIG_DM_TRIGGER,        &CFM_MGR_C2S_SIG_DM_PROBE_CREATE,   &CFM_MGR_C2S_SIG_DM_PROBE_DELETE,
    &CFM_MGR_C2S_SIG_DM_SESSION_CREATE, &CFM_MGR_C2S_SIG_DM_SESSION_DELETE,
};

class AServer : public testing::Test {
 protected:
  AServer() {
    announcements.clear();
    publish_result = 0;
    ready_result = 1;
  }

  void Start() {
    zlog_category_t* log = vorbus_trace_init(middleware_.token(), "cfm-mgr");
    outbox_ = std::make_unique<Outbox>(middleware_.token(), log);
    engine_ = std::make_unique<Engine>(
        cache_, *outbox_, ports_, log, [](cfm::protocol::Duration below) { return below / 2; },
        [this] { return now_; });
    server_ = std::make_unique<Server>(middleware_.token(), log, cache_, *engine_);
    middleware_.Take();
  }

  // Lets the time run until nothing waits.
  void Settle() {
    now_ += std::chrono::milliseconds(200);
    engine_->Advance(now_);
    while (outbox_->deadline() != Outbox::Clock::time_point::max())
      outbox_->Flush(now_ += std::chrono::milliseconds(1));
  }
  // The removed end points that were announced.
  std::vector<std::string> Gone() {
    Settle();
    std::vector<std::string> gone;
    for (const Announcement& announcement : announcements) {
      pb::RemovedLocalMaintenanceEndpoint event;
      if (announcement.event != CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP) continue;
      EXPECT_TRUE(event.ParseFromString(announcement.octets));
      gone.push_back(event.ShortDebugString());
    }
    return gone;
  }

  void CreateEndpoint(const char* md, const char* ma, uint32_t id) {
    pb::OpCreateMaintenanceDomain domain;
    domain.set_name(md);
    pb::OpCreateMaintenanceAssociation association;
    association.set_md_name(md);
    association.set_ma_name(ma);
    pb::OpCreateMaintenanceEndpoint endpoint;
    endpoint.set_md_name(md);
    endpoint.set_ma_name(ma);
    endpoint.set_mep_id(id);
    middleware_.Deliver(CFM_MGR_C2S_SIG_MD_CREATE, domain);
    middleware_.Deliver(CFM_MGR_C2S_SIG_MA_CREATE, association);
    middleware_.Deliver(CFM_MGR_C2S_SIG_MEP_CREATE, endpoint);
    middleware_.Take();
  }

  // What was sent since, and the texts of the warnings.
  Journal Sends() { return Only(middleware_.journal(), {Kind::kSend}); }
  std::vector<std::string> Warnings() {
    std::vector<std::string> warnings;
    for (const auto& entry : Only(middleware_.journal(), {Kind::kLog})) {
      if (entry.text.starts_with("log " + std::to_string(ZLOG_LEVEL_WARN))) warnings.push_back(entry.text);
    }
    return warnings;
  }

  const google::protobuf::LogSilencer quiet_;  // names are any octets
  recording::Middleware middleware_;
  cfm::protocol::TimePoint now_{std::chrono::hours(1)};
  NoPorts ports_;
  Cache cache_;
  std::unique_ptr<Outbox> outbox_;
  std::unique_ptr<Engine> engine_;
  std::unique_ptr<Server> server_;
};

TEST_F(AServer, RegistersForEveryRequestOnceAndReleasesAll) {
  Start();
  server_ = nullptr;
  middleware_.Take();
  server_ = std::make_unique<Server>(middleware_.token(), nullptr, cache_, *engine_);
  Journal expected;
  for (const auto* request : kRequests) expected.push_back(recording::Registered(*request));
  EXPECT_TRUE(Same(middleware_.Take(), expected));
  server_.reset();
  EXPECT_EQ(middleware_.live_registrations(), 0U);
}

TEST_F(AServer, IsNotMadeWhenTheMiddlewareRefusesARegistration) {
  Start();
  server_ = nullptr;
  middleware_.registrations_fail = true;
  EXPECT_THROW(Server(middleware_.token(), nullptr, cache_, *engine_), std::system_error);
  EXPECT_EQ(middleware_.live_registrations(), 0U);
}

TEST_F(AServer, AnswersTheCacheRequestToItsSenderOnly) {
  Start();
  EXPECT_EQ(middleware_.Deliver(CFM_MGR_C2S_SIG_CACHE_GET, "", kOther), 1);
  EXPECT_TRUE(Same(Sends(), {Sent(CFM_MGR_S2C_SIG_CACHE_REPLY, kOther, pb::OpCacheSync())}));
  CreateEndpoint("d", "a", 1);
  middleware_.Deliver(CFM_MGR_C2S_SIG_CACHE_GET, "", kClient);
  pb::OpCacheSync expected;
  expected.add_domains()->set_name("d");
  auto* association = expected.add_associations();
  association->set_md_name("d");
  association->set_ma_name("a");
  auto* endpoint = expected.add_endpoints();
  endpoint->set_md_name("d");
  endpoint->set_ma_name("a");
  endpoint->set_mep_id(1);
  EXPECT_TRUE(Same(Sends(), {Sent(CFM_MGR_S2C_SIG_CACHE_REPLY, kClient, expected)}));
}

TEST_F(AServer, AnswersTheStatisticsRequestToItsSender) {
  Start();
  CreateEndpoint("d", "a", 1);
  middleware_.Deliver(CFM_MGR_C2S_SIG_STATS_GET, "", kOther);
  pb::OpReplyAllStats expected;
  pb::LocalMepStats& local = *expected.add_local_stats();
  local.set_md_name("d");
  local.set_ma_name("a");
  local.set_local_mep_id(1);
  local.set_ccm_rx_seq_errors(0);
  local.set_ccm_tx_current_seq(0);
  local.set_ccm_tx_total(0);
  EXPECT_TRUE(Same(Sends(), {Sent(CFM_MGR_S2C_SIG_STATS_REPLY, kOther, expected)}));
}

TEST_F(AServer, DoesNotMindOctetsInARequestThatHasNoMessage) {
  Start();
  middleware_.Deliver(CFM_MGR_C2S_SIG_CACHE_GET, "\xff\xff", kOther);
  EXPECT_THAT(Sends(), SizeIs(1));
}

TEST_F(AServer, AnnouncesTheStatusOnRequest) {
  Start();
  CreateEndpoint("d", "a", 1);
  Settle();
  announcements.clear();
  middleware_.Deliver(CFM_MGR_C2S_SIG_STATUS_GET_ALL, "");
  EXPECT_THAT(announcements, IsEmpty());
  Settle();
  ASSERT_THAT(announcements, SizeIs(1));
  EXPECT_EQ(announcements.front().event, CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP);
  EXPECT_THAT(Sends(), IsEmpty());
}

template <typename Trigger>
Trigger TriggerOf(const char* md, uint32_t mep_id) {
  Trigger trigger;
  trigger.set_md_name(md);
  trigger.set_ma_name("a");
  trigger.set_trigger_id(4000000000);
  trigger.set_mep_id(mep_id);
  trigger.set_target_mep_id(12);
  return trigger;
}

template <typename Error>
Error ErrorOf(const char* md, uint32_t mep_id, uint32_t code) {
  auto error = TriggerOf<Error>(md, mep_id);
  error.set_error_code(code);
  return error;
}

TEST_F(AServer, RefusesALoopbackForItsReason) {
  Start();
  CreateEndpoint("d", "a", 11);
  using Trigger = pb::OpLoopbackTriggerMsg;
  using Error = pb::OpLoopbackTriggerError;
  middleware_.Deliver(CFM_MGR_C2S_SIG_LB_TRIGGER, TriggerOf<Trigger>("d", 11), kOther);
  middleware_.Deliver(CFM_MGR_C2S_SIG_LB_TRIGGER, TriggerOf<Trigger>("d", 10), kClient);
  middleware_.Deliver(CFM_MGR_C2S_SIG_LB_TRIGGER, TriggerOf<Trigger>("e", 11), kClient);
  middleware_.Deliver(CFM_MGR_C2S_SIG_LB_TRIGGER, TriggerOf<Trigger>("d", 65536 + 11), kClient);
  EXPECT_TRUE(Same(Sends(), {Sent(CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR, kOther, ErrorOf<Error>("d", 11, 2)),
                             Sent(CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR, kClient, ErrorOf<Error>("d", 10, 1)),
                             Sent(CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR, kClient, ErrorOf<Error>("e", 11, 1)),
                             Sent(CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR, kClient, ErrorOf<Error>("d", 65536 + 11, 1))}));
}

TEST_F(AServer, RefusesADelayMeasurementForItsReason) {
  Start();
  CreateEndpoint("d", "a", 11);
  using Trigger = pb::OpDelayMeasurementTriggerMsg;
  using Error = pb::OpDelayMeasurementTriggerError;
  middleware_.Deliver(CFM_MGR_C2S_SIG_DM_TRIGGER, TriggerOf<Trigger>("d", 11), kOther);
  middleware_.Deliver(CFM_MGR_C2S_SIG_DM_TRIGGER, TriggerOf<Trigger>("d", 10), kOther);
  EXPECT_TRUE(Same(Sends(), {Sent(CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR, kOther, ErrorOf<Error>("d", 11, 2)),
                             Sent(CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR, kOther, ErrorOf<Error>("d", 10, 1))}));
}

TEST_F(AServer, HandsARefusedLinktraceBack) {
  Start();
  pb::OpLinktraceTriggerMsg trigger;
  *trigger.mutable_key() = TriggerOf<pb::OpLinktraceTriggerKey>("d", 11);
  trigger.set_ttl(64);
  pb::OpLinktraceTriggerError error;
  *error.mutable_key() = trigger.key();
  error.set_ttl(64);
  middleware_.Deliver(CFM_MGR_C2S_SIG_LT_TRIGGER, trigger, kOther);
  EXPECT_TRUE(Same(Sends(), {Sent(CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR, kOther, error)}));
}

TEST_F(AServer, AnnouncesEachEndPointThatGoesWithADomain) {
  Start();
  CreateEndpoint("d", "a", 1);
  CreateEndpoint("d", "a", 2);
  CreateEndpoint("d", "b", 1);
  pb::OpDeleteMaintenanceDomain request;
  request.set_name("d");
  middleware_.Deliver(CFM_MGR_C2S_SIG_MD_DELETE, request);
  EXPECT_THAT(Gone(), ElementsAre("md_name: \"d\" ma_name: \"a\" local_mep_id: 1",
                                  "md_name: \"d\" ma_name: \"a\" local_mep_id: 2",
                                  "md_name: \"d\" ma_name: \"b\" local_mep_id: 1"));
}

TEST_F(AServer, AnnouncesTheEndPointsOfADeletedAssociationAndADeletedEndPointOnce) {
  Start();
  CreateEndpoint("d", "a", 1);
  CreateEndpoint("d", "b", 1);
  pb::OpDeleteMaintenanceAssociation association;
  association.set_md_name("d");
  association.set_ma_name("a");
  middleware_.Deliver(CFM_MGR_C2S_SIG_MA_DELETE, association);
  EXPECT_THAT(Gone(), SizeIs(1));
  pb::OpDeleteMaintenanceEndpoint endpoint;
  endpoint.set_md_name("d");
  endpoint.set_ma_name("b");
  endpoint.set_mep_id(1);
  middleware_.Deliver(CFM_MGR_C2S_SIG_MEP_DELETE, endpoint);
  EXPECT_THAT(Gone(), SizeIs(2));
  middleware_.Deliver(CFM_MGR_C2S_SIG_MEP_DELETE, endpoint);
  EXPECT_THAT(Gone(), SizeIs(2)) << "an end point that is gone goes no second time";
}

TEST_F(AServer, AnnouncesNothingWhenAnEndPointIsCreatedAgain) {
  Start();
  CreateEndpoint("d", "a", 1);
  Settle();
  announcements.clear();
  CreateEndpoint("d", "a", 1);
  Settle();
  EXPECT_THAT(announcements, IsEmpty());
}

TEST_F(AServer, HoldsEventsBackWhileAClientIsBehindButNotForEver) {
  Start();
  ready_result = 0;
  CreateEndpoint("d", "a", 1);
  outbox_->Flush(now_ += std::chrono::seconds(1));
  outbox_->Flush(now_ += std::chrono::seconds(9));
  EXPECT_THAT(announcements, IsEmpty());
  ready_result = 1;
  outbox_->Flush(now_ += std::chrono::milliseconds(1));
  EXPECT_THAT(announcements, SizeIs(1));
  ready_result = 0;
  CreateEndpoint("d", "a", 2);
  outbox_->Flush(now_ += std::chrono::seconds(1));
  EXPECT_THAT(announcements, SizeIs(1));
  outbox_->Flush(now_ += Outbox::kPatience);
  EXPECT_THAT(announcements, SizeIs(2));
  EXPECT_THAT(Warnings(), Contains(HasSubstr("a client has taken no events for 10 s")));
}

TEST_F(AServer, AnnouncesAPortionAtATime) {
  Start();
  constexpr std::size_t kEvents = 3 * Outbox::kMostAtOnce;
  for (uint32_t id = 1; id <= kEvents; ++id) CreateEndpoint("d", "a", id);
  outbox_->Flush(now_);
  EXPECT_THAT(announcements, SizeIs(Outbox::kMostAtOnce));
  outbox_->Flush(now_);  // too early
  EXPECT_THAT(announcements, SizeIs(Outbox::kMostAtOnce));
  Settle();
  EXPECT_THAT(announcements, SizeIs(kEvents));
}

TEST_F(AServer, WarnsOfARefusedRequestWithItsReason) {
  Start();
  pb::OpCreateMaintenanceAssociation request;
  request.set_md_name("x");
  request.set_ma_name("a");
  middleware_.Deliver(CFM_MGR_C2S_SIG_MA_CREATE, request, kOther);
  EXPECT_THAT(Warnings(),
              ElementsAre(HasSubstr("refused OpCreateMaintenanceAssociation of client 8: there is no domain 'x'")));
}

TEST_F(AServer, WarnsOfAnAnswerThatCannotBeSent) {
  Start();
  middleware_.send_result = -ESRCH;
  middleware_.Deliver(CFM_MGR_C2S_SIG_CACHE_GET, "", kOther);
  EXPECT_THAT(Warnings(), ElementsAre(HasSubstr("OpCacheSync of 0 octets did not reach client 8: No such process")));
}

TEST_F(AServer, WarnsOfAnEventThatCannotBeAnnounced) {
  Start();
  CreateEndpoint("d", "a", 1);
  publish_result = -ENOMEM;
  pb::OpDeleteMaintenanceDomain request;
  request.set_name("d");
  middleware_.Deliver(CFM_MGR_C2S_SIG_MD_DELETE, request);
  Settle();
  EXPECT_THAT(Warnings(), Contains(HasSubstr("could not be announced: Cannot allocate memory")));
}

TEST_F(AServer, BuildsNoTextOfRequestsUnlessItIsWritten) {
  Start();
  middleware_.level_enabled = [](int level) { return level >= ZLOG_LEVEL_WARN; };
  pb::OpCreateMaintenanceDomain request;
  request.set_name("d");
  middleware_.Deliver(CFM_MGR_C2S_SIG_MD_CREATE, request);
  EXPECT_THAT(Only(middleware_.journal(), {Kind::kLog}), IsEmpty());
}

TEST_F(AServer, DropsAMalformedMessageWithAWarning) {
  Start();
  middleware_.Deliver(CFM_MGR_C2S_SIG_MD_CREATE,
                      "\x0a\x05"
                      "d",
                      kOther);  // a name of five octets, of which one came
  EXPECT_THAT(Warnings(), ElementsAre(HasSubstr("refused OpCreateMaintenanceDomain of client 8: malformed, 3 octets")));
  EXPECT_TRUE(cache_.domains().empty());
}

TEST_F(AServer, DropsATooLargeMessageUnread) {
  Start();
  pb::OpCreateMaintenanceDomain request;
  request.set_name(std::string(Server::kMaxRequestOctets, 'd'));
  middleware_.Deliver(CFM_MGR_C2S_SIG_MD_CREATE, request);
  EXPECT_THAT(Warnings(), SizeIs(1));
  EXPECT_TRUE(cache_.domains().empty());
  request.set_name(std::string(Server::kMaxRequestOctets - 4, 'd'));  // tag and three octets of length
  middleware_.Deliver(CFM_MGR_C2S_SIG_MD_CREATE, request);
  EXPECT_EQ(cache_.domains().size(), 1U);
}

TEST_F(AServer, OutlivesRandomOctetsInEveryRequestAndChangesNothingWhenItRefuses) {
  Start();
  middleware_.level_enabled = [](int level) { return level >= ZLOG_LEVEL_WARN; };
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  // Octets that messages are made of: tags of the first fields, small lengths and ids, and anything.
  const std::string likely(
      "\x08\x0a\x10\x12\x18\x1a\x20\x28\x30\x3a\x4a\x00\x01\x02"
      "ad",
      16);
  int refused = 0;
  int accepted = 0;
  for (int i = 0; i < 200'000; ++i) {
    std::string octets(random() % 20, '\0');
    for (char& octet : octets) {
      octet = random() % 4 == 0 ? static_cast<char>(random()) : likely[random() % likely.size()];
    }
    const auto* signal = *kRequests[random() % kRequests.size()];
    const bool compare = i % 50 == 0;
    const std::string before = compare ? cache_.Snapshot().SerializeAsString() : "";
    ASSERT_EQ(middleware_.Deliver(signal, octets, kOther), 1);
    if (Warnings().empty()) {
      ++accepted;
    } else {
      ++refused;
      if (compare) {
        ASSERT_EQ(cache_.Snapshot().SerializeAsString(), before);
      }
    }
    if (i % 1000 == 0) Settle();
    middleware_.Take();
    announcements.clear();
  }
  EXPECT_GT(refused, 1000);
  EXPECT_GT(accepted, 1000);
  EXPECT_FALSE(cache_.domains().empty() && cache_.probes().empty());
}

}  // namespace
