#include "monitor.h"

#include <cstring>
#include <string>

namespace bus {

Monitor::Monitor(void* context, const Socket& watched, int events) {
  const std::string endpoint = "inproc://monitor-" + std::to_string(reinterpret_cast<std::uintptr_t>(watched.get()));
  Socket reports(context, ZMQ_PAIR);
  if (!reports || zmq_socket_monitor(watched.get(), endpoint.c_str(), events) != 0) {
    return;
  }
  watched_ = watched.get();
  reports.Set(ZMQ_RCVHWM, 0);  // a full queue would stop the thread that moves all of the token's messages
  if (zmq_connect(reports.get(), endpoint.c_str()) == 0) {
    reports_ = std::move(reports);
  }
}

Monitor::~Monitor() {
  if (watched_ != nullptr) {
    zmq_socket_monitor(watched_, nullptr, 0);  // before the reader is closed: a report without a reader waits for ever
  }
}

std::optional<Monitor::Event> Monitor::Next() {
  Message first;
  if (!reports_ || reports_.Receive(first) != 0) {
    return std::nullopt;
  }
  Event event{};
  std::memcpy(&event.what, first.data(), sizeof event.what);
  std::memcpy(&event.value, first.data() + sizeof event.what, sizeof event.value);
  Message endpoint;
  reports_.Receive(endpoint);
  return event;
}

}  // namespace bus
