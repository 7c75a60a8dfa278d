// cfmctl loopback: does the other end answer? IEEE 802.1Q clause 20.2.
#include <fmt/format.h>

#include <iostream>

#include "commands/commands.h"
#include "exit_status.h"
#include "json.h"
#include "mep_address.h"
#include "run_test.h"
#include "status_names.h"
#include "text.h"

namespace cfmctl {
namespace {

class LoopbackTest final : public cfm::ReceivedLoopbackHandlerIntf {
 public:
  LoopbackTest(const LoopbackOptions& options, std::uint32_t trigger_id) : options_(options), trigger_id_(trigger_id) {}

  const TestProgress& progress() const { return progress_; }

  void OnLoopbackTriggerError(std::uint32_t trigger_id, std::uint32_t error_code, const std::string& /*md*/,
                              const std::string& /*ma*/, std::uint16_t /*mep_id*/,
                              std::uint16_t /*target_mep_id*/) override {
    if (trigger_id != trigger_id_) return;
    progress_.refused = true;
    ReportRefusal(options_.json, error_code, RefusalText(error_code));
  }

  void OnLoopbackStarted(std::uint32_t trigger_id, const cfm::st_mac& target_mac) override {
    if (trigger_id != trigger_id_) return;
    progress_.started = true;
    if (options_.json) {
      WriteLine({{"event", "started"}, {"target-mac", target_mac.to_string()}, {"messages", options_.count}},
                std::cout);
      return;
    }
    std::cout << fmt::format("loopback {} ({}): {} with {} of data", TestText(options_.address), target_mac.to_string(),
                             Count(options_.count, "message"), Count(options_.size, "octet"))
              << std::endl;
  }

  void OnLoopbackReply(std::uint32_t trigger_id, std::uint32_t transaction_id, const cfm::st_mac& source_mac) override {
    if (trigger_id != trigger_id_) return;
    ++replies_;
    if (options_.json) {
      WriteLine({{"event", "reply"}, {"source-mac", source_mac.to_string()}, {"transaction-id", transaction_id}},
                std::cout);
      return;
    }
    std::cout << fmt::format("reply {} from {}: transaction {}", replies_, source_mac.to_string(), transaction_id)
              << std::endl;
  }

  void OnLoopbackEnded(std::uint32_t trigger_id, std::uint64_t expected, std::uint64_t in_order,
                       std::uint64_t out_of_order, std::uint64_t wrong_payload) override {
    if (trigger_id != trigger_id_) return;
    progress_.ended = true;
    expected_ = expected;
    in_order_ = in_order;
    out_of_order_ = out_of_order;
    wrong_payload_ = wrong_payload;
  }

  bool passed() const { return progress_.ended && expected_ > 0 && in_order_ == expected_; }

  void Summarise() const {
    const std::uint64_t received = in_order_ + out_of_order_ + wrong_payload_;
    const std::uint64_t lost = expected_ - std::min(expected_, received);
    if (options_.json) {
      Json json = {{"event", progress_.ended ? "ended" : "incomplete"}};
      if (progress_.ended) {
        json.update(Json{{"sent", expected_},
                         {"in-order", in_order_},
                         {"out-of-order", out_of_order_},
                         {"wrong-payload", wrong_payload_},
                         {"lost", lost}});
      } else {
        json["replies"] = replies_;
      }
      WriteLine(json, std::cout);
      return;
    }
    std::cout << fmt::format("--- loopback {}\n", TestText(options_.address));
    if (progress_.ended) {
      std::cout << fmt::format("{} sent, {} received, {} lost: {} in order, {} out of order, {} with a wrong payload\n",
                               expected_, received, PercentText(lost, expected_), in_order_, out_of_order_,
                               wrong_payload_);
    } else {
      std::cout << fmt::format("not complete: {} so far\n", Count(replies_, "reply", "replies"));
    }
  }

 private:
  const LoopbackOptions& options_;
  std::uint32_t trigger_id_;
  TestProgress progress_;
  std::size_t replies_ = 0;
  std::uint64_t expected_ = 0;
  std::uint64_t in_order_ = 0;
  std::uint64_t out_of_order_ = 0;
  std::uint64_t wrong_payload_ = 0;
};

}  // namespace

int Loopback(const GlobalOptions& global, const LoopbackOptions& options) {
  ConfiguredClient configured(global.config_file, global.server);
  Validate(options.address, configured.model());
  auto trigger = TriggerFor<cfm::loopback_trigger>(options.address);
  trigger.lb_param_1 = options.count;
  trigger.lb_param_2 = options.size;

  LoopbackTest test(options, trigger.trigger_id);
  configured.client().RegisterLoopbackHandler(&test);
  configured.Synchronise();
  // The server sends one message a second and waits five more for the last replies (IEEE 802.1Q clause 20.2).
  RunTest(
      configured, test.progress(), std::chrono::seconds(options.count + 5),
      [&] { configured.client().LoopbackTrigger(trigger); }, [&] { test.Summarise(); });
  return test.passed() ? kOk : kFailed;
}

}  // namespace cfmctl
