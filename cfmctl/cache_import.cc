#include "cache_import.h"

#include <cstdint>

namespace cfmctl {
namespace {

// Wider values than the record's keep their low bits, as in the client library.
template <class To>
To Narrow(std::uint32_t value) {
  return static_cast<To>(value);
}

cfm::st_ais_cfg ImportAis(const client_server::Ais& message) {
  cfm::st_ais_cfg ais{};
  ais.enabled = message.enabled();
  ais.aux_flag = message.aux_flag();
  if (!ais.enabled) return ais;
  ais.aux_u8 = Narrow<std::uint8_t>(message.aux_u8());
  ais.aux_u32 = message.aux_u32();
  ais.aux_u16 = Narrow<std::uint16_t>(message.aux_u16());
  for (const std::uint32_t id : message.aux_ids()) ais.aux_ids.insert(Narrow<std::uint16_t>(id));
  return ais;
}

cfm::st_maintenance_association_cfg ImportAssociation(const client_server::OpCreateMaintenanceAssociation& message) {
  cfm::st_maintenance_association_cfg cfg{};
  cfg.format = message.format();
  cfg.ccm_interval = static_cast<cfm::CcmInterval>(message.ccm_interval());
  cfg.sender_id = static_cast<cfm::SenderIdTlvContent>(message.sender_id());
  cfg.mhf_creation = static_cast<cfm::MhfCreationMode>(message.mhf_creation());
  for (const std::uint32_t vid : message.vids()) cfg.vids.push_back(Narrow<std::uint16_t>(vid));
  for (const std::uint32_t id : message.mep_ids()) cfg.mep_ids.insert(Narrow<std::uint16_t>(id));
  cfg.ais = ImportAis(message.ais());
  return cfg;
}

cfm::st_maintenance_endpoint_cfg ImportEndPoint(const client_server::OpCreateMaintenanceEndpoint& message) {
  cfm::st_maintenance_endpoint_cfg cfg{};
  cfg.mep_id = Narrow<std::uint16_t>(message.mep_id());
  cfg.direction = message.direction();
  cfg.port = message.ifindex();
  cfg.primary_vid = Narrow<std::uint16_t>(message.primary_vid());
  cfg.inner_vid = Narrow<std::uint16_t>(message.inner_vid());
  cfg.admin_state = message.admin_state();
  cfg.tx_ccm_enabled = message.tx_ccm_enabled();
  cfg.ccm_priority = Narrow<std::uint8_t>(message.ccm_priority());
  cfg.lowest_prio_defect_allowed =
      static_cast<cfm::Defects>(Narrow<std::uint8_t>(message.lowest_prio_defect_allowed()));
  cfg.fng_alarm_time = Narrow<std::uint16_t>(message.fng_alarm_time());
  cfg.fng_reset_time = Narrow<std::uint16_t>(message.fng_reset_time());
  cfg.action = static_cast<cfm::FaultAction>(message.action());
  cfg.aux_flag = message.aux_flag();
  return cfg;
}

}  // namespace

Model ImportCache(const client_server::OpCacheSync& cache) {
  Model model;
  auto& mds = model.hierarchy.mds;
  for (const auto& message : cache.domains()) {
    mds[message.name()].cfg = {.format = message.format(),
                               .level = Narrow<std::uint8_t>(message.level()),
                               .sender_id = static_cast<cfm::SenderIdTlvContent>(message.sender_id()),
                               .mhf_creation = static_cast<cfm::MhfCreationMode>(message.mhf_creation())};
  }
  for (const auto& message : cache.associations()) {
    cfm::hierarchy_ma& ma = mds[message.md_name()].mas[message.ma_name()];
    ma.md_name = message.md_name();
    ma.cfg = ImportAssociation(message);
  }
  for (const auto& message : cache.endpoints()) {
    cfm::hierarchy_ma& ma = mds[message.md_name()].mas[message.ma_name()];
    ma.md_name = message.md_name();
    ma.meps[Narrow<std::uint16_t>(message.mep_id())] = {
        .md_name = message.md_name(), .ma_name = message.ma_name(), .cfg = ImportEndPoint(message)};
  }
  auto& probes = model.probes.probes;
  for (const auto& message : cache.probes()) {
    cfm::probe_cfg& probe = probes[Narrow<std::uint16_t>(message.probe_id())];
    probe.probe_id = Narrow<std::uint16_t>(message.probe_id());
    probe.interval = Narrow<std::uint16_t>(message.interval());
    probe.md_name = message.md_name();
    probe.ma_name = message.ma_name();
    probe.local_mep_id = Narrow<std::uint16_t>(message.local_mep_id());
    probe.remote_mep_id = Narrow<std::uint16_t>(message.remote_mep_id());
  }
  for (const auto& message : cache.sessions()) {
    probes[Narrow<std::uint16_t>(message.probe_id())].sessions[Narrow<std::uint16_t>(message.session_id())] = {
        .count = Narrow<std::uint16_t>(message.count()),
        .interval = Narrow<std::uint16_t>(message.interval()),
        .size = Narrow<std::uint16_t>(message.size()),
        .pcp = Narrow<std::uint8_t>(message.pcp())};
  }
  return model;
}

}  // namespace cfmctl
