// The server's only wait: descriptors, and what to do when they can be read.
#ifndef CFM_SERVER_EVENT_LOOP_H
#define CFM_SERVER_EVENT_LOOP_H

#include <functional>
#include <map>

namespace cfm {

// One thread. Throws std::system_error where the system refuses.
class EventLoop {
 public:
  EventLoop();
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // Calls ready whenever the descriptor can be read, again and again while it stays so. The descriptor stays the
  // caller's and outlives the loop.
  void Add(int fd, std::function<void()> ready);

  // Until Stop, which a callback calls; what else is ready at that moment is left.
  void Run();
  void Stop() { running_ = false; }

 private:
  int epoll_;
  bool running_ = false;
  std::map<int, std::function<void()>> ready_;
};

}  // namespace cfm

#endif
