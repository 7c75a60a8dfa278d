// cfmctl delay: how long is the way there and back? ITU-T G.8013/Y.1731 clause 8.2.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <numeric>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "failure.h"
#include "histogram.h"
#include "json.h"
#include "mep_address.h"
#include "run_test.h"
#include "status_names.h"
#include "text.h"

namespace cfmctl {
namespace {

struct Spread {
  double minimum = 0;
  double mean = 0;
  double maximum = 0;
};

struct DelayResults {
  std::uint64_t sent = 0;
  std::uint64_t received = 0;
  Spread delay;
  Spread variation;
  std::uint64_t octets_of_data = 0;
};

void PrintStart(const DelayOptions& options, const cfm::st_mac& target_mac) {
  std::cout << fmt::format("delay {} ({}): {}, one every {}, {} of data, priority {}", TestText(options.address),
                           target_mac.to_string(), Count(options.count, "message"), options.interval_text,
                           Count(options.size, "octet"), options.priority)
            << std::endl;
}

std::uint64_t LostOf(const DelayResults& results) {
  return results.sent - std::min(results.sent, results.received);
}

std::string SpreadText(const Spread& spread) {
  return fmt::format("{:.1f}/{:.1f}/{:.1f}", spread.minimum, spread.mean, spread.maximum);
}

void PrintResults(const DelayResults& results) {
  std::cout << fmt::format("{} sent, {} received, {} lost, {} of data\n", results.sent, results.received,
                           PercentText(LostOf(results), results.sent), Count(results.octets_of_data, "octet"));
  if (results.received == 0) return;
  std::cout << fmt::format("two-way delay min/mean/max = {} us\n", SpreadText(results.delay));
  std::cout << fmt::format("delay variation min/mean/max = {} us\n", SpreadText(results.variation));
}

// What is the same of all ways to measure: only the test under way counts, and one that is refused says so.
class DelayHandler : public cfm::ReceivedDelayMeasurementHandlerIntf {
 public:
  explicit DelayHandler(const DelayOptions& options) : options_(options) {}

  const TestProgress& progress() const { return progress_; }

  void Begin(std::uint32_t trigger_id) {
    trigger_id_ = trigger_id;
    progress_ = {};
  }

  void OnDelayMeasurementTriggerError(std::uint32_t trigger_id, std::uint32_t error_code, const std::string& /*md*/,
                                      const std::string& /*ma*/, std::uint16_t /*mep_id*/,
                                      std::uint16_t /*target_mep_id*/) final {
    if (!IsUnderWay(trigger_id)) return;
    progress_.refused = true;
    ReportRefusal(options_.json, error_code, RefusalText(error_code));
  }

  void OnDelayMeasurementStarted(std::uint32_t trigger_id, const cfm::st_mac& target_mac) final {
    if (!IsUnderWay(trigger_id)) return;
    progress_.started = true;
    ShowStart(target_mac);
  }

 protected:
  virtual void ShowStart(const cfm::st_mac& target_mac) = 0;

  bool IsUnderWay(std::uint32_t trigger_id) const { return trigger_id == trigger_id_ && !progress_.ended; }
  void End() { progress_.ended = true; }
  const DelayOptions& options() const { return options_; }

 private:
  const DelayOptions& options_;
  std::uint32_t trigger_id_ = 0;
  TestProgress progress_;
};

// One test of all messages: the server sends them and works out the results.
class DelayTest final : public DelayHandler {
 public:
  using DelayHandler::DelayHandler;

  void OnDelayMeasurementReply(std::uint32_t trigger_id, const cfm::st_mac& source_mac) override {
    if (!IsUnderWay(trigger_id)) return;
    ++replies_;
    if (options().json) {
      WriteLine({{"event", "reply"}, {"source-mac", source_mac.to_string()}}, std::cout);
      return;
    }
    std::cout << fmt::format("reply {} from {}", replies_, source_mac.to_string()) << std::endl;
  }

  void OnDelayMeasurementEnded(std::uint32_t trigger_id, std::uint64_t rx_count, std::uint64_t tx_count,
                               double dm_result_1, double dm_result_2, double dm_result_3, double dm_result_4,
                               double dm_result_5, double dm_result_6, std::uint64_t dm_result_7) override {
    if (!IsUnderWay(trigger_id)) return;
    End();
    results_ = {.sent = tx_count,
                .received = rx_count,
                .delay = {dm_result_1, dm_result_2, dm_result_3},
                .variation = {dm_result_4, dm_result_5, dm_result_6},
                .octets_of_data = dm_result_7};
  }

  bool passed() const { return progress().ended && results_.sent > 0 && results_.received == results_.sent; }

  void Summarise() const {
    if (options().json) {
      Json json = {{"event", progress().ended ? "ended" : "incomplete"}};
      if (progress().ended) {
        json.update(Json{{"sent", results_.sent},
                         {"received", results_.received},
                         {"lost", LostOf(results_)},
                         {"octets-of-data", results_.octets_of_data}});
        json["delay-us"] = SpreadJson(results_.delay);
        json["delay-variation-us"] = SpreadJson(results_.variation);
      } else {
        json["replies"] = replies_;
      }
      WriteLine(json, std::cout);
      return;
    }
    std::cout << fmt::format("--- delay {}\n", TestText(options().address));
    if (progress().ended) {
      PrintResults(results_);
    } else {
      std::cout << fmt::format("not complete: {} so far\n", Count(replies_, "reply", "replies"));
    }
  }

 private:
  void ShowStart(const cfm::st_mac& target_mac) override {
    if (options().json) {
      WriteLine({{"event", "started"}, {"target-mac", target_mac.to_string()}, {"messages", options().count}},
                std::cout);
      return;
    }
    PrintStart(options(), target_mac);
  }

  static Json SpreadJson(const Spread& spread) {
    return {{"min", spread.minimum}, {"mean", spread.mean}, {"max", spread.maximum}};
  }

  std::size_t replies_ = 0;
  DelayResults results_;
};

// A test for each message, as the server gives no single delays: the mean of one message is its delay.
class DelaySeries final : public DelayHandler {
 public:
  using DelayHandler::DelayHandler;

  bool passed() const { return received_ == options().count; }

  void OnDelayMeasurementReply(std::uint32_t /*trigger_id*/, const cfm::st_mac& /*source_mac*/) override {}

  void OnDelayMeasurementEnded(std::uint32_t trigger_id, std::uint64_t rx_count, std::uint64_t tx_count,
                               double /*minimum*/, double mean, double /*maximum*/, double /*minimum*/, double /*mean*/,
                               double /*maximum*/, std::uint64_t octets_of_data) override {
    if (!IsUnderWay(trigger_id)) return;
    End();
    octets_of_data_ = octets_of_data;
    sent_ += tx_count;
    received_ += rx_count;
    if (rx_count == 0) {
      last_delay_.reset();
      return;
    }
    delays_.push_back(mean);
    // Across a lost message there is none.
    if (last_delay_) variations_.push_back(std::abs(mean - *last_delay_));
    last_delay_ = mean;
  }

  void Summarise() const {
    if (!is_announced_) return;
    std::cout << fmt::format("--- delay {}\n", TestText(options().address));
    PrintResults({.sent = sent_,
                  .received = received_,
                  .delay = SpreadOf(delays_),
                  .variation = SpreadOf(variations_),
                  .octets_of_data = octets_of_data_});
    for (const std::string& line : Histogram(delays_, "us")) std::cout << "  " << line << '\n';
  }

 private:
  void ShowStart(const cfm::st_mac& target_mac) override {
    if (!std::exchange(is_announced_, true)) PrintStart(options(), target_mac);
  }

  static Spread SpreadOf(const std::vector<double>& values) {
    if (values.empty()) return {};
    const auto [minimum, maximum] = std::minmax_element(values.begin(), values.end());
    const double sum = std::accumulate(values.begin(), values.end(), 0.0);
    return {*minimum, sum / static_cast<double>(values.size()), *maximum};
  }

  bool is_announced_ = false;
  std::uint64_t sent_ = 0;
  std::uint64_t received_ = 0;
  std::vector<double> delays_;
  std::vector<double> variations_;
  std::optional<double> last_delay_;
  std::uint64_t octets_of_data_ = 0;
};

std::chrono::milliseconds IntervalFrom(const std::string& text) {
  constexpr std::chrono::milliseconds kShortest(10);
  constexpr std::chrono::milliseconds kLongest(60000);
  const auto interval = ParseDuration(text);
  if (!interval || *interval < kShortest || *interval > kLongest || interval->count() % 1000 != 0) {
    throw Failure(kBadInput,
                  fmt::format("--interval: {} is not a time from 10ms to 60s, in whole milliseconds and with its unit",
                              Escape(text)));
  }
  return std::chrono::duration_cast<std::chrono::milliseconds>(*interval);
}

// For the last replies.
constexpr std::chrono::seconds kAfterwards(5);

int MeasureAtOnce(ConfiguredClient& configured, const DelayOptions& options, std::chrono::milliseconds interval,
                  const cfm::delay_measurement_trigger& trigger) {
  DelayTest test(options);
  test.Begin(trigger.trigger_id);
  configured.client().RegisterDelayMeasurementHandler(&test);
  configured.Synchronise();
  RunTest(
      configured, test.progress(), interval * options.count + kAfterwards,
      [&] { configured.client().DelayMeasurementTrigger(trigger); }, [&] { test.Summarise(); });
  return test.passed() ? kOk : kFailed;
}

int MeasureOneByOne(ConfiguredClient& configured, const DelayOptions& options, std::chrono::milliseconds interval,
                    cfm::delay_measurement_trigger trigger) {
  DelaySeries series(options);
  configured.client().RegisterDelayMeasurementHandler(&series);
  configured.Synchronise();
  trigger.dm_param_1 = 1;
  try {
    for (std::uint32_t i = 0; i < options.count && !series.progress().refused; ++i) {
      trigger.trigger_id = RandomTriggerId();
      series.Begin(trigger.trigger_id);
      const auto next = std::chrono::steady_clock::now() + interval;
      AwaitTest(configured, series.progress(), kAfterwards,
                [&] { configured.client().DelayMeasurementTrigger(trigger); });
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(next - std::chrono::steady_clock::now());
      if (i + 1 < options.count && left.count() > 0) configured.WaitWithServer([] { return false; }, left);
    }
  } catch (const Failure&) {
    series.Summarise();
    throw;
  }
  series.Summarise();
  return series.passed() ? kOk : kFailed;
}

}  // namespace

int Delay(const GlobalOptions& global, const DelayOptions& options) {
  const std::chrono::milliseconds interval = IntervalFrom(options.interval_text);
  ConfiguredClient configured(global.config_file, global.server);
  Validate(options.address, configured.model());
  auto trigger = TriggerFor<cfm::delay_measurement_trigger>(options.address);
  trigger.dm_param_1 = options.count;
  trigger.dm_param_2 = static_cast<std::uint32_t>(interval.count());
  trigger.dm_param_3 = options.size;
  trigger.dm_param_4 = static_cast<std::uint8_t>(options.priority);
  return options.histogram ? MeasureOneByOne(configured, options, interval, trigger)
                           : MeasureAtOnce(configured, options, interval, trigger);
}

}  // namespace cfmctl
