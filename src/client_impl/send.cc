// The road by which every request reaches the server.
#include <google/protobuf/message_lite.h>

#include "client_impl.h"
#include "client_impl/log.h"

namespace cfm {

void ClientImpl::Send(const vorbus_sig_t* signal, const google::protobuf::MessageLite& message) const {
  std::string payload;
  message.SerializeToString(&payload);
  vorbus_sig_send(token_, &server_pid_, signal, payload.data(), payload.size());
}

void ClientImpl::SendEmpty(const vorbus_sig_t* signal) const {
  vorbus_sig_send(token_, &server_pid_, signal, nullptr, 0);
}

void ClientImpl::SendTraced(std::string_view function, const vorbus_sig_t* signal,
                            const google::protobuf::MessageLite& message) const {
  CFM_LOG(log_category_, kLogTrace, function, "Serializing to string.");
  std::string payload;
  message.SerializeToString(&payload);
  CFM_LOG(log_category_, kLogTrace, function, "Sending signal to server.");
  vorbus_sig_send(token_, &server_pid_, signal, payload.data(), payload.size());
  CFM_LOG(log_category_, kLogTrace, function, "Signal sent.");
}

}  // namespace cfm
