// What every command begins with that asks a server for more than its cache: the configuration file, a client that has
// it, and a server that is in step with it.
#ifndef CFMCTL_CONFIGURED_CLIENT_H
#define CFMCTL_CONFIGURED_CLIENT_H

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "cfm/client.h"
#include "config_file.h"
#include "handover.h"
#include "session.h"

namespace cfmctl {

class ConfiguredClient {
 public:
  /// Reads the file before anything else: throws Failure with kBadInput, and then no server was contacted.
  ConfiguredClient(const std::string& config_file, const ServerOptions& options);
  ConfiguredClient(const ConfiguredClient&) = delete;
  ConfiguredClient& operator=(const ConfiguredClient&) = delete;

  const Model& model() const { return configuration_.model; }
  const Ports& ports() const { return configuration_.ports; }
  const ServerOptions& options() const { return session_.options(); }

  /// Register handlers on it before Synchronise.
  cfm::Client& client() { return client_; }

  /// Waits for the server, and until it was sent what it lacked of the configuration. Throws Failure.
  void Synchronise();

  /// Called at once when the server is lost, before anything of the next one arrives.
  std::function<void()> on_lost;

  /// Runs until `done` holds; false when the patience, if there is any, ended first. Throws Failure on SIGINT and
  /// SIGTERM.
  bool Wait(const std::function<bool()>& done, std::optional<std::chrono::milliseconds> patience);

  /// As above for a test that dies with its server: throws Failure when it goes away before `done` holds.
  bool WaitWithServer(const std::function<bool()>& done, std::chrono::milliseconds patience);

 private:
  Configuration configuration_;
  Session session_;
  cfm::Client client_;
  Handover handover_;
  int losses_ = 0;  ///< how often a server was lost
};

}  // namespace cfmctl

#endif
