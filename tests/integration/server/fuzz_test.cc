// Requests of random octets to the real server process.
#include <gmock/gmock.h>

#include <array>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "cfm/identities.h"
#include "raw_client.h"

namespace cfm_test {
namespace {

namespace pb = client_server;

struct Request {
  const vorbus_sig_t* signal;
  const google::protobuf::Message* payload;  // null: none
};

const std::array<Request, 20>& Requests() {
  static const std::array<Request, 20> requests = {{
      {CFM_MGR_C2S_SIG_MD_CREATE, &pb::OpCreateMaintenanceDomain::default_instance()},
      {CFM_MGR_C2S_SIG_MD_UPDATE, &pb::OpUpdateMaintenanceDomain::default_instance()},
      {CFM_MGR_C2S_SIG_MD_DELETE, &pb::OpDeleteMaintenanceDomain::default_instance()},
      {CFM_MGR_C2S_SIG_MA_CREATE, &pb::OpCreateMaintenanceAssociation::default_instance()},
      {CFM_MGR_C2S_SIG_MA_UPDATE, &pb::OpUpdateMaintenanceAssociation::default_instance()},
      {CFM_MGR_C2S_SIG_MA_DELETE, &pb::OpDeleteMaintenanceAssociation::default_instance()},
      {CFM_MGR_C2S_SIG_MEP_CREATE, &pb::OpCreateMaintenanceEndpoint::default_instance()},
      {CFM_MGR_C2S_SIG_MEP_UPDATE, &pb::OpUpdateMaintenanceEndpoint::default_instance()},
      {CFM_MGR_C2S_SIG_MEP_DELETE, &pb::OpDeleteMaintenanceEndpoint::default_instance()},
      {CFM_MGR_C2S_SIG_CACHE_GET, nullptr},
      {CFM_MGR_C2S_SIG_STATS_GET, nullptr},
      {CFM_MGR_C2S_SIG_STATS_CLEAR, &pb::OpStatsClear::default_instance()},
      {CFM_MGR_C2S_SIG_STATUS_GET_ALL, nullptr},
      {CFM_MGR_C2S_SIG_LT_TRIGGER, &pb::OpLinktraceTriggerMsg::default_instance()},
      {CFM_MGR_C2S_SIG_LB_TRIGGER, &pb::OpLoopbackTriggerMsg::default_instance()},
      {CFM_MGR_C2S_SIG_DM_TRIGGER, &pb::OpDelayMeasurementTriggerMsg::default_instance()},
      {CFM_MGR_C2S_SIG_DM_PROBE_CREATE, &pb::OpCreateDelayMeasurementProbe::default_instance()},
      {CFM_MGR_C2S_SIG_DM_PROBE_DELETE, &pb::OpDeleteDelayMeasurementProbe::default_instance()},
      {CFM_MGR_C2S_SIG_DM_SESSION_CREATE, &pb::OpCreateDelayMeasurementSession::default_instance()},
      {CFM_MGR_C2S_SIG_DM_SESSION_DELETE, &pb::OpDeleteDelayMeasurementSession::default_instance()},
  }};
  return requests;
}

class ARequest : public testing::TestWithParam<size_t> {
 protected:
  ARequest() {
    EXPECT_TRUE(client_.WaitForServer());
    pb::OpCreateMaintenanceDomain domain;
    domain.set_name("d");
    client_.Send(CFM_MGR_C2S_SIG_MD_CREATE, domain);
    pb::OpCreateMaintenanceAssociation association;
    association.set_md_name("d");
    association.set_ma_name("a");
    client_.Send(CFM_MGR_C2S_SIG_MA_CREATE, association);
    pb::OpCreateMaintenanceEndpoint endpoint;
    endpoint.set_md_name("d");
    endpoint.set_ma_name("a");
    endpoint.set_mep_id(1);
    client_.Send(CFM_MGR_C2S_SIG_MEP_CREATE, endpoint);
    pb::OpCreateDelayMeasurementProbe probe;
    probe.set_probe_id(1);
    client_.Send(CFM_MGR_C2S_SIG_DM_PROBE_CREATE, probe);
    pb::OpCreateDelayMeasurementSession session;
    session.set_probe_id(1);
    session.set_session_id(1);
    client_.Send(CFM_MGR_C2S_SIG_DM_SESSION_CREATE, session);
  }

  std::string RandomOctets() {
    std::string octets(random_() % 48, '\0');
    for (char& octet : octets) octet = static_cast<char>(random_());
    return octets;
  }

  // Octets that are no message of this request.
  std::string Malformed(const google::protobuf::Message& payload) {
    const std::unique_ptr<google::protobuf::Message> parsed(payload.New());
    while (true) {
      std::string octets = RandomOctets();
      if (!parsed->ParseFromString(octets)) return octets;
    }
  }

  // A message that the server would act on: every field set, the keys those of the objects that it holds.
  static std::unique_ptr<google::protobuf::Message> Effective(const google::protobuf::Message& payload) {
    std::unique_ptr<google::protobuf::Message> message(payload.New());
    const auto* reflection = message->GetReflection();
    for (int i = 0; i < message->GetDescriptor()->field_count(); ++i) {
      const auto* field = message->GetDescriptor()->field(i);
      if (field->is_repeated()) {
        reflection->AddUInt32(message.get(), field, 77);
      } else if (field->cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_STRING) {
        reflection->SetString(message.get(), field, field->name() == "ma_name" ? "a" : "d");
      } else if (field->cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_UINT32) {
        reflection->SetUInt32(message.get(), field, field->name().ends_with("_id") ? 1 : 77);
      } else if (field->cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_BOOL) {
        reflection->SetBool(message.get(), field, true);
      }
    }
    return message;
  }

  const Request& request_ = Requests().at(GetParam());
  const unsigned int seed_ = std::random_device()();
  testing::ScopedTrace trace_{__FILE__, __LINE__, "seed " + std::to_string(seed_)};
  std::mt19937 random_{seed_};
  ServerProcess server_{{"--log-level", "error"}};
  RawClient client_{server_.directory()};
};

TEST_P(ARequest, OfAnyOctetsLeavesTheServerAlive) {
  for (int i = 0; i < 1000; ++i) client_.Send(request_.signal, RandomOctets());
  client_.Cache();
  EXPECT_TRUE(server_.process().Running());
}

INSTANTIATE_TEST_SUITE_P(Number, ARequest, testing::Range<size_t>(0, 20),
                         [](const auto& which) { return std::to_string(which.param + 1); });

class ARequestWithAMessage : public ARequest {};

TEST_P(ARequestWithAMessage, ChangesNothingWhenItIsMalformed) {
  const std::string before = client_.Cache().SerializeAsString();
  for (int i = 0; i < 1000; ++i) client_.Send(request_.signal, Malformed(*request_.payload));
  EXPECT_EQ(client_.Cache().SerializeAsString(), before);
  EXPECT_TRUE(server_.process().Running());
}

std::vector<size_t> NumbersWithAMessage(bool only_configuration) {
  std::vector<size_t> numbers;
  for (size_t i = 0; i < Requests().size(); ++i) {
    const bool configuration = i < 9 || i >= 16;
    if (Requests().at(i).payload != nullptr && (configuration || !only_configuration)) numbers.push_back(i);
  }
  return numbers;
}

INSTANTIATE_TEST_SUITE_P(Number, ARequestWithAMessage, testing::ValuesIn(NumbersWithAMessage(false)),
                         [](const auto& which) { return std::to_string(which.param + 1); });

class AConfigurationRequest : public ARequest {};

TEST_P(AConfigurationRequest, ChangesNothingWhenItIsTooLarge) {
  const std::string before = client_.Cache().SerializeAsString();
  const auto request = Effective(*request_.payload);
  const auto too_large = Effective(*request_.payload);
  too_large->GetReflection()->MutableUnknownFields(too_large.get())->AddLengthDelimited(900, std::string(2 << 20, 'x'));
  client_.Send(request_.signal, *too_large);
  EXPECT_EQ(client_.Cache().SerializeAsString(), before);
  client_.Send(request_.signal, *request);
  EXPECT_NE(client_.Cache().SerializeAsString(), before) << "the request of the usual size changes something";
}

INSTANTIATE_TEST_SUITE_P(Number, AConfigurationRequest, testing::ValuesIn(NumbersWithAMessage(true)),
                         [](const auto& which) { return std::to_string(which.param + 1); });

}  // namespace
}  // namespace cfm_test
