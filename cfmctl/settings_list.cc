#include "settings_list.h"

#include <fmt/format.h>

#include <chrono>

#include "names.h"
#include "text.h"

namespace cfmctl {
namespace {

std::string VlanText(std::uint16_t vid, std::string_view without) {
  return vid == 0 ? std::string(without) : std::to_string(vid);
}

template <class Enum>
std::string Name(CodeNames names, Enum code) {
  return NameOf(names, static_cast<std::uint32_t>(code));
}

std::string FngText(std::uint16_t steps) {
  return FormatDuration(std::chrono::milliseconds(10) * steps);
}

std::uint32_t Number(std::uint32_t value) {
  return value;
}

}  // namespace

std::string RangesText(const std::vector<std::uint16_t>& numbers) {
  std::string text;
  for (std::size_t first = 0; first < numbers.size();) {
    std::size_t last = first;
    while (last + 1 < numbers.size() && numbers[last + 1] == numbers[last] + 1) ++last;
    if (!text.empty()) text += ',';
    text += std::to_string(numbers[first]);
    if (last > first) text += (last > first + 1 ? '-' : ',') + std::to_string(numbers[last]);
    first = last + 1;
  }
  return text;
}

std::string Setting::Text() const {
  struct Visitor {
    std::string operator()(bool flag) const { return flag ? "true" : "false"; }
    std::string operator()(std::uint32_t number) const { return std::to_string(number); }
    std::string operator()(const std::string& text) const { return text; }
    std::string operator()(const std::vector<std::uint16_t>& numbers) const { return "[" + RangesText(numbers) + "]"; }
  };
  return std::visit(Visitor{}, value);
}

std::string PortText(const Ports& ports, std::uint32_t index) {
  const std::string name = ports.NameOf(index);
  return name.empty() ? fmt::format("ifindex {}", index) : name;
}

SettingsList SettingsOf(const cfm::st_maintenance_domain_cfg& cfg) {
  return {
      {"level", Number(cfg.level), Change::kReplace},
      {"name-format", NameOf(kMdFormatNames, cfg.format), Change::kReformat},
      {"sender-id", Name(kSenderIdNames, cfg.sender_id), Change::kUpdate},
      {"mhf-creation", Name(kMhfCreationNames, cfg.mhf_creation), Change::kUpdate},
  };
}

SettingsList SettingsOf(const cfm::st_maintenance_association_cfg& cfg) {
  SettingsList settings = {
      {"name-format", NameOf(kMaFormatNames, cfg.format), Change::kReformat},
      {"vlans", cfg.vids, Change::kReplace},
      {"ccm-interval", Name(kCcmIntervalNames, cfg.ccm_interval), Change::kUpdate},
      {"mep-ids", std::vector<std::uint16_t>(cfg.mep_ids.begin(), cfg.mep_ids.end()), Change::kUpdate},
      {"sender-id", Name(kSenderIdNames, cfg.sender_id), Change::kUpdate},
      {"mhf-creation", Name(kMhfCreationNames, cfg.mhf_creation), Change::kUpdate},
      {"ais.enabled", cfg.ais.enabled, Change::kUpdate},
      {"ais.suppress-alarms", cfg.ais.aux_flag, Change::kUpdate},
  };
  if (cfg.ais.enabled) {
    const std::vector<std::uint16_t> client_vlans(cfg.ais.aux_ids.begin(), cfg.ais.aux_ids.end());
    settings.push_back({"ais.client-level", Number(cfg.ais.aux_u8), Change::kUpdate});
    settings.push_back({"ais.period", FormatDuration(std::chrono::seconds(cfg.ais.aux_u32)), Change::kUpdate});
    settings.push_back({"ais.client-vlans", client_vlans, Change::kUpdate});
    settings.push_back({"ais.priority", Number(cfg.ais.aux_u16), Change::kUpdate});
  }
  return settings;
}

SettingsList SettingsOf(const cfm::st_maintenance_endpoint_cfg& cfg, const Ports& ports) {
  return {
      {"port", PortText(ports, cfg.port), Change::kReplace},
      {"ifindex", Number(cfg.port), Change::kReplace},
      {"direction", NameOf(kDirectionNames, cfg.direction), Change::kReplace},
      {"vlan", VlanText(cfg.primary_vid, "untagged"), Change::kReplace},
      {"inner-vlan", VlanText(cfg.inner_vid, "none"), Change::kReplace},
      {"enabled", cfg.admin_state, Change::kUpdate},
      {"send-ccm", cfg.tx_ccm_enabled, Change::kUpdate},
      {"ccm-priority", Number(cfg.ccm_priority), Change::kUpdate},
      {"lowest-alarm", Name(kLowestAlarmNames, cfg.lowest_prio_defect_allowed), Change::kUpdate},
      {"alarm-time", FngText(cfg.fng_alarm_time), Change::kUpdate},
      {"reset-time", FngText(cfg.fng_reset_time), Change::kUpdate},
      {"fault-action", Name(kFaultActionNames, cfg.action), Change::kUpdate},
      {"learn-remote", cfg.aux_flag, Change::kUpdate},
  };
}

SettingsList SettingsOf(const cfm::probe_cfg& cfg) {
  return {
      {"domain", cfg.md_name, Change::kUpdate},
      {"association", cfg.ma_name, Change::kUpdate},
      {"local-mep", Number(cfg.local_mep_id), Change::kUpdate},
      {"remote-mep", Number(cfg.remote_mep_id), Change::kUpdate},
      {"interval", FormatDuration(std::chrono::seconds(cfg.interval)), Change::kUpdate},
  };
}

SettingsList SettingsOf(const cfm::session_cfg& cfg) {
  return {
      {"count", Number(cfg.count), Change::kUpdate},
      {"interval", FormatDuration(std::chrono::milliseconds(cfg.interval)), Change::kUpdate},
      {"size", Number(cfg.size), Change::kUpdate},
      {"priority", Number(cfg.pcp), Change::kUpdate},
  };
}

}  // namespace cfmctl
