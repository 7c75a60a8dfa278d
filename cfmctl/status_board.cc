#include "status_board.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "status_names.h"

namespace cfmctl {
namespace {

constexpr const char* kNotReported = "not reported by the server";

bool SameMac(const cfm::st_mac& a, const cfm::st_mac& b) {
  return std::equal(std::begin(a.octets), std::end(a.octets), std::begin(b.octets));
}

bool Same(const cfm::st_local_mep_status& a, const cfm::st_local_mep_status& b) {
  return SameMac(a.mac, b.mac) && a.rdi == b.rdi && a.intf_status == b.intf_status && a.port_state == b.port_state &&
         a.block_state == b.block_state && a.shutdown_state == b.shutdown_state &&
         a.highest_defect == b.highest_defect && a.defect_rdi == b.defect_rdi &&
         a.defect_mac_status == b.defect_mac_status && a.defect_remote_ccm == b.defect_remote_ccm &&
         a.defect_error_ccm == b.defect_error_ccm && a.defect_xcon_ccm == b.defect_xcon_ccm &&
         a.defect_ais == b.defect_ais;
}

bool Same(const cfm::st_remote_mep_status& a, const cfm::st_remote_mep_status& b) {
  return a.fsm_state == b.fsm_state && a.last_change_uptime == b.last_change_uptime && SameMac(a.mac, b.mac) &&
         a.rdi == b.rdi && a.port_state == b.port_state && a.intf_status == b.intf_status && a.sender_id == b.sender_id;
}

void ProblemIf(bool holds, std::string text, std::vector<std::string>& problems) {
  if (holds) problems.push_back(std::move(text));
}

}  // namespace

std::vector<std::string> ProblemsOf(const LocalMep& mep) {
  std::vector<std::string> problems;
  if (!mep.enabled) return problems;
  if (!mep.status) {
    problems.emplace_back(kNotReported);
    return problems;
  }
  const cfm::st_local_mep_status& status = *mep.status;
  ProblemIf(status.defect_xcon_ccm, "cross-connection", problems);
  ProblemIf(status.defect_error_ccm, "erroneous CCMs", problems);
  ProblemIf(status.defect_remote_ccm, "CCMs missing", problems);
  ProblemIf(status.defect_mac_status, "a remote port or interface is not up", problems);
  ProblemIf(status.defect_rdi, "remote defect indication received", problems);
  ProblemIf(status.defect_ais, "alarm indication signal received", problems);
  ProblemIf(status.intf_status > kInterfaceUp, "own interface " + NameOf(kInterfaceStatusNames, status.intf_status),
            problems);
  ProblemIf(status.port_state == kPortBlocked, "own port blocked", problems);
  ProblemIf(status.block_state != 0, "port blocked by the fault action", problems);
  ProblemIf(status.shutdown_state != 0, "port shut down by the fault action", problems);
  // A fault stays reported until its reset time has passed without a defect.
  ProblemIf(problems.empty() && status.highest_defect != 0,
            fmt::format("fault {} not yet reset", NameOf(kDefectNames, status.highest_defect)), problems);
  return problems;
}

std::vector<std::string> ProblemsOf(const RemoteMep& mep) {
  std::vector<std::string> problems;
  if (!mep.status) {
    problems.emplace_back(kNotReported);
    return problems;
  }
  const cfm::st_remote_mep_status& status = *mep.status;
  ProblemIf(status.fsm_state != kRemoteMepOk, NameOf(kRemoteMepStateNames, status.fsm_state), problems);
  ProblemIf(status.rdi, "sends remote defect indication", problems);
  ProblemIf(status.intf_status > kInterfaceUp, "its interface " + NameOf(kInterfaceStatusNames, status.intf_status),
            problems);
  ProblemIf(status.port_state == kPortBlocked, "its port blocked", problems);
  return problems;
}

StatusBoard::StatusBoard(const Model& model) {
  for (const auto& [md_name, md] : model.hierarchy.mds) {
    for (const auto& [ma_name, ma] : md.mas) {
      for (const auto& [mep_id, mep] : ma.meps) {
        LocalMep& local = meps_[Key(md_name, ma_name, mep_id)];
        local.enabled = mep.cfg.admin_state;
        if (!local.enabled) continue;
        ++unreported_;
        for (const std::uint16_t remote : ma.cfg.mep_ids) {
          if (remote == mep_id) continue;
          local.remotes[remote].expected = true;
          ++unreported_;
        }
      }
    }
  }
}

LocalMep* StatusBoard::Find(const std::string& md, const std::string& ma, std::uint16_t mep_id) {
  const auto found = meps_.find(Key(md, ma, mep_id));
  return found == meps_.end() ? nullptr : &found->second;
}

bool StatusBoard::Update(const std::string& md, const std::string& ma, std::uint16_t mep_id,
                         const cfm::st_local_mep_status& status) {
  LocalMep* local = Find(md, ma, mep_id);
  if (local == nullptr) return false;
  const bool first = !local->status.has_value();
  const bool changed = first || !Same(*local->status, status);
  local->status = status;
  if (first && local->enabled) --unreported_;
  return changed;
}

bool StatusBoard::Update(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                         std::uint16_t remote_mep_id, const cfm::st_remote_mep_status& status) {
  LocalMep* local = Find(md, ma, local_mep_id);
  if (local == nullptr || !local->enabled) return false;
  RemoteMep& remote = local->remotes[remote_mep_id];
  const bool first = !remote.status.has_value();
  const bool changed = first || !Same(*remote.status, status);
  remote.status = status;
  if (first && remote.expected) --unreported_;
  return changed;
}

bool StatusBoard::RemoveLocal(const std::string& md, const std::string& ma, std::uint16_t mep_id) {
  LocalMep* local = Find(md, ma, mep_id);
  if (local == nullptr || !local->status) return false;
  local->status.reset();
  if (local->enabled) ++unreported_;
  return true;
}

bool StatusBoard::RemoveRemote(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                               std::uint16_t remote_mep_id) {
  LocalMep* local = Find(md, ma, local_mep_id);
  if (local == nullptr) return false;
  const auto remote = local->remotes.find(remote_mep_id);
  if (remote == local->remotes.end() || !remote->second.status) return false;
  if (remote->second.expected) {
    remote->second.status.reset();
    ++unreported_;
  } else {
    local->remotes.erase(remote);
  }
  return true;
}

void StatusBoard::Forget() {
  unreported_ = 0;
  for (auto& [key, local] : meps_) {
    local.status.reset();
    if (local.enabled) ++unreported_;
    for (auto remote = local.remotes.begin(); remote != local.remotes.end();) {
      if (!remote->second.expected) {
        remote = local.remotes.erase(remote);
        continue;
      }
      remote->second.status.reset();
      ++unreported_;
      ++remote;
    }
  }
}

bool StatusBoard::well() const {
  return std::all_of(meps_.begin(), meps_.end(), [](const auto& entry) {
    const LocalMep& local = entry.second;
    return ProblemsOf(local).empty() && std::all_of(local.remotes.begin(), local.remotes.end(), [](const auto& remote) {
             return ProblemsOf(remote.second).empty();
           });
  });
}

}  // namespace cfmctl
