// Attaching to the middleware, following the server's presence, detaching; handler registration.
#include <algorithm>
#include <cstdlib>

#include "client_impl.h"
#include "client_impl/log.h"
#include "client_impl/receive.h"

namespace cfm {

void Fatal(const char* function, int line, std::string_view text) {
  vorbus_print_backtrace();
  vorbus_fault_t fault{};
  std::copy_n(text.data(), std::min(text.size(), sizeof(fault.text) - 1), fault.text);
  vorbus_gen_fault(1, function, kSourceFile.data(), line, &fault);
  std::exit(1);
}

ClientImpl::ClientImpl(vorbus_t* token) : token_(token) {
  if (token == nullptr) {
    Fatal("ClientImpl", __LINE__, "CFM manager client: invalid vorbus token");
  }
  // The middleware never calls back from inside the subscription, so the category may come after it.
  server_subscription_ = vorbus_proc_subscribe(token_, CFM_MGR_PROCESS, ServerFound, ServerLost, this);
  log_category_ = vorbus_trace_init(token_, "cfm-mgr");
  if (log_category_ == nullptr) {
    Fatal("ClientImpl", __LINE__, "");
  }
  CFM_LOG(log_category_, kLogTrace, "ClientImpl", "CFM Manager client was initialized");
  RegisterSignalHandlers();
}

ClientImpl::~ClientImpl() {
  vorbus_proc_unsubscribe(&server_subscription_);
  for (vorbus_registration_t*& registration : signal_registrations_) {
    if (registration != nullptr) {
      vorbus_sig_deregister(&registration);
    }
  }
  for (vorbus_eventreg_t*& registration : event_registrations_) {
    if (registration != nullptr) {
      vorbus_event_deregister(&registration);
    }
  }
  CFM_LOG(log_category_, kLogTrace, "~ClientImpl", "CFM Manager client was finished");
}

void ClientImpl::RegisterSignalHandlers() {
  const auto on_signal = [this](const vorbus_sig_t* signal, vorbus_sig_fn handler) {
    signal_registrations_.push_back(vorbus_sig_register_sized(token_, signal, handler, this));
  };
  on_signal(CFM_MGR_S2C_SIG_CACHE_REPLY, ReqCacheReply);
  on_signal(CFM_MGR_S2C_SIG_STATS_REPLY, ReqStatsReply);
  on_signal(CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR, HandleLinktraceTriggerError);
  on_signal(CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR, HandleLoopbackTriggerError);
  on_signal(CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR, HandleDelayMeasurementTriggerError);

  const auto on_event = [this](const vorbus_event_t* event, vorbus_event_fn handler) {
    event_registrations_.push_back(vorbus_event_register_sized(token_, event, handler, this));
  };
  on_event(CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP, HandleStatusLocalMep);
  on_event(CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP, HandleStatusRemoteMep);
  on_event(CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP, HandleRemovedLocalMep);
  on_event(CFM_MGR_SRV_EVENT_REMOVED_REMOTE_MEP, HandleRemovedRemoteMep);
  on_event(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, HandleMepLinktraceStarted);
  on_event(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED, HandleMepLinktraceEnded);
  on_event(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, HandleMepLinktraceReplyRx);
  on_event(CFM_MGR_SRV_EVENT_LOOPBACK_STARTED, HandleLoopbackStarted);
  on_event(CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX, HandleLoopbackReplyRx);
  on_event(CFM_MGR_SRV_EVENT_LOOPBACK_ENDED, HandleLoopbackEnded);
  on_event(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED, HandleDelayMeasurementStarted);
  on_event(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX, HandleDelayMeasurementReplyRx);
  on_event(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_ENDED, HandleDelayMeasurementEnded);
  on_event(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED, HandleDelayMeasurementSessionEnded);
}

void ClientImpl::RegisterStatusHandler(ReceivedStatusHandlerIntf* handler) {
  status_handler_ = handler;
}

void ClientImpl::RegisterStatisticsHandler(ReceivedStatisticsHandlerIntf* handler) {
  statistics_handler_ = handler;
}

void ClientImpl::RegisterLinktraceHandler(ReceivedLinktraceHandlerIntf* handler) {
  linktrace_handler_ = handler;
}

void ClientImpl::RegisterLoopbackHandler(ReceivedLoopbackHandlerIntf* handler) {
  loopback_handler_ = handler;
}

void ClientImpl::RegisterDelayMeasurementHandler(ReceivedDelayMeasurementHandlerIntf* handler) {
  delay_measurement_handler_ = handler;
}

void ClientImpl::ServerFound(vorbus_t* /*token*/, const vorbus_pid_t* pid, void* user) {
  ClientImpl& client = ClientOf(user);
  CFM_LOG(client.log_category_, kLogTrace, "ServerFound", "CFM manager server found");
  client.server_pid_ = *pid;
  client.SendEmpty(CFM_MGR_C2S_SIG_CACHE_GET);
  if (client.status_handler_ != nullptr) {
    client.status_handler_->OnServerFound();
  }
}

void ClientImpl::ServerLost(vorbus_t* /*token*/, void* user) {
  ClientImpl& client = ClientOf(user);
  CFM_LOG(client.log_category_, kLogTrace, "ServerLost", "CFM manager server lost");
  client.server_pid_ = 0;
  client.cache_synced_ = false;
}

void ClientImpl::LogDeferred(std::string_view function) const {
  CFM_LOG(log_category_, kLogTrace, function, "Server unavailable, request will be handled later: pid %d sync %d",
          server_pid_, cache_synced_);
}

}  // namespace cfm
