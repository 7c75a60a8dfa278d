// Loopback: the request, its reports and its refusal.
#include "client_impl.h"
#include "client_impl/log.h"
#include "client_impl/receive.h"
#include "client_server.pb.h"

namespace cfm {

void ClientImpl::LoopbackTrigger(const loopback_trigger& trigger) const {
  client_server::OpLoopbackTriggerMsg message;
  message.set_md_name(trigger.md_name);
  message.set_ma_name(trigger.ma_name);
  message.set_trigger_id(trigger.trigger_id);
  message.set_mep_id(trigger.mep_id);
  message.set_target_mep_id(trigger.target_mep_id);
  message.set_lb_param_1(trigger.lb_param_1);
  message.set_lb_param_2(trigger.lb_param_2);
  SendTraced("LoopbackTrigger", CFM_MGR_C2S_SIG_LB_TRIGGER, message);
}

void ClientImpl::HandleLoopbackTriggerError(vorbus_t* /*token*/, void* user, const vorbus_pid_t* /*sender*/, void* data,
                                            std::size_t size) {
  ClientImpl& client = ClientOf(user);
  const auto message = Received<client_server::OpLoopbackTriggerError>(data, size);
  CFM_LOG(client.log_category_, kLogTrace, "HandleLoopbackTriggerError", "Loopback trigger error received: %u",
          message.error_code());
  if (client.loopback_handler_ != nullptr) {
    client.loopback_handler_->OnLoopbackTriggerError(message.trigger_id(), message.error_code(), message.md_name(),
                                                     message.ma_name(), Low16(message.mep_id()),
                                                     Low16(message.target_mep_id()));
  }
}

void ClientImpl::HandleLoopbackStarted(vorbus_t* /*token*/, void* user, void* data, std::size_t size) {
  ClientImpl& client = ClientOf(user);
  const auto message = Received<client_server::OpLoopbackStarted>(data, size);
  const st_mac target_mac = MacOf(message.target_mac());
  CFM_LOG(client.log_category_, kLogTrace, "HandleLoopbackStarted", "Loopback started: target MAC is %s.",
          target_mac.to_string().c_str());
  if (client.loopback_handler_ != nullptr) {
    client.loopback_handler_->OnLoopbackStarted(message.trigger_id(), target_mac);
  }
}

void ClientImpl::HandleLoopbackReplyRx(vorbus_t* /*token*/, void* user, void* data, std::size_t size) {
  ClientImpl& client = ClientOf(user);
  const auto message = Received<client_server::OpLoopbackReplyRx>(data, size);
  const st_mac source_mac = MacOf(message.source_mac());
  CFM_LOG(client.log_category_, kLogTrace, "HandleLoopbackReplyRx", "Loopback reply received: transaction %u, MAC %s",
          message.transaction_id(), source_mac.to_string().c_str());
  if (client.loopback_handler_ != nullptr) {
    client.loopback_handler_->OnLoopbackReply(message.trigger_id(), message.transaction_id(), source_mac);
  }
}

void ClientImpl::HandleLoopbackEnded(vorbus_t* /*token*/, void* user, void* data, std::size_t size) {
  ClientImpl& client = ClientOf(user);
  const auto message = Received<client_server::OpLoopbackEnded>(data, size);
  CFM_LOG(client.log_category_, kLogTrace, "HandleLoopbackEnded",
          "Loopback ended received: expected %lu replies. Received: %lu in-order, %lu out-of-order, %lu with wrong "
          "payload.",
          message.expected(), message.in_order(), message.out_of_order(), message.wrong_payload());
  if (client.loopback_handler_ != nullptr) {
    client.loopback_handler_->OnLoopbackEnded(message.trigger_id(), message.expected(), message.in_order(),
                                              message.out_of_order(), message.wrong_payload());
  }
}

}  // namespace cfm
