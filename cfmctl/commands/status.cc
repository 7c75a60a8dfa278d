// cfmctl status and cfmctl watch: how is every MEP of the configuration, once or as it changes?
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <unistd.h>

#include <ctime>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "configured_client.h"
#include "failure.h"
#include "handlers.h"
#include "render_status.h"
#include "terminal.h"
#include "text.h"

namespace cfmctl {
namespace {

/// Keeps the board, and calls `changed` with what has changed on it.
class BoardKeeper final : public StatusListener {
 public:
  explicit BoardKeeper(const Model& model) : board_(model) {}

  StatusBoard& board() { return board_; }

  std::function<void()> server_found;
  std::function<void(const StatusBoard::Key&)> local_changed;
  std::function<void(const StatusBoard::Key&, std::uint16_t remote_mep_id)> remote_changed;

  void OnServerFound() override {
    if (server_found) server_found();
  }
  void OnLocalMepStatus(const std::string& md, const std::string& ma, std::uint16_t mep_id,
                        const cfm::st_local_mep_status& status) override {
    Local(board_.Update(md, ma, mep_id, status), {md, ma, mep_id});
  }
  void OnRemoteMepStatus(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                         std::uint16_t remote_mep_id, const cfm::st_remote_mep_status& status) override {
    Remote(board_.Update(md, ma, local_mep_id, remote_mep_id, status), {md, ma, local_mep_id}, remote_mep_id);
  }
  void OnLocalMepRemoved(const std::string& md, const std::string& ma, std::uint16_t mep_id) override {
    Local(board_.RemoveLocal(md, ma, mep_id), {md, ma, mep_id});
  }
  void OnRemoteMepRemoved(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                          std::uint16_t remote_mep_id) override {
    Remote(board_.RemoveRemote(md, ma, local_mep_id, remote_mep_id), {md, ma, local_mep_id}, remote_mep_id);
  }

 private:
  void Local(bool changed, const StatusBoard::Key& key) const {
    if (changed && local_changed) local_changed(key);
  }
  void Remote(bool changed, const StatusBoard::Key& key, std::uint16_t remote_mep_id) const {
    if (changed && remote_changed) remote_changed(key, remote_mep_id);
  }

  StatusBoard board_;
};

std::string TimeStamp() {
  return fmt::format("{:%Y-%m-%dT%H:%M:%S%z}", fmt::localtime(std::time(nullptr)));
}

/// Where the changes that `watch` sees go.
class WatchOutput {
 public:
  virtual ~WatchOutput() = default;
  virtual void Server(bool there) = 0;
  virtual void Local(const StatusBoard::Key& key, const LocalMep& mep) = 0;
  virtual void Remote(const StatusBoard::Key& key, std::uint16_t remote_mep_id, const RemoteMep* mep) = 0;
  /// After a round of changes.
  virtual void Flush(const StatusBoard& board) = 0;
};

/// The lines of a text that `rows` hold, and the one below them that the cursor is on: the end goes before the middle.
std::vector<std::string> Fitting(const std::string& text, std::size_t rows) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  constexpr std::size_t kFewest = 5;
  if (rows < kFewest || lines.size() < rows) return lines;
  const std::size_t dropped = lines.size() - (rows - 2);
  lines.erase(lines.end() - 1 - static_cast<std::ptrdiff_t>(dropped), lines.end() - 1);
  lines.insert(lines.end() - 1, fmt::format("... {} more; 'cfmctl status' prints them all", Count(dropped, "line")));
  return lines;
}

/// Redrawn in place.
class WatchScreen final : public WatchOutput {
 public:
  explicit WatchScreen(Style style) : style_(style) {}
  void Server(bool there) override {
    there_ = there;
    changed_ = true;
  }
  void Local(const StatusBoard::Key& /*key*/, const LocalMep& /*mep*/) override { changed_ = true; }
  void Remote(const StatusBoard::Key& /*key*/, std::uint16_t /*remote_mep_id*/, const RemoteMep* /*mep*/) override {
    changed_ = true;
  }
  void Flush(const StatusBoard& board) override {
    if (!changed_) return;
    changed_ = false;
    std::ostringstream text;
    text << style_.Dim(TimeStamp()) << (there_ ? "" : "  " + style_.Red("no server")) << '\n';
    RenderStatus(board, style_, text);
    // ECMA-48: CUP to the top, EL after each line, ED for what is below. What is too wide is cut off there (DECAWM).
    std::string screen = "\x1b[?7l\x1b[H";
    for (const std::string& line : Fitting(text.str(), TerminalRows(STDOUT_FILENO))) screen += line + "\x1b[K\n";
    std::cout << (first_ ? "\x1b[2J" : "") << screen << "\x1b[J\x1b[?7h" << std::flush;
    first_ = false;
  }

 private:
  Style style_;
  bool there_ = false;
  bool changed_ = true;
  bool first_ = true;
};

/// A line for each change.
class WatchLines final : public WatchOutput {
 public:
  void Server(bool there) override { Say(there ? "server found" : "server lost"); }
  void Local(const StatusBoard::Key& key, const LocalMep& mep) override { Say(LocalMepLine(key, mep, Style(false))); }
  void Remote(const StatusBoard::Key& key, std::uint16_t remote_mep_id, const RemoteMep* mep) override {
    const RemoteMep gone;
    Say(RemoteMepLine(key, remote_mep_id, mep != nullptr ? *mep : gone, Style(false)));
  }
  void Flush(const StatusBoard& /*board*/) override {}

 private:
  static void Say(const std::string& line) { std::cout << TimeStamp() << ' ' << line << std::endl; }
};

/// A JSON object for each change.
class WatchJson final : public WatchOutput {
 public:
  void Server(bool there) override { Write(there ? "server-found" : "server-lost", Json::object()); }
  void Local(const StatusBoard::Key& key, const LocalMep& mep) override { Write("local-mep", LocalMepJson(key, mep)); }
  void Remote(const StatusBoard::Key& key, std::uint16_t remote_mep_id, const RemoteMep* mep) override {
    const auto& [md, ma, mep_id] = key;
    Json json = {{"domain", md}, {"association", ma}, {"mep-id", mep_id}};
    json.update(RemoteMepJson(remote_mep_id, mep != nullptr ? *mep : RemoteMep{}));
    Write("remote-mep", json);
  }
  void Flush(const StatusBoard& /*board*/) override {}

 private:
  static void Write(const char* event, const Json& what) {
    Json json = {{"event", event}, {"time", TimeStamp()}};
    json.update(what);
    WriteLine(json, std::cout);
  }
};

std::unique_ptr<WatchOutput> OutputFor(bool json) {
  if (json) return std::make_unique<WatchJson>();
  if (IsTerminal(STDOUT_FILENO)) return std::make_unique<WatchScreen>(StyleFor(STDOUT_FILENO));
  return std::make_unique<WatchLines>();
}

}  // namespace

int Status(const GlobalOptions& global, const StatusOptions& options) {
  ConfiguredClient configured(global.config_file, global.server);
  BoardKeeper keeper(configured.model());
  StatusBoard& board = keeper.board();
  configured.client().RegisterStatusHandler(&keeper);
  configured.Synchronise();
  const auto print = [&board, &options] {
    if (options.json) {
      WriteLine(StatusJson(board), std::cout);
    } else {
      RenderStatus(board, StyleFor(STDOUT_FILENO), std::cout);
    }
  };
  try {
    // The server reports every MEP after each synchronisation, without a mark at the end.
    configured.WaitWithServer([&board] { return board.complete(); }, global.server.timeout);
  } catch (const Failure&) {
    print();
    throw;
  }
  print();
  return board.well() ? kOk : kFailed;
}

int Watch(const GlobalOptions& global, const StatusOptions& options) {
  ConfiguredClient configured(global.config_file, global.server);
  BoardKeeper keeper(configured.model());
  const std::unique_ptr<WatchOutput> output = OutputFor(options.json);
  keeper.local_changed = [&](const StatusBoard::Key& key) { output->Local(key, keeper.board().meps().at(key)); };
  keeper.remote_changed = [&](const StatusBoard::Key& key, std::uint16_t remote_mep_id) {
    const auto& remotes = keeper.board().meps().at(key).remotes;
    const auto remote = remotes.find(remote_mep_id);
    output->Remote(key, remote_mep_id, remote == remotes.end() ? nullptr : &remote->second);
  };
  keeper.server_found = [&output] { output->Server(true); };
  configured.on_lost = [&] {
    keeper.board().Forget();
    output->Server(false);
  };
  configured.client().RegisterStatusHandler(&keeper);

  try {
    configured.Synchronise();
    configured.Wait(
        [&] {
          output->Flush(keeper.board());
          return false;
        },
        std::nullopt);
  } catch (const Failure& failure) {
    // The one way to end it.
    if (failure.status() > kSignalBase) return kOk;
    throw;
  }
  return kOk;
}

}  // namespace cfmctl
