// A subscriber's side of its link to one named process.
#ifndef VORBUS_LINK_H
#define VORBUS_LINK_H

#include <vorbus/vorbus.h>

#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "channel.h"
#include "monitor.h"

namespace bus {
class Link;
}

struct vorbus_subscription {
  bus::Link* link;
  vorbus_found_fn found;
  vorbus_lost_fn lost;
  void* user;
  bool is_found = false;
  bool released = false;
};

namespace bus {

//            due, and an owner lives               each hello answered
//   waiting -------------------------> greeting -------------------------> ready
//      ^                                   |    found reported in dispatch    |
//      |          all delivered,           v                                  |
//      +------------------------------- ending <------------------------------+
//               lost reported                    connection gone, or severed
//
// Each connection has a socket of its own with an identity of its own, so that nothing of one run reaches another.
class Link final : public Channel {
 public:
  using Clock = std::chrono::steady_clock;

  Link(vorbus& token, std::string process);
  ~Link() override;

  vorbus& token() const { return token_; }
  const std::string& process() const { return process_; }

  vorbus_subscription* Subscribe(vorbus_found_fn found, vorbus_lost_fn lost, void* user);
  bool HasSubscribers() const;
  void Sweep();  // forgets released subscriptions

  // A socket of that name came up: look at once.
  void Look() { due_ = Clock::time_point::min(); }
  // When to call Advance; max when there is nothing to wait for.
  Clock::time_point Due() const { return state_ == State::kWaiting ? due_ : Clock::time_point::max(); }
  // Connects when it is due; says hello again when the wanted events have changed.
  void Advance(Clock::time_point now);
  void EventsChanged() { events_changed_ = true; }
  void ReadMonitorIfReady();
  // Takes in what has arrived, for a later Deliver. Calls no callback.
  void Absorb();
  // Calls the callbacks for at most that many messages; returns their number.
  int Deliver(int limit);
  bool HasWork() const;

  void Sever() override;

 private:
  enum class State { kWaiting, kGreeting, kReady, kEnding };

  Sent Transmit(Message& message) override;
  bool Connect();
  void Disconnect(int linger_ms);
  Sent Greet();
  Sent HandOver(Message& message);
  void End();
  bool Receive(Incoming& incoming);
  bool Accept(Incoming& incoming);
  bool NoteReady(const Header& header);
  void KeepWhatCame();
  void DropKept();
  bool Next(Incoming& incoming);
  int ReportFound();
  int ReportLost();

  vorbus& token_;
  std::string process_;
  std::vector<std::unique_ptr<vorbus_subscription>> subscriptions_;

  State state_ = State::kWaiting;
  Clock::time_point due_ = Clock::time_point::min();
  std::chrono::milliseconds backoff_{};
  Socket socket_;
  std::optional<Monitor> monitor_;
  bool socket_ready_ = false;  // there may be something to receive
  bool monitor_ready_ = false;
  bool was_ready_ = false;  // in this connection
  bool events_changed_ = false;
  unsigned int hellos_unanswered_ = 0;
  std::deque<Incoming> kept_;
};

}  // namespace bus

#endif
