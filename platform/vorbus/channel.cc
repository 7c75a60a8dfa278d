#include "channel.h"

namespace bus {

Message make_message(const Header& header, std::size_t payload) {
  Message message(kHeaderSize + payload);
  encode_header(message.data(), header);
  return message;
}

Channel::Sent Channel::send(Message& message) {
  if (!flow_.is_open()) {
    return Sent::kFull;
  }
  const std::size_t size = message.size();
  const Sent sent = transmit(message);
  if (sent == Sent::kDone) {
    flow_.sent(size);
  }
  return sent;
}

void Channel::take(const Message& message) {
  flow_.take(message.size());
  if (flow_.report_is_due()) {
    Message report = make_message({Kind::kTaken, pid_, flow_.taken_messages(), flow_.taken_octets()}, 0);
    if (transmit(report) == Sent::kDone) {
      flow_.reported();
    }
  }
}

}  // namespace bus
