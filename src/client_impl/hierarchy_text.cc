#include "client_impl/hierarchy_text.h"

#include <array>
#include <string_view>

#include "limid/limid.h"

namespace cfm {
namespace {

// A label with a number behind it; enumerations, 8-bit values and booleans show as numbers.
template <typename Number>
void Append(std::string& text, std::string_view label, Number value) {
  text += label;
  text += std::to_string(static_cast<std::uint32_t>(value));
}

template <typename Numbers>
void AppendList(std::string& text, std::string_view label, const Numbers& values) {
  text += label;
  for (const std::uint16_t value : values) {
    Append(text, " ", value);
  }
  text += " }, ";
}

void AppendDomain(std::string& text, const std::string& name, const hierarchy_md& md) {
  text += "+ MD Id: ";
  text += name;
  Append(text, ", Format: ", md.cfg.format);
  Append(text, ", Level: ", md.cfg.level);
  Append(text, ", Sender Id: ", md.cfg.sender_id);
  Append(text, ", Mhf Creation: ", md.cfg.mhf_creation);
  text += '\n';
}

void AppendAssociation(std::string& text, const std::string& name, const hierarchy_ma& ma) {
  text += "  + MA Id: ";
  text += name;
  text += ", MD Name: ";
  text += ma.md_name;
  Append(text, ", Format: ", ma.cfg.format);
  AppendList(text, ", VID List: {", ma.cfg.vids);
  Append(text, "CCM Interval: ", ma.cfg.ccm_interval);
  AppendList(text, ", MEP Id List : {", ma.cfg.mep_ids);
  Append(text, "Sender Id: ", ma.cfg.sender_id);
  Append(text, ", Mhf Creation: ", ma.cfg.mhf_creation);
  text += '\n';
}

void AppendEndpoint(std::string& text, std::uint16_t key, const hierarchy_mep& mep) {
  std::array<char, 64> port{};
  limid_to_intfname(mep.cfg.port, port.data(), port.size());
  Append(text, "    + MEP Id: ", key);
  text += ", MD Name: ";
  text += mep.md_name;
  text += ", MA Name: ";
  text += mep.ma_name;
  Append(text, ", Id: ", mep.cfg.mep_id);
  Append(text, ", Direction: ", mep.cfg.direction);
  text += ", Port: ";
  text += port.data();
  Append(text, ", Primary VID: ", mep.cfg.primary_vid);
  Append(text, ", Inner VID: ", mep.cfg.inner_vid);
  Append(text, ", Admin State: ", mep.cfg.admin_state);
  Append(text, ", TX CCM Enabled: ", mep.cfg.tx_ccm_enabled);
  Append(text, ", CCM Priority: ", mep.cfg.ccm_priority);
  Append(text, ", LowestPrioDefectAllowed: ", mep.cfg.lowest_prio_defect_allowed);
  Append(text, ", FNG Alarm Time: ", mep.cfg.fng_alarm_time);
  Append(text, ", FNG Reset Time: ", mep.cfg.fng_reset_time);
  Append(text, ", Action: ", mep.cfg.action);
  text += '\n';
}

}  // namespace

std::string HierarchyText(const std::map<std::string, hierarchy_md>& mds) {
  std::string text = "CFM Hierarchy\n";
  for (const auto& [md_name, md] : mds) {
    AppendDomain(text, md_name, md);
    for (const auto& [ma_name, ma] : md.mas) {
      AppendAssociation(text, ma_name, ma);
      for (const auto& [mep_id, mep] : ma.meps) {
        AppendEndpoint(text, mep_id, mep);
      }
    }
  }
  return text;
}

}  // namespace cfm
