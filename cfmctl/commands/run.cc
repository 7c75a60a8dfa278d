// cfmctl run: stay, and keep the server in step with the file through restarts and changes of either.
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <iostream>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "cfm/client.h"
#include "commands/commands.h"
#include "config_file.h"
#include "difference.h"
#include "failure.h"
#include "file_watch.h"
#include "handover.h"
#include "link_watch.h"
#include "render.h"
#include "server_link.h"
#include "text.h"

namespace cfmctl {
namespace {

using Clock = EventLoop::Clock;

class Runner {
 public:
  explicit Runner(GlobalOptions options)
      : options_(std::move(options)),
        configuration_(Load()),
        signals_(loop_, {SIGINT, SIGTERM, SIGHUP}, [this](int signal) { Signalled(signal); }),
        watch_(loop_, options_.config_file, [this] { FileTouched(); }),
        link_(loop_, options_.server.socket_directory),
        reader_(loop_, options_.server.socket_directory),
        links_(loop_, [this] { ports_touched_ = true; }),
        client_(link_.token()),
        handover_(client_, ForClient(configuration_.model, configuration_.ports)) {
    link_.on_found = [] { Say("server found"); };
    link_.on_lost = [this] { Lost(); };
    link_.on_cache = [this](const Model& before) { Synchronising(before); };
    reader_.on_cache = [this](const Model& cache) { read_back_ = cache; };
    reader_.on_lost = [this] { awaiting_reply_ = false; };
  }

  int Run() {
    Say(fmt::format("waiting for the server in {}", Escape(SocketDirectory(options_.server.socket_directory))));
    while (!ended_) {
      loop_.RunUntil(
          [this] { return ended_ || reload_ || ports_touched_ || handover_.replied() || read_back_.has_value(); },
          NextLook());
      // Outside of the middleware's callbacks, so that what fails may throw and the client may be called at leisure.
      if (handover_.Settle()) Confirm();
      if (reload_) Reload();
      if (ports_touched_) FollowPorts();
      if (read_back_) Judge();
      LookAgain();
    }
    Say("ending; the server keeps its configuration");
    return kOk;
  }

 private:
  Configuration Load() const { return ParseFile(options_.config_file, ReadFile(options_.config_file)); }

  static void Say(const std::string& what) {
    std::cout << fmt::format("{:%Y-%m-%dT%H:%M:%S%z} ", fmt::localtime(std::time(nullptr))) << what << std::endl;
  }

  void Signalled(int signal) {
    if (signal == SIGHUP) {
      reload_ = true;
      forced_ = true;
    } else {
      ended_ = true;
    }
  }

  void FileTouched() { reload_ = true; }

  void Lost() {
    Say("server lost; waiting for it to come back");
    handover_.Lost();
    unconfirmed_.clear();
    deadline_.reset();
  }

  // The reply is here, and the client acts on it when this returns.
  void Synchronising(const Model& before) {
    const Difference changes = Compare(before, configuration_.model, configuration_.ports);
    handover_.Replied(before);
    if (changes.empty()) {
      unconfirmed_.emplace_back("in step, nothing to change");
    } else {
      const bool restored = was_in_step_ && SizeOf(before).total() == 0;
      unconfirmed_.push_back(fmt::format("{}: {}", restored ? "restored" : "applied", CountsText(changes)));
    }
  }

  void Reload() {
    reload_ = false;
    const bool forced = std::exchange(forced_, false);
    try {
      std::string text = ReadFile(options_.config_file);
      if (!forced && text == refused_) return;
      if (!forced && text == configuration_.text) {
        if (!std::exchange(refused_, {}).empty()) Say("file is as it was applied, nothing to change");
        return;
      }
      refused_ = text;
      Configuration next = ParseFile(options_.config_file, std::move(text));
      refused_.clear();
      Replace(std::move(next), "file read");
    } catch (const Failure& failure) {
      std::cerr << "cfmctl: " << failure.what() << std::endl;
      Say("file not applied; the configuration before it stays");
    }
  }

  /// The server knows a port by its index, and one that was deleted and made again has another.
  void FollowPorts() {
    ports_touched_ = false;
    const std::set<std::string> moved = MovedPorts(configuration_.model, configuration_.ports, HostPorts());
    if (moved.empty()) return;
    try {
      Configuration next = ParseFile(options_.config_file, configuration_.text);
      // Where the logical id stayed, nothing changed for the client, and no update carries a port.
      handover_.Replace(ForClient(Without(moved, next.model, next.ports), next.ports));
      Replace(std::move(next), "new index of " + Escape(fmt::format("{}", fmt::join(moved, ", "))));
    } catch (const Failure& failure) {
      // When a port has gone meanwhile, the table has changed again, and there is another call.
      std::cerr << "cfmctl: " << failure.what() << std::endl;
    }
  }

  void Replace(Configuration next, const std::string& why) {
    const Difference changes = Compare(configuration_.model, next.model, next.ports);
    handover_.Replace(ForClient(next.model, next.ports));
    configuration_ = std::move(next);
    if (!handover_.in_step()) {
      Say(why + "; it is applied when the server is there");
      return;
    }
    unconfirmed_.push_back(why + (changes.empty() ? ", nothing to change" : "; applied: " + CountsText(changes)));
    Confirm();
  }

  /// What is sent is not yet done: the server's cache is read back until it is what it should be.
  void Confirm() {
    // A millisecond for each object beside the time-out, as for apply.
    deadline_ =
        Clock::now() + options_.server.timeout + std::chrono::milliseconds(SizeOf(configuration_.model).total());
    pause_ = kShortestPause;
    look_ = Clock::now();
  }

  std::optional<Clock::time_point> NextLook() const {
    if (!deadline_ || awaiting_reply_) return deadline_;
    return std::min(look_, *deadline_);
  }

  void LookAgain() {
    if (!deadline_) return;
    if (Clock::now() >= *deadline_) {
      deadline_.reset();
      Say("the server does not confirm its configuration; see its log");
      if (last_remaining_) RenderChanges(*last_remaining_, kFewChanges, Style(false), std::cout);
      std::cout.flush();
      last_remaining_.reset();
      return;
    }
    if (!awaiting_reply_ && Clock::now() >= look_) {
      awaiting_reply_ = reader_.RequestCache();
      look_ = Clock::now() + pause_;
      pause_ = std::min(2 * pause_, kLongestPause);
    }
  }

  void Judge() {
    const Model cache = std::move(*read_back_);
    read_back_.reset();
    awaiting_reply_ = false;
    if (!deadline_) return;
    Difference remaining = Compare(cache, configuration_.model, configuration_.ports);
    if (!remaining.empty()) {
      last_remaining_ = std::move(remaining);
      look_ = Clock::now() + pause_;
      return;
    }
    deadline_.reset();
    last_remaining_.reset();
    was_in_step_ = true;
    for (const std::string& line : unconfirmed_) Say(line);
    unconfirmed_.clear();
  }

  static constexpr Clock::duration kShortestPause = std::chrono::milliseconds(20);
  static constexpr Clock::duration kLongestPause = std::chrono::seconds(1);

  const GlobalOptions options_;
  Configuration configuration_;
  std::string refused_;  ///< the text that was last found wrong, so that it is reported once

  bool ended_ = false;
  bool reload_ = false;
  bool forced_ = false;  ///< reload even what did not change
  bool ports_touched_ = true;
  bool was_in_step_ = false;  ///< the server has held the configuration since this started

  std::vector<std::string> unconfirmed_;       ///< to be said when the server's cache is as it should be
  std::optional<Clock::time_point> deadline_;  ///< while the cache is to be confirmed
  Clock::time_point look_;
  Clock::duration pause_ = kShortestPause;
  bool awaiting_reply_ = false;
  std::optional<Model> read_back_;
  std::optional<Difference> last_remaining_;

  EventLoop loop_;
  SignalSource signals_;
  FileWatch watch_;
  ServerLink link_;
  ServerLink reader_;  ///< a token of its own, because the client acts on every cache reply of the other
  LinkWatch links_;
  cfm::Client client_;
  Handover handover_;
};

}  // namespace

int Run(const GlobalOptions& global) {
  return Runner(global).Run();
}

}  // namespace cfmctl
