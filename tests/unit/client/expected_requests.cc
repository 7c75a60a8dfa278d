#include "expected_requests.h"

#include <sstream>

namespace expected {

namespace pb = client_server;
using recording::Sent;

// ---- Messages ----

pb::Ais AisOf(const cfm::st_ais_cfg& cfg) {
  pb::Ais ais;
  ais.set_enabled(cfg.enabled);
  ais.set_aux_flag(cfg.aux_flag);
  if (cfg.enabled) {
    ais.set_aux_u8(cfg.aux_u8);
    ais.set_aux_u32(cfg.aux_u32);
    ais.set_aux_u16(cfg.aux_u16);
    for (const std::uint16_t id : cfg.aux_ids) {
      ais.add_aux_ids(id);
    }
  }
  return ais;
}

pb::OpCreateMaintenanceDomain CreateMdMessage(const std::string& name, const cfm::st_maintenance_domain_cfg& cfg) {
  pb::OpCreateMaintenanceDomain message;
  message.set_name(name);
  message.set_format(cfg.format);
  message.set_level(cfg.level);
  message.set_sender_id(static_cast<std::uint32_t>(cfg.sender_id));
  message.set_mhf_creation(static_cast<std::uint32_t>(cfg.mhf_creation));
  return message;
}

pb::OpCreateMaintenanceAssociation CreateMaMessage(const std::string& md_name, const std::string& ma_name,
                                                   const cfm::st_maintenance_association_cfg& cfg) {
  pb::OpCreateMaintenanceAssociation message;
  message.set_md_name(md_name);
  message.set_ma_name(ma_name);
  message.set_format(cfg.format);
  message.set_ccm_interval(static_cast<std::uint32_t>(cfg.ccm_interval));
  message.set_sender_id(static_cast<std::uint32_t>(cfg.sender_id));
  message.set_mhf_creation(static_cast<std::uint32_t>(cfg.mhf_creation));
  for (const std::uint16_t vid : cfg.vids) {
    message.add_vids(vid);
  }
  for (const std::uint16_t id : cfg.mep_ids) {
    message.add_mep_ids(id);
  }
  *message.mutable_ais() = AisOf(cfg.ais);
  return message;
}

pb::OpCreateMaintenanceEndpoint CreateMepMessage(const std::string& md_name, const std::string& ma_name,
                                                 const cfm::st_maintenance_endpoint_cfg& cfg) {
  pb::OpCreateMaintenanceEndpoint message;
  message.set_md_name(md_name);
  message.set_ma_name(ma_name);
  message.set_mep_id(cfg.mep_id);
  message.set_direction(cfg.direction);
  message.set_ifindex(cfg.port >= 1 && cfg.port <= 64 ? 1000 + cfg.port : 0);
  message.set_primary_vid(cfg.primary_vid);
  message.set_inner_vid(cfg.inner_vid);
  message.set_ccm_priority(cfg.ccm_priority);
  message.set_admin_state(cfg.admin_state);
  message.set_tx_ccm_enabled(cfg.tx_ccm_enabled);
  message.set_aux_flag(cfg.aux_flag);
  message.set_lowest_prio_defect_allowed(static_cast<std::uint32_t>(cfg.lowest_prio_defect_allowed));
  message.set_fng_alarm_time(cfg.fng_alarm_time);
  message.set_fng_reset_time(cfg.fng_reset_time);
  message.set_action(static_cast<std::uint32_t>(cfg.action));
  return message;
}

pb::OpCreateDelayMeasurementProbe CreateProbeMessage(std::uint16_t probe_id, const cfm::probe_cfg& cfg) {
  pb::OpCreateDelayMeasurementProbe message;
  message.set_ma_name(cfg.ma_name);
  message.set_md_name(cfg.md_name);
  message.set_probe_id(probe_id);
  message.set_interval(cfg.interval);
  message.set_local_mep_id(cfg.local_mep_id);
  message.set_remote_mep_id(cfg.remote_mep_id);
  return message;
}

pb::OpCreateDelayMeasurementSession CreateSessionMessage(std::uint16_t probe_id, std::uint16_t session_id,
                                                         const cfm::session_cfg& cfg) {
  pb::OpCreateDelayMeasurementSession message;
  message.set_probe_id(probe_id);
  message.set_session_id(session_id);
  message.set_interval(cfg.interval);
  message.set_count(cfg.count);
  message.set_size(cfg.size);
  message.set_pcp(cfg.pcp);
  return message;
}

// ---- Requests ----

Entry CreateMd(const std::string& name, const cfm::st_maintenance_domain_cfg& cfg, vorbus_pid_t to) {
  return Sent(CFM_MGR_C2S_SIG_MD_CREATE, to, CreateMdMessage(name, cfg));
}

Entry UpdateMd(const std::string& name, const cfm::st_maintenance_domain_cfg& cfg, vorbus_pid_t to) {
  pb::OpUpdateMaintenanceDomain message;
  message.set_name(name);
  message.set_sender_id(static_cast<std::uint32_t>(cfg.sender_id));
  message.set_mhf_creation(static_cast<std::uint32_t>(cfg.mhf_creation));
  return Sent(CFM_MGR_C2S_SIG_MD_UPDATE, to, message);
}

Entry DeleteMd(const std::string& name, vorbus_pid_t to) {
  pb::OpDeleteMaintenanceDomain message;
  message.set_name(name);
  return Sent(CFM_MGR_C2S_SIG_MD_DELETE, to, message);
}

Entry CreateMa(const std::string& md_name, const std::string& ma_name, const cfm::st_maintenance_association_cfg& cfg,
               vorbus_pid_t to) {
  return Sent(CFM_MGR_C2S_SIG_MA_CREATE, to, CreateMaMessage(md_name, ma_name, cfg));
}

Entry UpdateMa(const std::string& md_name, const std::string& ma_name, const cfm::st_maintenance_association_cfg& cfg,
               vorbus_pid_t to) {
  pb::OpUpdateMaintenanceAssociation message;
  message.set_md_name(md_name);
  message.set_ma_name(ma_name);
  message.set_ccm_interval(static_cast<std::uint32_t>(cfg.ccm_interval));
  message.set_sender_id(static_cast<std::uint32_t>(cfg.sender_id));
  message.set_mhf_creation(static_cast<std::uint32_t>(cfg.mhf_creation));
  for (const std::uint16_t id : cfg.mep_ids) {
    message.add_mep_ids(id);
  }
  *message.mutable_ais() = AisOf(cfg.ais);
  return Sent(CFM_MGR_C2S_SIG_MA_UPDATE, to, message);
}

Entry DeleteMa(const std::string& md_name, const std::string& ma_name, vorbus_pid_t to) {
  pb::OpDeleteMaintenanceAssociation message;
  message.set_md_name(md_name);
  message.set_ma_name(ma_name);
  return Sent(CFM_MGR_C2S_SIG_MA_DELETE, to, message);
}

Entry CreateMep(const cfm::hierarchy_mep& mep, vorbus_pid_t to) {
  return Sent(CFM_MGR_C2S_SIG_MEP_CREATE, to, CreateMepMessage(mep.md_name, mep.ma_name, mep.cfg));
}

Entry UpdateMep(const cfm::hierarchy_mep& mep, vorbus_pid_t to) {
  pb::OpUpdateMaintenanceEndpoint message;
  message.set_md_name(mep.md_name);
  message.set_ma_name(mep.ma_name);
  message.set_mep_id(mep.cfg.mep_id);
  message.set_primary_vid(mep.cfg.primary_vid);
  message.set_inner_vid(mep.cfg.inner_vid);
  message.set_ccm_priority(mep.cfg.ccm_priority);
  message.set_admin_state(mep.cfg.admin_state);
  message.set_tx_ccm_enabled(mep.cfg.tx_ccm_enabled);
  message.set_aux_flag(mep.cfg.aux_flag);
  message.set_lowest_prio_defect_allowed(static_cast<std::uint32_t>(mep.cfg.lowest_prio_defect_allowed));
  message.set_fng_alarm_time(mep.cfg.fng_alarm_time);
  message.set_fng_reset_time(mep.cfg.fng_reset_time);
  message.set_action(static_cast<std::uint32_t>(mep.cfg.action));
  return Sent(CFM_MGR_C2S_SIG_MEP_UPDATE, to, message);
}

Entry DeleteMep(const cfm::hierarchy_mep& mep, vorbus_pid_t to) {
  pb::OpDeleteMaintenanceEndpoint message;
  message.set_md_name(mep.md_name);
  message.set_ma_name(mep.ma_name);
  message.set_mep_id(mep.cfg.mep_id);
  return Sent(CFM_MGR_C2S_SIG_MEP_DELETE, to, message);
}

Entry CreateProbe(std::uint16_t probe_id, const cfm::probe_cfg& cfg, vorbus_pid_t to) {
  return Sent(CFM_MGR_C2S_SIG_DM_PROBE_CREATE, to, CreateProbeMessage(probe_id, cfg));
}

Entry DeleteProbe(std::uint16_t probe_id, vorbus_pid_t to) {
  pb::OpDeleteDelayMeasurementProbe message;
  message.set_probe_id(probe_id);
  return Sent(CFM_MGR_C2S_SIG_DM_PROBE_DELETE, to, message);
}

Entry CreateSession(std::uint16_t probe_id, std::uint16_t session_id, const cfm::session_cfg& cfg, vorbus_pid_t to) {
  return Sent(CFM_MGR_C2S_SIG_DM_SESSION_CREATE, to, CreateSessionMessage(probe_id, session_id, cfg));
}

Entry DeleteSession(std::uint16_t probe_id, std::uint16_t session_id, vorbus_pid_t to) {
  pb::OpDeleteDelayMeasurementSession message;
  message.set_probe_id(probe_id);
  message.set_session_id(session_id);
  return Sent(CFM_MGR_C2S_SIG_DM_SESSION_DELETE, to, message);
}

Journal Requests(const Journal& journal) {
  return recording::Only(journal, {recording::Kind::kSend});
}
Journal Lines(const Journal& journal) {
  return recording::Only(journal, {recording::Kind::kLog});
}

// ---- Records ----

cfm::hierarchy_md Md(std::uint8_t level) {
  cfm::hierarchy_md md{};
  md.cfg = {.format = 4,
            .level = level,
            .sender_id = cfm::SenderIdTlvContent::kChassis,
            .mhf_creation = cfm::MhfCreationMode::kExplicit};
  return md;
}

cfm::hierarchy_ma Ma(const std::string& md_name, const std::vector<std::uint16_t>& vids) {
  cfm::hierarchy_ma ma{};
  ma.md_name = md_name;
  ma.cfg.format = 32;
  ma.cfg.vids = vids;
  ma.cfg.ccm_interval = cfm::CcmInterval::k1s;
  ma.cfg.mep_ids = {1, 2, 3};
  ma.cfg.sender_id = cfm::SenderIdTlvContent::kDefer;
  ma.cfg.mhf_creation = cfm::MhfCreationMode::kDefault;
  ma.cfg.ais = {.enabled = true, .aux_u8 = 6, .aux_u32 = 60, .aux_ids = {100, 200}, .aux_u16 = 5, .aux_flag = true};
  return ma;
}

cfm::hierarchy_mep Mep(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id) {
  cfm::hierarchy_mep mep{};
  mep.md_name = md_name;
  mep.ma_name = ma_name;
  mep.cfg = {.mep_id = mep_id,
             .direction = 2,
             .port = 11,
             .primary_vid = 10,
             .inner_vid = 20,
             .admin_state = true,
             .tx_ccm_enabled = false,
             .ccm_priority = 7,
             .lowest_prio_defect_allowed = cfm::Defects::kRemoteCcmAndHigher,
             .fng_alarm_time = 250,
             .fng_reset_time = 1000,
             .action = cfm::FaultAction::kShutdown,
             .aux_flag = true};
  return mep;
}

cfm::hierarchy_ma& AddMa(cfm::hierarchy& tree, const std::string& md_name, const std::string& ma_name,
                         std::initializer_list<std::uint16_t> mep_ids) {
  cfm::hierarchy_md& md = tree.mds.try_emplace(md_name, Md()).first->second;
  cfm::hierarchy_ma& ma = md.mas[ma_name] = Ma(md_name);
  for (const std::uint16_t id : mep_ids) {
    ma.meps[id] = Mep(md_name, ma_name, id);
  }
  return ma;
}

cfm::probe_cfg Probe(std::uint16_t probe_id, std::initializer_list<std::uint16_t> session_ids) {
  cfm::probe_cfg probe{};
  probe.probe_id = probe_id;
  probe.interval = 1000;
  probe.md_name = "md-a";
  probe.ma_name = "ma-a";
  probe.local_mep_id = 1;
  probe.remote_mep_id = 2;
  for (const std::uint16_t id : session_ids) {
    probe.sessions[id] = Session(id);
  }
  return probe;
}

cfm::session_cfg Session(std::uint16_t number) {
  return {.count = static_cast<std::uint16_t>(10 + number), .interval = 100, .size = 64, .pcp = 5};
}

void AddToCache(const cfm::hierarchy& tree, pb::OpCacheSync* cache) {
  for (const auto& [md_name, md] : tree.mds) {
    *cache->add_domains() = CreateMdMessage(md_name, md.cfg);
    for (const auto& [ma_name, ma] : md.mas) {
      *cache->add_associations() = CreateMaMessage(md_name, ma_name, ma.cfg);
      for (const auto& [mep_id, mep] : ma.meps) {
        *cache->add_endpoints() = CreateMepMessage(md_name, ma_name, mep.cfg);
      }
    }
  }
}

void AddToCache(const cfm::probe& probes, pb::OpCacheSync* cache) {
  for (const auto& [probe_id, probe] : probes.probes) {
    *cache->add_probes() = CreateProbeMessage(probe_id, probe);
    for (const auto& [session_id, session] : probe.sessions) {
      *cache->add_sessions() = CreateSessionMessage(probe_id, session_id, session);
    }
  }
}

// ---- Comparison ----

namespace {

// Every member of every record of a tree, one per line, so that two trees compare as text.
std::string Flatten(const cfm::ClientImpl::MdMap& mds) {
  std::ostringstream out;
  for (const auto& [md_name, md] : mds) {
    out << "md '" << md_name << "' format " << md.cfg.format << " level " << +md.cfg.level << " sender_id "
        << static_cast<std::uint32_t>(md.cfg.sender_id) << " mhf_creation "
        << static_cast<std::uint32_t>(md.cfg.mhf_creation) << '\n';
    for (const auto& [ma_name, ma] : md.mas) {
      out << "md '" << md_name << "' ma '" << ma_name << "' md_name '" << ma.md_name << "' format " << ma.cfg.format
          << " vids";
      for (const std::uint16_t vid : ma.cfg.vids) {
        out << ' ' << vid;
      }
      out << " ccm_interval " << static_cast<std::uint32_t>(ma.cfg.ccm_interval) << " mep_ids";
      for (const std::uint16_t id : ma.cfg.mep_ids) {
        out << ' ' << id;
      }
      out << " sender_id " << static_cast<std::uint32_t>(ma.cfg.sender_id) << " mhf_creation "
          << static_cast<std::uint32_t>(ma.cfg.mhf_creation) << " ais " << ma.cfg.ais.enabled << ' '
          << +ma.cfg.ais.aux_u8 << ' ' << ma.cfg.ais.aux_u32 << ' ' << ma.cfg.ais.aux_u16 << ' ' << ma.cfg.ais.aux_flag
          << " aux_ids";
      for (const std::uint16_t id : ma.cfg.ais.aux_ids) {
        out << ' ' << id;
      }
      out << '\n';
      for (const auto& [mep_id, mep] : ma.meps) {
        const cfm::st_maintenance_endpoint_cfg& cfg = mep.cfg;
        out << "md '" << md_name << "' ma '" << ma_name << "' mep " << mep_id << " md_name '" << mep.md_name
            << "' ma_name '" << mep.ma_name << "' mep_id " << cfg.mep_id << " direction " << cfg.direction << " port "
            << cfg.port << " primary_vid " << cfg.primary_vid << " inner_vid " << cfg.inner_vid << " admin_state "
            << cfg.admin_state << " tx_ccm_enabled " << cfg.tx_ccm_enabled << " ccm_priority " << +cfg.ccm_priority
            << " lowest_prio_defect_allowed " << static_cast<std::uint32_t>(cfg.lowest_prio_defect_allowed)
            << " fng_alarm_time " << cfg.fng_alarm_time << " fng_reset_time " << cfg.fng_reset_time << " action "
            << static_cast<std::uint32_t>(cfg.action) << " aux_flag " << cfg.aux_flag << '\n';
      }
    }
  }
  return out.str();
}

std::string Flatten(const cfm::ClientImpl::ProbeMap& probes) {
  std::ostringstream out;
  for (const auto& [probe_id, probe] : probes) {
    out << "probe " << probe_id << " probe_id " << probe.probe_id << " interval " << probe.interval << " md_name '"
        << probe.md_name << "' ma_name '" << probe.ma_name << "' local_mep_id " << probe.local_mep_id
        << " remote_mep_id " << probe.remote_mep_id << '\n';
    for (const auto& [session_id, session] : probe.sessions) {
      out << "probe " << probe_id << " session " << session_id << " count " << session.count << " interval "
          << session.interval << " size " << session.size << " pcp " << +session.pcp << '\n';
    }
  }
  return out.str();
}

std::string FirstDifference(const std::string& left, const std::string& right) {
  if (left == right) {
    return "";
  }
  std::istringstream lefts(left);
  std::istringstream rights(right);
  std::string a;
  std::string b;
  do {
    a.clear();
    b.clear();
    std::getline(lefts, a);
    std::getline(rights, b);
  } while (a == b);
  return "left:  " + a + "\nright: " + b;
}

}  // namespace

std::string Difference(const cfm::ClientImpl::MdMap& left, const cfm::ClientImpl::MdMap& right) {
  return FirstDifference(Flatten(left), Flatten(right));
}

std::string Difference(const cfm::ClientImpl::ProbeMap& left, const cfm::ClientImpl::ProbeMap& right) {
  return FirstDifference(Flatten(left), Flatten(right));
}

// ---- The fixture ----

void Fixture::Synchronise(const pb::OpCacheSync& cache) {
  middleware.Find(kServer);
  ASSERT_EQ(middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, cache, kServer), 1);
  middleware.Take();
}

void Fixture::Hold(const cfm::hierarchy& tree) {
  if (!client.cache_synced_) {
    Synchronise();
  }
  client.UpdateConfig(tree);
  ASSERT_EQ(Difference(client.applied_hierarchy_, tree.mds), "");
  middleware.Take();
}

void Fixture::Hold(const cfm::probe& probes) {
  if (!client.cache_synced_) {
    Synchronise();
  }
  client.UpdateConfigProbe(probes);
  ASSERT_EQ(Difference(client.applied_probes_, probes.probes), "");
  middleware.Take();
}

Journal Fixture::Update(const cfm::hierarchy& tree) {
  middleware.Take();
  client.UpdateConfig(tree);
  return middleware.Take();
}

Journal Fixture::Update(const cfm::probe& probes) {
  middleware.Take();
  client.UpdateConfigProbe(probes);
  return middleware.Take();
}

}  // namespace expected
