#include "render_status.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "mep_address.h"
#include "status_names.h"
#include "text.h"

namespace cfmctl {
namespace {

std::string Verdict(const std::vector<std::string>& problems, const Style& style) {
  if (problems.empty()) return style.Green("ok");
  return style.Red(Escape(fmt::format("{}", fmt::join(problems, ", "))));
}

std::string LocalText(const LocalMep& mep, const Style& style) {
  if (!mep.enabled) return style.Dim("disabled");
  std::string text = Verdict(ProblemsOf(mep), style);
  if (!mep.status) return text;
  text += style.Dim(fmt::format("  {}", mep.status->mac.to_string()));
  if (mep.status->rdi) text += style.Dim(", sends RDI");
  return text;
}

std::string RemoteText(const RemoteMep& mep, const Style& style) {
  std::string text = Verdict(ProblemsOf(mep), style);
  if (!mep.status) return text;
  text += style.Dim(fmt::format("  {}", mep.status->mac.to_string()));
  if (!mep.status->sender_id.empty()) text += style.Dim(", " + Escape(mep.status->sender_id));
  if (!mep.expected) text += style.Dim(", learned");
  return text;
}

struct Tally {
  std::size_t all = 0;
  std::size_t well = 0;

  void Count(bool is_well) {
    ++all;
    well += is_well ? 1 : 0;
  }
  std::string Text() const { return fmt::format("{} of {} ok", Grouped(well), Grouped(all)); }
};

Json MepNames(const StatusBoard::Key& key) {
  const auto& [md, ma, mep_id] = key;
  return {{"domain", md}, {"association", ma}, {"mep-id", mep_id}};
}

}  // namespace

std::string LocalMepLine(const StatusBoard::Key& key, const LocalMep& mep, const Style& style) {
  const auto& [md, ma, mep_id] = key;
  return fmt::format("{}: {}", style.Bold(MepText(md, ma, mep_id)), LocalText(mep, style));
}

std::string RemoteMepLine(const StatusBoard::Key& key, std::uint16_t remote_mep_id, const RemoteMep& mep,
                          const Style& style) {
  const auto& [md, ma, mep_id] = key;
  return fmt::format("{}, remote MEP {}: {}", style.Bold(MepText(md, ma, mep_id)), remote_mep_id,
                     RemoteText(mep, style));
}

void RenderStatus(const StatusBoard& board, const Style& style, std::ostream& out) {
  Tally locals;
  Tally remotes;
  for (const auto& [key, local] : board.meps()) {
    if (local.enabled) locals.Count(ProblemsOf(local).empty());
    out << LocalMepLine(key, local, style) << '\n';
    for (const auto& [remote_mep_id, remote] : local.remotes) {
      remotes.Count(ProblemsOf(remote).empty());
      out << fmt::format("  remote MEP {}: {}\n", remote_mep_id, RemoteText(remote, style));
    }
  }
  out << fmt::format("local MEPs: {}; remote MEPs: {}\n", locals.Text(), remotes.Text());
}

Json LocalMepJson(const StatusBoard::Key& key, const LocalMep& mep) {
  Json json = MepNames(key);
  json["enabled"] = mep.enabled;
  json["reported"] = mep.status.has_value();
  json["problems"] = ProblemsOf(mep);
  if (mep.status) {
    const cfm::st_local_mep_status& status = *mep.status;
    json["mac"] = status.mac.to_string();
    json["sends-rdi"] = status.rdi;
    json["interface-status"] = NameOf(kInterfaceStatusNames, status.intf_status);
    json["port-status"] = NameOf(kPortStatusNames, status.port_state);
    json["blocked-by-fault-action"] = status.block_state != 0;
    json["shut-down-by-fault-action"] = status.shutdown_state != 0;
    json["highest-defect"] = NameOf(kDefectNames, status.highest_defect);
    json["defects"] = {{"rdi", status.defect_rdi},
                       {"mac-status", status.defect_mac_status},
                       {"remote-ccm", status.defect_remote_ccm},
                       {"error-ccm", status.defect_error_ccm},
                       {"xcon-ccm", status.defect_xcon_ccm},
                       {"ais", status.defect_ais}};
  }
  return json;
}

Json RemoteMepJson(std::uint16_t remote_mep_id, const RemoteMep& mep) {
  Json json = {{"remote-mep-id", remote_mep_id},
               {"expected", mep.expected},
               {"reported", mep.status.has_value()},
               {"problems", ProblemsOf(mep)}};
  if (mep.status) {
    const cfm::st_remote_mep_status& status = *mep.status;
    json["mac"] = status.mac.to_string();
    json["state"] = NameOf(kRemoteMepStateNames, status.fsm_state);
    json["rdi"] = status.rdi;
    json["interface-status"] = NameOf(kInterfaceStatusNames, status.intf_status);
    json["port-status"] = NameOf(kPortStatusNames, status.port_state);
    json["sender-id"] = Escape(status.sender_id);
    json["last-change-uptime"] = status.last_change_uptime;
  }
  return json;
}

Json StatusJson(const StatusBoard& board) {
  Json meps = Json::array();
  for (const auto& [key, local] : board.meps()) {
    Json json = LocalMepJson(key, local);
    Json remotes = Json::array();
    for (const auto& [remote_mep_id, remote] : local.remotes) remotes.push_back(RemoteMepJson(remote_mep_id, remote));
    json["remote-meps"] = std::move(remotes);
    meps.push_back(std::move(json));
  }
  return {{"well", board.well()}, {"meps", std::move(meps)}};
}

}  // namespace cfmctl
