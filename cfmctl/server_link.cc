#include "server_link.h"

#include <fmt/format.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "cache_import.h"
#include "cfm/identities.h"
#include "client_server.pb.h"
#include "failure.h"

namespace cfmctl {

std::string SocketDirectory(const std::string& option) {
  if (!option.empty()) return option;
  const char* environment = std::getenv("VORBUS_DIR");
  return environment != nullptr ? environment : "/run/vorbus";
}

ServerLink::ServerLink(EventLoop& loop, const std::string& directory) {
  const vorbus_options_t options = {
      .process = nullptr, .directory = directory.empty() ? nullptr : directory.c_str(), .send_timeout_ms = 0};
  const int error = vorbus_open(&options, &token_);
  if (error != 0) {
    throw Failure(kNoServer, fmt::format("cannot use the socket directory {}: {}; name another with --socket-dir",
                                         SocketDirectory(directory), std::strerror(-error)));
  }
  cache_reply_ = vorbus_sig_register_sized(token_, CFM_MGR_S2C_SIG_CACHE_REPLY, &CacheReply, this);
  presence_ = vorbus_proc_subscribe(token_, CFM_MGR_PROCESS, &Found, &Lost, this);
  if (cache_reply_ == nullptr || presence_ == nullptr) {
    const int reason = errno;
    vorbus_sig_deregister(&cache_reply_);
    vorbus_close(&token_);
    throw Failure(kFailed, fmt::format("cannot follow the server: {}", std::strerror(reason)));
  }
  loop.Add(vorbus_fd(token_), [this] {
    const int dispatched = vorbus_dispatch(token_);
    if (dispatched < 0) throw Failure(kFailed, fmt::format("the middleware failed: {}", std::strerror(-dispatched)));
  });
}

ServerLink::~ServerLink() {
  vorbus_proc_unsubscribe(&presence_);
  vorbus_sig_deregister(&cache_reply_);
  vorbus_close(&token_);
}

bool ServerLink::RequestCache() {
  return server_ != 0 && vorbus_sig_send(token_, &server_, CFM_MGR_C2S_SIG_CACHE_GET, nullptr, 0) == 0;
}

void ServerLink::Found(vorbus_t* /*token*/, const vorbus_pid_t* pid, void* user) {
  auto* self = static_cast<ServerLink*>(user);
  self->server_ = *pid;
  if (self->on_found) self->on_found();
}

void ServerLink::Lost(vorbus_t* /*token*/, void* user) {
  auto* self = static_cast<ServerLink*>(user);
  self->server_ = 0;
  if (self->on_lost) self->on_lost();
}

void ServerLink::CacheReply(vorbus_t* /*token*/, void* user, const vorbus_pid_t* /*sender*/, void* data, size_t size) {
  auto* self = static_cast<ServerLink*>(user);
  client_server::OpCacheSync cache;
  // What does not parse is an empty cache to the client library, so it is one here.
  if (size > INT_MAX || !cache.ParseFromArray(data, static_cast<int>(size))) cache.Clear();
  if (self->on_cache) self->on_cache(ImportCache(cache));
}

}  // namespace cfmctl
