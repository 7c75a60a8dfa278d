#include "cache_progress.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "event_loop.h"
#include "failure.h"
#include "server_link.h"
#include "terminal.h"

namespace cfmctl {

CacheProgress::CacheProgress(const std::string& socket_directory, const Model& desired) {
  if (!IsTerminal(STDERR_FILENO)) return;
  thread_ = std::thread([this, socket_directory, &desired] { Follow(socket_directory, desired); });
}

CacheProgress::~CacheProgress() {
  ended_ = true;
  if (thread_.joinable()) thread_.join();
}

void CacheProgress::Follow(const std::string& socket_directory, const Model& desired) const {
  // A reading costs the server time that grows with the cache; at most a third of the time goes into it.
  constexpr std::chrono::milliseconds kShortestPause(50);
  constexpr std::chrono::milliseconds kTick(20);
  const std::size_t total = SizeOf(desired).total();
  ProgressBar bar("applying");
  bar.Show(0, total);
  try {
    EventLoop loop;
    ServerLink link(loop, socket_directory);
    bool answered = false;
    link.on_cache = [&](const Model& cache) {
      answered = true;
      bar.Show(SizeOf(cache).total(), total);
    };
    // The loop knows nothing of ended_, so it wakes up to look.
    const auto wait = [&](const auto& done) {
      while (!ended_ && !done()) loop.RunUntil(done, EventLoop::Clock::now() + kTick);
    };
    while (!ended_) {
      wait([&link] { return link.present(); });
      const auto asked = EventLoop::Clock::now();
      answered = !link.RequestCache();
      wait([&answered, &link] { return answered || !link.present(); });
      const auto pause = std::max<EventLoop::Clock::duration>(kShortestPause, 2 * (EventLoop::Clock::now() - asked));
      const auto resume = EventLoop::Clock::now() + pause;
      wait([resume] { return EventLoop::Clock::now() >= resume; });
    }
  } catch (const Failure&) {
    // Without a bar, but the work goes on.
  }
}

}  // namespace cfmctl
