#include "engine/messages.h"

#include <chrono>
#include <cstdio>
#include <string>

namespace cfm::engine {
namespace {

namespace pb = client_server;

std::string ToField(pdu::Octets octets) {
  return {octets.begin(), octets.end()};
}

// As in the frame.
std::string ToField(std::uint16_t value) {
  return {static_cast<char>(value >> 8U), static_cast<char>(value & 0xffU)};
}

template <typename Message>
void SetNames(const contract::EndpointKey& mep, Message& message) {
  message.set_md_name(mep.md_name);
  message.set_ma_name(mep.ma_name);
}

void Fill(const pdu::EgressIdentifier& identifier, pb::EgressId& message) {
  message.set_mac(ToField(identifier.address));
  message.set_unique_id(ToField(identifier.unique_id));
}

void Fill(const pdu::ReplyPort& port, pb::LtrReplyEgressIngress& message) {
  message.set_mac(ToField(port.address));
  message.set_action(static_cast<std::uint32_t>(port.action));
  pb::PortId& id = *message.mutable_port_id();
  id.set_present(!port.port_id.empty());
  id.set_subtype(port.port_id.empty() ? 0 : port.port_subtype);
  id.set_value(ToField(port.port_id));
}

double Microseconds(protocol::Duration duration) {
  return std::chrono::duration<double, std::micro>(duration).count();
}

}  // namespace

std::string ToField(const pdu::MacAddress& address) {
  return ToField(pdu::Octets(address));
}

pb::StatusLocalMaintenanceEndpoint ToMessage(const contract::EndpointKey& mep, const protocol::LocalStatus& status) {
  pb::StatusLocalMaintenanceEndpoint message;
  SetNames(mep, message);
  message.set_mac(ToField(status.mac));
  message.set_local_mep_id(mep.mep_id);
  message.set_highest_defect(static_cast<std::uint32_t>(status.highest_defect));
  message.set_intf_status(static_cast<std::uint32_t>(status.interface_status));
  message.set_port_state(static_cast<std::uint32_t>(status.port_status));
  message.set_block_state(status.action_in_force == protocol::FaultAction::kBlock ? 1 : 0);
  message.set_shutdown_state(status.action_in_force == protocol::FaultAction::kShutdown ? 1 : 0);
  message.set_rdi(status.rdi);
  message.set_defect_mac_status(status.defects.mac_status);
  message.set_defect_remote_ccm(status.defects.remote_ccm);
  message.set_defect_error_ccm(status.defects.error_ccm);
  message.set_defect_xcon_ccm(status.defects.xcon_ccm);
  message.set_defect_rdi(status.defects.rdi);
  message.set_defect_ais(status.defects.ais);
  return message;
}

pb::StatusRemoteMaintenanceEndpoint ToMessage(const contract::EndpointKey& mep, std::uint16_t remote_mep_id,
                                              const protocol::RemoteStatus& status) {
  using Ticks = std::chrono::duration<std::uint64_t, std::centi>;
  pb::StatusRemoteMaintenanceEndpoint message;
  SetNames(mep, message);
  message.set_mac(ToField(status.mac));
  message.set_sender_id(status.sender_id);
  message.set_local_mep_id(mep.mep_id);
  message.set_remote_mep_id(remote_mep_id);
  message.set_fsm_state(static_cast<std::uint32_t>(status.state));
  message.set_port_state(static_cast<std::uint32_t>(status.port_status));
  message.set_intf_status(static_cast<std::uint32_t>(status.interface_status));
  message.set_rdi(status.rdi);
  message.set_last_change_uptime(std::chrono::floor<Ticks>(status.last_change.time_since_epoch()).count());
  return message;
}

pb::RemovedLocalMaintenanceEndpoint Removed(const contract::EndpointKey& mep) {
  pb::RemovedLocalMaintenanceEndpoint message;
  SetNames(mep, message);
  message.set_local_mep_id(mep.mep_id);
  return message;
}

pb::RemovedRemoteMaintenanceEndpoint Removed(const contract::EndpointKey& mep, std::uint16_t remote_mep_id) {
  pb::RemovedRemoteMaintenanceEndpoint message;
  SetNames(mep, message);
  message.set_local_mep_id(mep.mep_id);
  message.set_remote_mep_id(remote_mep_id);
  return message;
}

pb::OpLinktraceStarted LinktraceStarted(const contract::EndpointKey& mep, std::uint32_t transaction_id,
                                        const pdu::MacAddress& target, std::uint16_t target_mep_id, std::uint8_t ttl) {
  pb::OpLinktraceStarted message;
  SetNames(mep, message);
  message.set_target_mac(ToField(target));
  message.set_mep_id(mep.mep_id);
  message.set_transaction_id(transaction_id);
  message.set_target_mep_id(target_mep_id);
  message.set_optional_value(ttl);
  return message;
}

pb::OpLinktraceReplyRx ToMessage(const contract::EndpointKey& mep, const pdu::EthernetHeader& header,
                                 const pdu::Ltr& reply) {
  pb::OpLinktraceReplyRx message;
  SetNames(mep, message);
  message.set_mep_id(mep.mep_id);
  pb::LinktraceReply& ltr = *message.mutable_reply();
  ltr.set_destination_mac(ToField(header.destination));
  ltr.set_source_mac(ToField(header.source));
  ltr.mutable_flags()->set_terminal_mep(reply.terminal_mep);
  ltr.mutable_flags()->set_forwarded(reply.forwarded);
  ltr.mutable_flags()->set_use_fdb_only(reply.use_fdb_only);
  const pdu::LtrEgressIdentifiers identifiers = reply.egress_identifiers.value_or(pdu::LtrEgressIdentifiers{});
  Fill(identifiers.last, *ltr.mutable_egress_id()->mutable_last());
  Fill(identifiers.next, *ltr.mutable_egress_id()->mutable_next());
  if (reply.ingress) Fill(*reply.ingress, *ltr.mutable_reply_ingress());
  if (reply.egress) Fill(*reply.egress, *ltr.mutable_reply_egress());
  ltr.set_transaction_id(reply.transaction_id);
  ltr.set_vlan(header.outer ? header.outer->vid : 0);
  ltr.set_priority(header.outer ? header.outer->priority : 0);
  ltr.set_level(reply.level);
  ltr.set_ttl(reply.ttl);
  ltr.set_relay_action(static_cast<std::uint32_t>(reply.relay_action));
  if (header.inner) {
    ltr.set_internal_vlan(header.inner->vid);
    ltr.set_internal_priority(header.inner->priority);
  }
  return message;
}

pb::OpLinktraceEnded LinktraceEnded(const contract::EndpointKey& mep, std::uint32_t transaction_id) {
  pb::OpLinktraceEnded message;
  SetNames(mep, message);
  message.set_mep_id(mep.mep_id);
  message.set_transaction_id(transaction_id);
  return message;
}

pb::OpLoopbackEnded ToMessage(std::uint32_t trigger_id, const protocol::LoopbackResult& result) {
  pb::OpLoopbackEnded message;
  message.set_expected(result.expected);
  message.set_in_order(result.in_order);
  message.set_out_of_order(result.out_of_order);
  message.set_wrong_payload(result.wrong_payload);
  message.set_trigger_id(trigger_id);
  return message;
}

pb::OpDelayMeasurementEnded ToMessage(std::uint32_t trigger_id, const protocol::DelayResult& result) {
  pb::OpDelayMeasurementEnded message;
  message.set_rx_count(result.received);
  message.set_tx_count(result.sent);
  message.set_dm_result_1(Microseconds(result.delay.min));
  message.set_dm_result_2(result.delay.mean_us);
  message.set_dm_result_3(Microseconds(result.delay.max));
  message.set_dm_result_4(Microseconds(result.variation.min));
  message.set_dm_result_5(result.variation.mean_us);
  message.set_dm_result_6(Microseconds(result.variation.max));
  message.set_dm_result_7(result.data_octets);
  message.set_trigger_id(trigger_id);
  return message;
}

pb::OpDelayMeasurementSessionEnded ToMessage(const protocol::SessionReport& report) {
  const protocol::DelayResult& result = report.result;
  pb::OpDelayMeasurementSessionEnded message;
  message.set_report_u32_1(report.probe_id);
  message.set_report_u32_2(report.session_id);
  message.set_report_flag(report.complete ? 1 : 0);
  message.set_report_u32_3(report.local_mep_id);
  message.set_report_u32_4(report.remote_mep_id);
  message.set_report_u32_5(result.sent);
  message.set_report_u32_6(result.received);
  message.set_report_u32_7(result.sent - result.received);
  message.set_report_u32_8(report.run);
  message.set_report_double_1(result.delay.mean_us);
  message.set_report_double_2(result.delay.deviation_us);
  message.set_report_u32_9(protocol::ToMicroseconds(result.delay.min));
  message.set_report_u32_10(protocol::ToMicroseconds(result.delay.max));
  message.set_report_u32_11(protocol::ToMicroseconds(result.delay.median));
  message.set_report_u32_12(protocol::ToMicroseconds(result.delay.percentile95));
  message.set_report_u32_13(protocol::ToMicroseconds(result.delay.percentile99));
  message.set_report_u32_14(
      static_cast<std::uint32_t>(std::chrono::floor<std::chrono::seconds>(report.started_at).count()));
  message.set_report_double_3(result.variation.mean_us);
  message.set_report_double_4(result.variation.deviation_us);
  return message;
}

std::string ToText(const pdu::MacAddress& address) {
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", address[0], address[1], address[2], address[3],
                address[4], address[5]);
  return text;
}

std::string ToText(const protocol::OffendingCcm& offender) {
  return std::string(ToText(offender.reason)) + ": from " + ToText(offender.source) + ", level " +
         std::to_string(offender.level) + ", MEP id " + std::to_string(offender.mep_id) + ", interval code " +
         std::to_string(offender.interval);
}

}  // namespace cfm::engine
