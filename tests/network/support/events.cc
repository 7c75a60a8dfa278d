#include "events.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <sstream>
#include <string_view>
#include <utility>

namespace cfm_test {
namespace {

template <typename... Values>
std::string Words(const Values&... values) {
  std::ostringstream line;
  std::string_view separator;
  ((line << separator << values, separator = " "), ...);
  return line.str();
}

template <std::size_t kSize>
std::string Name(const std::array<std::string_view, kSize>& names, std::size_t code) {
  return code < kSize ? std::string(names[code]) : "code-" + std::to_string(code);
}

constexpr std::array<std::string_view, 3> kPortStates{"none", "blocked", "up"};
constexpr std::array<std::string_view, 8> kInterfaceStates{"none",    "up",      "down",        "testing",
                                                           "unknown", "dormant", "not-present", "lower-layer-down"};
constexpr std::array<std::string_view, 6> kDefects{"none", "rdi", "mac", "remote", "error", "xcon"};
constexpr std::array<std::string_view, 5> kRemoteStates{"code-0", "idle", "start", "failed", "ok"};

WallTime Now() {
  return std::chrono::system_clock::now();
}

template <typename Event, typename Key>
auto LastOf(const std::vector<Event>& events, const Key& key) -> decltype(&events.back().status) {
  const auto found = std::find_if(events.rbegin(), events.rend(), [&](const Event& event) { return event.key == key; });
  return found == events.rend() ? nullptr : &found->status;
}

}  // namespace

std::string ToText(const cfm::st_local_mep_status& status) {
  std::string defects;
  for (const auto& [name, present] :
       {std::pair("rdi", status.defect_rdi), std::pair("mac", status.defect_mac_status),
        std::pair("remote", status.defect_remote_ccm), std::pair("error", status.defect_error_ccm),
        std::pair("xcon", status.defect_xcon_ccm), std::pair("ais", status.defect_ais)}) {
    if (present) defects += (defects.empty() ? "" : ",") + std::string(name);
  }
  return Words(status.mac.to_string(), "rdi", status.rdi, "interface", Name(kInterfaceStates, status.intf_status),
               "port", Name(kPortStates, status.port_state), "block", status.block_state, "shutdown",
               status.shutdown_state, "highest", Name(kDefects, status.highest_defect), "defects",
               defects.empty() ? "-" : defects);
}

std::string ToText(const cfm::st_remote_mep_status& status) {
  return Words(Name(kRemoteStates, status.fsm_state), status.mac.to_string(), "rdi", status.rdi, "interface",
               Name(kInterfaceStates, status.intf_status), "port", Name(kPortStates, status.port_state), "sender",
               "'" + status.sender_id + "'");
}

void PrintTo(const LocalEvent& event, std::ostream* stream) {
  *stream << Words(event.key.md, event.key.ma, event.key.mep_id, ToText(event.status));
}

void PrintTo(const RemoteEvent& event, std::ostream* stream) {
  *stream << Words(event.key.local.md, event.key.local.ma, event.key.local.mep_id, event.key.mep_id,
                   ToText(event.status));
}

const cfm::st_local_mep_status* Events::Local(const LocalKey& key) const {
  return LastOf(local, key);
}

const cfm::st_remote_mep_status* Events::Remote(const RemoteKey& key) const {
  return LastOf(remote, key);
}

std::string Events::LocalText(const LocalKey& key) const {
  const auto* status = Local(key);
  return status == nullptr ? "" : ToText(*status);
}

std::string Events::RemoteText(const RemoteKey& key) const {
  const auto* status = Remote(key);
  return status == nullptr ? "" : ToText(*status);
}

void EventHandler::OnLocalMepStatus(const std::string& md, const std::string& ma, std::uint16_t mep_id,
                                    const cfm::st_local_mep_status& status) {
  events_.local.push_back({Now(), {md, ma, mep_id}, status});
}

void EventHandler::OnRemoteMepStatus(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                                     std::uint16_t remote_mep_id, const cfm::st_remote_mep_status& status) {
  events_.remote.push_back({Now(), {{md, ma, local_mep_id}, remote_mep_id}, status});
}

void EventHandler::OnLocalMepRemoved(const std::string& md, const std::string& ma, std::uint16_t mep_id) {
  events_.removed.push_back(Words(md, ma, mep_id));
}

void EventHandler::OnRemoteMepRemoved(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                                      std::uint16_t remote_mep_id) {
  events_.removed.push_back(Words(md, ma, local_mep_id, remote_mep_id));
}

void LinktraceEventHandler::OnLinktraceStarted(const std::string& md_name, const std::string& ma_name,
                                               std::uint16_t mep_id, std::uint32_t transaction_id,
                                               cfm::st_mac target_mac, std::uint16_t target_mep_id,
                                               bool has_optional_value, std::uint32_t optional_value) {
  events_.linktrace.push_back(Words("started", md_name, ma_name, mep_id, transaction_id, target_mac.to_string(),
                                    target_mep_id, has_optional_value ? std::to_string(optional_value) : "-"));
}

void LinktraceEventHandler::OnLinktraceEnded(const std::string& md_name, const std::string& ma_name,
                                             std::uint16_t mep_id, std::uint32_t transaction_id) {
  events_.linktrace.push_back(Words("ended", md_name, ma_name, mep_id, transaction_id));
}

void LinktraceEventHandler::OnLinktraceReply(const std::string& md_name, const std::string& ma_name,
                                             std::uint16_t mep_id, const cfm::LinktraceReplyEntry& reply) {
  std::string ports;
  for (const auto* port : {reply.reply_ingress.get(), reply.reply_egress.get()}) {
    if (port != nullptr) ports += " '" + port->port_id + "'";
  }
  events_.linktrace.push_back(Words("reply", md_name, ma_name, mep_id, cfm::LinktraceReplyEntry::Show(reply, 0)) +
                              ports);
}

void LinktraceEventHandler::OnLinktraceTriggerError(const cfm::linktrace_trigger& trigger) {
  events_.linktrace.push_back(Words("error", trigger.trigger_id, trigger.md_name, trigger.ma_name, trigger.mep_id,
                                    trigger.target_mep_id, int{trigger.ttl}));
}

void EventHandler::OnDelayMeasurementSessionEnded(const cfm::delay_measurement_session_report& report) {
  events_.sessions.push_back(report);
}

void EventHandler::OnLocalMepStatistics(const std::string& md, const std::string& ma, std::uint16_t mep_id,
                                        const cfm::st_local_mep_stats& stats) {
  unfinished_.local[{md, ma, mep_id}] = stats;
}

void EventHandler::OnRemoteMepStatistics(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                                         std::uint16_t remote_mep_id, const cfm::st_remote_mep_stats& stats) {
  unfinished_.remote[{{md, ma, local_mep_id}, remote_mep_id}] = stats;
}

void EventHandler::OnStatisticsEnd() {
  events_.statistics.push_back(std::exchange(unfinished_, {}));
}

void EventHandler::OnLoopbackTriggerError(std::uint32_t trigger_id, std::uint32_t error_code,
                                          const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                                          std::uint16_t target_mep_id) {
  events_.loopback.push_back(Words("error", trigger_id, error_code, md_name, ma_name, mep_id, target_mep_id));
}

void EventHandler::OnLoopbackStarted(std::uint32_t trigger_id, const cfm::st_mac& target_mac) {
  events_.loopback.push_back(Words("started", trigger_id, target_mac.to_string()));
}

void EventHandler::OnLoopbackReply(std::uint32_t trigger_id, std::uint32_t transaction_id,
                                   const cfm::st_mac& source_mac) {
  events_.loopback.push_back(Words("reply", trigger_id, transaction_id, source_mac.to_string()));
}

void EventHandler::OnLoopbackEnded(std::uint32_t trigger_id, std::uint64_t expected, std::uint64_t in_order,
                                   std::uint64_t out_of_order, std::uint64_t wrong_payload) {
  events_.loopback.push_back(Words("ended", trigger_id, expected, in_order, out_of_order, wrong_payload));
}

void EventHandler::OnDelayMeasurementTriggerError(std::uint32_t trigger_id, std::uint32_t error_code,
                                                  const std::string& md_name, const std::string& ma_name,
                                                  std::uint16_t mep_id, std::uint16_t target_mep_id) {
  events_.delay.push_back(Words("error", trigger_id, error_code, md_name, ma_name, mep_id, target_mep_id));
}

void EventHandler::OnDelayMeasurementStarted(std::uint32_t trigger_id, const cfm::st_mac& target_mac) {
  events_.delay.push_back(Words("started", trigger_id, target_mac.to_string()));
}

void EventHandler::OnDelayMeasurementReply(std::uint32_t trigger_id, const cfm::st_mac& source_mac) {
  events_.delay.push_back(Words("reply", trigger_id, source_mac.to_string()));
}

void EventHandler::OnDelayMeasurementEnded(std::uint32_t trigger_id, std::uint64_t rx_count, std::uint64_t tx_count,
                                           double dm_result_1, double dm_result_2, double dm_result_3,
                                           double dm_result_4, double dm_result_5, double dm_result_6,
                                           std::uint64_t dm_result_7) {
  events_.delay.push_back(Words("ended", trigger_id));
  events_.delay_ended.push_back({trigger_id, rx_count, tx_count, dm_result_1, dm_result_2, dm_result_3, dm_result_4,
                                 dm_result_5, dm_result_6, dm_result_7});
}

}  // namespace cfm_test
