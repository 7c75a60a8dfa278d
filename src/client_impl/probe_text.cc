#include "client_impl/probe_text.h"

#include <locale>
#include <sstream>

namespace cfm {

std::string ProbeText(const std::map<std::uint16_t, probe_cfg>& probes) {
  std::ostringstream text;
  text.imbue(std::locale::classic());  // the application's locale may group digits
  text << "CFM Delay Measurement Probes\n";
  for (const auto& [probe_id, probe] : probes) {
    text << "+ Probe Id: " << probe_id << ", Interval: " << probe.interval << ", MA: " << probe.ma_name
         << ", MD: " << probe.md_name << ", LMEP: " << probe.local_mep_id << ", RMEP: " << probe.remote_mep_id
         << ", Sessions: \n";
    for (const auto& [session_id, session] : probe.sessions) {
      text << "  + Session Id: " << session_id << ", Count: " << session.count << ", Interval: " << session.interval
           << ", Size: " << session.size << ", Pcp: " << +session.pcp << '\n';
    }
  }
  return text.str();
}

}  // namespace cfm
