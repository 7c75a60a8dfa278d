// The server's only wait: descriptors, and what to do when they can be read; timers, which go first.
#ifndef CFM_SERVER_EVENT_LOOP_H
#define CFM_SERVER_EVENT_LOOP_H

#include <sys/epoll.h>

#include <chrono>
#include <functional>
#include <map>
#include <span>

namespace cfm {

// One thread. Throws std::system_error where the system refuses.
class EventLoop {
 public:
  using TimePoint = std::chrono::time_point<std::chrono::steady_clock, std::chrono::nanoseconds>;
  static constexpr TimePoint kNever = TimePoint::max();

  /// What is due at certain times.
  class Timers {
   public:
    /// When Advance() has something to do.
    virtual TimePoint deadline() const = 0;
    virtual void Advance(TimePoint now) = 0;

   protected:
    ~Timers() = default;
  };

  EventLoop();
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // Calls ready whenever the descriptor can be read, again and again while it stays so. The descriptor stays the
  // caller's and outlives the loop.
  void Add(int fd, std::function<void()> ready);

  // They outlive the loop.
  void SetTimers(Timers& timers) { timers_ = &timers; }

  // Until Stop, which a callback calls; what else is ready at that moment is left. The timers are looked at before each
  // callback.
  void Run();
  void Stop() { running_ = false; }

 private:
  // Timers that are due within this time of each other are served in one go.
  static constexpr std::chrono::microseconds kGranularity{50};

  void AdvanceTimers();
  int Wait(std::span<epoll_event> events);

  int epoll_;
  Timers* timers_ = nullptr;
  TimePoint advanced_;
  bool running_ = false;
  std::map<int, std::function<void()>> ready_;
};

}  // namespace cfm

#endif
