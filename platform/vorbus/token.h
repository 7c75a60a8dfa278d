// One attachment of a process to the bus: what a vorbus_t is.
#ifndef VORBUS_TOKEN_H
#define VORBUS_TOKEN_H

#include <vorbus/vorbus.h>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "channel.h"
#include "directory.h"
#include "door.h"
#include "fd.h"
#include "handlers.h"
#include "link.h"
#include "message_pool.h"

struct vorbus_registration : bus::Handler<vorbus_sig_fn> {};
struct vorbus_eventreg : bus::Handler<vorbus_event_fn> {};

// A link, the door and the token are parts of one whole: the token is what they share.
struct vorbus {
 public:
  vorbus(const vorbus&) = delete;
  vorbus& operator=(const vorbus&) = delete;
  ~vorbus();

  // The functions of the C interface; the same results.
  static int Open(const vorbus_options_t& options, std::unique_ptr<vorbus>* token);
  std::uint32_t pid() const { return pid_; }
  int fd() const { return poll_.get(); }
  int Dispatch();
  int Subscribe(std::string_view process, vorbus_found_fn found, vorbus_lost_fn lost, void* user,
                vorbus_subscription** subscription);
  void Unsubscribe(vorbus_subscription& subscription);
  int SendSignal(std::uint32_t to, std::uint64_t signal, const void* data, std::size_t size);
  vorbus_registration* RegisterSignal(std::uint64_t signal, vorbus_sig_fn handler, void* user);
  void Deregister(vorbus_registration& registration);
  int Publish(std::uint64_t event, const void* data, std::size_t size);
  // Whether Publish() would go through without waiting.
  bool IsReady(std::uint64_t event);
  int RegisterEvent(std::uint64_t event, vorbus_event_fn handler, void* user, vorbus_eventreg** registration);
  void Deregister(vorbus_eventreg& registration);

  // What the links and the door use.
  void* context() const { return context_; }
  const bus::Directory& directory() const { return directory_; }
  void Watch(int fd, bool* ready);  // *ready is set when fd is readable
  void Unwatch(int fd);
  // Asks for another dispatch: vorbus_fd becomes readable, and stays so until one finds nothing more to do.
  void Wake();
  // Whether Link::Look is called when a socket comes up.
  bool SeesChanges() const { return static_cast<bool>(changes_); }
  std::vector<std::uint64_t> WantedEvents() const { return events_.Identities(); }
  int CallSignalHandlers(std::uint32_t sender, const bus::Incoming& signal);
  int CallEventHandlers(const bus::Incoming& event);
  // The channel by which signals to a process go: the first that comes keeps it, so that they stay in order.
  void AddRoute(bus::Channel& channel);
  void RemoveRoute(const bus::Channel& channel);
  // What senders that wait have taken in for the next dispatch.
  bool HasRoom() const { return kept_octets_ < kMaxKeptOctets; }
  void Keep(const bus::Message& message) { kept_octets_ += message.size() + sizeof(bus::Message); }
  void Unkeep(const bus::Message& message) { kept_octets_ -= message.size() + sizeof(bus::Message); }

 private:
  using Clock = std::chrono::steady_clock;

  static constexpr std::size_t kMaxKeptOctets = std::size_t{256} << 20;

  explicit vorbus(std::chrono::milliseconds send_timeout) : send_timeout_(send_timeout) {}
  int Start(const char* process, const char* directory);
  void Rest();  // takes Wake() back
  void WatchDirectory();
  void Collect(std::chrono::milliseconds timeout);
  void ReadDirectoryChanges();
  void Absorb();
  bool HasWork() const;
  void SetTimer();
  void Sweep();
  int SendWaiting(bus::Channel& channel, bus::Message& message);
  // Lets some time pass, in which messages come in and none is handled. False when the send timeout is over; *deadline
  // is max at the first call.
  bool WaitForRoom(Clock::time_point* deadline);
  void EventsChanged();

  std::chrono::milliseconds send_timeout_;
  bus::MessagePool pool_;
  void* context_ = nullptr;
  bus::Directory directory_;
  std::uint32_t pid_ = 0;

  bus::Fd poll_;
  int watched_ = 0;
  bus::Fd wake_;
  bool wake_ready_ = false;  // of no interest: what is written is known
  bool wake_written_ = false;
  bool asked_for_dispatch_ = false;  // since the last one looked what there is
  bus::Fd timer_;
  bool timer_ready_ = false;
  Clock::time_point timer_set_to_ = Clock::time_point::max();
  bus::Fd changes_;
  bool changes_ready_ = false;

  bool dispatching_ = false;
  std::size_t kept_octets_ = 0;
  bus::HandlerTable<vorbus_registration> signals_;
  bus::HandlerTable<vorbus_eventreg> events_;
  std::unordered_map<std::uint32_t, bus::Channel*> routes_;
  std::vector<bus::Peer*> audience_;  // of the event that is being published
  std::unique_ptr<bus::Door> door_;
  std::vector<std::unique_ptr<bus::Link>> links_;
};

#endif
