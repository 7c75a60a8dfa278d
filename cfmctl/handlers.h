// The status handler's interface with a default for every notification: a command says only what it listens to.
#ifndef CFMCTL_HANDLERS_H
#define CFMCTL_HANDLERS_H

#include "cfm/status.h"

namespace cfmctl {

class StatusListener : public cfm::ReceivedStatusHandlerIntf {
 public:
  void OnLocalMepStatus(const std::string& /*md*/, const std::string& /*ma*/, std::uint16_t /*mep_id*/,
                        const cfm::st_local_mep_status& /*status*/) override {}
  void OnRemoteMepStatus(const std::string& /*md*/, const std::string& /*ma*/, std::uint16_t /*local_mep_id*/,
                         std::uint16_t /*remote_mep_id*/, const cfm::st_remote_mep_status& /*status*/) override {}
  void OnLocalMepRemoved(const std::string& /*md*/, const std::string& /*ma*/, std::uint16_t /*mep_id*/) override {}
  void OnRemoteMepRemoved(const std::string& /*md*/, const std::string& /*ma*/, std::uint16_t /*local_mep_id*/,
                          std::uint16_t /*remote_mep_id*/) override {}
  void OnLinktraceStarted(const std::string& /*md*/, const std::string& /*ma*/, std::uint16_t /*mep_id*/,
                          std::uint32_t /*transaction_id*/, cfm::st_mac /*target_mac*/, std::uint16_t /*target_mep_id*/,
                          bool /*has_optional_value*/, std::uint32_t /*optional_value*/) override {}
  void OnLinktraceEnded(const std::string& /*md*/, const std::string& /*ma*/, std::uint16_t /*mep_id*/,
                        std::uint32_t /*transaction_id*/) override {}
  void OnLinktraceReply(const std::string& /*md*/, const std::string& /*ma*/, std::uint16_t /*mep_id*/,
                        const cfm::LinktraceReplyEntry& /*reply*/) override {}
  void OnDelayMeasurementSessionEnded(const cfm::delay_measurement_session_report& /*report*/) override {}
  void OnServerFound() override {}

 protected:
  ~StatusListener() = default;
};

}  // namespace cfmctl

#endif
