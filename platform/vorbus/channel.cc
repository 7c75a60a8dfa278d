#include "channel.h"

namespace bus {

namespace {

constexpr int kHandshakeMs = 5000;

}  // namespace

void SetLimits(Socket& socket) {
  socket.Set(ZMQ_SNDHWM, Flow::kQueueMessages);
  socket.Set(ZMQ_RCVHWM, Flow::kQueueMessages);
  socket.Set(ZMQ_HANDSHAKE_IVL, kHandshakeMs);
  const std::int64_t limit = kHeaderSize + kMaxPayload;
  zmq_setsockopt(socket.get(), ZMQ_MAXMSGSIZE, &limit, sizeof limit);
}

Message MakeMessage(const Header& header, std::size_t payload) {
  Message message(kHeaderSize + payload);
  EncodeHeader(message.data(), header);
  return message;
}

Channel::Sent Channel::Send(Message& message) {
  if (!flow_.IsOpen()) {
    return Sent::kFull;
  }
  const std::size_t size = message.size();
  const Sent sent = Transmit(message);
  if (sent == Sent::kDone) {
    flow_.CountSent(size);
  }
  return sent;
}

void Channel::Take(std::size_t octets) {
  flow_.CountTaken(octets);
  if (flow_.ReportIsDue()) {
    Message report = MakeMessage({Kind::kTaken, pid_, flow_.taken_messages(), flow_.taken_octets()}, 0);
    if (Transmit(report) == Sent::kDone) {
      flow_.Reported();
    }
  }
}

}  // namespace bus
