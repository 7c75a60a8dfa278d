#include "event_loop.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <system_error>
#include <utility>

namespace cfm {
namespace {

[[noreturn]] void ThrowErrno(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

EventLoop::EventLoop() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  if (epoll_ < 0) ThrowErrno("epoll_create1");
}

EventLoop::~EventLoop() {
  close(epoll_);
}

void EventLoop::Add(int fd, std::function<void()> ready) {
  epoll_event interest = {};
  interest.events = EPOLLIN;
  interest.data.fd = fd;
  if (epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &interest) != 0) ThrowErrno("epoll_ctl");
  ready_[fd] = std::move(ready);
}

void EventLoop::Run() {
  running_ = true;
  std::array<epoll_event, 64> events;
  while (running_) {
    AdvanceTimers();
    const int count = Wait(events);
    for (int i = 0; i < count && running_; ++i) {
      if (i != 0) AdvanceTimers();
      ready_.at(events[static_cast<size_t>(i)].data.fd)();
    }
  }
}

void EventLoop::AdvanceTimers() {
  if (timers_ == nullptr) return;
  const TimePoint now = std::chrono::steady_clock::now();
  if (timers_->deadline() > now) return;
  timers_->Advance(now);
  advanced_ = now;
}

int EventLoop::Wait(std::span<epoll_event> events) {
  using std::chrono::nanoseconds;
  const TimePoint deadline = timers_ == nullptr ? kNever : timers_->deadline();
  timespec timeout = {};
  if (deadline != kNever) {
    const TimePoint now = std::chrono::steady_clock::now();
    const auto left = std::max(std::max(deadline, advanced_ + kGranularity) - now, nanoseconds::zero());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
    timeout = {.tv_sec = seconds.count(), .tv_nsec = (left - seconds).count()};
  }
  const int count = epoll_pwait2(epoll_, events.data(), static_cast<int>(events.size()),
                                 deadline == kNever ? nullptr : &timeout, nullptr);
  if (count < 0 && errno != EINTR) ThrowErrno("epoll_pwait2");
  return count;
}

}  // namespace cfm
