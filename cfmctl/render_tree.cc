#include <fmt/format.h>

#include <chrono>
#include <string_view>

#include "names.h"
#include "render.h"
#include "settings_list.h"
#include "text.h"

namespace cfmctl {
namespace {

std::string IntervalWords(cfm::CcmInterval interval) {
  switch (interval) {
    case cfm::CcmInterval::k300Hz:
      return "CCMs every 3.3 ms";
    case cfm::CcmInterval::k10ms:
      return "CCMs every 10 ms";
    case cfm::CcmInterval::k100ms:
      return "CCMs every 100 ms";
    case cfm::CcmInterval::k1s:
      return "CCMs every second";
    case cfm::CcmInterval::k10s:
      return "CCMs every 10 seconds";
    case cfm::CcmInterval::k1min:
      return "CCMs every minute";
    case cfm::CcmInterval::k10min:
      return "CCMs every 10 minutes";
    case cfm::CcmInterval::kInvalid:
      break;
  }
  return fmt::format("CCM interval of unknown {}", NameOf(kCcmIntervalNames, static_cast<std::uint32_t>(interval)));
}

// Of the two settings that can be left to the level above, what is left to it goes without saying.

std::string SenderIdWords(cfm::SenderIdTlvContent content) {
  switch (content) {
    case cfm::SenderIdTlvContent::kNone:
      return ", no Sender ID";
    case cfm::SenderIdTlvContent::kDefer:
      return "";
    default:
      return ", Sender ID " + NameOf(kSenderIdNames, static_cast<std::uint32_t>(content));
  }
}

std::string MhfWords(cfm::MhfCreationMode mode) {
  switch (mode) {
    case cfm::MhfCreationMode::kNone:
      return ", no MIPs";
    case cfm::MhfCreationMode::kDefer:
      return "";
    default:
      return ", MIPs " + NameOf(kMhfCreationNames, static_cast<std::uint32_t>(mode));
  }
}

std::string AlarmWords(cfm::Defects lowest) {
  switch (lowest) {
    case cfm::Defects::kAll:
      return "alarms for every defect";
    case cfm::Defects::kNone:
      return "no alarms";
    default:
      return fmt::format("alarms from {} up", NameOf(kLowestAlarmNames, static_cast<std::uint32_t>(lowest)));
  }
}

std::string VlansWords(const std::vector<std::uint16_t>& vlans) {
  if (vlans.empty()) return "untagged";
  return (vlans.size() == 1 ? "VLAN " : "VLANs ") + RangesText(vlans);
}

std::string FngWords(std::uint16_t steps) {
  return FormatDuration(std::chrono::milliseconds(10) * steps);
}

std::string MdFormatWords(std::uint32_t format) {
  if (format == kMdFormatNone) return "name not sent";
  return "name format " + NameOf(kMdFormatNames, format);
}

class TreeWriter {
 public:
  TreeWriter(const Ports& ports, const Style& style, std::ostream& out) : ports_(ports), style_(style), out_(out) {}

  void Write(const Model& model) {
    const Size size = SizeOf(model);
    if (size.total() == 0) {
      out_ << "no configuration\n";
      return;
    }
    for (const auto& [name, md] : model.hierarchy.mds) Domain(name, md);
    for (const auto& [id, probe] : model.probes.probes) Probe(id, probe);
    out_ << style_.Dim(Summary(size)) << '\n';
  }

 private:
  void Domain(const std::string& name, const cfm::hierarchy_md& md) {
    out_ << fmt::format("{} level {}, {}{}{}\n", style_.Bold("domain " + Escape(name)), md.cfg.level,
                        MdFormatWords(md.cfg.format), SenderIdWords(md.cfg.sender_id), MhfWords(md.cfg.mhf_creation));
    for (const auto& [ma_name, ma] : md.mas) Association(ma_name, ma);
  }

  void Association(const std::string& name, const cfm::hierarchy_ma& ma) {
    const std::vector<std::uint16_t> mep_ids(ma.cfg.mep_ids.begin(), ma.cfg.mep_ids.end());
    out_ << fmt::format("  {} {}, {}, name format {}, MEPs {}{}{}\n", style_.Bold("association " + Escape(name)),
                        VlansWords(ma.cfg.vids), IntervalWords(ma.cfg.ccm_interval),
                        NameOf(kMaFormatNames, ma.cfg.format), mep_ids.empty() ? "none" : RangesText(mep_ids),
                        SenderIdWords(ma.cfg.sender_id), MhfWords(ma.cfg.mhf_creation));
    Ais(ma.cfg.ais);
    for (const auto& [id, mep] : ma.meps) EndPoint(id, mep.cfg);
  }

  void Ais(const cfm::st_ais_cfg& ais) {
    const std::string_view suppression =
        ais.aux_flag ? "received AIS suppresses loss alarms" : "received AIS suppresses nothing";
    if (ais.enabled) {
      const std::vector<std::uint16_t> vlans(ais.aux_ids.begin(), ais.aux_ids.end());
      out_ << fmt::format("    AIS to level {} every {}, {}, priority {}, {}\n", ais.aux_u8,
                          FormatDuration(std::chrono::seconds(ais.aux_u32)), VlansWords(vlans), ais.aux_u16,
                          suppression);
    } else if (ais.aux_flag) {
      out_ << fmt::format("    no AIS sent, {}\n", suppression);
    }
  }

  void EndPoint(std::uint16_t id, const cfm::st_maintenance_endpoint_cfg& cfg) {
    std::string line = fmt::format("    {} {} on {}", style_.Bold(fmt::format("end point {}", id)),
                                   NameOf(kDirectionNames, cfg.direction), style_.Bold(Port(cfg.port)));
    line += cfg.primary_vid == 0 ? ", untagged" : fmt::format(", VLAN {}", cfg.primary_vid);
    if (cfg.inner_vid != 0) line += fmt::format(", inner VLAN {}", cfg.inner_vid);
    if (!cfg.admin_state) line += ", " + style_.Yellow("disabled");
    line += cfg.tx_ccm_enabled ? ", sends CCMs" : ", " + style_.Yellow("sends no CCMs");
    line += fmt::format(", priority {}, {} after {}, reset after {}", cfg.ccm_priority,
                        AlarmWords(cfg.lowest_prio_defect_allowed), FngWords(cfg.fng_alarm_time),
                        FngWords(cfg.fng_reset_time));
    if (cfg.action != cfm::FaultAction::kNone) {
      line += fmt::format(", on a fault: {}", NameOf(kFaultActionNames, static_cast<std::uint32_t>(cfg.action)));
    }
    if (cfg.aux_flag) line += ", learns remote MEPs";
    out_ << line << '\n';
  }

  std::string Port(std::uint32_t index) const {
    const std::string name = ports_.NameOf(index);
    return name.empty() ? fmt::format("ifindex {} (not on this host)", index)
                        : fmt::format("{} (ifindex {})", Escape(name), index);
  }

  void Probe(std::uint16_t id, const cfm::probe_cfg& probe) {
    out_ << fmt::format("{} in {}/{} from MEP {} to MEP {} every {}\n", style_.Bold(fmt::format("probe {}", id)),
                        Escape(probe.md_name), Escape(probe.ma_name), probe.local_mep_id, probe.remote_mep_id,
                        FormatDuration(std::chrono::seconds(probe.interval)));
    for (const auto& [session_id, session] : probe.sessions) {
      out_ << fmt::format("  {} {}, one every {}, {} of data, priority {}\n",
                          style_.Bold(fmt::format("session {}", session_id)), Count(session.count, "message"),
                          FormatDuration(std::chrono::milliseconds(session.interval)), Count(session.size, "octet"),
                          session.pcp);
    }
  }

  const Ports& ports_;
  const Style& style_;
  std::ostream& out_;
};

}  // namespace

void RenderTree(const Model& model, const Ports& ports, const Style& style, std::ostream& out) {
  TreeWriter(ports, style, out).Write(model);
}

}  // namespace cfmctl
