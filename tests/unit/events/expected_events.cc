#include "expected_events.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "noting_handlers.h"

namespace recording {

namespace {

namespace pb = client_server;

[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  std::string text(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, format, arguments)), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  va_end(arguments);
  return text;
}

int AsInt(std::uint32_t value) {
  return static_cast<int>(value);
}

std::uint16_t Low16(std::uint32_t value) {
  return static_cast<std::uint16_t>(value & 0xffffU);
}

std::uint8_t Low8(std::uint32_t value) {
  return static_cast<std::uint8_t>(value & 0xffU);
}

std::string UpperMac(std::string_view field) {
  const cfm::st_mac mac = MacOf(field);
  return Format("%02X:%02X:%02X:%02X:%02X:%02X", mac.octets[0], mac.octets[1], mac.octets[2], mac.octets[3],
                mac.octets[4], mac.octets[5]);
}

std::string LowerMac(std::string_view field) {
  const cfm::st_mac mac = MacOf(field);
  return Format("%02x:%02x:%02x:%02x:%02x:%02x", mac.octets[0], mac.octets[1], mac.octets[2], mac.octets[3],
                mac.octets[4], mac.octets[5]);
}

std::uint16_t RawPair(std::string_view field) {
  std::uint16_t value = 0;
  std::memcpy(&value, field.data(), std::min(field.size(), sizeof(value)));
  return value;
}

std::unique_ptr<cfm::LtrReplyPortEntry> Port(bool present, const pb::LtrReplyEgressIngress& message) {
  if (!present) {
    return nullptr;
  }
  auto port = std::make_unique<cfm::LtrReplyPortEntry>();
  port->action = Low8(message.action());
  port->mac = MacOf(message.mac());
  port->port_id_present = message.port_id().present();
  port->port_id_subtype = Low8(message.port_id().subtype());
  port->port_id = message.port_id().value();
  return port;
}

void Fill(cfm::LinktraceReplyEntry& entry, const pb::LinktraceReply& reply) {
  entry.destination_mac = MacOf(reply.destination_mac());
  entry.source_mac = MacOf(reply.source_mac());
  entry.vlan = Low16(reply.vlan());
  entry.priority = Low8(reply.priority());
  entry.internal_vlan = reply.has_internal_vlan() ? Low16(reply.internal_vlan()) : std::uint16_t{0};
  entry.internal_priority = reply.has_internal_vlan() ? Low8(reply.internal_priority()) : std::uint8_t{0};
  entry.level = Low8(reply.level());
  entry.terminal_mep = reply.flags().terminal_mep();
  entry.forwarded = reply.flags().forwarded();
  entry.use_fdb_only = reply.flags().use_fdb_only();
  entry.transaction_id = reply.transaction_id();
  entry.ttl = Low8(reply.ttl());
  entry.relay_action = reply.relay_action();
  entry.egress_id = std::make_unique<cfm::LtrEgressIdEntry>();
  entry.egress_id->last_mac = MacOf(reply.egress_id().last().mac());
  entry.egress_id->last_unique_id = RawPair(reply.egress_id().last().unique_id());
  entry.egress_id->next_mac = MacOf(reply.egress_id().next().mac());
  entry.egress_id->next_unique_id = RawPair(reply.egress_id().next().unique_id());
  entry.reply_ingress = Port(reply.has_reply_ingress(), reply.reply_ingress());
  entry.reply_egress = Port(reply.has_reply_egress(), reply.reply_egress());
}

}  // namespace

cfm::st_mac MacOf(std::string_view field) {
  cfm::st_mac mac{};
  std::copy_n(field.begin(), std::min(field.size(), sizeof(mac.octets)), mac.octets);
  return mac;
}

Journal Expected(const pb::StatusLocalMaintenanceEndpoint& message) {
  cfm::st_local_mep_status status{};
  status.mac = MacOf(message.mac());
  status.rdi = message.rdi();
  status.intf_status = Low8(message.intf_status());
  status.port_state = message.port_state();
  status.block_state = message.block_state();
  status.shutdown_state = message.shutdown_state();
  status.highest_defect = message.highest_defect();
  status.defect_rdi = message.defect_rdi();
  status.defect_mac_status = message.defect_mac_status();
  status.defect_remote_ccm = message.defect_remote_ccm();
  status.defect_error_ccm = message.defect_error_ccm();
  status.defect_xcon_ccm = message.defect_xcon_ccm();
  status.defect_ais = message.defect_ais();
  return {
      Logged(11, "HandleStatusLocalMep",
             Format("\nLOCAL MEP status:\n   MD %s MA %s LMEP %d\n   MAC %s\n"
                    "   Local RDI %d Local PortState %d Local IntfStatus %d\n"
                    "   Local BlockState %d Local ShutdownState %d\n   Highest defect prio present: %d\n"
                    "   Defects:\n     MAC status:       %d\n     Missing CCMs:     %d\n"
                    "     CCM with errors:  %d\n     Cross-connection: %d\n     RDI:              %d\n"
                    "     AIS:              %d\n",
                    message.md_name().c_str(), message.ma_name().c_str(), AsInt(message.local_mep_id()),
                    UpperMac(message.mac()).c_str(), message.rdi() ? 1 : 0, AsInt(message.port_state()),
                    AsInt(message.intf_status()), AsInt(message.block_state()), AsInt(message.shutdown_state()),
                    AsInt(message.highest_defect()), message.defect_mac_status() ? 1 : 0,
                    message.defect_remote_ccm() ? 1 : 0, message.defect_error_ccm() ? 1 : 0,
                    message.defect_xcon_ccm() ? 1 : 0, message.defect_rdi() ? 1 : 0, message.defect_ais() ? 1 : 0)),
      Called("status.OnLocalMepStatus", message.md_name(), message.ma_name(), Low16(message.local_mep_id()), status)};
}

Journal Expected(const pb::StatusRemoteMaintenanceEndpoint& message) {
  cfm::st_remote_mep_status status{};
  status.fsm_state = message.fsm_state();
  status.last_change_uptime = message.last_change_uptime();
  status.mac = MacOf(message.mac());
  status.rdi = message.rdi();
  status.port_state = message.port_state();
  status.intf_status = Low8(message.intf_status());
  status.sender_id = message.sender_id();
  return {Logged(11, "HandleStatusRemoteMep",
                 Format("\nRemote MEP status:\n   MD %s MA %s LMEP %d RMEP %d\n   MAC %s\n   FSM state %d\n"
                        "   RDI %d PortState %d\n   IntfStatus %d Sender ID %s Last Change Uptime: %lu\n",
                        message.md_name().c_str(), message.ma_name().c_str(), AsInt(message.local_mep_id()),
                        AsInt(message.remote_mep_id()), UpperMac(message.mac()).c_str(), AsInt(message.fsm_state()),
                        message.rdi() ? 1 : 0, AsInt(message.port_state()), AsInt(message.intf_status()),
                        message.sender_id().c_str(), static_cast<unsigned long>(message.last_change_uptime()))),
          Called("status.OnRemoteMepStatus", message.md_name(), message.ma_name(), Low16(message.local_mep_id()),
                 Low16(message.remote_mep_id()), status)};
}

Journal Expected(const pb::RemovedLocalMaintenanceEndpoint& message) {
  return {Logged(11, "HandleRemovedLocalMep",
                 Format("\nLocal MEP removed: MD %s MA %s LMEP %d\n", message.md_name().c_str(),
                        message.ma_name().c_str(), AsInt(message.local_mep_id()))),
          Called("status.OnLocalMepRemoved", message.md_name(), message.ma_name(), Low16(message.local_mep_id()))};
}

Journal Expected(const pb::RemovedRemoteMaintenanceEndpoint& message) {
  return {Logged(11, "HandleRemovedRemoteMep",
                 Format("\nRemote MEP removed: MD %s MA %s LMEP %d RMEP %d\n", message.md_name().c_str(),
                        message.ma_name().c_str(), AsInt(message.local_mep_id()), AsInt(message.remote_mep_id()))),
          Called("status.OnRemoteMepRemoved", message.md_name(), message.ma_name(), Low16(message.local_mep_id()),
                 Low16(message.remote_mep_id()))};
}

Journal Expected(const pb::OpDelayMeasurementSessionEnded& message) {
  cfm::delay_measurement_session_report report{};
  report.report_u32_1 = message.report_u32_1();
  report.report_u32_2 = message.report_u32_2();
  report.report_flag = Low8(message.report_flag());
  report.report_u32_3 = message.report_u32_3();
  report.report_u32_4 = message.report_u32_4();
  report.report_u32_5 = message.report_u32_5();
  report.report_u32_6 = message.report_u32_6();
  report.report_u32_7 = message.report_u32_7();
  report.report_u32_8 = message.report_u32_8();
  report.report_double_1 = message.report_double_1();
  report.report_double_2 = message.report_double_2();
  report.report_u32_9 = message.report_u32_9();
  report.report_u32_10 = message.report_u32_10();
  report.report_u32_11 = message.report_u32_11();
  report.report_u32_12 = message.report_u32_12();
  report.report_u32_13 = message.report_u32_13();
  report.report_u32_14 = message.report_u32_14();
  report.report_double_3 = message.report_double_3();
  report.report_double_4 = message.report_double_4();
  return {Called("status.OnDelayMeasurementSessionEnded", report)};
}

Journal Expected(const pb::OpReplyAllStats& message) {
  Journal journal;
  for (const pb::LocalMepStats& entry : message.local_stats()) {
    cfm::st_local_mep_stats stats{};
    stats.ccm_rx_seq_errors = entry.ccm_rx_seq_errors();
    stats.ccm_tx_total = entry.ccm_tx_total();
    stats.ccm_tx_current_seq = entry.ccm_tx_current_seq();
    journal.push_back(Called("statistics.OnLocalMepStatistics", entry.md_name(), entry.ma_name(),
                             Low16(entry.local_mep_id()), stats));
    journal.push_back(
        Logged(11, "ReqStatsReply",
               Format("\nLocal MEP statistics: MD %s MA %s LMEP %d\n   CCM RX sequence number errors: %lu\n"
                      "   CCM TX total count: %lu\n   CCM TX current sequence number: %d\n",
                      entry.md_name().c_str(), entry.ma_name().c_str(), AsInt(entry.local_mep_id()),
                      static_cast<unsigned long>(entry.ccm_rx_seq_errors()),
                      static_cast<unsigned long>(entry.ccm_tx_total()), AsInt(entry.ccm_tx_current_seq()))));
  }
  for (const pb::RemoteMepStats& entry : message.remote_stats()) {
    cfm::st_remote_mep_stats stats{};
    stats.last_ccm_seq = entry.last_ccm_seq();
    journal.push_back(Called("statistics.OnRemoteMepStatistics", entry.md_name(), entry.ma_name(),
                             Low16(entry.local_mep_id()), Low16(entry.remote_mep_id()), stats));
    journal.push_back(
        Logged(11, "ReqStatsReply",
               Format("\nRemote MEP statistics: MD %s MA %s LMEP %d RMEP %d\n   Last CCM sequence number: %d\n",
                      entry.md_name().c_str(), entry.ma_name().c_str(), AsInt(entry.local_mep_id()),
                      AsInt(entry.remote_mep_id()), AsInt(entry.last_ccm_seq()))));
  }
  journal.push_back(Called("statistics.OnStatisticsEnd"));
  return journal;
}

Journal Expected(const pb::OpLinktraceStarted& message) {
  Journal journal = {
      Logged(11, "HandleMepLinktraceStarted",
             Format("\nStarted linktrace transaction %u: MD %s MA %s LMEP %d Remote MAC %s RMEP %d",
                    message.transaction_id(), message.md_name().c_str(), message.ma_name().c_str(),
                    AsInt(message.mep_id()), LowerMac(message.target_mac()).c_str(), AsInt(message.target_mep_id())))};
  for (const char* handler : {"status", "linktrace"}) {
    journal.push_back(Called(std::string(handler) + ".OnLinktraceStarted", message.md_name(), message.ma_name(),
                             Low16(message.mep_id()), message.transaction_id(), MacOf(message.target_mac()),
                             Low16(message.target_mep_id()), message.has_optional_value(), message.optional_value()));
  }
  return journal;
}

Journal Expected(const pb::OpLinktraceEnded& message) {
  Journal journal = {Logged(11, "HandleMepLinktraceEnded",
                            Format("\nEnded linktrace transaction %u: MD %s MA %s LMEP %d", message.transaction_id(),
                                   message.md_name().c_str(), message.ma_name().c_str(), AsInt(message.mep_id())))};
  for (const char* handler : {"status", "linktrace"}) {
    journal.push_back(Called(std::string(handler) + ".OnLinktraceEnded", message.md_name(), message.ma_name(),
                             Low16(message.mep_id()), message.transaction_id()));
  }
  return journal;
}

Journal Expected(const pb::OpLinktraceReplyRx& message) {
  cfm::LinktraceReplyEntry entry{};
  Fill(entry, message.reply());
  Journal journal = {LevelQueried(11),
                     Logged(11, "HandleMepLinktraceReplyRx",
                            Format("\nLinktrace reply for MD %s MA %s LMEP %d: %s", message.md_name().c_str(),
                                   message.ma_name().c_str(), AsInt(message.mep_id()),
                                   cfm::LinktraceReplyEntry::Show(entry, 0).c_str()))};
  for (const char* handler : {"status", "linktrace"}) {
    journal.push_back(Called(std::string(handler) + ".OnLinktraceReply", message.md_name(), message.ma_name(),
                             Low16(message.mep_id()), entry));
  }
  return journal;
}

Journal Expected(const pb::OpLinktraceTriggerError& message) {
  cfm::linktrace_trigger trigger{};
  trigger.trigger_id = message.key().trigger_id();
  trigger.md_name = message.key().md_name();
  trigger.ma_name = message.key().ma_name();
  trigger.mep_id = Low16(message.key().mep_id());
  trigger.target_mep_id = Low16(message.key().target_mep_id());
  trigger.ttl = Low8(message.ttl());
  return {Logged(10, "HandleLinktraceTriggerError", "Linktrace trigger error received"),
          Called("linktrace.OnLinktraceTriggerError", trigger)};
}

Journal Expected(const pb::OpLoopbackTriggerError& message) {
  return {Logged(10, "HandleLoopbackTriggerError", Format("Loopback trigger error received: %u", message.error_code())),
          Called("loopback.OnLoopbackTriggerError", message.trigger_id(), message.error_code(), message.md_name(),
                 message.ma_name(), Low16(message.mep_id()), Low16(message.target_mep_id()))};
}

Journal Expected(const pb::OpLoopbackStarted& message) {
  return {Logged(10, "HandleLoopbackStarted",
                 Format("Loopback started: target MAC is %s.", LowerMac(message.target_mac()).c_str())),
          Called("loopback.OnLoopbackStarted", message.trigger_id(), MacOf(message.target_mac()))};
}

Journal Expected(const pb::OpLoopbackReplyRx& message) {
  return {
      Logged(10, "HandleLoopbackReplyRx",
             Format("Loopback reply received: transaction %u, MAC %s", message.transaction_id(),
                    LowerMac(message.source_mac()).c_str())),
      Called("loopback.OnLoopbackReply", message.trigger_id(), message.transaction_id(), MacOf(message.source_mac()))};
}

Journal Expected(const pb::OpLoopbackEnded& message) {
  return {Logged(10, "HandleLoopbackEnded",
                 Format("Loopback ended received: expected %lu replies. Received: %lu in-order, %lu out-of-order, "
                        "%lu with wrong payload.",
                        static_cast<unsigned long>(message.expected()), static_cast<unsigned long>(message.in_order()),
                        static_cast<unsigned long>(message.out_of_order()),
                        static_cast<unsigned long>(message.wrong_payload()))),
          Called("loopback.OnLoopbackEnded", message.trigger_id(), message.expected(), message.in_order(),
                 message.out_of_order(), message.wrong_payload())};
}

Journal Expected(const pb::OpDelayMeasurementTriggerError& message) {
  return {Logged(10, "HandleDelayMeasurementTriggerError",
                 Format("Delay Measurement trigger error received: %u", message.error_code())),
          Called("delay.OnDelayMeasurementTriggerError", message.trigger_id(), message.error_code(), message.md_name(),
                 message.ma_name(), Low16(message.mep_id()), Low16(message.target_mep_id()))};
}

Journal Expected(const pb::OpDelayMeasurementStarted& message) {
  return {Logged(10, "HandleDelayMeasurementStarted",
                 Format("Delay Measurement started: target MAC is %s.", LowerMac(message.target_mac()).c_str())),
          Called("delay.OnDelayMeasurementStarted", message.trigger_id(), MacOf(message.target_mac()))};
}

Journal Expected(const pb::OpDelayMeasurementReplyRx& message) {
  return {Logged(10, "HandleDelayMeasurementReplyRx",
                 Format("Delay Measurement reply received: MAC %s", LowerMac(message.source_mac()).c_str())),
          Called("delay.OnDelayMeasurementReply", message.trigger_id(), MacOf(message.source_mac()))};
}

Journal Expected(const pb::OpDelayMeasurementEnded& message) {
  return {Logged(10, "HandleDelayMeasurementEnded",
                 Format("Delay Measurement ended: rx: %lu, tx: %lu.", static_cast<unsigned long>(message.rx_count()),
                        static_cast<unsigned long>(message.tx_count()))),
          Called("delay.OnDelayMeasurementEnded", message.trigger_id(), message.rx_count(), message.tx_count(),
                 message.dm_result_1(), message.dm_result_2(), message.dm_result_3(), message.dm_result_4(),
                 message.dm_result_5(), message.dm_result_6(), message.dm_result_7())};
}

}  // namespace recording
