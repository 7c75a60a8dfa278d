// The facade: forwards every operation to the implementation that it owns.
#include "cfm/client.h"

#include "client_impl.h"

namespace cfm {

Client::Client(vorbus_t* token) : impl_(new ClientImpl(token)) {}

Client::~Client() {
  delete impl_;
}

void Client::RegisterStatusHandler(ReceivedStatusHandlerIntf* handler) {
  impl_->RegisterStatusHandler(handler);
}

void Client::RegisterStatisticsHandler(ReceivedStatisticsHandlerIntf* handler) {
  impl_->RegisterStatisticsHandler(handler);
}

void Client::RegisterLinktraceHandler(ReceivedLinktraceHandlerIntf* handler) {
  impl_->RegisterLinktraceHandler(handler);
}

void Client::RegisterLoopbackHandler(ReceivedLoopbackHandlerIntf* handler) {
  impl_->RegisterLoopbackHandler(handler);
}

void Client::RegisterDelayMeasurementHandler(ReceivedDelayMeasurementHandlerIntf* handler) {
  impl_->RegisterDelayMeasurementHandler(handler);
}

void Client::UpdateConfig(const hierarchy& desired) {
  impl_->UpdateConfig(desired);
}

void Client::UpdateConfigProbe(const probe& desired) {
  impl_->UpdateConfigProbe(desired);
}

void Client::RequestStatistics() const {
  impl_->RequestStatistics();
}

void Client::ClearStatistics(const char* md, const char* ma, unsigned short mep) const {
  impl_->ClearStatistics(md, ma, mep);
}

void Client::LinktraceTrigger(const linktrace_trigger& trigger) {
  impl_->LinktraceTrigger(trigger);
}

void Client::LoopbackTrigger(const loopback_trigger& trigger) {
  impl_->LoopbackTrigger(trigger);
}

void Client::DelayMeasurementTrigger(const delay_measurement_trigger& trigger) {
  impl_->DelayMeasurementTrigger(trigger);
}

}  // namespace cfm
