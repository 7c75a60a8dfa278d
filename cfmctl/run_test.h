// What the on-demand tests share: a trigger, reports while the test runs, its end, refusal or loss.
#ifndef CFMCTL_RUN_TEST_H
#define CFMCTL_RUN_TEST_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "configured_client.h"
#include "mep_address.h"

namespace cfmctl {

/// How far a test has come; the handlers of each command move it on.
struct TestProgress {
  bool started = false;
  bool ended = false;
  bool refused = false;
};

/// A number for one request: reports are broadcast, so that other applications' requests must not share it.
std::uint32_t RandomTriggerId();

/// The fields that every trigger begins with, the rest zero.
template <typename Trigger>
Trigger TriggerFor(const TestAddress& address) {
  Trigger trigger{};
  trigger.trigger_id = RandomTriggerId();
  trigger.md_name = address.md_name;
  trigger.ma_name = address.ma_name;
  trigger.mep_id = address.mep_id;
  trigger.target_mep_id = address.target_mep_id;
  return trigger;
}

/// Says why the server refused a test: on standard error, and with `json` as an event on standard output.
void ReportRefusal(bool json, std::optional<std::uint32_t> error_code, const std::string& reason);

/// Triggers, and waits for the start within the time-out and for the end or the refusal within `duration` beside it.
/// Throws Failure when neither comes: the server went away or does not answer, or the user interrupted it.
void AwaitTest(ConfiguredClient& configured, const TestProgress& progress, std::chrono::milliseconds duration,
               const std::function<void()>& trigger);

/// The same, and then has the summary printed, also of what is known when the test does not come to its end.
void RunTest(ConfiguredClient& configured, const TestProgress& progress, std::chrono::milliseconds duration,
             const std::function<void()>& trigger, const std::function<void()>& summarise);

}  // namespace cfmctl

#endif
