// What happens on a cable, octet for octet.
#ifndef CFM_TESTS_NETWORK_SUPPORT_WIRE_H
#define CFM_TESTS_NETWORK_SUPPORT_WIRE_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#include "link.h"
#include "pdu/ethernet.h"
#include "pdu/header.h"
#include "process.h"

namespace cfm_test {

/// As the kernel stamps frames: of the system's clock.
using WallTime = std::chrono::sys_time<std::chrono::nanoseconds>;

struct Frame {
  WallTime received;
  /// From the destination address on, tags included.
  std::vector<std::uint8_t> octets;

  /// Of a CFM frame; anything else throws.
  cfm::pdu::EthernetHeader header() const;
  cfm::pdu::Octets pdu() const;
  cfm::pdu::Opcode opcode() const;
};

/// A frame to be sent.
std::vector<std::uint8_t> MakeFrame(const cfm::pdu::EthernetHeader& header, cfm::pdu::Octets pdu);

/// One end of a cable, seen by a packet socket: sends by it, and captures the CFM frames that arrive there, with or
/// without tags. One's own frames, and those that others send by the same port, are not captured. A thread captures, so
/// that no frame is lost while the test waits for something else.
class Wire {
 public:
  explicit Wire(const Link& link);
  ~Wire();
  Wire(const Wire&) = delete;
  Wire& operator=(const Wire&) = delete;

  const Link& link() const { return link_; }
  /// The port's.
  const cfm::pdu::MacAddress& address() const { return address_; }

  /// Any thread. False when the port refuses the frame.
  bool Send(std::span<const std::uint8_t> octets) const;
  bool Send(const cfm::pdu::EthernetHeader& header, cfm::pdu::Octets pdu) const { return Send(MakeFrame(header, pdu)); }

  using Predicate = std::function<bool(const Frame&)>;
  /// The next frame that is one of those; what came before it is dropped. Nothing when none comes in time.
  std::optional<Frame> Next(const Predicate& wanted, std::chrono::milliseconds timeout = kDeadline);
  std::optional<Frame> Next(cfm::pdu::Opcode opcode, std::chrono::milliseconds timeout = kDeadline);
  /// The next so many of those, fewer when the time is over; what came between them is dropped.
  std::vector<Frame> Take(std::size_t count, const Predicate& wanted, std::chrono::milliseconds timeout = kDeadline);
  /// All that has arrived and was not taken.
  std::vector<Frame> Take();
  void Clear() { Take(); }
  /// Frames that the kernel found no room for, all in all.
  std::size_t lost() const;

 private:
  void Capture();
  std::optional<Frame> Receive() const;

  Link link_;
  cfm::pdu::MacAddress address_;
  int fd_ = -1;
  int stop_ = -1;
  mutable std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Frame> frames_;      // guarded by mutex_
  mutable std::size_t lost_ = 0;  // guarded by mutex_
  std::thread capture_;
};

}  // namespace cfm_test

#endif
