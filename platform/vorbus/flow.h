// How much may be under way on a link, in each direction.
//
// ZeroMQ alone bounds a queue by its number of messages, stops reading a connection whose queue is full, and then loses
// what the kernel still holds when the other side closes. So the receiver says what it has taken, and a sender waits
// before any queue of ZeroMQ is full.
#ifndef VORBUS_FLOW_H
#define VORBUS_FLOW_H

#include <cstddef>
#include <cstdint>

namespace bus {

class Flow {
 public:
  static constexpr std::uint32_t kWindowMessages = 8192;
  static constexpr std::uint64_t kWindowOctets = std::uint64_t{64} << 20;
  // Of ZeroMQ's queues: never reached by a peer that keeps to the window.
  static constexpr int kQueueMessages = 2 * kWindowMessages;

  // Sending. The last message may be larger than what is left of the window.
  bool IsOpen() const { return untaken_messages_ < kWindowMessages && untaken_octets_ < kWindowOctets; }
  void CountSent(std::size_t octets) {
    ++untaken_messages_;
    untaken_octets_ += octets;
  }
  // What the receiver says; false when that is more than was sent.
  bool WasTaken(std::uint32_t messages, std::uint32_t octets) {
    if (messages > untaken_messages_ || octets > untaken_octets_) {
      return false;
    }
    untaken_messages_ -= messages;
    untaken_octets_ -= octets;
    return true;
  }

  // Receiving.
  void CountTaken(std::size_t octets) {
    ++taken_messages_;
    taken_octets_ += static_cast<std::uint32_t>(octets);
  }
  bool ReportIsDue() const { return taken_messages_ >= kWindowMessages / 8 || taken_octets_ >= kWindowOctets / 8; }
  std::uint32_t taken_messages() const { return taken_messages_; }
  std::uint32_t taken_octets() const { return taken_octets_; }
  void Reported() { taken_messages_ = taken_octets_ = 0; }

 private:
  std::uint32_t untaken_messages_ = 0;
  std::uint64_t untaken_octets_ = 0;
  std::uint32_t taken_messages_ = 0;
  std::uint32_t taken_octets_ = 0;  // at most one message (256 MiB) above the limit for a report
};

}  // namespace bus

#endif
