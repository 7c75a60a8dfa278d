// Replies that wait a random time, so that those of many to one request do not come in a burst.
#ifndef CFM_SERVER_PROTOCOL_REPLY_QUEUE_H
#define CFM_SERVER_PROTOCOL_REPLY_QUEUE_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "pdu/ethernet.h"
#include "protocol/time.h"

namespace cfm::protocol {

class ReplyQueue {
 public:
  /// Of the time that a reply waits.
  static constexpr Duration kLongestWait = std::chrono::seconds(1);

  struct Entry {
    pdu::EthernetHeader request;
    std::vector<std::uint8_t> reply;
  };

  explicit ReplyQueue(std::size_t capacity) : capacity_(capacity) {}

  /// False when no more may wait.
  bool Add(TimePoint when, const pdu::EthernetHeader& request, pdu::Octets reply) {
    if (waiting_.size() >= capacity_) return false;
    waiting_.emplace(when, Entry{.request = request, .reply = {reply.begin(), reply.end()}});
    return true;
  }

  std::optional<Entry> TakeDue(TimePoint now) {
    if (now < deadline()) return std::nullopt;
    return std::move(waiting_.extract(waiting_.begin()).mapped());
  }

  TimePoint deadline() const { return waiting_.empty() ? kNever : waiting_.begin()->first; }
  void Clear() { waiting_.clear(); }

 private:
  std::size_t capacity_;
  std::multimap<TimePoint, Entry> waiting_;
};

}  // namespace cfm::protocol

#endif
