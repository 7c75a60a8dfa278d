// What the on-demand tests share: a trigger, reports while the test runs, its end, refusal or loss.
#ifndef CFMCTL_RUN_TEST_H
#define CFMCTL_RUN_TEST_H

#include <chrono>
#include <cstdint>
#include <functional>

#include "configured_client.h"

namespace cfmctl {

/// How far a test has come; the handlers of each command move it on.
struct TestProgress {
  bool started = false;
  bool ended = false;
  bool refused = false;
};

/// A number for one request: reports are broadcast, so that other applications' requests must not share it.
std::uint32_t RandomTriggerId();

/// Triggers, waits for the start within the time-out and for the end within `duration` beside it, and then has the
/// summary printed, also of what is known when the test does not come to its end. Throws Failure when it does not: the
/// server went away or does not answer, or the user interrupted it.
void RunTest(ConfiguredClient& configured, const TestProgress& progress, std::chrono::milliseconds duration,
             const std::function<void()>& trigger, const std::function<void()>& summarise);

}  // namespace cfmctl

#endif
