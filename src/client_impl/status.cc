// Status and removal of MEPs and the end of measurement sessions, on their way to the status handler.
#include "client_impl.h"
#include "client_impl/log.h"
#include "client_impl/receive.h"
#include "client_server.pb.h"

namespace cfm {
namespace {

st_local_mep_status LocalStatusFrom(const client_server::StatusLocalMaintenanceEndpoint& message) {
  st_local_mep_status status{};
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
  return status;
}

st_remote_mep_status RemoteStatusFrom(const client_server::StatusRemoteMaintenanceEndpoint& message) {
  st_remote_mep_status status{};
  status.fsm_state = message.fsm_state();
  status.last_change_uptime = message.last_change_uptime();
  status.mac = MacOf(message.mac());
  status.rdi = message.rdi();
  status.port_state = message.port_state();
  status.intf_status = Low8(message.intf_status());
  status.sender_id = message.sender_id();
  return status;
}

delay_measurement_session_report SessionReportFrom(const client_server::OpDelayMeasurementSessionEnded& message) {
  delay_measurement_session_report report{};
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
  return report;
}

}  // namespace

void ClientImpl::HandleStatusLocalMep(vorbus_t* /*token*/, void* user, void* data, std::size_t size) {
  ClientImpl& client = ClientOf(user);
  if (client.status_handler_ == nullptr) {
    return;
  }
  const auto message = Received<client_server::StatusLocalMaintenanceEndpoint>(data, size);
  const st_local_mep_status status = LocalStatusFrom(message);
  const std::uint8_t* const mac = status.mac.octets;
  CFM_LOG(client.log_category_, kLogDump, "HandleStatusLocalMep",
          "\nLOCAL MEP status:\n"
          "   MD %s MA %s LMEP %d\n"
          "   MAC %02X:%02X:%02X:%02X:%02X:%02X\n"
          "   Local RDI %d Local PortState %d Local IntfStatus %d\n"
          "   Local BlockState %d Local ShutdownState %d\n"
          "   Highest defect prio present: %d\n"
          "   Defects:\n"
          "     MAC status:       %d\n"
          "     Missing CCMs:     %d\n"
          "     CCM with errors:  %d\n"
          "     Cross-connection: %d\n"
          "     RDI:              %d\n"
          "     AIS:              %d\n",
          message.md_name().c_str(), message.ma_name().c_str(), message.local_mep_id(), mac[0], mac[1], mac[2], mac[3],
          mac[4], mac[5], message.rdi(), message.port_state(), message.intf_status(), message.block_state(),
          message.shutdown_state(), message.highest_defect(), message.defect_mac_status(), message.defect_remote_ccm(),
          message.defect_error_ccm(), message.defect_xcon_ccm(), message.defect_rdi(), message.defect_ais());
  client.status_handler_->OnLocalMepStatus(message.md_name(), message.ma_name(), Low16(message.local_mep_id()), status);
}

void ClientImpl::HandleStatusRemoteMep(vorbus_t* /*token*/, void* user, void* data, std::size_t size) {
  ClientImpl& client = ClientOf(user);
  if (client.status_handler_ == nullptr) {
    return;
  }
  const auto message = Received<client_server::StatusRemoteMaintenanceEndpoint>(data, size);
  const st_remote_mep_status status = RemoteStatusFrom(message);
  const std::uint8_t* const mac = status.mac.octets;
  CFM_LOG(client.log_category_, kLogDump, "HandleStatusRemoteMep",
          "\nRemote MEP status:\n"
          "   MD %s MA %s LMEP %d RMEP %d\n"
          "   MAC %02X:%02X:%02X:%02X:%02X:%02X\n"
          "   FSM state %d\n"
          "   RDI %d PortState %d\n"
          "   IntfStatus %d Sender ID %s Last Change Uptime: %lu\n",
          message.md_name().c_str(), message.ma_name().c_str(), message.local_mep_id(), message.remote_mep_id(), mac[0],
          mac[1], mac[2], mac[3], mac[4], mac[5], message.fsm_state(), message.rdi(), message.port_state(),
          message.intf_status(), message.sender_id().c_str(), message.last_change_uptime());
  client.status_handler_->OnRemoteMepStatus(message.md_name(), message.ma_name(), Low16(message.local_mep_id()),
                                            Low16(message.remote_mep_id()), status);
}

void ClientImpl::HandleRemovedLocalMep(vorbus_t* /*token*/, void* user, void* data, std::size_t size) {
  ClientImpl& client = ClientOf(user);
  if (client.status_handler_ == nullptr) {
    return;
  }
  const auto message = Received<client_server::RemovedLocalMaintenanceEndpoint>(data, size);
  CFM_LOG(client.log_category_, kLogDump, "HandleRemovedLocalMep", "\nLocal MEP removed: MD %s MA %s LMEP %d\n",
          message.md_name().c_str(), message.ma_name().c_str(), message.local_mep_id());
  client.status_handler_->OnLocalMepRemoved(message.md_name(), message.ma_name(), Low16(message.local_mep_id()));
}

void ClientImpl::HandleRemovedRemoteMep(vorbus_t* /*token*/, void* user, void* data, std::size_t size) {
  ClientImpl& client = ClientOf(user);
  if (client.status_handler_ == nullptr) {
    return;
  }
  const auto message = Received<client_server::RemovedRemoteMaintenanceEndpoint>(data, size);
  CFM_LOG(client.log_category_, kLogDump, "HandleRemovedRemoteMep",
          "\nRemote MEP removed: MD %s MA %s LMEP %d RMEP %d\n", message.md_name().c_str(), message.ma_name().c_str(),
          message.local_mep_id(), message.remote_mep_id());
  client.status_handler_->OnRemoteMepRemoved(message.md_name(), message.ma_name(), Low16(message.local_mep_id()),
                                             Low16(message.remote_mep_id()));
}

void ClientImpl::HandleDelayMeasurementSessionEnded(vorbus_t* /*token*/, void* user, void* data, std::size_t size) {
  ClientImpl& client = ClientOf(user);
  const delay_measurement_session_report report =
      SessionReportFrom(Received<client_server::OpDelayMeasurementSessionEnded>(data, size));
  if (client.status_handler_ != nullptr) {
    client.status_handler_->OnDelayMeasurementSessionEnded(report);
  }
}

}  // namespace cfm
