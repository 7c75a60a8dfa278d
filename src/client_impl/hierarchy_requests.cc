// One change of one domain, association or end point as one request.
#include "client_impl.h"
#include "client_impl/hierarchy_messages.h"
#include "client_server.pb.h"
#include "limid/limid.h"

namespace cfm {
namespace {

// Enumerations travel as their numeric value.
template <typename Enumeration>
std::uint32_t Code(Enumeration value) {
  return static_cast<std::uint32_t>(value);
}

}  // namespace

void ClientImpl::CreateMd(const std::string& md_name, const st_maintenance_domain_cfg& cfg) {
  client_server::OpCreateMaintenanceDomain message;
  message.set_name(md_name);
  message.set_format(cfg.format);
  message.set_level(cfg.level);
  message.set_sender_id(Code(cfg.sender_id));
  message.set_mhf_creation(Code(cfg.mhf_creation));
  Send(CFM_MGR_C2S_SIG_MD_CREATE, message);
}

void ClientImpl::UpdateMd(const std::string& md_name, SenderIdTlvContent sender_id, MhfCreationMode mhf_creation) {
  client_server::OpUpdateMaintenanceDomain message;
  message.set_name(md_name);
  message.set_sender_id(Code(sender_id));
  message.set_mhf_creation(Code(mhf_creation));
  Send(CFM_MGR_C2S_SIG_MD_UPDATE, message);
}

void ClientImpl::DeleteMd(const std::string& md_name) {
  client_server::OpDeleteMaintenanceDomain message;
  message.set_name(md_name);
  Send(CFM_MGR_C2S_SIG_MD_DELETE, message);
}

void ClientImpl::CreateMa(const std::string& md_name, const std::string& ma_name,
                          const st_maintenance_association_cfg& cfg) {
  client_server::OpCreateMaintenanceAssociation message;
  message.set_md_name(md_name);
  message.set_ma_name(ma_name);
  message.set_format(cfg.format);
  message.set_ccm_interval(Code(cfg.ccm_interval));
  message.set_sender_id(Code(cfg.sender_id));
  message.set_mhf_creation(Code(cfg.mhf_creation));
  message.mutable_vids()->Assign(cfg.vids.begin(), cfg.vids.end());
  message.mutable_mep_ids()->Assign(cfg.mep_ids.begin(), cfg.mep_ids.end());
  FillAis(cfg.ais, *message.mutable_ais());
  Send(CFM_MGR_C2S_SIG_MA_CREATE, message);
}

void ClientImpl::UpdateMa(const std::string& md_name, const std::string& ma_name, CcmInterval ccm_interval,
                          SenderIdTlvContent sender_id, MhfCreationMode mhf_creation,
                          const std::set<std::uint16_t>& mep_ids,
                          st_ais_cfg ais) {  // NOLINT(performance-unnecessary-value-param): published so
  client_server::OpUpdateMaintenanceAssociation message;
  message.set_md_name(md_name);
  message.set_ma_name(ma_name);
  message.set_ccm_interval(Code(ccm_interval));
  message.set_sender_id(Code(sender_id));
  message.set_mhf_creation(Code(mhf_creation));
  message.mutable_mep_ids()->Assign(mep_ids.begin(), mep_ids.end());
  FillAis(ais, *message.mutable_ais());
  Send(CFM_MGR_C2S_SIG_MA_UPDATE, message);
}

void ClientImpl::DeleteMa(const std::string& md_name, const std::string& ma_name) {
  client_server::OpDeleteMaintenanceAssociation message;
  message.set_md_name(md_name);
  message.set_ma_name(ma_name);
  Send(CFM_MGR_C2S_SIG_MA_DELETE, message);
}

void ClientImpl::CreateMep(const std::string& md_name, const std::string& ma_name,
                           const st_maintenance_endpoint_cfg& cfg) {
  std::uint32_t ifindex = 0;  // stays so for a port that is not there: the server waits for it
  limid_to_ifindex(cfg.port, &ifindex);
  client_server::OpCreateMaintenanceEndpoint message;
  message.set_md_name(md_name);
  message.set_ma_name(ma_name);
  message.set_mep_id(cfg.mep_id);
  message.set_direction(cfg.direction);
  message.set_ifindex(ifindex);
  message.set_primary_vid(cfg.primary_vid);
  message.set_inner_vid(cfg.inner_vid);
  message.set_ccm_priority(cfg.ccm_priority);
  message.set_admin_state(cfg.admin_state);
  message.set_tx_ccm_enabled(cfg.tx_ccm_enabled);
  message.set_aux_flag(cfg.aux_flag);
  message.set_lowest_prio_defect_allowed(Code(cfg.lowest_prio_defect_allowed));
  message.set_fng_alarm_time(cfg.fng_alarm_time);
  message.set_fng_reset_time(cfg.fng_reset_time);
  message.set_action(Code(cfg.action));
  Send(CFM_MGR_C2S_SIG_MEP_CREATE, message);
}

void ClientImpl::UpdateMep(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                           std::uint16_t primary_vid, std::uint16_t inner_vid, bool admin_state, bool tx_ccm_enabled,
                           std::uint8_t ccm_priority, Defects lowest_prio_defect_allowed, std::uint16_t fng_alarm_time,
                           std::uint16_t fng_reset_time, FaultAction action, bool aux_flag) {
  client_server::OpUpdateMaintenanceEndpoint message;
  message.set_md_name(md_name);
  message.set_ma_name(ma_name);
  message.set_mep_id(mep_id);
  message.set_primary_vid(primary_vid);
  message.set_inner_vid(inner_vid);
  message.set_ccm_priority(ccm_priority);
  message.set_admin_state(admin_state);
  message.set_tx_ccm_enabled(tx_ccm_enabled);
  message.set_aux_flag(aux_flag);
  message.set_lowest_prio_defect_allowed(Code(lowest_prio_defect_allowed));
  message.set_fng_alarm_time(fng_alarm_time);
  message.set_fng_reset_time(fng_reset_time);
  message.set_action(Code(action));
  Send(CFM_MGR_C2S_SIG_MEP_UPDATE, message);
}

void ClientImpl::DeleteMep(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id) {
  client_server::OpDeleteMaintenanceEndpoint message;
  message.set_md_name(md_name);
  message.set_ma_name(ma_name);
  message.set_mep_id(mep_id);
  Send(CFM_MGR_C2S_SIG_MEP_DELETE, message);
}

}  // namespace cfm
