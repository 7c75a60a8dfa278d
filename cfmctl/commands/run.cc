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
#include <string>
#include <utility>
#include <vector>

#include "cfm/client.h"
#include "commands/commands.h"
#include "config_file.h"
#include "difference.h"
#include "failure.h"
#include "file_watch.h"
#include "render.h"
#include "server_link.h"
#include "text.h"

namespace cfmctl {
namespace {

using Clock = EventLoop::Clock;

class Runner {
 public:
  explicit Runner(const GlobalOptions& options)
      : options_(options),
        configuration_(Load()),
        wanted_(ForClient(configuration_.model, configuration_.ports)),
        signals_(loop_, {SIGINT, SIGTERM, SIGHUP}, [this](int signal) { Signalled(signal); }),
        watch_(loop_, options_.config_file, [this] { FileTouched(); }),
        link_(loop_, options_.server.socket_directory),
        reader_(loop_, options_.server.socket_directory),
        client_(link_.token()) {
    link_.on_found = [this] { Say("server found"); };
    link_.on_lost = [this] { Lost(); };
    link_.on_cache = [this](const Model& before) { Synchronising(before); };
    reader_.on_cache = [this](const Model& cache) { read_back_ = cache; };
    reader_.on_lost = [this] { awaiting_reply_ = false; };
  }

  int Run() {
    HandOver(wanted_);
    Say(fmt::format("waiting for the server in {}", Escape(SocketDirectory(options_.server.socket_directory))));
    while (!ended_) {
      loop_.RunUntil([this] { return ended_ || reload_ || synchronised_ || read_back_.has_value(); }, NextLook());
      // Outside of the middleware's callbacks, so that what fails may throw and the client may be called at leisure.
      if (synchronised_) Synchronised();
      if (reload_) Reload();
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

  void HandOver(const Model& model) {
    client_.UpdateConfig(model.hierarchy);
    client_.UpdateConfigProbe(model.probes);
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
    // Lost between the two steps of a changed name format: the client still wants the first.
    if (step_) HandOver(wanted_);
    step_.reset();
    in_step_ = false;
    synchronised_ = false;
    unconfirmed_.clear();
    deadline_.reset();
  }

  // The reply is here, and the client acts on it when this returns.
  void Synchronising(const Model& before) {
    const Difference changes = Compare(before, configuration_.model, configuration_.ports);
    step_ = StepBefore(before, wanted_);
    if (step_) HandOver(*step_);
    if (changes.empty()) {
      unconfirmed_.emplace_back("in step, nothing to change");
    } else {
      const bool restored = was_in_step_ && SizeOf(before).total() == 0;
      unconfirmed_.push_back(fmt::format("{}: {}", restored ? "restored" : "applied", CountsText(changes)));
    }
    synchronised_ = true;
  }

  // The client has sent the difference.
  void Synchronised() {
    synchronised_ = false;
    in_step_ = true;
    if (step_) HandOver(wanted_);
    step_.reset();
    Confirm();
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
      Replace(std::move(next));
    } catch (const Failure& failure) {
      std::cerr << "cfmctl: " << failure.what() << std::endl;
      Say("file not applied; the configuration before it stays");
    }
  }

  void Replace(Configuration next) {
    const Difference changes = Compare(configuration_.model, next.model, next.ports);
    Model wanted = ForClient(next.model, next.ports);
    const std::optional<Model> step = StepBefore(wanted_, wanted);
    configuration_ = std::move(next);
    wanted_ = std::move(wanted);
    if (!in_step_) {
      HandOver(wanted_);
      Say("file read; it is applied when the server is there");
      return;
    }
    if (step) HandOver(*step);
    HandOver(wanted_);
    unconfirmed_.push_back(changes.empty() ? "file read, nothing to change" : "applied: " + CountsText(changes));
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
  Model wanted_;         ///< what the configuration is to the client
  std::string refused_;  ///< the text that was last found wrong, so that it is reported once

  bool ended_ = false;
  bool reload_ = false;
  bool forced_ = false;        ///< reload even what did not change
  bool synchronised_ = false;  ///< the client has just acted on a cache reply
  bool in_step_ = false;       ///< the client sends at once what it is given
  bool was_in_step_ = false;   ///< the server has held the configuration since this started
  std::optional<Model> step_;

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
  cfm::Client client_;
};

}  // namespace

int Run(const GlobalOptions& global) {
  return Runner(global).Run();
}

}  // namespace cfmctl
