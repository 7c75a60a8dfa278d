#include "contract.h"

#include <charconv>

#include "cfm/identities.h"
#include "client_server.pb.h"
#include "configuration.h"

namespace cfm_test {
namespace {

template <typename Message>
const google::protobuf::Message* Of() {
  return &Message::default_instance();
}

}  // namespace

const std::vector<SignalEntry>& ClientSignals() {
  using namespace client_server;  // NOLINT(google-build-using-namespace): a table of its messages
  static const std::vector<SignalEntry> entries = {
      {"MD_CREATE", CFM_MGR_C2S_SIG_MD_CREATE, Of<OpCreateMaintenanceDomain>()},
      {"MD_UPDATE", CFM_MGR_C2S_SIG_MD_UPDATE, Of<OpUpdateMaintenanceDomain>()},
      {"MD_DELETE", CFM_MGR_C2S_SIG_MD_DELETE, Of<OpDeleteMaintenanceDomain>()},
      {"MA_CREATE", CFM_MGR_C2S_SIG_MA_CREATE, Of<OpCreateMaintenanceAssociation>()},
      {"MA_UPDATE", CFM_MGR_C2S_SIG_MA_UPDATE, Of<OpUpdateMaintenanceAssociation>()},
      {"MA_DELETE", CFM_MGR_C2S_SIG_MA_DELETE, Of<OpDeleteMaintenanceAssociation>()},
      {"MEP_CREATE", CFM_MGR_C2S_SIG_MEP_CREATE, Of<OpCreateMaintenanceEndpoint>()},
      {"MEP_UPDATE", CFM_MGR_C2S_SIG_MEP_UPDATE, Of<OpUpdateMaintenanceEndpoint>()},
      {"MEP_DELETE", CFM_MGR_C2S_SIG_MEP_DELETE, Of<OpDeleteMaintenanceEndpoint>()},
      {"CACHE_GET", CFM_MGR_C2S_SIG_CACHE_GET, nullptr},
      {"STATS_GET", CFM_MGR_C2S_SIG_STATS_GET, nullptr},
      {"STATS_CLEAR", CFM_MGR_C2S_SIG_STATS_CLEAR, Of<OpStatsClear>()},
      {"STATUS_GET_ALL", CFM_MGR_C2S_SIG_STATUS_GET_ALL, nullptr},
      {"LT_TRIGGER", CFM_MGR_C2S_SIG_LT_TRIGGER, Of<OpLinktraceTriggerMsg>()},
      {"LB_TRIGGER", CFM_MGR_C2S_SIG_LB_TRIGGER, Of<OpLoopbackTriggerMsg>()},
      {"DM_TRIGGER", CFM_MGR_C2S_SIG_DM_TRIGGER, Of<OpDelayMeasurementTriggerMsg>()},
      {"DM_PROBE_CREATE", CFM_MGR_C2S_SIG_DM_PROBE_CREATE, Of<OpCreateDelayMeasurementProbe>()},
      {"DM_PROBE_DELETE", CFM_MGR_C2S_SIG_DM_PROBE_DELETE, Of<OpDeleteDelayMeasurementProbe>()},
      {"DM_SESSION_CREATE", CFM_MGR_C2S_SIG_DM_SESSION_CREATE, Of<OpCreateDelayMeasurementSession>()},
      {"DM_SESSION_DELETE", CFM_MGR_C2S_SIG_DM_SESSION_DELETE, Of<OpDeleteDelayMeasurementSession>()},
  };
  return entries;
}

const std::vector<SignalEntry>& ServerSignals() {
  using namespace client_server;  // NOLINT(google-build-using-namespace): a table of its messages
  static const std::vector<SignalEntry> entries = {
      {"CACHE_REPLY", CFM_MGR_S2C_SIG_CACHE_REPLY, Of<OpCacheSync>()},
      {"STATS_REPLY", CFM_MGR_S2C_SIG_STATS_REPLY, Of<OpReplyAllStats>()},
      {"LT_TRIGGER_ERROR", CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR, Of<OpLinktraceTriggerError>()},
      {"LB_TRIGGER_ERROR", CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR, Of<OpLoopbackTriggerError>()},
      {"DM_TRIGGER_ERROR", CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR, Of<OpDelayMeasurementTriggerError>()},
  };
  return entries;
}

const std::vector<EventEntry>& ServerEvents() {
  using namespace client_server;  // NOLINT(google-build-using-namespace): a table of its messages
  static const std::vector<EventEntry> entries = {
      {"STATUS_LOCAL_MEP", CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP, Of<StatusLocalMaintenanceEndpoint>()},
      {"STATUS_REMOTE_MEP", CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP, Of<StatusRemoteMaintenanceEndpoint>()},
      {"REMOVED_LOCAL_MEP", CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP, Of<RemovedLocalMaintenanceEndpoint>()},
      {"REMOVED_REMOTE_MEP", CFM_MGR_SRV_EVENT_REMOVED_REMOTE_MEP, Of<RemovedRemoteMaintenanceEndpoint>()},
      {"LINKTRACE_STARTED", CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, Of<OpLinktraceStarted>()},
      {"LINKTRACE_REPLY_RX", CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, Of<OpLinktraceReplyRx>()},
      {"LINKTRACE_ENDED", CFM_MGR_SRV_EVENT_LINKTRACE_ENDED, Of<OpLinktraceEnded>()},
      {"LOOPBACK_STARTED", CFM_MGR_SRV_EVENT_LOOPBACK_STARTED, Of<OpLoopbackStarted>()},
      {"LOOPBACK_REPLY_RX", CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX, Of<OpLoopbackReplyRx>()},
      {"LOOPBACK_ENDED", CFM_MGR_SRV_EVENT_LOOPBACK_ENDED, Of<OpLoopbackEnded>()},
      {"DELAY_MEASUREMENT_STARTED", CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED, Of<OpDelayMeasurementStarted>()},
      {"DELAY_MEASUREMENT_REPLY_RX", CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX, Of<OpDelayMeasurementReplyRx>()},
      {"DELAY_MEASUREMENT_ENDED", CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_ENDED, Of<OpDelayMeasurementEnded>()},
      {"DELAY_MEASUREMENT_SESSION_ENDED", CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED,
       Of<OpDelayMeasurementSessionEnded>()},
  };
  return entries;
}

std::string PayloadText(const google::protobuf::Message* prototype, const void* data, std::size_t size) {
  const std::string_view octets(static_cast<const char*>(data), size);
  if (prototype == nullptr) {
    return octets.empty() ? "" : "malformed " + Hex(octets);
  }
  const std::unique_ptr<google::protobuf::Message> message(prototype->New());
  return message->ParseFromString(std::string(octets)) ? Text(*message) : "malformed " + Hex(octets);
}

std::string Hex(std::string_view octets) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const char octet : octets) {
    const auto value = static_cast<unsigned char>(octet);
    text += kDigits[value >> 4U];
    text += kDigits[value & 0xfU];
  }
  return text;
}

bool FromHex(std::string_view text, std::string& octets) {
  octets.clear();
  while (!text.empty()) {
    if (text.front() == ' ') {
      text.remove_prefix(1);
      continue;
    }
    unsigned int value = 0;
    if (text.size() < 2) {
      return false;
    }
    const auto [end, error] = std::from_chars(text.data(), text.data() + 2, value, 16);
    if (error != std::errc() || end != text.data() + 2) {
      return false;
    }
    octets += static_cast<char>(value);
    text.remove_prefix(2);
  }
  return true;
}

}  // namespace cfm_test
