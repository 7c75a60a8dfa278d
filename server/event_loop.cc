#include "event_loop.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
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
    const int count = epoll_wait(epoll_, events.data(), events.size(), -1);
    if (count < 0 && errno != EINTR) ThrowErrno("epoll_wait");
    for (int i = 0; i < count && running_; ++i) ready_.at(events[static_cast<size_t>(i)].data.fd)();
  }
}

}  // namespace cfm
