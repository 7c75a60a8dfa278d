// Events that wait for the middleware: the server never waits for a client that is behind.
#ifndef CFM_SERVER_CONTRACT_OUTBOX_H
#define CFM_SERVER_CONTRACT_OUTBOX_H

#include <google/protobuf/descriptor.h>
#include <zlog.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <string>

#include "contract/announcer.h"
#include "vorbus/vorbus.h"

namespace cfm::contract {

class Outbox final : public Announcer {
 public:
  using Clock = std::chrono::steady_clock;

  /// Of one Flush(), so that it takes a small part of a millisecond.
  static constexpr std::size_t kMostAtOnce = 64;
  /// When to come back for the rest.
  static constexpr std::chrono::milliseconds kPause{1};
  /// With clients that take nothing. After that their links are given up, and they synchronise anew.
  static constexpr std::chrono::seconds kPatience{10};

  /// Both outlive the outbox.
  Outbox(vorbus_t* token, zlog_category_t* log) : token_(token), log_(log) {}

  void Announce(const vorbus_event_t* event, const google::protobuf::Message& message) override;

  /// Publishes what the clients take without delay.
  void Flush(Clock::time_point now);
  /// When Flush() has something to do.
  Clock::time_point deadline() const { return waiting_.empty() ? Clock::time_point::max() : next_; }

 private:
  struct Waiting {
    const vorbus_event_t* event;
    std::string octets;
    const google::protobuf::Descriptor* type;
  };

  vorbus_t* token_;
  zlog_category_t* log_;
  std::deque<Waiting> waiting_;
  Clock::time_point next_;
  Clock::time_point held_back_since_ = Clock::time_point::max();
};

}  // namespace cfm::contract

#endif
