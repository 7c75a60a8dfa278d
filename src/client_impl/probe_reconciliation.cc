// Bringing the server to the desired probes.
#include "client_impl.h"
#include "client_impl/log.h"
#include "client_impl/probe_text.h"

namespace cfm {
namespace {

// Their sessions take no part.
bool SameProbe(const probe_cfg& a, const probe_cfg& b) {
  return a.probe_id == b.probe_id && a.interval == b.interval && a.ma_name == b.ma_name && a.md_name == b.md_name &&
         a.local_mep_id == b.local_mep_id && a.remote_mep_id == b.remote_mep_id;
}

bool SameSession(const session_cfg& a, const session_cfg& b) {
  return a.count == b.count && a.interval == b.interval && a.size == b.size && a.pcp == b.pcp;
}

}  // namespace

void ClientImpl::UpdateConfigProbe(const probe& desired) {
  desired_probes_ = desired.probes;
  if (!Synchronised()) {
    LogDeferred("UpdateConfigProbe");
    return;
  }
  ApplyDelayMeasurementProbe();
}

void ClientImpl::ApplyDelayMeasurementProbe() {
  const std::string text = ProbeText(desired_probes_);
  CFM_LOG(log_category_, kLogTrace, "ApplyDelayMeasurementProbe", "Applying CFM Delay Measurement Probes config...");
  CFM_LOG(log_category_, kLogTrace, "ApplyDelayMeasurementProbe", "%s", text.c_str());

  for (const auto& [probe_id, desired] : desired_probes_) {
    const auto applied = applied_probes_.find(probe_id);
    const bool known = applied != applied_probes_.end();
    if (!known || !SameProbe(applied->second, desired)) {
      CreateDelayMeasurementProbe(probe_id, desired);
    }
    for (const auto& [session_id, session] : desired.sessions) {
      if (known) {
        const auto applied_session = applied->second.sessions.find(session_id);
        if (applied_session != applied->second.sessions.end() && SameSession(applied_session->second, session)) {
          continue;
        }
      }
      CreateDelayMeasurementSession(probe_id, session_id, session);
    }
  }

  for (const auto& [probe_id, applied] : applied_probes_) {
    const auto desired = desired_probes_.find(probe_id);
    if (desired == desired_probes_.end()) {
      DeleteDelayMeasurementProbe(probe_id);
      continue;
    }
    for (const auto& [session_id, session] : applied.sessions) {
      if (!desired->second.sessions.contains(session_id)) {
        DeleteDelayMeasurementSession(probe_id, session_id);
      }
    }
  }
  applied_probes_ = desired_probes_;
}

}  // namespace cfm
