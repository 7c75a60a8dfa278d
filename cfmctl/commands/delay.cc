// cfmctl delay: how long is the way there and back? ITU-T G.8013/Y.1731 clause 8.2.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <string>

#include "commands/commands.h"
#include "failure.h"
#include "json.h"
#include "mep_address.h"
#include "run_test.h"
#include "status_names.h"
#include "text.h"

namespace cfmctl {
namespace {

class DelayTest final : public cfm::ReceivedDelayMeasurementHandlerIntf {
 public:
  DelayTest(const DelayOptions& options, std::uint32_t trigger_id) : options_(options), trigger_id_(trigger_id) {}

  const TestProgress& progress() const { return progress_; }

  void OnDelayMeasurementTriggerError(std::uint32_t trigger_id, std::uint32_t error_code, const std::string& /*md*/,
                                      const std::string& /*ma*/, std::uint16_t /*mep_id*/,
                                      std::uint16_t /*target_mep_id*/) override {
    if (trigger_id != trigger_id_) return;
    progress_.refused = true;
    ReportRefusal(options_.json, error_code, RefusalText(error_code));
  }

  void OnDelayMeasurementStarted(std::uint32_t trigger_id, const cfm::st_mac& target_mac) override {
    if (trigger_id != trigger_id_) return;
    progress_.started = true;
    if (options_.json) {
      WriteLine({{"event", "started"}, {"target-mac", target_mac.to_string()}, {"messages", options_.count}},
                std::cout);
      return;
    }
    std::cout << fmt::format("delay {} ({}): {}, one every {}, {} of data, priority {}", TestText(options_.address),
                             target_mac.to_string(), Count(options_.count, "message"), options_.interval_text,
                             Count(options_.size, "octet"), options_.priority)
              << std::endl;
  }

  void OnDelayMeasurementReply(std::uint32_t trigger_id, const cfm::st_mac& source_mac) override {
    if (trigger_id != trigger_id_) return;
    ++replies_;
    if (options_.json) {
      WriteLine({{"event", "reply"}, {"source-mac", source_mac.to_string()}}, std::cout);
      return;
    }
    std::cout << fmt::format("reply {} from {}", replies_, source_mac.to_string()) << std::endl;
  }

  void OnDelayMeasurementEnded(std::uint32_t trigger_id, std::uint64_t rx_count, std::uint64_t tx_count,
                               double dm_result_1, double dm_result_2, double dm_result_3, double dm_result_4,
                               double dm_result_5, double dm_result_6, std::uint64_t dm_result_7) override {
    if (trigger_id != trigger_id_) return;
    progress_.ended = true;
    received_ = rx_count;
    sent_ = tx_count;
    delay_ = {dm_result_1, dm_result_2, dm_result_3};
    variation_ = {dm_result_4, dm_result_5, dm_result_6};
    used_size_ = dm_result_7;
  }

  bool passed() const { return progress_.ended && sent_ > 0 && received_ == sent_; }

  void Summarise() const {
    const std::uint64_t lost = sent_ - std::min(sent_, received_);
    if (options_.json) {
      Json json = {{"event", progress_.ended ? "ended" : "incomplete"}};
      if (progress_.ended) {
        json.update(Json{{"sent", sent_}, {"received", received_}, {"lost", lost}, {"octets-of-data", used_size_}});
        json["delay-us"] = ResultJson(delay_);
        json["delay-variation-us"] = ResultJson(variation_);
      } else {
        json["replies"] = replies_;
      }
      WriteLine(json, std::cout);
      return;
    }
    std::cout << fmt::format("--- delay {}\n", TestText(options_.address));
    if (!progress_.ended) {
      std::cout << fmt::format("not complete: {} so far\n", Count(replies_, "reply", "replies"));
      return;
    }
    std::cout << fmt::format("{} sent, {} received, {} lost, {} of data\n", sent_, received_, PercentText(lost, sent_),
                             Count(used_size_, "octet"));
    if (received_ == 0) return;
    std::cout << fmt::format("two-way delay min/mean/max = {} us\n", ResultText(delay_));
    std::cout << fmt::format("delay variation min/mean/max = {} us\n", ResultText(variation_));
  }

 private:
  struct Result {
    double minimum = 0;
    double mean = 0;
    double maximum = 0;
  };

  static std::string ResultText(const Result& result) {
    return fmt::format("{:.1f}/{:.1f}/{:.1f}", result.minimum, result.mean, result.maximum);
  }
  static Json ResultJson(const Result& result) {
    return {{"min", result.minimum}, {"mean", result.mean}, {"max", result.maximum}};
  }

  const DelayOptions& options_;
  std::uint32_t trigger_id_;
  TestProgress progress_;
  std::size_t replies_ = 0;
  std::uint64_t received_ = 0;
  std::uint64_t sent_ = 0;
  Result delay_;
  Result variation_;
  std::uint64_t used_size_ = 0;
};

std::chrono::milliseconds IntervalFrom(const std::string& text) {
  constexpr std::chrono::milliseconds kShortest(10);
  constexpr std::chrono::milliseconds kLongest(60000);
  const auto interval = ParseDuration(text);
  if (!interval || *interval < kShortest || *interval > kLongest || interval->count() % 1000 != 0) {
    throw Failure(kBadInput,
                  fmt::format("--interval: {} is not a time in whole milliseconds from 10ms to 60s", Escape(text)));
  }
  return std::chrono::duration_cast<std::chrono::milliseconds>(*interval);
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

  DelayTest test(options, trigger.trigger_id);
  configured.client().RegisterDelayMeasurementHandler(&test);
  configured.Synchronise();
  // Five seconds more for the last replies.
  RunTest(
      configured, test.progress(), interval * options.count + std::chrono::seconds(5),
      [&] { configured.client().DelayMeasurementTrigger(trigger); }, [&] { test.Summarise(); });
  return test.passed() ? kOk : kFailed;
}

}  // namespace cfmctl
