// Reads the server's cache on an attachment of its own, without a cfm::Client: it can change nothing.
#ifndef CFM_TESTS_INTEGRATION_SUPPORT_CACHE_READER_H
#define CFM_TESTS_INTEGRATION_SUPPORT_CACHE_READER_H

#include <chrono>
#include <optional>
#include <string>

#include "client_server.pb.h"
#include "vorbus/vorbus.h"

namespace cfm_test {

class CacheReader {
 public:
  explicit CacheReader(const std::string& directory);
  ~CacheReader();
  CacheReader(const CacheReader&) = delete;
  CacheReader& operator=(const CacheReader&) = delete;

  // The pid of the server's present run; nothing when there is none within the time.
  std::optional<vorbus_pid_t> WaitForServer(std::chrono::milliseconds timeout);
  // As last seen; 0: none.
  vorbus_pid_t server() const { return server_; }

  // Asks the server for its cache as soon as it is there, and does not wait for the reply. False: it did not come in
  // time.
  bool Ask(std::chrono::milliseconds timeout);
  // Asks the present server for its cache; nothing when no reply comes within the time.
  std::optional<client_server::OpCacheSync> Read(std::chrono::milliseconds timeout);

  // Reads again and again until the cache is what is expected; returns the last difference (empty: it is).
  std::string WaitFor(const client_server::OpCacheSync& expected, std::chrono::milliseconds timeout);

 private:
  template <typename Done>
  bool Dispatch(std::chrono::steady_clock::time_point deadline, Done done);

  vorbus_t* token_ = nullptr;
  vorbus_subscription_t* subscription_ = nullptr;
  vorbus_registration_t* registration_ = nullptr;
  vorbus_pid_t server_ = 0;
  std::optional<client_server::OpCacheSync> reply_;
};

}  // namespace cfm_test

#endif
