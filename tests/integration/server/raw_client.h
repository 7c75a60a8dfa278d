// A client of the server that is nothing but an attachment to the middleware: it sends what it is told and keeps what
// comes, in order.
#ifndef CFM_TESTS_INTEGRATION_SERVER_RAW_CLIENT_H
#define CFM_TESTS_INTEGRATION_SERVER_RAW_CLIENT_H

#include <google/protobuf/message.h>

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client_server.pb.h"
#include "process.h"
#include "vorbus/vorbus.h"

namespace cfm_test {

// A reply or an event.
struct Received {
  std::string name;  // "CFM_MGR_S2C_SIG_CACHE_REPLY"
  std::string octets;

  // The message that it carries.
  template <typename Message>
  Message As() const {
    Message message;
    if (!message.ParseFromString(octets)) message.Clear();
    return message;
  }
};

class RawClient {
 public:
  explicit RawClient(const std::string& directory);
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  // The server's present pid; 0 while there is none.
  vorbus_pid_t server() const { return server_; }
  // Waits until a server is there (or is gone); false when it does not come to that.
  bool WaitForServer();
  bool WaitForNoServer();

  // Fail the test when the server cannot be reached.
  void Send(const vorbus_sig_t* signal, const google::protobuf::Message& message);
  void Send(const vorbus_sig_t* signal, std::string_view octets = {});

  // The next reply or event; nothing when none comes.
  std::optional<Received> Next();

  // Asks for the cache and returns it, with the events that came before the reply left for Next. Since a link keeps its
  // order, all that was sent before has been handled then.
  client_server::OpCacheSync Cache();

 private:
  struct Handler {
    RawClient* client;
    const char* name;
  };

  bool DispatchUntil(const std::function<bool()>& done);
  std::optional<Received> Take(const std::function<bool(const Received&)>& wanted);

  vorbus_t* token_ = nullptr;
  vorbus_subscription_t* subscription_ = nullptr;
  std::vector<std::unique_ptr<Handler>> handlers_;
  vorbus_pid_t server_ = 0;
  std::deque<Received> received_;
};

// A server process in a directory of its own, ready for clients.
class ServerProcess {
 public:
  explicit ServerProcess(std::vector<std::string> options = {});

  // Ends the present run by SIGKILL and starts another.
  void Restart();

  Process& process() { return *process_; }
  std::string directory() const { return directory_.path(); }

 private:
  void Start();

  TempDir directory_;
  std::vector<std::string> options_;
  std::optional<Process> process_;
};

}  // namespace cfm_test

#endif
