#include "contract/outbox.h"

#include <algorithm>
#include <cstring>

namespace cfm::contract {

void Outbox::Announce(const vorbus_event_t* event, const google::protobuf::Message& message) {
  waiting_.push_back({event, message.SerializeAsString(), message.GetDescriptor()});
}

void Outbox::Flush(Clock::time_point now) {
  if (now < next_) return;
  for (std::size_t i = 0; i < kMostAtOnce && !waiting_.empty(); ++i) {
    const Waiting& first = waiting_.front();
    if (vorbus_event_ready(token_, first.event) == 0) {
      held_back_since_ = std::min(held_back_since_, now);
      if (now - held_back_since_ < kPatience) break;
      zlog_warn(log_, "a client has taken no events for %d s: it loses its link", static_cast<int>(kPatience.count()));
    }
    held_back_since_ = Clock::time_point::max();
    const int result = vorbus_event_publish(token_, first.event, first.octets.data(), first.octets.size());
    if (result < 0) {
      zlog_warn(log_, "%s could not be announced: %s", first.type->name().c_str(), std::strerror(-result));
    }
    waiting_.pop_front();
  }
  next_ = now + kPause;
}

}  // namespace cfm::contract
