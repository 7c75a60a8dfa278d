#include "contract/server.h"

#include <gmock/gmock.h>
#include <google/protobuf/stubs/logging.h>

#include <array>
#include <cerrno>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "cfm/identities.h"
#include "recording_middleware.h"

namespace {

namespace pb = client_server;
using recording::Journal;
using recording::Kind;
using recording::Only;
using recording::Sent;
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

}  // namespace

int vorbus_event_publish(vorbus_t* /*token*/, const vorbus_event_t* event, const void* data, size_t size) {
  announcements.push_back({event, std::string(static_cast<const char*>(data), size)});
  return publish_result;
}

namespace {

using cfm::contract::Server;

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
  }

  void Start() {
    server_ = std::make_unique<Server>(middleware_.token(), vorbus_trace_init(middleware_.token(), "cfm-mgr"));
    middleware_.Take();
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
  std::unique_ptr<Server> server_;
};

TEST_F(AServer, RegistersForEveryRequestOnceAndReleasesAll) {
  server_ = std::make_unique<Server>(middleware_.token(), nullptr);
  Journal expected;
  for (const auto* request : kRequests) expected.push_back(recording::Registered(*request));
  EXPECT_TRUE(Same(middleware_.Take(), expected));
  server_.reset();
  EXPECT_EQ(middleware_.live_registrations(), 0U);
}

TEST_F(AServer, IsNotMadeWhenTheMiddlewareRefusesARegistration) {
  middleware_.registrations_fail = true;
  EXPECT_THROW(Server(middleware_.token(), nullptr), std::system_error);
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

TEST_F(AServer, AnswersTheStatisticsRequestWithNone) {
  Start();
  middleware_.Deliver(CFM_MGR_C2S_SIG_STATS_GET, "", kOther);
  EXPECT_TRUE(Same(Sends(), {Sent(CFM_MGR_S2C_SIG_STATS_REPLY, kOther, pb::OpReplyAllStats())}));
}

TEST_F(AServer, DoesNotMindOctetsInARequestThatHasNoMessage) {
  Start();
  middleware_.Deliver(CFM_MGR_C2S_SIG_CACHE_GET, "\xff\xff", kOther);
  EXPECT_THAT(Sends(), SizeIs(1));
}

TEST_F(AServer, SaysNothingOfMepsThatHaveNoState) {
  Start();
  CreateEndpoint("d", "a", 1);
  middleware_.Deliver(CFM_MGR_C2S_SIG_STATUS_GET_ALL, "");
  EXPECT_THAT(Sends(), IsEmpty());
  EXPECT_THAT(announcements, IsEmpty());
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
  std::vector<std::string> gone;
  for (const Announcement& announcement : announcements) {
    EXPECT_EQ(announcement.event, CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP);
    pb::RemovedLocalMaintenanceEndpoint event;
    ASSERT_TRUE(event.ParseFromString(announcement.octets));
    gone.push_back(event.ShortDebugString());
  }
  EXPECT_THAT(gone, ElementsAre("md_name: \"d\" ma_name: \"a\" local_mep_id: 1",
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
  EXPECT_THAT(announcements, SizeIs(1));
  pb::OpDeleteMaintenanceEndpoint endpoint;
  endpoint.set_md_name("d");
  endpoint.set_ma_name("b");
  endpoint.set_mep_id(1);
  middleware_.Deliver(CFM_MGR_C2S_SIG_MEP_DELETE, endpoint);
  EXPECT_THAT(announcements, SizeIs(2));
  middleware_.Deliver(CFM_MGR_C2S_SIG_MEP_DELETE, endpoint);
  EXPECT_THAT(announcements, SizeIs(2)) << "an end point that is gone goes no second time";
}

TEST_F(AServer, AnnouncesNothingWhenAnEndPointIsReplaced) {
  Start();
  CreateEndpoint("d", "a", 1);
  CreateEndpoint("d", "a", 1);
  EXPECT_THAT(announcements, IsEmpty());
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
  EXPECT_THAT(Warnings(), ElementsAre(HasSubstr("could not be announced: Cannot allocate memory")));
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
  EXPECT_TRUE(server_->cache().domains().empty());
}

TEST_F(AServer, DropsATooLargeMessageUnread) {
  Start();
  pb::OpCreateMaintenanceDomain request;
  request.set_name(std::string(Server::kMaxRequestOctets, 'd'));
  middleware_.Deliver(CFM_MGR_C2S_SIG_MD_CREATE, request);
  EXPECT_THAT(Warnings(), SizeIs(1));
  EXPECT_TRUE(server_->cache().domains().empty());
  request.set_name(std::string(Server::kMaxRequestOctets - 4, 'd'));  // tag and three octets of length
  middleware_.Deliver(CFM_MGR_C2S_SIG_MD_CREATE, request);
  EXPECT_EQ(server_->cache().domains().size(), 1U);
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
    const std::string before = compare ? server_->cache().Snapshot().SerializeAsString() : "";
    ASSERT_EQ(middleware_.Deliver(signal, octets, kOther), 1);
    if (Warnings().empty()) {
      ++accepted;
    } else {
      ++refused;
      if (compare) {
        ASSERT_EQ(server_->cache().Snapshot().SerializeAsString(), before);
      }
    }
    middleware_.Take();
    announcements.clear();
  }
  EXPECT_GT(refused, 1000);
  EXPECT_GT(accepted, 1000);
  EXPECT_FALSE(server_->cache().domains().empty() && server_->cache().probes().empty());
}

}  // namespace
