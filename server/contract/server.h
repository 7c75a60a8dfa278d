// The server's side of the contract with its clients: takes every request, keeps the cache, answers.
#ifndef CFM_SERVER_CONTRACT_SERVER_H
#define CFM_SERVER_CONTRACT_SERVER_H

#include <google/protobuf/message.h>
#include <zlog.h>

#include <cstddef>
#include <string>
#include <vector>

#include "client_server.pb.h"
#include "contract/cache.h"
#include "contract/machinery.h"
#include "vorbus/vorbus.h"

namespace cfm::contract {

// Lives on one token; works inside vorbus_dispatch only. Whatever a request's octets are, they are at worst logged and
// dropped.
class Server {
 public:
  // Larger requests are dropped unread. The largest reasonable one, an association with all its ids, has under 64 KiB.
  static constexpr size_t kMaxRequestOctets = 1 << 20;

  // Registers for every request. All of these outlive the server. Throws std::system_error when the middleware refuses
  // a registration.
  Server(vorbus_t* token, zlog_category_t* log, Cache& cache, Machinery& machinery);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

 private:
  // The one road of a request that carries a message: parsed, noted, handled.
  template <typename Request>
  static void Receive(vorbus_t* token, void* user, const vorbus_pid_t* sender, void* data, size_t size);
  // The road of a request without one.
  template <void (Server::*answer)(vorbus_pid_t)>
  static void ReceiveEmpty(vorbus_t* token, void* user, const vorbus_pid_t* sender, void* data, size_t size);

  // Every request without one of its own is a change of the configuration.
  template <typename Request>
  void Handle(vorbus_pid_t sender, const Request& request);
  void Handle(vorbus_pid_t sender, const client_server::OpStatsClear& request);
  void Handle(vorbus_pid_t sender, const client_server::OpLinktraceTriggerMsg& trigger);
  void Handle(vorbus_pid_t sender, const client_server::OpLoopbackTriggerMsg& trigger);
  void Handle(vorbus_pid_t sender, const client_server::OpDelayMeasurementTriggerMsg& trigger);

  void AnswerCache(vorbus_pid_t sender);
  void AnswerStatistics(vorbus_pid_t sender);
  void AnswerStatus(vorbus_pid_t sender);

  void Send(vorbus_pid_t to, const vorbus_sig_t* signal, const google::protobuf::Message& message);
  void Warn(vorbus_pid_t sender, const std::string& request, const std::string& text);
  void Note(vorbus_pid_t sender, const google::protobuf::Message& request);

  vorbus_t* token_;
  zlog_category_t* log_;
  Cache& cache_;
  Machinery& machinery_;
  std::vector<vorbus_registration_t*> registrations_;
};

}  // namespace cfm::contract

#endif
