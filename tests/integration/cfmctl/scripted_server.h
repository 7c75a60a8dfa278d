// A process under the server's name that behaves as a real one should not.
#ifndef CFM_TESTS_INTEGRATION_CFMCTL_SCRIPTED_SERVER_H
#define CFM_TESTS_INTEGRATION_CFMCTL_SCRIPTED_SERVER_H

#include <atomic>
#include <string>
#include <thread>

#include "vorbus/vorbus.h"

namespace cfm_test {

class ScriptedServer {
 public:
  enum class Behaviour {
    kMute,             ///< answers nothing
    kForgetful,        ///< always answers that its cache is empty
    kDiesWhenCreating  ///< answers that its cache is empty, and goes away with the first domain
  };

  ScriptedServer(const std::string& directory, Behaviour behaviour);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  /// Waits until it has gone away by itself.
  void WaitForDeath();
  void WaitForCacheRequest() const { cache_requests_.wait(0); }
  /// How often its cache was asked for.
  int cache_requests() const { return cache_requests_; }

 private:
  void Serve(const std::string& directory);
  static void CacheGet(vorbus_t* token, void* user, const vorbus_pid_t* sender, void* data, size_t size);
  static void Create(vorbus_t* token, void* user, const vorbus_pid_t* sender, void* data, size_t size);

  const Behaviour behaviour_;
  std::atomic<bool> ended_ = false;
  std::atomic<bool> ready_ = false;
  std::atomic<int> cache_requests_ = 0;
  std::thread thread_;
};

}  // namespace cfm_test

#endif
