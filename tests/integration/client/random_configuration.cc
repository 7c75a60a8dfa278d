#include "random_configuration.h"

#include <net/if.h>

#include <array>
#include <iterator>
#include <set>
#include <tuple>

#include "limid/limid.h"

namespace cfm_test {
namespace {

// Few enough that edits meet, and with what text may hold. The longest is as long as a domain's name can be.
const std::array<std::string, 6> kNames = {
    "a", "a b", "Zürich \"west\"", "metro.example", "%s\\{}", std::string(43, 'x'),
};
constexpr std::uint32_t kMissingPort = 2'000'000'000;  // no kernel counts interfaces that far in a test

}  // namespace

RandomConfigurations::RandomConfigurations(std::uint64_t seed) : engine_(seed) {
  limid_from_ifindex(if_nametoindex("lo"), &loopback_port_);
}

unsigned RandomConfigurations::Number(unsigned first, unsigned last) {
  return std::uniform_int_distribution<unsigned>(first, last)(engine_);
}

// Mostly leaves a value as it is, so that single settings differ between two configurations.
template <typename Value>
void RandomConfigurations::Set(Value& value, unsigned first, unsigned last) {
  if (static_cast<unsigned>(value) < first || OneIn(4)) {
    value = static_cast<Value>(Number(first, last));
  }
}

void RandomConfigurations::Change(Configuration& configuration) {
  switch (Number(0, 19)) {
    case 0:
      break;
    case 1:
      configuration = {};
      break;
    case 2:
      configuration.probe = {};
      break;
    case 3:
      configuration = {};
      [[fallthrough]];
    case 4:
      AddManyEndpoints(configuration.hierarchy);
      [[fallthrough]];
    default:
      for (unsigned edits = Number(1, 12); edits > 0; --edits) {
        EditHierarchy(configuration.hierarchy);
        EditProbes(configuration.hierarchy, configuration.probe);
      }
  }
  // A probe measures between configured end points.
  std::erase_if(configuration.probe.probes, [&](const auto& entry) {
    const cfm::probe_cfg& probe = entry.second;
    const auto md = configuration.hierarchy.mds.find(probe.md_name);
    if (md == configuration.hierarchy.mds.end()) {
      return true;
    }
    const auto ma = md->second.mas.find(probe.ma_name);
    return ma == md->second.mas.end() || !ma->second.meps.contains(probe.local_mep_id);
  });
}

cfm::hierarchy_ma& RandomConfigurations::SomeAssociation(cfm::hierarchy& hierarchy, std::string& ma_name) {
  const std::string& md_name = kNames[Number(0, kNames.size() - 1)];
  ma_name = kNames[Number(0, kNames.size() - 1)];
  const bool new_domain = !hierarchy.mds.contains(md_name);
  cfm::hierarchy_md& md = hierarchy.mds[md_name];
  if (new_domain || OneIn(4)) {
    Fill(md.cfg);
  }
  const bool new_association = !md.mas.contains(ma_name);
  cfm::hierarchy_ma& ma = md.mas[ma_name];
  if (new_association || OneIn(2)) {
    Fill(ma.cfg);
  }
  ma.md_name = md_name;
  return ma;
}

void RandomConfigurations::EditHierarchy(cfm::hierarchy& hierarchy) {
  if (OneIn(8) && !hierarchy.mds.empty()) {
    hierarchy.mds.erase(std::next(hierarchy.mds.begin(), Number(0, static_cast<unsigned>(hierarchy.mds.size() - 1))));
    return;
  }
  std::string ma_name;
  cfm::hierarchy_ma& ma = SomeAssociation(hierarchy, ma_name);
  if (OneIn(8)) {
    hierarchy.mds[std::string(ma.md_name)].mas.erase(ma_name);
    return;
  }
  const auto mep_id = static_cast<std::uint16_t>(OneIn(10) ? 8191 : Number(1, 12));
  if (OneIn(4)) {
    ma.meps.erase(mep_id);
    return;
  }
  cfm::hierarchy_mep& mep = ma.meps[mep_id];
  mep.md_name = ma.md_name;
  mep.ma_name = ma_name;
  Fill(mep.cfg);
  mep.cfg.mep_id = mep_id;
}

void RandomConfigurations::AddManyEndpoints(cfm::hierarchy& hierarchy) {
  std::string ma_name;
  cfm::hierarchy_ma& ma = SomeAssociation(hierarchy, ma_name);
  cfm::hierarchy_mep mep{ma.md_name, ma_name, {}};
  Fill(mep.cfg);
  const auto first = static_cast<std::uint16_t>(Number(100, 1000));
  const auto last = static_cast<std::uint16_t>(first + Number(1000, 4000));
  for (std::uint16_t mep_id = first; mep_id <= last; ++mep_id) {
    mep.cfg.mep_id = mep_id;
    ma.meps[mep_id] = mep;
  }
}

void RandomConfigurations::EditProbes(const cfm::hierarchy& hierarchy, cfm::probe& probe) {
  const auto probe_id = static_cast<std::uint16_t>(OneIn(10) ? 65535 : Number(1, 6));
  if (OneIn(5)) {
    probe.probes.erase(probe_id);
    return;
  }
  std::vector<std::tuple<std::string, std::string, std::uint16_t>> endpoints;
  for (const auto& [md_name, md] : hierarchy.mds) {
    for (const auto& [ma_name, ma] : md.mas) {
      if (!ma.meps.empty()) {
        endpoints.emplace_back(md_name, ma_name, ma.meps.begin()->first);
      }
    }
  }
  if (endpoints.empty()) {
    return;
  }
  cfm::probe_cfg& cfg = probe.probes[probe_id];
  if (cfg.probe_id == 0 || OneIn(3)) {
    std::tie(cfg.md_name, cfg.ma_name, cfg.local_mep_id) =
        endpoints[Number(0, static_cast<unsigned>(endpoints.size() - 1))];
  }
  cfg.probe_id = probe_id;
  Set(cfg.interval, 1, 65535);
  Set(cfg.remote_mep_id, 1, 8191);
  const auto session_id = static_cast<std::uint16_t>(Number(1, 4));
  if (OneIn(3)) {
    cfg.sessions.erase(session_id);
    return;
  }
  cfm::session_cfg& session = cfg.sessions[session_id];
  Set(session.count, 1, 1024);
  Set(session.interval, 10, 60000);
  Set(session.size, 1, 1480);
  Set(session.pcp, 0, 7);
}

void RandomConfigurations::Fill(cfm::st_maintenance_domain_cfg& cfg) {
  Set(cfg.format, 1, 4);
  Set(cfg.level, 0, 7);
  Set(cfg.sender_id, 1, 5);
  Set(cfg.mhf_creation, 1, 4);
}

void RandomConfigurations::Fill(cfm::st_maintenance_association_cfg& cfg) {
  Set(cfg.format, 1, 4);
  if (OneIn(4)) {
    cfg.vids.clear();
    for (unsigned count = Number(0, 4); count > 0; --count) {
      cfg.vids.push_back(static_cast<std::uint16_t>(Number(1, 5)));
    }
  }
  Set(cfg.ccm_interval, 1, 7);
  if (OneIn(2)) {
    cfg.mep_ids.clear();
    for (unsigned count = Number(0, 5); count > 0; --count) {
      cfg.mep_ids.insert(static_cast<std::uint16_t>(Number(1, 8191)));
    }
  }
  Set(cfg.sender_id, 1, 5);
  Set(cfg.mhf_creation, 1, 4);
  cfg.ais.enabled = OneIn(2);
  Set(cfg.ais.aux_u8, 0, 7);
  Set(cfg.ais.aux_u32, 1, 60);
  if (OneIn(3)) {
    cfg.ais.aux_ids = {static_cast<std::uint16_t>(Number(1, 4094)), static_cast<std::uint16_t>(Number(1, 4094))};
  }
  Set(cfg.ais.aux_u16, 0, 7);
  cfg.ais.aux_flag = OneIn(2);
}

void RandomConfigurations::Fill(cfm::st_maintenance_endpoint_cfg& cfg) {
  Set(cfg.direction, 1, 2);
  if (cfg.port == 0 || OneIn(4)) {
    cfg.port = OneIn(3) ? kMissingPort : loopback_port_;
  }
  Set(cfg.primary_vid, 0, 5);
  Set(cfg.inner_vid, 0, 3);
  cfg.admin_state = OneIn(2);
  cfg.tx_ccm_enabled = OneIn(2);
  Set(cfg.ccm_priority, 0, 7);
  Set(cfg.lowest_prio_defect_allowed, 1, 6);
  Set(cfg.fng_alarm_time, 250, 1000);
  Set(cfg.fng_reset_time, 250, 1000);
  Set(cfg.action, 0, 2);
  cfg.aux_flag = OneIn(2);
}

}  // namespace cfm_test
