// cfm-scripted-peer [SCRIPT]: a process under the server's name that plays a script of replies and events.
//
// It attaches to the middleware (socket directory: $VORBUS_DIR), prints "ready", and then executes the lines of the
// script file, if one is named, and those of its standard input, one after the other. What arrives is looked at when
// the file's lines are through or one of them waits. After the last line it goes on serving until it is killed
// (SIGTERM: exit status 0).
//
// What it is sent it prints, one line for each signal in the order of arrival: the signal's name and its payload in
// protobuf text format, on one line ("MD_DELETE name: \"md1\""); a payload that does not parse as "malformed" and
// hexadecimal octets. The names are those of cfm/identities.h without CFM_MGR_C2S_SIG_, CFM_MGR_S2C_SIG_ and
// CFM_MGR_SRV_EVENT_.
//
// Statements; TEXT is protobuf text format on one line, HEX pairs of hexadecimal digits; both may be empty (an empty
// payload) and may be given as @FILE instead. In TEXT $trigger_id stands for that of the trigger that arrived last:
//
//   # comment
//   reply SIGNAL TEXT         sends to the sender of the signal that was taken last (by wait, expect or on)
//   raw-reply SIGNAL HEX      the same with any octets
//   event EVENT TEXT          broadcasts
//   raw-event EVENT HEX       the same with any octets
//   say TEXT                  prints "say TEXT"
//   exit [STATUS]             ends (0 when not given); what was sent before is delivered
//   die                       ends by SIGKILL
//   on SIGNAL STATEMENT       from now on, whenever SIGNAL arrives, executes one of the statements above, at once;
//   several
//                             for one signal are executed in the order given
//   once SIGNAL STATEMENT     the same, the next time only
//   off SIGNAL                forgets what on and once said of it
//   wait SIGNAL               goes on when SIGNAL has arrived; passes over other signals before it
//   expect SIGNAL [TEXT]      the next signal must be SIGNAL, with that payload when TEXT is given. If not, prints
//                             "unexpected ..." and ends with status 1
//   sleep-ms N                serves for that long before the next line
//   timeout-ms N              how long wait and expect wait (60000 at first); then prints "timeout ..." and ends with
//                             status 1
//
// wait and expect look at each signal once, in the order of arrival, those that arrived earlier included. A line that
// is not understood ends the process with status 2 and a message on its standard error.
//
//   on CACHE_GET reply CACHE_REPLY
//   wait STATUS_GET_ALL
//   event LOOPBACK_STARTED trigger_id: 7 target_mac: "\002\000\000\000\000\001"
//   raw-event LINKTRACE_ENDED ff
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "cfm/identities.h"
#include "configuration.h"
#include "contract.h"

namespace {

using Clock = std::chrono::steady_clock;
using cfm_test::EventEntry;
using cfm_test::SignalEntry;

struct ScriptError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

void Complain(const ScriptError& error) {
  std::cerr << "cfm-scripted-peer: " << error.what() << std::endl;
}

// Cuts the first word off the front of the line, with the blanks behind it.
std::string_view NextWord(std::string_view& line) {
  const std::string_view word = line.substr(0, line.find(' '));
  line.remove_prefix(std::min(line.size(), word.size()));
  line.remove_prefix(std::min(line.size(), line.find_first_not_of(' ')));
  return word;
}

template <typename Entry>
const Entry& Find(const std::vector<Entry>& entries, std::string_view name) {
  const auto found = std::find_if(entries.begin(), entries.end(), [&](const Entry& e) { return e.name == name; });
  if (found == entries.end()) {
    throw ScriptError("no such name here: \"" + std::string(name) + "\"");
  }
  return *found;
}

int Number(std::string_view text) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < 0) {
    throw ScriptError("not a number: \"" + std::string(text) + "\"");
  }
  return value;
}

// An argument, or the contents of the file that it names.
std::string Argument(std::string_view text) {
  if (!text.starts_with('@')) {
    return std::string(text);
  }
  std::ifstream file{std::string(text.substr(1))};
  if (!file) {
    throw ScriptError("cannot read " + std::string(text.substr(1)));
  }
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string PayloadFromText(const google::protobuf::Message* prototype, const std::string& argument) {
  if (prototype == nullptr) {
    if (!argument.empty()) {
      throw ScriptError("this signal carries no payload");
    }
    return {};
  }
  const std::unique_ptr<google::protobuf::Message> message(prototype->New());
  if (!cfm_test::FromText(argument, *message)) {
    throw ScriptError("not a " + prototype->GetTypeName() + ": " + argument);
  }
  return message->SerializeAsString();
}

// The trigger id in a trigger, or in its key as linktrace has it.
std::optional<std::string> TriggerIdOf(std::string_view payload_text) {
  constexpr std::string_view kField = "trigger_id: ";
  // Past quoted names, where anything may stand.
  bool quoted = false;
  for (std::size_t at = 0; at < payload_text.size(); ++at) {
    if (payload_text[at] == '\\') {
      ++at;
    } else if (payload_text[at] == '"') {
      quoted = !quoted;
    } else if (!quoted && payload_text.substr(at).starts_with(kField)) {
      const std::string_view value = payload_text.substr(at + kField.size());
      return std::string(value.substr(0, value.find(' ')));
    }
  }
  return std::nullopt;
}

std::string WithTriggerId(std::string text, std::string_view trigger_id) {
  constexpr std::string_view kVariable = "$trigger_id";
  for (std::size_t at = text.find(kVariable); at != std::string::npos; at = text.find(kVariable, at)) {
    text.replace(at, kVariable.size(), trigger_id);
  }
  return text;
}

std::string PayloadFromHex(std::string_view text) {
  std::string octets;
  if (!cfm_test::FromHex(Argument(text), octets)) {
    throw ScriptError("not hexadecimal: " + std::string(text));
  }
  return octets;
}

// Lines of a file, if there is one, and then of standard input as they come.
class Script {
 public:
  explicit Script(const char* file) {
    if (file != nullptr) {
      std::ifstream stream(file);
      if (!stream) {
        throw ScriptError(std::string("cannot read ") + file);
      }
      text_.assign(std::istreambuf_iterator<char>(stream), {});
      text_ += '\n';
    }
  }

  // To be polled for reading; negative when nothing more comes.
  int descriptor() const { return descriptor_; }

  void Read() {
    char chunk[65536];
    const ssize_t got = read(descriptor_, chunk, sizeof(chunk));
    if (got > 0) {
      text_.append(chunk, static_cast<std::size_t>(got));
    } else {
      descriptor_ = -1;
    }
  }

  std::optional<std::string> NextLine() {
    const std::size_t end = text_.find('\n');
    if (end == std::string::npos && (descriptor_ >= 0 || text_.empty())) {
      return std::nullopt;
    }
    std::string line = text_.substr(0, end);
    text_.erase(0, end == std::string::npos ? end : end + 1);
    return line;
  }

 private:
  int descriptor_ = STDIN_FILENO;
  std::string text_;
};

class Peer {
 public:
  Peer() {
    sigset_t endings;
    sigemptyset(&endings);
    sigaddset(&endings, SIGTERM);
    sigaddset(&endings, SIGINT);
    sigprocmask(SIG_BLOCK, &endings, nullptr);
    endings_ = signalfd(-1, &endings, SFD_CLOEXEC | SFD_NONBLOCK);

    const vorbus_options_t options{CFM_MGR_PROCESS->name, nullptr, 0};
    if (const int error = vorbus_open(&options, &token_); error != 0) {
      throw ScriptError(std::string("vorbus_open: ") + std::strerror(-error));
    }
    for (const SignalEntry& entry : cfm_test::ClientSignals()) {
      receivers_.push_back({this, &entry});
    }
    for (Receiver& receiver : receivers_) {
      vorbus_sig_register_sized(
          token_, receiver.entry->signal,
          [](vorbus_t* /*token*/, void* user, const vorbus_pid_t* sender, void* data, size_t size) {
            const auto& to = *static_cast<Receiver*>(user);
            to.peer->arrived_.push_back({to.entry, *sender, cfm_test::PayloadText(to.entry->prototype, data, size)});
          },
          &receiver);
    }
  }
  ~Peer() {
    vorbus_close(&token_);
    close(endings_);
  }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  // Plays the script and serves on; returns the exit status.
  int Run(Script& script) {
    std::cout << "ready" << std::endl;
    while (!status_) {
      if (const auto line = script.NextLine()) {
        Execute(*line);
      } else {
        Serve(std::nullopt, script.descriptor(), [&] { return script.Read(); });
      }
    }
    return *status_;
  }

 private:
  struct Arrival {
    const SignalEntry* entry;
    vorbus_pid_t sender;
    std::string payload;
  };
  struct Receiver {
    Peer* peer;
    const SignalEntry* entry;
  };
  struct Rule {
    const SignalEntry* entry;
    bool once;
    std::string statement;
  };

  // Prints the first of those that have arrived, follows the rules for it and leaves it to wait and expect.
  void Take() {
    Arrival arrival = std::move(arrived_.front());
    arrived_.pop_front();
    std::cout << arrival.entry->name << (arrival.payload.empty() ? "" : " ") << arrival.payload << std::endl;
    if (auto trigger_id = TriggerIdOf(arrival.payload)) {
      last_trigger_id_ = std::move(*trigger_id);
    }
    std::vector<std::string> due;
    std::erase_if(rules_, [&](const Rule& rule) {
      if (rule.entry == arrival.entry) {
        due.push_back(rule.statement);
      }
      return rule.entry == arrival.entry && rule.once;
    });
    for (const std::string& statement : due) {
      if (!status_) {
        Act(statement, arrival.sender);
      }
    }
    arrivals_.push_back(std::move(arrival));
  }

  // Serves once: until something arrives, the other descriptor is readable or the deadline has come. Of what has
  // arrived it takes one signal at a time, so that the line behind a wait holds for the next signal already.
  template <typename Readable>
  void Serve(std::optional<Clock::time_point> deadline, int other, Readable readable) {
    pollfd watched[] = {{vorbus_fd(token_), POLLIN, 0}, {endings_, POLLIN, 0}, {other, POLLIN, 0}};
    int timeout = -1;
    if (!arrived_.empty()) {
      timeout = 0;
    } else if (deadline) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()).count();
      timeout = static_cast<int>(std::clamp<decltype(left)>(left, 0, 60'000));
    }
    poll(watched, 3, timeout);
    if (watched[1].revents != 0) {
      status_ = 0;
    }
    // The script goes first: what it says must hold for what arrives after it was written.
    if (watched[2].revents != 0) {
      readable();
    } else if (!arrived_.empty()) {
      Take();
    } else if (watched[0].revents != 0) {
      vorbus_dispatch(token_);
    }
  }

  // The next signal that no wait or expect has looked at; nothing (and the end) when none comes.
  std::optional<Arrival> NextArrival(std::string_view statement) {
    const auto deadline = Clock::now() + timeout_;
    while (arrivals_.empty() && !status_) {
      if (Clock::now() >= deadline) {
        std::cout << "timeout " << statement << std::endl;
        status_ = 1;
      } else {
        Serve(deadline, -1, [] {});
      }
    }
    if (arrivals_.empty()) {
      return std::nullopt;
    }
    Arrival arrival = std::move(arrivals_.front());
    arrivals_.pop_front();
    last_sender_ = arrival.sender;
    return arrival;
  }

  void Execute(const std::string& line) {
    std::string_view rest(line);
    const std::string_view verb = NextWord(rest);
    if (verb.empty() || verb.starts_with('#')) {
      return;
    }
    if (verb == "on" || verb == "once") {
      const SignalEntry& entry = Find(cfm_test::ClientSignals(), NextWord(rest));
      rules_.push_back({&entry, verb == "once", std::string(rest)});
    } else if (verb == "off") {
      const SignalEntry& entry = Find(cfm_test::ClientSignals(), NextWord(rest));
      std::erase_if(rules_, [&](const Rule& rule) { return rule.entry == &entry; });
    } else if (verb == "wait") {
      const SignalEntry& entry = Find(cfm_test::ClientSignals(), rest);
      for (auto arrival = NextArrival(line); arrival && arrival->entry != &entry; arrival = NextArrival(line)) {
      }
    } else if (verb == "expect") {
      Expect(line, rest);
    } else if (verb == "sleep-ms") {
      const auto deadline = Clock::now() + std::chrono::milliseconds(Number(rest));
      while (!status_ && Clock::now() < deadline) {
        Serve(deadline, -1, [] {});
      }
    } else if (verb == "timeout-ms") {
      timeout_ = std::chrono::milliseconds(Number(rest));
    } else {
      Act(line, last_sender_);
    }
  }

  void Expect(std::string_view statement, std::string_view rest) {
    const SignalEntry& entry = Find(cfm_test::ClientSignals(), NextWord(rest));
    std::string wanted;
    if (!rest.empty()) {
      const std::string payload = PayloadFromText(entry.prototype, Argument(rest));
      wanted = cfm_test::PayloadText(entry.prototype, payload.data(), payload.size());
    }
    const auto arrival = NextArrival(statement);
    if (arrival && (arrival->entry != &entry || (!rest.empty() && arrival->payload != wanted))) {
      std::cout << "unexpected " << arrival->entry->name << " " << arrival->payload << " instead of " << entry.name
                << " " << wanted << std::endl;
      status_ = 1;
    }
  }

  std::string Payload(const google::protobuf::Message* prototype, std::string_view text) const {
    return PayloadFromText(prototype, WithTriggerId(Argument(text), last_trigger_id_));
  }

  // The statements that act at once.
  void Act(std::string_view line, vorbus_pid_t sender) {
    std::string_view rest(line);
    const std::string_view verb = NextWord(rest);
    if (verb == "reply" || verb == "raw-reply") {
      const SignalEntry& entry = Find(cfm_test::ServerSignals(), NextWord(rest));
      const std::string payload = verb == "reply" ? Payload(entry.prototype, rest) : PayloadFromHex(rest);
      vorbus_sig_send(token_, &sender, entry.signal, payload.data(), payload.size());
    } else if (verb == "event" || verb == "raw-event") {
      const EventEntry& entry = Find(cfm_test::ServerEvents(), NextWord(rest));
      const std::string payload = verb == "event" ? Payload(entry.prototype, rest) : PayloadFromHex(rest);
      vorbus_event_publish(token_, entry.event, payload.data(), payload.size());
    } else if (verb == "say") {
      std::cout << "say " << rest << std::endl;
    } else if (verb == "exit") {
      status_ = rest.empty() ? 0 : Number(rest);
    } else if (verb == "die") {
      raise(SIGKILL);
    } else {
      throw ScriptError("not a statement here: \"" + std::string(line) + "\"");
    }
  }

  vorbus_t* token_ = nullptr;
  int endings_ = -1;
  std::deque<Receiver> receivers_;  // the middleware holds their addresses
  std::vector<Rule> rules_;
  std::deque<Arrival> arrived_;   // that nobody has looked at
  std::deque<Arrival> arrivals_;  // that no wait or expect has looked at
  vorbus_pid_t last_sender_ = 0;
  std::string last_trigger_id_ = "0";
  std::chrono::milliseconds timeout_{60'000};
  std::optional<int> status_;  // set: end with it
};

}  // namespace

int main(int argc, char** argv) {
  try {
    Script script(argc > 1 ? argv[1] : nullptr);
    Peer peer;
    return peer.Run(script);
  } catch (const ScriptError& error) {
    Complain(error);
    return 2;
  }
}
