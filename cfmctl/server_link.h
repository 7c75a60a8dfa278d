// One attachment to the middleware that follows the server and can read its cache. It changes nothing at the server.
#ifndef CFMCTL_SERVER_LINK_H
#define CFMCTL_SERVER_LINK_H

#include <functional>
#include <string>

#include "event_loop.h"
#include "model.h"
#include "vorbus/vorbus.h"

namespace cfmctl {

/// The socket directory in use: the option, else $VORBUS_DIR, else the middleware's default.
std::string SocketDirectory(const std::string& option);

class ServerLink {
 public:
  /// An empty directory means the middleware's default. Throws Failure when it cannot attach.
  ServerLink(EventLoop& loop, const std::string& directory);
  ~ServerLink();
  ServerLink(const ServerLink&) = delete;
  ServerLink& operator=(const ServerLink&) = delete;

  /// A cfm::Client may be built on it; it must die before the link.
  vorbus_t* token() { return token_; }

  bool present() const { return server_ != 0; }

  /// The cache replies to everybody on this token. Set before a client exists, they come here before the client acts on
  /// them: what the model shows is what the client is about to change.
  std::function<void(const Model&)> on_cache;
  std::function<void()> on_found;
  std::function<void()> on_lost;

  /// Asks the server for its cache, after everything that was sent on this token. False when there is no server.
  bool RequestCache();

 private:
  static void Found(vorbus_t* token, const vorbus_pid_t* pid, void* user);
  static void Lost(vorbus_t* token, void* user);
  static void CacheReply(vorbus_t* token, void* user, const vorbus_pid_t* sender, void* data, size_t size);

  vorbus_t* token_ = nullptr;
  vorbus_pid_t server_ = 0;
  vorbus_registration_t* cache_reply_ = nullptr;
  vorbus_subscription_t* presence_ = nullptr;
};

}  // namespace cfmctl

#endif
