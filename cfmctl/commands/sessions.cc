// cfmctl sessions: the reports of the standing measurement sessions, as their runs end.
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <iostream>
#include <optional>
#include <string>

#include "commands/commands.h"
#include "configured_client.h"
#include "failure.h"
#include "handlers.h"
#include "json.h"
#include "text.h"

namespace cfmctl {
namespace {

// The report's numbered values by the names that include/cfm/status.h gives them.
Json ReportJson(const cfm::delay_measurement_session_report& report) {
  return {{"event", "session-ended"},
          {"probe-id", report.report_u32_1},
          {"session-id", report.report_u32_2},
          {"complete", report.report_flag != 0},
          {"local-mep-id", report.report_u32_3},
          {"remote-mep-id", report.report_u32_4},
          {"sent", report.report_u32_5},
          {"received", report.report_u32_6},
          {"lost", report.report_u32_7},
          {"run", report.report_u32_8},
          {"start", report.report_u32_14},
          {"delay-us",
           {{"min", report.report_u32_9},
            {"mean", report.report_double_1},
            {"max", report.report_u32_10},
            {"median", report.report_u32_11},
            {"p95", report.report_u32_12},
            {"p99", report.report_u32_13},
            {"stddev", report.report_double_2}}},
          {"delay-variation-us", {{"mean", report.report_double_3}, {"stddev", report.report_double_4}}}};
}

std::string ReportText(const cfm::delay_measurement_session_report& report) {
  std::string text = fmt::format("{:%Y-%m-%dT%H:%M:%S%z} probe {} session {} run {}, MEP {} -> MEP {}: ",
                                 fmt::localtime(static_cast<std::time_t>(report.report_u32_14)), report.report_u32_1,
                                 report.report_u32_2, report.report_u32_8, report.report_u32_3, report.report_u32_4);
  if (report.report_flag == 0) text += "aborted, ";
  text += fmt::format("{} sent, {} received, {} lost", report.report_u32_5, report.report_u32_6,
                      PercentText(report.report_u32_7, report.report_u32_5));
  if (report.report_u32_6 != 0) {
    text += fmt::format(
        "; delay min/mean/max/stddev {}/{:.1f}/{}/{:.1f} us, median {}, p95 {}, p99 {}; variation "
        "mean/stddev {:.1f}/{:.1f} us",
        report.report_u32_9, report.report_double_1, report.report_u32_10, report.report_double_2, report.report_u32_11,
        report.report_u32_12, report.report_u32_13, report.report_double_3, report.report_double_4);
  }
  return text;
}

class Reporter final : public StatusListener {
 public:
  Reporter(const SessionsOptions& options, const cfm::probe& probes) : options_(options), probes_(probes) {}

  bool done() const { return options_.count != 0 && reported_ == options_.count; }

  void OnDelayMeasurementSessionEnded(const cfm::delay_measurement_session_report& report) override {
    if (done() || !IsOurs(report)) return;
    ++reported_;
    if (options_.json) {
      WriteLine(ReportJson(report), std::cout);
    } else {
      std::cout << ReportText(report) << std::endl;
    }
  }

 private:
  /// The last report of a session that the configuration file no longer has is nothing to wait for.
  bool IsOurs(const cfm::delay_measurement_session_report& report) const {
    const auto probe = std::find_if(probes_.probes.begin(), probes_.probes.end(),
                                    [&](const auto& entry) { return entry.first == report.report_u32_1; });
    if (probe == probes_.probes.end()) return false;
    const auto& sessions = probe->second.sessions;
    return std::any_of(sessions.begin(), sessions.end(),
                       [&](const auto& entry) { return entry.first == report.report_u32_2; });
  }

  const SessionsOptions& options_;
  const cfm::probe& probes_;
  std::size_t reported_ = 0;
};

}  // namespace

int Sessions(const GlobalOptions& global, const SessionsOptions& options) {
  ConfiguredClient configured(global.config_file, global.server);
  if (configured.model().probes.probes.empty()) {
    throw Failure(kBadInput, "the configuration file has no probes, so no session will ever report");
  }
  Reporter reporter(options, configured.model().probes);
  configured.client().RegisterStatusHandler(&reporter);
  configured.Synchronise();
  configured.on_lost = [] { std::cerr << "cfmctl: the server went away; waiting for its return\n"; };
  try {
    configured.Wait([&reporter] { return reporter.done(); }, std::nullopt);
  } catch (const Failure& failure) {
    // Without a count this is the one way to end it.
    if (options.count == 0 && failure.status() > kSignalBase) return kOk;
    throw;
  }
  return kOk;
}

}  // namespace cfmctl
