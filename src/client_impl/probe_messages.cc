#include "client_impl/probe_messages.h"

#include "client_impl/receive.h"

namespace cfm {

std::map<std::uint16_t, probe_cfg> ProbesFromCache(const client_server::OpCacheSync& cache) {
  std::map<std::uint16_t, probe_cfg> probes;
  for (const auto& message : cache.probes()) {
    probe_cfg& probe = probes[Low16(message.probe_id())];
    probe.probe_id = Low16(message.probe_id());
    probe.interval = Low16(message.interval());
    probe.md_name = message.md_name();
    probe.ma_name = message.ma_name();
    probe.local_mep_id = Low16(message.local_mep_id());
    probe.remote_mep_id = Low16(message.remote_mep_id());
  }
  for (const auto& message : cache.sessions()) {
    session_cfg& session = probes[Low16(message.probe_id())].sessions[Low16(message.session_id())];
    session.count = Low16(message.count());
    session.interval = Low16(message.interval());
    session.size = Low16(message.size());
    session.pcp = Low8(message.pcp());
  }
  return probes;
}

}  // namespace cfm
