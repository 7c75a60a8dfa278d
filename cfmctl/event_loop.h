// Waits for descriptors on one thread and calls what belongs to them.
#ifndef CFMCTL_EVENT_LOOP_H
#define CFMCTL_EVENT_LOOP_H

#include <chrono>
#include <functional>
#include <initializer_list>
#include <optional>
#include <vector>

namespace cfmctl {

class EventLoop {
 public:
  using Clock = std::chrono::steady_clock;

  /// `ready` is called whenever the descriptor can be read. The descriptor must outlive the loop's runs.
  void Add(int descriptor, std::function<void()> ready);

  /// Runs until `done` holds, which it asks before it waits and after each round of calls; returns false when the
  /// deadline came first. Without a deadline it waits for as long as it takes.
  bool RunUntil(const std::function<bool()>& done, std::optional<Clock::time_point> deadline);

 private:
  struct Source {
    int descriptor;
    std::function<void()> ready;
  };

  std::vector<Source> sources_;
};

/// Takes signals off the process and hands them to the loop. Construct it before anything that starts a thread.
class SignalSource {
 public:
  SignalSource(EventLoop& loop, std::initializer_list<int> signals, std::function<void(int signal)> received);
  ~SignalSource();
  SignalSource(const SignalSource&) = delete;
  SignalSource& operator=(const SignalSource&) = delete;

 private:
  int descriptor_;
};

}  // namespace cfmctl

#endif
