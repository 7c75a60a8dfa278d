#include "scripted_server.h"

#include <poll.h>

#include "cfm/identities.h"

namespace cfm_test {

ScriptedServer::ScriptedServer(const std::string& directory, Behaviour behaviour)
    : behaviour_(behaviour), thread_([this, directory] { Serve(directory); }) {
  ready_.wait(false);
}

ScriptedServer::~ScriptedServer() {
  ended_ = true;
  if (thread_.joinable()) thread_.join();
}

void ScriptedServer::WaitForDeath() {
  thread_.join();
}

void ScriptedServer::Serve(const std::string& directory) {
  const vorbus_options_t options = {
      .process = CFM_MGR_PROCESS->name, .directory = directory.c_str(), .send_timeout_ms = 0};
  vorbus_t* token = nullptr;
  if (vorbus_open(&options, &token) == 0) {
    vorbus_registration_t* cache_get = vorbus_sig_register_sized(token, CFM_MGR_C2S_SIG_CACHE_GET, &CacheGet, this);
    vorbus_registration_t* create = vorbus_sig_register_sized(token, CFM_MGR_C2S_SIG_MD_CREATE, &Create, this);
    ready_ = true;
    ready_.notify_all();
    while (!ended_) {
      pollfd polled = {.fd = vorbus_fd(token), .events = POLLIN, .revents = 0};
      if (poll(&polled, 1, 10) > 0) vorbus_dispatch(token);
    }
    vorbus_sig_deregister(&cache_get);
    vorbus_sig_deregister(&create);
    vorbus_close(&token);
  }
  ready_ = true;
  ready_.notify_all();
}

void ScriptedServer::CacheGet(vorbus_t* token, void* user, const vorbus_pid_t* sender, void* /*data*/,
                              size_t /*size*/) {
  auto* self = static_cast<ScriptedServer*>(user);
  ++self->cache_requests_;
  self->cache_requests_.notify_all();
  // What arrived together with the end finds nobody either. An empty payload is an empty cache.
  if (self->behaviour_ != Behaviour::kMute && !self->ended_) {
    vorbus_sig_send(token, sender, CFM_MGR_S2C_SIG_CACHE_REPLY, nullptr, 0);
  }
}

void ScriptedServer::Create(vorbus_t* /*token*/, void* user, const vorbus_pid_t* /*sender*/, void* /*data*/,
                            size_t /*size*/) {
  auto* self = static_cast<ScriptedServer*>(user);
  if (self->behaviour_ == Behaviour::kDiesWhenCreating) self->ended_ = true;
}

}  // namespace cfm_test
