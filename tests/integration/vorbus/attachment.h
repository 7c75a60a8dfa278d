// A token with what the tests ask of it: it remembers what was reported, checks numbered messages, and runs with a
// deadline.
#ifndef VORBUS_TESTS_ATTACHMENT_H
#define VORBUS_TESTS_ATTACHMENT_H

#include <vorbus/vorbus.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace vorbus_test {

constexpr std::chrono::seconds kDeadline{60};

vorbus_proc_t Name(std::string_view name);
// The identities of the tests: one block and one group, told apart by their number.
vorbus_sig_t Signal(unsigned int number);
vorbus_event_t Event(unsigned int number);

// A message of at least four octets that carries its number, and octets that follow from number and place.
std::string Numbered(std::uint32_t number, std::size_t size);
// The number of such a message; -1 when an octet is not what it should be.
std::int64_t NumberOf(const void* data, std::size_t size);

// What came of a stream of numbered messages that begins at 0.
struct Stream {
  std::uint32_t next = 0;
  std::uint64_t wrong = 0;  // damaged, doubled, missing or out of order
  void Add(const void* data, std::size_t size);
};

class Attachment {
 public:
  // Throws std::system_error where vorbus_open fails.
  explicit Attachment(const std::string& directory, const char* name = nullptr, unsigned int send_timeout_ms = 0);
  ~Attachment();
  Attachment(const Attachment&) = delete;
  Attachment& operator=(const Attachment&) = delete;

  vorbus_t* token() { return token_; }
  vorbus_pid_t pid() const { return vorbus_self(token_); }

  // "found", "lost" in the order of their reports, and the pids of the found ones.
  struct Presence {
    std::vector<std::string> reports;
    std::vector<vorbus_pid_t> pids;
    bool is_there = false;
    std::function<void()> on_change;
    vorbus_subscription_t* subscription = nullptr;
    vorbus_pid_t pid() const { return pids.empty() ? 0 : pids.back(); }
  };
  Presence& Subscribe(std::string_view process);

  using SignalFunction = std::function<void(vorbus_pid_t sender, const void* data, std::size_t size)>;
  using EventFunction = std::function<void(const void* data, std::size_t size)>;
  vorbus_registration_t* OnSignal(unsigned int number, SignalFunction function);
  vorbus_eventreg_t* OnEvent(unsigned int number, EventFunction function);

  int Send(vorbus_pid_t to, unsigned int signal, std::string_view payload = {});
  int Publish(unsigned int event, std::string_view payload = {});

  // Whether vorbus_fd is readable, within that time.
  bool IsReadable(std::chrono::milliseconds timeout = std::chrono::milliseconds(0)) const;
  // Waits for work once and does it.
  void Turn(std::chrono::milliseconds timeout = std::chrono::milliseconds(100));
  // Dispatches until the condition holds; false when the time is over.
  bool Run(const std::function<bool()>& until, std::chrono::milliseconds timeout = kDeadline);
  bool RunUntilThere(const Presence& presence) {
    return Run([&] { return presence.is_there; });
  }
  // Dispatches until there is nothing to do.
  void Settle();

 private:
  vorbus_t* token_ = nullptr;
  std::list<Presence> presences_;
  std::list<SignalFunction> signal_functions_;
  std::list<EventFunction> event_functions_;
};

}  // namespace vorbus_test

#endif
