// On-demand delay measurement: the request, its reports and its refusal.
#include "client_impl.h"
#include "client_impl/log.h"
#include "client_impl/receive.h"
#include "client_server.pb.h"

namespace cfm {

void ClientImpl::DelayMeasurementTrigger(const delay_measurement_trigger& trigger) const {
  client_server::OpDelayMeasurementTriggerMsg message;
  message.set_md_name(trigger.md_name);
  message.set_ma_name(trigger.ma_name);
  message.set_trigger_id(trigger.trigger_id);
  message.set_mep_id(trigger.mep_id);
  message.set_target_mep_id(trigger.target_mep_id);
  message.set_dm_param_1(trigger.dm_param_1);
  message.set_dm_param_2(trigger.dm_param_2);
  message.set_dm_param_3(trigger.dm_param_3);
  message.set_dm_param_4(trigger.dm_param_4);
  SendTraced("DelayMeasurementTrigger", CFM_MGR_C2S_SIG_DM_TRIGGER, message);
}

void ClientImpl::HandleDelayMeasurementTriggerError(vorbus_t* /*token*/, void* user, const vorbus_pid_t* /*sender*/,
                                                    void* data, std::size_t size) {
  ClientImpl& client = ClientOf(user);
  const auto message = Received<client_server::OpDelayMeasurementTriggerError>(data, size);
  CFM_LOG(client.log_category_, kLogTrace, "HandleDelayMeasurementTriggerError",
          "Delay Measurement trigger error received: %u", message.error_code());
  if (client.delay_measurement_handler_ != nullptr) {
    client.delay_measurement_handler_->OnDelayMeasurementTriggerError(
        message.trigger_id(), message.error_code(), message.md_name(), message.ma_name(), Low16(message.mep_id()),
        Low16(message.target_mep_id()));
  }
}

void ClientImpl::HandleDelayMeasurementStarted(vorbus_t* /*token*/, void* user, void* data, std::size_t size) {
  ClientImpl& client = ClientOf(user);
  const auto message = Received<client_server::OpDelayMeasurementStarted>(data, size);
  const st_mac target_mac = MacOf(message.target_mac());
  CFM_LOG(client.log_category_, kLogTrace, "HandleDelayMeasurementStarted",
          "Delay Measurement started: target MAC is %s.", target_mac.to_string().c_str());
  if (client.delay_measurement_handler_ != nullptr) {
    client.delay_measurement_handler_->OnDelayMeasurementStarted(message.trigger_id(), target_mac);
  }
}

void ClientImpl::HandleDelayMeasurementReplyRx(vorbus_t* /*token*/, void* user, void* data, std::size_t size) {
  ClientImpl& client = ClientOf(user);
  const auto message = Received<client_server::OpDelayMeasurementReplyRx>(data, size);
  const st_mac source_mac = MacOf(message.source_mac());
  CFM_LOG(client.log_category_, kLogTrace, "HandleDelayMeasurementReplyRx", "Delay Measurement reply received: MAC %s",
          source_mac.to_string().c_str());
  if (client.delay_measurement_handler_ != nullptr) {
    client.delay_measurement_handler_->OnDelayMeasurementReply(message.trigger_id(), source_mac);
  }
}

void ClientImpl::HandleDelayMeasurementEnded(vorbus_t* /*token*/, void* user, void* data, std::size_t size) {
  ClientImpl& client = ClientOf(user);
  const auto message = Received<client_server::OpDelayMeasurementEnded>(data, size);
  CFM_LOG(client.log_category_, kLogTrace, "HandleDelayMeasurementEnded", "Delay Measurement ended: rx: %lu, tx: %lu.",
          message.rx_count(), message.tx_count());
  if (client.delay_measurement_handler_ != nullptr) {
    client.delay_measurement_handler_->OnDelayMeasurementEnded(
        message.trigger_id(), message.rx_count(), message.tx_count(), message.dm_result_1(), message.dm_result_2(),
        message.dm_result_3(), message.dm_result_4(), message.dm_result_5(), message.dm_result_6(),
        message.dm_result_7());
  }
}

}  // namespace cfm
