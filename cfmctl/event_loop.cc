#include "event_loop.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "failure.h"

namespace cfmctl {
namespace {

/// For poll: -1 without a deadline, and never shorter than what is left.
int MillisecondsUntil(std::optional<EventLoop::Clock::time_point> deadline) {
  if (!deadline) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - EventLoop::Clock::now());
  constexpr std::chrono::milliseconds kLongest = std::chrono::hours(1);
  return static_cast<int>(std::clamp(left, std::chrono::milliseconds(0), kLongest).count());
}

}  // namespace

void EventLoop::Add(int descriptor, std::function<void()> ready) {
  sources_.push_back({.descriptor = descriptor, .ready = std::move(ready)});
}

bool EventLoop::RunUntil(const std::function<bool()>& done, std::optional<Clock::time_point> deadline) {
  std::vector<pollfd> polled;
  for (const Source& source : sources_) polled.push_back({.fd = source.descriptor, .events = POLLIN, .revents = 0});
  while (!done()) {
    const int ready = poll(polled.data(), polled.size(), MillisecondsUntil(deadline));
    if (ready < 0 && errno != EINTR) throw Failure(kFailed, fmt::format("cannot wait: {}", std::strerror(errno)));
    for (std::size_t i = 0; ready > 0 && i < polled.size(); ++i) {
      if (polled[i].revents != 0) sources_[i].ready();
    }
    if (deadline && Clock::now() >= *deadline) return done();
  }
  return true;
}

SignalSource::SignalSource(EventLoop& loop, std::initializer_list<int> signals,
                           std::function<void(int signal)> received) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  descriptor_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  if (descriptor_ < 0) throw Failure(kFailed, fmt::format("cannot watch for signals: {}", std::strerror(errno)));
  loop.Add(descriptor_, [descriptor = descriptor_, call = std::move(received)] {
    signalfd_siginfo info;
    while (read(descriptor, &info, sizeof info) == sizeof info) call(static_cast<int>(info.ssi_signo));
  });
}

SignalSource::~SignalSource() {
  close(descriptor_);
}

}  // namespace cfmctl
