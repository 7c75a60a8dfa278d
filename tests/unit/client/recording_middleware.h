// The platform under the client library, replaced: definitions of every vorbus, limid and zlog function that the
// library calls, which write what happens to one ordered journal and do as a test tells them.
//
//   recording::Middleware middleware;               // from here on the C functions act on this one
//   cfm::ClientImpl client(middleware.token());
//   middleware.Take();                              // what construction did
//   middleware.Find(7);                             // the server comes up
//   EXPECT_TRUE(Same(middleware.Take(), {Logged(10, "ServerFound", "CFM manager server found"),
//                                        Sent(CFM_MGR_C2S_SIG_CACHE_GET, 7)}));
//
// A test that calls handlers adds their calls to the same journal with Note.
#ifndef TESTS_UNIT_CLIENT_RECORDING_MIDDLEWARE_H
#define TESTS_UNIT_CLIENT_RECORDING_MIDDLEWARE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "vorbus/vorbus.h"

namespace google::protobuf {
class Message;
}

namespace recording {

enum class Kind {
  kSubscribe,
  kUnsubscribe,
  kTraceInit,
  kRegister,
  kDeregister,
  kSend,
  kLog,
  kLevelQuery,
  kLimid,
  kBacktrace,
  kFault,
  kNote,
};

/// One thing that happened. Two are the same when their kind, text and octets are.
struct Entry {
  Kind kind;
  std::string text;                   ///< everything but the octets; names an unexpected token or category too
  std::optional<std::string> octets;  ///< of a send or a fault; none for a null pointer with size 0

  friend bool operator==(const Entry&, const Entry&) = default;
};

using Journal = std::vector<Entry>;

/// For people: the text, and the octets as the message that the signal carries, or in hexadecimal.
std::string Describe(const Entry& entry);
void PrintTo(const Entry& entry, std::ostream* out);

// ---- Expected entries ----

/// A send of a message. Octets are compared, so the presence of each field counts.
Entry Sent(const vorbus_sig_t* signal, vorbus_pid_t to, const google::protobuf::Message& message);
/// A send of a null pointer with size 0.
Entry Sent(const vorbus_sig_t* signal, vorbus_pid_t to);
Entry Logged(int level, std::string_view function, std::string_view text, std::string_view file = "client_impl");
Entry LevelQueried(int level);
Entry Subscribed(std::string_view process);
Entry Unsubscribed(std::string_view process);
Entry TraceInitialised(std::string_view category);
Entry Registered(const vorbus_sig_t* signal);
Entry Registered(const vorbus_event_t* event);
Entry Deregistered(const vorbus_sig_t* signal);
Entry Deregistered(const vorbus_event_t* event);
Entry AskedIfindex(std::uint32_t limid);
Entry AskedLimid(std::uint32_t ifindex);
Entry AskedName(std::uint32_t limid, std::size_t length);
Entry Backtraced();
/// A fault with this text in an otherwise zero record. The line is not compared, but a line below 1 shows in the text.
Entry Faulted(int severity, std::string_view function, std::string_view file, std::string_view text);
Entry Noted(std::string_view text);

/// Whether both are the same from first to last; if not, says where they part and shows both sides.
testing::AssertionResult Same(const Journal& actual, const Journal& expected);

/// The entries of these kinds only, in order.
Journal Only(const Journal& journal, std::initializer_list<Kind> kinds);

/// The exported name of an identity ("CFM_MGR_C2S_SIG_MD_CREATE"), found by its contents; else its numbers.
std::string NameOf(const vorbus_sig_t& signal);
std::string NameOf(const vorbus_event_t& event);

// ---- The middleware ----

struct Port {
  std::uint32_t limid;
  std::uint32_t ifindex;
  std::string name;
};

/// One at a time: the C functions act on the newest one alive.
class Middleware {
 public:
  Middleware();
  ~Middleware();
  Middleware(const Middleware&) = delete;
  Middleware& operator=(const Middleware&) = delete;

  /// The token that every call is expected to carry; a call with another one is recorded as such.
  vorbus_t* token();

  // Behaviour, changed by a test at any time.
  bool subscribe_fails = false;
  bool subscribe_throws = false;  ///< std::bad_alloc
  bool registrations_fail = false;
  bool trace_init_fails = false;
  int send_result = 0;
  /// The three limid calls fail for everything, also for what is in `ports`.
  bool limid_fails = false;
  /// A failing limid call leaves its output as it was, instead of zero or empty.
  bool limid_failure_keeps_output = false;
  /// What the limid calls know. Initially limid n is ifindex 1000 + n with the name "port<n>", for n from 1 to 64.
  std::vector<Port> ports;
  std::function<bool(int)> level_enabled = [](int) { return true; };
  /// Sees each entry as it is made; for what a caller could see at that moment only.
  std::function<void(const Entry&)> observer = [](const Entry&) {};
  /// Off for runs that are too large to be kept.
  bool record_logs = true;

  // The journal.
  const Journal& journal() const { return journal_; }
  Journal Take();
  void Note(std::string_view text);
  void Add(Entry entry);
  /// Writes the journal to standard error when the process exits; for death tests, inside the dying statement.
  static void DumpAtExit();
  /// What DumpAtExit writes for these entries.
  static std::string Dump(const Journal& journal);

  // Playing the server. Each returns how many callbacks ran. Data lies in a buffer of exactly its size, and is gone
  // after the call; an empty payload is a null pointer.
  int Find(vorbus_pid_t pid);
  int Lose();
  int Deliver(const vorbus_sig_t* signal, std::string_view octets, vorbus_pid_t sender = 7);
  int Deliver(const vorbus_sig_t* signal, const google::protobuf::Message& message, vorbus_pid_t sender = 7);
  int Deliver(const vorbus_event_t* event, std::string_view octets);
  int Deliver(const vorbus_event_t* event, const google::protobuf::Message& message);

  /// Handles that were given out and not released.
  std::size_t live_subscriptions() const;
  std::size_t live_registrations() const;

  struct State;
  State& state() { return *state_; }

 private:
  Journal journal_;
  std::unique_ptr<State> state_;
  Middleware* previous_;
};

}  // namespace recording

#endif
