#include "client_impl/hierarchy_messages.h"

#include "client_impl/receive.h"
#include "limid/limid.h"

namespace cfm {
namespace {

st_maintenance_domain_cfg DomainFrom(const client_server::OpCreateMaintenanceDomain& message) {
  st_maintenance_domain_cfg cfg{};
  cfg.format = message.format();
  cfg.level = Low8(message.level());
  cfg.sender_id = static_cast<SenderIdTlvContent>(message.sender_id());
  cfg.mhf_creation = static_cast<MhfCreationMode>(message.mhf_creation());
  return cfg;
}

st_ais_cfg AisFrom(const client_server::Ais& message) {
  st_ais_cfg ais{};
  ais.enabled = message.enabled();
  if (ais.enabled) {
    ais.aux_u8 = Low8(message.aux_u8());
    ais.aux_u32 = message.aux_u32();
    for (const std::uint32_t id : message.aux_ids()) {
      ais.aux_ids.insert(Low16(id));
    }
    ais.aux_u16 = Low16(message.aux_u16());
  }
  ais.aux_flag = message.aux_flag();
  return ais;
}

st_maintenance_association_cfg AssociationFrom(const client_server::OpCreateMaintenanceAssociation& message) {
  st_maintenance_association_cfg cfg{};
  cfg.format = message.format();
  for (const std::uint32_t vid : message.vids()) {
    cfg.vids.push_back(Low16(vid));
  }
  cfg.ccm_interval = static_cast<CcmInterval>(message.ccm_interval());
  for (const std::uint32_t mep_id : message.mep_ids()) {
    cfg.mep_ids.insert(Low16(mep_id));
  }
  cfg.sender_id = static_cast<SenderIdTlvContent>(message.sender_id());
  cfg.mhf_creation = static_cast<MhfCreationMode>(message.mhf_creation());
  cfg.ais = AisFrom(message.ais());
  return cfg;
}

st_maintenance_endpoint_cfg EndpointFrom(const client_server::OpCreateMaintenanceEndpoint& message) {
  st_maintenance_endpoint_cfg cfg{};
  limid_from_ifindex(message.ifindex(), &cfg.port);
  cfg.mep_id = Low16(message.mep_id());
  cfg.direction = message.direction();
  cfg.primary_vid = Low16(message.primary_vid());
  cfg.inner_vid = Low16(message.inner_vid());
  cfg.admin_state = message.admin_state();
  cfg.tx_ccm_enabled = message.tx_ccm_enabled();
  cfg.ccm_priority = Low8(message.ccm_priority());
  cfg.lowest_prio_defect_allowed = static_cast<Defects>(Low8(message.lowest_prio_defect_allowed()));
  cfg.fng_alarm_time = Low16(message.fng_alarm_time());
  cfg.fng_reset_time = Low16(message.fng_reset_time());
  cfg.action = static_cast<FaultAction>(message.action());
  cfg.aux_flag = message.aux_flag();
  return cfg;
}

}  // namespace

void FillAis(const st_ais_cfg& ais, client_server::Ais& message) {
  message.set_enabled(ais.enabled);
  if (ais.enabled) {
    message.set_aux_u8(ais.aux_u8);
    message.set_aux_u32(ais.aux_u32);
    message.set_aux_u16(ais.aux_u16);
    for (const std::uint16_t id : ais.aux_ids) {
      message.add_aux_ids(id);
    }
  }
  message.set_aux_flag(ais.aux_flag);
}

std::map<std::string, hierarchy_md> HierarchyFromCache(const client_server::OpCacheSync& cache) {
  std::map<std::string, hierarchy_md> mds;
  for (const auto& domain : cache.domains()) {
    mds[domain.name()] = {DomainFrom(domain), {}};
  }
  for (const auto& association : cache.associations()) {
    mds[association.md_name()].mas[association.ma_name()] = {association.md_name(), AssociationFrom(association), {}};
  }
  for (const auto& endpoint : cache.endpoints()) {
    mds[endpoint.md_name()].mas[endpoint.ma_name()].meps[Low16(endpoint.mep_id())] = {
        endpoint.md_name(), endpoint.ma_name(), EndpointFrom(endpoint)};
  }
  return mds;
}

}  // namespace cfm
