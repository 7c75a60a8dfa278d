// What ZeroMQ reports about the connections of one socket.
#ifndef VORBUS_MONITOR_H
#define VORBUS_MONITOR_H

#include <cstdint>
#include <optional>

#include "zmq_handles.h"

namespace bus {

// Must be gone before the socket that it watches.
class Monitor {
 public:
  struct Event {
    std::uint16_t what;   // ZMQ_EVENT_*
    std::uint32_t value;  // the connection's descriptor, for events that have one
  };

  Monitor(void* context, const Socket& watched, int events);
  Monitor(const Monitor&) = delete;
  Monitor& operator=(const Monitor&) = delete;
  ~Monitor();

  explicit operator bool() const { return static_cast<bool>(reports_); }
  int fd() const { return reports_.fd(); }
  std::optional<Event> Next();

 private:
  void* watched_ = nullptr;
  Socket reports_;
};

}  // namespace bus

#endif
