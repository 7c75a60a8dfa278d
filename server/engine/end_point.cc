#include "engine/end_point.h"

#include <chrono>
#include <cinttypes>
#include <utility>

#include "cfm/identities.h"
#include "engine/messages.h"

namespace cfm::engine {

namespace pb = client_server;

namespace {

// Of an end point that does not work: there is no such interface for CFM.
protocol::LocalStatus StatusOfNothing() {
  protocol::LocalStatus status;
  status.interface_status = pdu::InterfaceStatus::kNotPresent;
  return status;
}

}  // namespace

void EndPoint::Refuse(Refusal refusal) {
  End();
  refusal_ = std::move(refusal);
  AnnounceStatus();
}

void EndPoint::Begin(const EndPointPlan& plan, port::Index link, const protocol::PortState& port,
                     protocol::TimePoint now) {
  End();
  refusal_.reset();
  plan_ = std::make_unique<EndPointPlan>(plan);
  link_ = link;
  mep_ = std::make_unique<protocol::Mep>(plan.identity, plan.settings, port, *this, surroundings_.random, now);
}

void EndPoint::Update(const EndPointPlan& plan, protocol::TimePoint now) {
  *plan_ = plan;
  mep_->Update(plan.settings, now);
}

void EndPoint::SetPort(port::Index link, const protocol::PortState& port, protocol::TimePoint now) {
  link_ = link;
  mep_->SetPort(port, now);
}

void EndPoint::End() {
  if (!mep_) return;
  mep_->Remove();
  mep_.reset();
  plan_.reset();
  link_ = 0;
}

void EndPoint::AnnounceStatus() {
  mep_ ? mep_->TellStatus() : LocalStatusChanged(StatusOfNothing());
}

bool EndPoint::Send(const protocol::OutgoingFrame& frame) {
  return link_ != 0 && mep_ && points_.Send(*mep_, frame);
}

void EndPoint::RemoteStatusChanged(std::uint16_t mep_id, const protocol::RemoteStatus& status) {
  surroundings_.announcer.Announce(CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP, ToMessage(key_, mep_id, status));
}

void EndPoint::RemoteRemoved(std::uint16_t mep_id) {
  surroundings_.announcer.Announce(CFM_MGR_SRV_EVENT_REMOVED_REMOTE_MEP, Removed(key_, mep_id));
}

void EndPoint::LocalStatusChanged(const protocol::LocalStatus& status) {
  surroundings_.announcer.Announce(CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP, ToMessage(key_, status));
}

void EndPoint::FaultActionChanged(protocol::FaultAction action) {
  fault_actions_.FaultActionChanged(*this, action);
}

void EndPoint::CcmWasLate(std::uint64_t late) {
  const auto held_back = surroundings_.late_lines.Allow(std::chrono::steady_clock::now());
  if (!held_back) return;
  const std::string others = *held_back == 0 ? "" : "; held back lines like this: " + std::to_string(*held_back);
  zlog_warn(surroundings_.log, "%s: a CCM left more than 1.5 intervals after the one before, %" PRIu64 " in all%s",
            contract::ToText(key_).c_str(), late, others.c_str());
}

void EndPoint::CcmDefectBegan(const protocol::OffendingCcm& offender) {
  if (!defect_lines_.Allow(std::chrono::steady_clock::now())) return;
  zlog_warn(surroundings_.log, "%s: a CCM of %s", contract::ToText(key_).c_str(), ToText(offender).c_str());
}

void EndPoint::LoopbackStarted(std::uint32_t trigger_id, const pdu::MacAddress& target) {
  pb::OpLoopbackStarted message;
  message.set_trigger_id(trigger_id);
  message.set_target_mac(ToField(target));
  surroundings_.announcer.Announce(CFM_MGR_SRV_EVENT_LOOPBACK_STARTED, message);
}

void EndPoint::LoopbackReply(std::uint32_t trigger_id, std::uint32_t transaction_id, const pdu::MacAddress& source) {
  pb::OpLoopbackReplyRx message;
  message.set_trigger_id(trigger_id);
  message.set_transaction_id(transaction_id);
  message.set_source_mac(ToField(source));
  surroundings_.announcer.Announce(CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX, message);
}

void EndPoint::LoopbackEnded(std::uint32_t trigger_id, const protocol::LoopbackResult& result) {
  surroundings_.announcer.Announce(CFM_MGR_SRV_EVENT_LOOPBACK_ENDED, ToMessage(trigger_id, result));
}

void EndPoint::LinktraceStarted(std::uint32_t transaction_id, const pdu::MacAddress& target,
                                std::uint16_t target_mep_id, std::uint8_t ttl) {
  surroundings_.announcer.Announce(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED,
                                   engine::LinktraceStarted(key_, transaction_id, target, target_mep_id, ttl));
}

void EndPoint::LinktraceReply(const pdu::EthernetHeader& header, const pdu::Ltr& reply) {
  surroundings_.announcer.Announce(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, ToMessage(key_, header, reply));
}

void EndPoint::LinktraceEnded(std::uint32_t transaction_id) {
  surroundings_.announcer.Announce(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED, engine::LinktraceEnded(key_, transaction_id));
}

void EndPoint::DelayMeasurementStarted(std::uint32_t trigger_id, const pdu::MacAddress& target) {
  pb::OpDelayMeasurementStarted message;
  message.set_trigger_id(trigger_id);
  message.set_target_mac(ToField(target));
  surroundings_.announcer.Announce(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED, message);
}

void EndPoint::DelayMeasurementReply(std::uint32_t trigger_id, const pdu::MacAddress& source) {
  pb::OpDelayMeasurementReplyRx message;
  message.set_trigger_id(trigger_id);
  message.set_source_mac(ToField(source));
  surroundings_.announcer.Announce(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX, message);
}

void EndPoint::DelayMeasurementEnded(std::uint32_t trigger_id, const protocol::DelayResult& result) {
  if (result.without_stamps != 0) {
    zlog_warn(surroundings_.log, "%s: %u of %u delays hold the way through this host, for want of the kernel's stamps",
              contract::ToText(key_).c_str(), result.without_stamps, result.received);
  }
  surroundings_.announcer.Announce(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_ENDED, ToMessage(trigger_id, result));
}

void EndPoint::SessionEnded(const protocol::SessionReport& report) {
  surroundings_.announcer.Announce(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED, ToMessage(report));
}

}  // namespace cfm::engine
