// One link to one process, as seen from either end.
#ifndef VORBUS_CHANNEL_H
#define VORBUS_CHANNEL_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include "flow.h"
#include "wire.h"
#include "zmq_handles.h"

namespace bus {

inline constexpr int kFlushMs = 1000;  // for what was sent when a side closes

// Makes ZeroMQ keep to the limits of a link: its queues, how long a handshake takes, how large a message is.
void SetLimits(Socket& socket);

// A message with room for its payload behind the header.
Message MakeMessage(const Header& header, std::size_t payload);

// A signal or an event that has come.
struct Incoming {
  Header header{};
  Message message;
  std::span<std::byte> payload;  // in the message

  Incoming() = default;
  Incoming(Incoming&& other) noexcept { *this = std::move(other); }
  Incoming& operator=(Incoming&& other) noexcept {
    header = other.header;
    message = std::move(other.message);
    // ZeroMQ keeps the octets of small ones within the message.
    payload = message.size() > kHeaderSize ? message.octets().subspan(kHeaderSize) : std::span<std::byte>();
    return *this;
  }
};

class Channel {
 public:
  enum class Sent { kDone, kFull, kGone };

  Channel() = default;
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;
  virtual ~Channel() = default;

  // The process at the other end; 0 when it is not known yet.
  std::uint32_t pid() const { return pid_; }

  bool HasRoom() const { return flow_.IsOpen(); }
  // A signal or an event, on the way if the window is open; never waits.
  Sent Send(Message& message);

  // Gives the link up: the other side sees it lost, nothing more is sent or taken.
  virtual void Sever() = 0;

 protected:
  // Hands a message to ZeroMQ, without waiting.
  virtual Sent Transmit(Message& message) = 0;

  // A message that says how much was taken by the other side. False when that cannot be true.
  bool NoteTaken(const Header& header) { return flow_.WasTaken(header.id, header.number); }

  // Counts a message as taken from the link, and says so to the other side from time to time.
  void Take(std::size_t octets);

  void ResetFlow() { flow_ = Flow(); }

  std::uint32_t pid_ = 0;

 private:
  Flow flow_;
};

}  // namespace bus

#endif
