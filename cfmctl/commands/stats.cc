// cfmctl stats and cfmctl clear-stats: the CCM counters.
#include <fmt/format.h>

#include <cstdint>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "configured_client.h"
#include "failure.h"
#include "json.h"
#include "mep_address.h"
#include "text.h"

namespace cfmctl {
namespace {

/// Collects one reply.
class Collector final : public cfm::ReceivedStatisticsHandlerIntf {
 public:
  struct Remote {
    std::uint16_t mep_id;
    cfm::st_remote_mep_stats stats;
  };
  struct Local {
    std::optional<cfm::st_local_mep_stats> stats;  ///< nothing: only remote MEPs were reported
    std::vector<Remote> remotes;
  };
  using Key = std::tuple<std::string, std::string, std::uint16_t>;

  explicit Collector(const Scope& scope) : scope_(scope) {}

  bool ended() const { return ended_; }
  const std::map<Key, Local>& meps() const { return meps_; }

  void OnLocalMepStatistics(const std::string& md, const std::string& ma, std::uint16_t mep_id,
                            const cfm::st_local_mep_stats& stats) override {
    if (scope_.Holds(md, ma, mep_id)) meps_[Key(md, ma, mep_id)].stats = stats;
  }
  void OnRemoteMepStatistics(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                             std::uint16_t remote_mep_id, const cfm::st_remote_mep_stats& stats) override {
    if (scope_.Holds(md, ma, local_mep_id)) meps_[Key(md, ma, local_mep_id)].remotes.push_back({remote_mep_id, stats});
  }
  void OnStatisticsEnd() override { ended_ = true; }

 private:
  const Scope& scope_;
  std::map<Key, Local> meps_;
  bool ended_ = false;
};

/// Asks for the counters and waits for all of them.
void Collect(ConfiguredClient& configured, Collector& collector) {
  configured.client().RegisterStatisticsHandler(&collector);
  configured.client().RequestStatistics();
  if (!configured.WaitWithServer([&] { return collector.ended(); }, configured.options().timeout)) {
    throw Failure(kFailed, "the server does not answer; a longer --timeout may help");
  }
  configured.client().RegisterStatisticsHandler(nullptr);
}

void RenderStats(const Collector& collector, std::ostream& out) {
  for (const auto& [key, local] : collector.meps()) {
    const auto& [md, ma, mep_id] = key;
    out << MepText(md, ma, mep_id);
    if (local.stats) {
      out << fmt::format(": {} CCMs sent, sequence number {}, {} sequence errors received", local.stats->ccm_tx_total,
                         local.stats->ccm_tx_current_seq, local.stats->ccm_rx_seq_errors);
    }
    out << '\n';
    for (const Collector::Remote& remote : local.remotes) {
      out << fmt::format("  remote MEP {}: last sequence number {}\n", remote.mep_id, remote.stats.last_ccm_seq);
    }
  }
  out << Count(collector.meps().size(), "local MEP") << '\n';
}

Json StatsJson(const Collector& collector) {
  Json meps = Json::array();
  for (const auto& [key, local] : collector.meps()) {
    const auto& [md, ma, mep_id] = key;
    Json json = {{"domain", md}, {"association", ma}, {"mep-id", mep_id}};
    if (local.stats) {
      json["ccm-tx-total"] = local.stats->ccm_tx_total;
      json["ccm-tx-current-seq"] = local.stats->ccm_tx_current_seq;
      json["ccm-rx-seq-errors"] = local.stats->ccm_rx_seq_errors;
    }
    Json remotes = Json::array();
    for (const Collector::Remote& remote : local.remotes) {
      remotes.push_back({{"remote-mep-id", remote.mep_id}, {"last-ccm-seq", remote.stats.last_ccm_seq}});
    }
    json["remote-meps"] = std::move(remotes);
    meps.push_back(std::move(json));
  }
  return {{"meps", std::move(meps)}};
}

const char* OrNull(const std::string& name) {
  return name.empty() ? nullptr : name.c_str();
}

}  // namespace

int Stats(const GlobalOptions& global, const StatsOptions& options) {
  ConfiguredClient configured(global.config_file, global.server);
  Validate(options.scope, configured.model());
  configured.Synchronise();
  Collector collector(options.scope);
  Collect(configured, collector);
  if (options.json) {
    WriteLine(StatsJson(collector), std::cout);
  } else {
    RenderStats(collector, std::cout);
  }
  return kOk;
}

int ClearStats(const GlobalOptions& global, const StatsOptions& options) {
  const Scope& scope = options.scope;
  ConfiguredClient configured(global.config_file, global.server);
  Validate(scope, configured.model());
  configured.Synchronise();
  configured.client().ClearStatistics(OrNull(scope.md_name), OrNull(scope.ma_name), scope.mep_id);
  // The request has no answer of its own; the answer to one that is sent behind it shows that it has arrived.
  Collector collector(scope);
  Collect(configured, collector);
  if (options.json) {
    Json json = {{"cleared", true}};
    if (!scope.md_name.empty()) json["domain"] = scope.md_name;
    if (!scope.ma_name.empty()) json["association"] = scope.ma_name;
    if (scope.mep_id != 0) json["mep-id"] = scope.mep_id;
    WriteLine(json, std::cout);
  } else {
    std::cout << "cleared the statistics of " << ScopeText(scope) << '\n';
  }
  return kOk;
}

}  // namespace cfmctl
