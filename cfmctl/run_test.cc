#include "run_test.h"

#include <iostream>
#include <random>

#include "failure.h"
#include "json.h"

namespace cfmctl {

std::uint32_t RandomTriggerId() {
  std::random_device random;
  return std::uniform_int_distribution<std::uint32_t>(1)(random);
}

void ReportRefusal(bool json, std::optional<std::uint32_t> error_code, const std::string& reason) {
  if (json) {
    Json event = {{"event", "refused"}};
    if (error_code) event["error-code"] = *error_code;
    event["reason"] = reason;
    WriteLine(event, std::cout);
  }
  std::cerr << "cfmctl: refused: " << reason << std::endl;
}

void AwaitTest(ConfiguredClient& configured, const TestProgress& progress, std::chrono::milliseconds duration,
               const std::function<void()>& trigger) {
  const auto timeout = configured.options().timeout;
  trigger();
  const auto over = [&progress] { return progress.ended || progress.refused; };
  if (!configured.WaitWithServer([&] { return progress.started || over(); }, timeout)) {
    throw Failure(kFailed, "the server does not start the test; its log may have a reason");
  }
  if (!configured.WaitWithServer(over, duration + timeout)) {
    throw Failure(kFailed, "the server does not report the end of the test");
  }
}

void RunTest(ConfiguredClient& configured, const TestProgress& progress, std::chrono::milliseconds duration,
             const std::function<void()>& trigger, const std::function<void()>& summarise) {
  try {
    AwaitTest(configured, progress, duration, trigger);
  } catch (const Failure&) {
    if (progress.started) summarise();
    throw;
  }
  if (progress.ended) summarise();
}

}  // namespace cfmctl
