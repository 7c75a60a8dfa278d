// One change of one probe or session as one request. There is no update: a changed one is created again.
#include "client_impl.h"
#include "client_server.pb.h"

namespace cfm {

void ClientImpl::CreateDelayMeasurementProbe(std::uint16_t probe_id, const probe_cfg& cfg) {
  client_server::OpCreateDelayMeasurementProbe message;
  message.set_ma_name(cfg.ma_name);
  message.set_md_name(cfg.md_name);
  message.set_probe_id(probe_id);
  message.set_interval(cfg.interval);
  message.set_local_mep_id(cfg.local_mep_id);
  message.set_remote_mep_id(cfg.remote_mep_id);
  Send(CFM_MGR_C2S_SIG_DM_PROBE_CREATE, message);
}

void ClientImpl::DeleteDelayMeasurementProbe(std::uint16_t probe_id) {
  client_server::OpDeleteDelayMeasurementProbe message;
  message.set_probe_id(probe_id);
  Send(CFM_MGR_C2S_SIG_DM_PROBE_DELETE, message);
}

void ClientImpl::CreateDelayMeasurementSession(std::uint16_t probe_id, std::uint16_t session_id,
                                               const session_cfg& cfg) {
  client_server::OpCreateDelayMeasurementSession message;
  message.set_probe_id(probe_id);
  message.set_session_id(session_id);
  message.set_interval(cfg.interval);
  message.set_count(cfg.count);
  message.set_size(cfg.size);
  message.set_pcp(cfg.pcp);
  Send(CFM_MGR_C2S_SIG_DM_SESSION_CREATE, message);
}

void ClientImpl::DeleteDelayMeasurementSession(std::uint16_t probe_id, std::uint16_t session_id) {
  client_server::OpDeleteDelayMeasurementSession message;
  message.set_probe_id(probe_id);
  message.set_session_id(session_id);
  Send(CFM_MGR_C2S_SIG_DM_SESSION_DELETE, message);
}

}  // namespace cfm
