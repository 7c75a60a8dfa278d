#include "noting_handlers.h"

#include <array>
#include <cstdio>
#include <memory>

namespace recording {

namespace {

template <typename... Members>
std::string Braced(const Members&... members) {
  return "{" + Listed(members...) + "}";
}

template <typename Record>
std::string Pointed(const std::unique_ptr<Record>& record) {
  return record == nullptr ? "none" : RecordText(*record);
}

}  // namespace

std::string Quoted(std::string_view octets) {
  std::string text = "\"";
  std::array<char, 8> escape{};
  for (const char octet : octets) {
    if (octet >= ' ' && octet <= '~' && octet != '"' && octet != '\\') {
      text += octet;
    } else {
      std::snprintf(escape.data(), escape.size(), "\\x%02x", static_cast<unsigned char>(octet));
      text += escape.data();
    }
  }
  return text + "\"";
}

std::string Exact(double value) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%a", value);
  return text.data();
}

// The structured bindings name every member in declaration order; one more or less does not compile.

std::string RecordText(const cfm::st_mac& mac) {
  const auto& [octets] = mac;
  static_assert(sizeof(octets) == 6);
  return Braced(octets[0], octets[1], octets[2], octets[3], octets[4], octets[5]);
}

std::string RecordText(const cfm::st_local_mep_status& status) {
  const auto& [mac, rdi, intf_status, port_state, block_state, shutdown_state, highest_defect, defect_rdi,
               defect_mac_status, defect_remote_ccm, defect_error_ccm, defect_xcon_ccm, defect_ais] = status;
  return Braced(mac, rdi, intf_status, port_state, block_state, shutdown_state, highest_defect, defect_rdi,
                defect_mac_status, defect_remote_ccm, defect_error_ccm, defect_xcon_ccm, defect_ais);
}

std::string RecordText(const cfm::st_remote_mep_status& status) {
  const auto& [fsm_state, last_change_uptime, mac, rdi, port_state, intf_status, sender_id] = status;
  return Braced(fsm_state, last_change_uptime, mac, rdi, port_state, intf_status, sender_id);
}

std::string RecordText(const cfm::delay_measurement_session_report& report) {
  const auto& [u1, u2, flag, u3, u4, u5, u6, u7, u8, d1, d2, u9, u10, u11, u12, u13, u14, d3, d4] = report;
  return Braced(u1, u2, flag, u3, u4, u5, u6, u7, u8, d1, d2, u9, u10, u11, u12, u13, u14, d3, d4);
}

std::string RecordText(const cfm::st_local_mep_stats& stats) {
  const auto& [ccm_rx_seq_errors, ccm_tx_total, ccm_tx_current_seq] = stats;
  return Braced(ccm_rx_seq_errors, ccm_tx_total, ccm_tx_current_seq);
}

std::string RecordText(const cfm::st_remote_mep_stats& stats) {
  const auto& [last_ccm_seq] = stats;
  return Braced(last_ccm_seq);
}

std::string RecordText(const cfm::linktrace_trigger& trigger) {
  const auto& [trigger_id, md_name, ma_name, mep_id, target_mep_id, ttl] = trigger;
  return Braced(trigger_id, md_name, ma_name, mep_id, target_mep_id, ttl);
}

std::string RecordText(const cfm::LtrEgressIdEntry& id) {
  const auto& [last_mac, last_unique_id, next_mac, next_unique_id] = id;
  return Braced(last_mac, last_unique_id, next_mac, next_unique_id);
}

std::string RecordText(const cfm::LtrReplyPortEntry& port) {
  const auto& [action, mac, port_id_present, port_id_subtype, port_id] = port;
  return Braced(action, mac, port_id_present, port_id_subtype, port_id);
}

std::string RecordText(const cfm::LinktraceReplyEntry& entry) {
  const auto& [destination_mac, source_mac, vlan, priority, internal_vlan, internal_priority, level, terminal_mep,
               forwarded, use_fdb_only, transaction_id, ttl, relay_action, egress_id, reply_ingress, reply_egress] =
      entry;
  return "{" +
         Listed(destination_mac, source_mac, vlan, priority, internal_vlan, internal_priority, level, terminal_mep,
                forwarded, use_fdb_only, transaction_id, ttl, relay_action) +
         ", egress id " + Pointed(egress_id) + ", ingress " + Pointed(reply_ingress) + ", egress " +
         Pointed(reply_egress) + "}";
}

}  // namespace recording
