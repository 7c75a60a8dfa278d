// Linktrace: the request, its progress and its refusal. Progress goes to the status handler and the linktrace handler.
#include <memory>

#include "client_impl.h"
#include "client_impl/linktrace_reply.h"
#include "client_impl/log.h"
#include "client_impl/receive.h"
#include "client_server.pb.h"

namespace cfm {

void ClientImpl::LinktraceTrigger(const linktrace_trigger& trigger) {
  CFM_LOG(log_category_, kLogTrace, "LinktraceTrigger",
          "LinktraceTrigger implementation. Lets prepare the protobuf msg.");
  client_server::OpLinktraceTriggerMsg message;
  client_server::OpLinktraceTriggerKey& key = *message.mutable_key();
  key.set_md_name(trigger.md_name);
  key.set_ma_name(trigger.ma_name);
  key.set_trigger_id(trigger.trigger_id);
  key.set_mep_id(trigger.mep_id);
  key.set_target_mep_id(trigger.target_mep_id);
  message.set_ttl(trigger.ttl);
  SendTraced("LinktraceTrigger", CFM_MGR_C2S_SIG_LT_TRIGGER, message);
}

void ClientImpl::HandleMepLinktraceStarted(vorbus_t* /*token*/, void* user, void* data, std::size_t size) {
  ClientImpl& client = ClientOf(user);
  client_server::OpLinktraceStarted message;
  if (!Receive(data, size, message)) {
    Fatal("HandleMepLinktraceStarted", __LINE__, "Can't deserialize OpLinktraceStarted message");
  }
  const st_mac target_mac = MacOf(message.target_mac());
  CFM_LOG(client.log_category_, kLogDump, "HandleMepLinktraceStarted",
          "\nStarted linktrace transaction %u: MD %s MA %s LMEP %d Remote MAC %s RMEP %d", message.transaction_id(),
          message.md_name().c_str(), message.ma_name().c_str(), message.mep_id(), target_mac.to_string().c_str(),
          message.target_mep_id());
  const auto notify = [&](auto* handler) {
    if (handler != nullptr) {
      handler->OnLinktraceStarted(message.md_name(), message.ma_name(), Low16(message.mep_id()),
                                  message.transaction_id(), target_mac, Low16(message.target_mep_id()),
                                  message.has_optional_value(), message.optional_value());
    }
  };
  notify(client.status_handler_);
  notify(client.linktrace_handler_);
}

void ClientImpl::HandleMepLinktraceEnded(vorbus_t* /*token*/, void* user, void* data, std::size_t size) {
  ClientImpl& client = ClientOf(user);
  client_server::OpLinktraceEnded message;
  if (!Receive(data, size, message)) {
    Fatal("HandleMepLinktraceEnded", __LINE__, "Can't deserialize OpLinktraceEnded message");
  }
  CFM_LOG(client.log_category_, kLogDump, "HandleMepLinktraceEnded",
          "\nEnded linktrace transaction %u: MD %s MA %s LMEP %d", message.transaction_id(), message.md_name().c_str(),
          message.ma_name().c_str(), message.mep_id());
  const auto notify = [&](auto* handler) {
    if (handler != nullptr) {
      handler->OnLinktraceEnded(message.md_name(), message.ma_name(), Low16(message.mep_id()),
                                message.transaction_id());
    }
  };
  notify(client.status_handler_);
  notify(client.linktrace_handler_);
}

void ClientImpl::HandleMepLinktraceReplyRx(vorbus_t* /*token*/, void* user, void* data, std::size_t size) {
  ClientImpl& client = ClientOf(user);
  client_server::OpLinktraceReplyRx message;
  if (!Receive(data, size, message)) {
    Fatal("HandleMepLinktraceReplyRx", __LINE__, "Can't deserialize OpLinktraceReplyRx message");
  }
  const std::shared_ptr<const LinktraceReplyEntry> entry = LinktraceReplyFrom(message.reply());
  if (zlog_level_enabled(client.log_category_, kLogDump) != 0) {
    CFM_LOG(client.log_category_, kLogDump, "HandleMepLinktraceReplyRx",
            "\nLinktrace reply for MD %s MA %s LMEP %d: %s", message.md_name().c_str(), message.ma_name().c_str(),
            message.mep_id(), LinktraceReplyEntry::Show(*entry, 0).c_str());
  }
  const auto notify = [&](auto* handler) {
    if (handler != nullptr) {
      handler->OnLinktraceReply(message.md_name(), message.ma_name(), Low16(message.mep_id()), *entry);
    }
  };
  notify(client.status_handler_);
  notify(client.linktrace_handler_);
}

void ClientImpl::HandleLinktraceTriggerError(vorbus_t* /*token*/, void* user, const vorbus_pid_t* /*sender*/,
                                             void* data, std::size_t size) {
  ClientImpl& client = ClientOf(user);
  CFM_LOG(client.log_category_, kLogTrace, "HandleLinktraceTriggerError", "Linktrace trigger error received");
  if (client.linktrace_handler_ == nullptr) {
    return;
  }
  const auto message = Received<client_server::OpLinktraceTriggerError>(data, size);
  linktrace_trigger trigger{};
  trigger.trigger_id = message.key().trigger_id();
  trigger.md_name = message.key().md_name();
  trigger.ma_name = message.key().ma_name();
  trigger.mep_id = Low16(message.key().mep_id());
  trigger.target_mep_id = Low16(message.key().target_mep_id());
  trigger.ttl = Low8(message.ttl());
  client.linktrace_handler_->OnLinktraceTriggerError(trigger);
}

}  // namespace cfm
