#include "contract/server.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "cfm/identities.h"

namespace cfm::contract {
namespace {

namespace pb = client_server;

// Debug lines show this much of a request.
constexpr size_t kMaxShownOctets = 1000;

const char* InWords(protocol::TestError reason) {
  switch (reason) {
    case protocol::TestError::kNoSuchMep:
      return "there is no such MEP";
    case protocol::TestError::kMepNotOperational:
      return "the MEP is not operational";
    case protocol::TestError::kTargetUnknown:
      return "the target is unknown";
    case protocol::TestError::kBadParameter:
      return "a parameter is out of its range";
    case protocol::TestError::kTooManyTests:
      return "too many tests are running";
  }
  return "for an unknown reason";
}

template <typename Error, typename Trigger>
Error ErrorOf(const Trigger& trigger, protocol::TestError reason) {
  Error error;
  error.set_md_name(trigger.md_name());
  error.set_ma_name(trigger.ma_name());
  error.set_trigger_id(trigger.trigger_id());
  error.set_error_code(static_cast<uint32_t>(reason));
  error.set_mep_id(trigger.mep_id());
  error.set_target_mep_id(trigger.target_mep_id());
  return error;
}

}  // namespace

Server::Server(vorbus_t* token, zlog_category_t* log, Cache& cache, Machinery& machinery)
    : token_(token), log_(log), cache_(cache), machinery_(machinery) {
  struct Road {
    const vorbus_sig_t* signal;
    vorbus_sig_fn handler;
  };
  const std::array roads = {
      Road{CFM_MGR_C2S_SIG_MD_CREATE, Receive<pb::OpCreateMaintenanceDomain>},
      Road{CFM_MGR_C2S_SIG_MD_UPDATE, Receive<pb::OpUpdateMaintenanceDomain>},
      Road{CFM_MGR_C2S_SIG_MD_DELETE, Receive<pb::OpDeleteMaintenanceDomain>},
      Road{CFM_MGR_C2S_SIG_MA_CREATE, Receive<pb::OpCreateMaintenanceAssociation>},
      Road{CFM_MGR_C2S_SIG_MA_UPDATE, Receive<pb::OpUpdateMaintenanceAssociation>},
      Road{CFM_MGR_C2S_SIG_MA_DELETE, Receive<pb::OpDeleteMaintenanceAssociation>},
      Road{CFM_MGR_C2S_SIG_MEP_CREATE, Receive<pb::OpCreateMaintenanceEndpoint>},
      Road{CFM_MGR_C2S_SIG_MEP_UPDATE, Receive<pb::OpUpdateMaintenanceEndpoint>},
      Road{CFM_MGR_C2S_SIG_MEP_DELETE, Receive<pb::OpDeleteMaintenanceEndpoint>},
      Road{CFM_MGR_C2S_SIG_CACHE_GET, ReceiveEmpty<&Server::AnswerCache>},
      Road{CFM_MGR_C2S_SIG_STATS_GET, ReceiveEmpty<&Server::AnswerStatistics>},
      Road{CFM_MGR_C2S_SIG_STATS_CLEAR, Receive<pb::OpStatsClear>},
      Road{CFM_MGR_C2S_SIG_STATUS_GET_ALL, ReceiveEmpty<&Server::AnswerStatus>},
      Road{CFM_MGR_C2S_SIG_LT_TRIGGER, Receive<pb::OpLinktraceTriggerMsg>},
      Road{CFM_MGR_C2S_SIG_LB_TRIGGER, Receive<pb::OpLoopbackTriggerMsg>},
      Road{CFM_MGR_C2S_SIG_DM_TRIGGER, Receive<pb::OpDelayMeasurementTriggerMsg>},
      Road{CFM_MGR_C2S_SIG_DM_PROBE_CREATE, Receive<pb::OpCreateDelayMeasurementProbe>},
      Road{CFM_MGR_C2S_SIG_DM_PROBE_DELETE, Receive<pb::OpDeleteDelayMeasurementProbe>},
      Road{CFM_MGR_C2S_SIG_DM_SESSION_CREATE, Receive<pb::OpCreateDelayMeasurementSession>},
      Road{CFM_MGR_C2S_SIG_DM_SESSION_DELETE, Receive<pb::OpDeleteDelayMeasurementSession>},
  };
  registrations_.reserve(roads.size());
  for (const Road& road : roads) {
    vorbus_registration_t* registration = vorbus_sig_register_sized(token, road.signal, road.handler, this);
    if (registration == nullptr) {
      const int error = errno;
      for (auto& made : registrations_) vorbus_sig_deregister(&made);
      throw std::system_error(error, std::generic_category(), "registering for the clients' requests");
    }
    registrations_.push_back(registration);
  }
}

Server::~Server() {
  for (auto& registration : registrations_) vorbus_sig_deregister(&registration);
}

template <typename Request>
void Server::Receive(vorbus_t* /*token*/, void* user, const vorbus_pid_t* sender, void* data, size_t size) {
  auto& server = *static_cast<Server*>(user);
  Request request;
  if (size > kMaxRequestOctets || !request.ParseFromArray(data, static_cast<int>(size))) {
    server.Warn(*sender, Request::descriptor()->name(), "malformed, " + std::to_string(size) + " octets");
    return;
  }
  server.Note(*sender, request);
  server.Handle(*sender, request);
}

template <void (Server::*answer)(vorbus_pid_t)>
void Server::ReceiveEmpty(vorbus_t* /*token*/, void* user, const vorbus_pid_t* sender, void* /*data*/,
                          size_t /*size*/) {
  (static_cast<Server*>(user)->*answer)(*sender);
}

template <typename Request>
void Server::Handle(vorbus_pid_t sender, const Request& request) {
  const Outcome outcome = cache_.Apply(request);
  if (const auto* refusal = std::get_if<Refusal>(&outcome)) {
    Warn(sender, Request::descriptor()->name(), refusal->text);
  } else {
    machinery_.ConfigurationChanged(std::get<Change>(outcome));
  }
}

void Server::Handle(vorbus_pid_t /*sender*/, const pb::OpStatsClear& request) {
  machinery_.ClearStatistics(request);
}

void Server::Handle(vorbus_pid_t sender, const pb::OpLinktraceTriggerMsg& trigger) {
  const auto reason = machinery_.Start(trigger);
  if (!reason) return;
  // The contract has no code for it: what the log says is all that there is to know.
  Warn(sender, trigger.GetDescriptor()->name(), InWords(*reason));
  pb::OpLinktraceTriggerError error;
  *error.mutable_key() = trigger.key();
  error.set_ttl(trigger.ttl());
  Send(sender, CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR, error);
}

void Server::Handle(vorbus_pid_t sender, const pb::OpLoopbackTriggerMsg& trigger) {
  if (const auto reason = machinery_.Start(trigger)) {
    Send(sender, CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR, ErrorOf<pb::OpLoopbackTriggerError>(trigger, *reason));
  }
}

void Server::Handle(vorbus_pid_t sender, const pb::OpDelayMeasurementTriggerMsg& trigger) {
  if (const auto reason = machinery_.Start(trigger)) {
    Send(sender, CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR, ErrorOf<pb::OpDelayMeasurementTriggerError>(trigger, *reason));
  }
}

void Server::AnswerCache(vorbus_pid_t sender) {
  zlog_debug(log_, "client %u asks for the cache", sender);
  Send(sender, CFM_MGR_S2C_SIG_CACHE_REPLY, cache_.Snapshot());
}

void Server::AnswerStatistics(vorbus_pid_t sender) {
  zlog_debug(log_, "client %u asks for the statistics", sender);
  Send(sender, CFM_MGR_S2C_SIG_STATS_REPLY, machinery_.Statistics());
}

void Server::AnswerStatus(vorbus_pid_t sender) {
  zlog_debug(log_, "client %u asks for the status of every MEP", sender);
  machinery_.AnnounceStatus();
}

void Server::Send(vorbus_pid_t to, const vorbus_sig_t* signal, const google::protobuf::Message& message) {
  const std::string octets = message.SerializeAsString();
  const int result = vorbus_sig_send(token_, &to, signal, octets.data(), octets.size());
  if (result < 0) {
    zlog_warn(log_, "%s of %zu octets did not reach client %u: %s", message.GetDescriptor()->name().c_str(),
              octets.size(), to, std::strerror(-result));
  }
}

void Server::Warn(vorbus_pid_t sender, const std::string& request, const std::string& text) {
  zlog_warn(log_, "refused %s of client %u: %s", request.c_str(), sender, text.c_str());
}

void Server::Note(vorbus_pid_t sender, const google::protobuf::Message& request) {
  if (zlog_level_enabled(log_, ZLOG_LEVEL_DEBUG) == 0) return;
  std::string text = request.ShortDebugString();
  if (text.size() > kMaxShownOctets) text.replace(kMaxShownOctets, std::string::npos, "...");
  zlog_debug(log_, "client %u: %s {%s}", sender, request.GetDescriptor()->name().c_str(), text.c_str());
}

}  // namespace cfm::contract
