// What every command that talks to the server has: an event loop that ends on SIGINT and SIGTERM, a link to the server,
// and a limit to its patience.
#ifndef CFMCTL_SESSION_H
#define CFMCTL_SESSION_H

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "event_loop.h"
#include "model.h"
#include "server_link.h"

namespace cfmctl {

struct ServerOptions {
  std::string socket_directory;  ///< empty: the middleware's default
  std::chrono::milliseconds timeout{5000};
};

class Session {
 public:
  explicit Session(const ServerOptions& options);

  EventLoop& loop() { return loop_; }
  ServerLink& link() { return link_; }
  const ServerOptions& options() const { return options_; }

  /// Runs the loop until `done` holds; false when the patience, if there is any, ended first. Throws Failure on SIGINT
  /// and SIGTERM.
  bool Wait(const std::function<bool()>& done, std::optional<std::chrono::milliseconds> patience);

  /// Throws Failure with kNoServer when none comes within the time-out.
  void WaitForServer();

  /// The server's cache after everything sent on this session's token; nothing when the server was lost meanwhile.
  /// Throws Failure when it does not answer within the time-out and `extra`.
  std::optional<Model> ReadCache(std::chrono::milliseconds extra = std::chrono::milliseconds(0));

 private:
  ServerOptions options_;
  int signal_ = 0;
  EventLoop loop_;
  SignalSource signals_;
  ServerLink link_;
};

/// The message and status of a command that found no server.
[[noreturn]] void FailWithoutServer(const ServerOptions& options);

}  // namespace cfmctl

#endif
