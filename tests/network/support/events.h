// What the client library hands to an application: kept, so that tests can look at it whole.
#ifndef CFM_TESTS_NETWORK_SUPPORT_EVENTS_H
#define CFM_TESTS_NETWORK_SUPPORT_EVENTS_H

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "cfm/client.h"
#include "wire.h"

namespace cfm_test {

/// An end point by domain, association and MEP id.
struct LocalKey {
  std::string md;
  std::string ma;
  std::uint16_t mep_id = 0;

  bool operator==(const LocalKey&) const = default;
  bool operator<(const LocalKey& other) const {
    return std::tie(md, ma, mep_id) < std::tie(other.md, other.ma, other.mep_id);
  }
};

/// A remote MEP as one end point sees it.
struct RemoteKey {
  LocalKey local;
  std::uint16_t mep_id = 0;

  bool operator==(const RemoteKey&) const = default;
  bool operator<(const RemoteKey& other) const { return std::tie(local, mep_id) < std::tie(other.local, other.mep_id); }
};

struct LocalEvent {
  WallTime at;
  LocalKey key;
  cfm::st_local_mep_status status;
};

struct RemoteEvent {
  WallTime at;
  RemoteKey key;
  cfm::st_remote_mep_status status;
};

/// All values on one line, names for codes: "MAC rdi 0 interface up port none block 0 shutdown 0 highest none defects
/// rdi,ccm" (present defects, "-" when there is none).
std::string ToText(const cfm::st_local_mep_status& status);
/// Behind the address, of an end point with nothing wrong.
inline constexpr const char* kFaultless = "rdi 0 interface up port none block 0 shutdown 0 highest none defects -";
/// "ok MAC rdi 0 interface up port none sender 'TEXT'".
std::string ToText(const cfm::st_remote_mep_status& status);

void PrintTo(const LocalEvent& event, std::ostream* stream);
void PrintTo(const RemoteEvent& event, std::ostream* stream);

struct DelayEnd {
  std::uint32_t trigger_id = 0;
  std::uint64_t received = 0;
  std::uint64_t sent = 0;
  double delay_min = 0;
  double delay_mean = 0;
  double delay_max = 0;
  double variation_min = 0;
  double variation_mean = 0;
  double variation_max = 0;
  std::uint64_t data_octets = 0;
};

/// One reply to a request for statistics.
struct Statistics {
  std::map<LocalKey, cfm::st_local_mep_stats> local;
  std::map<RemoteKey, cfm::st_remote_mep_stats> remote;
};

struct Events {
  // In the order of arrival.
  std::vector<LocalEvent> local;
  std::vector<RemoteEvent> remote;
  /// "MD MA MEP" and "MD MA MEP REMOTE".
  std::vector<std::string> removed;
  /// "started TRIGGER MAC", "reply TRIGGER TRANSACTION MAC", "ended TRIGGER EXPECTED IN-ORDER OUT-OF-ORDER WRONG",
  /// "error TRIGGER CODE MD MA MEP TARGET".
  std::vector<std::string> loopback;
  /// "started MD MA MEP TRANSACTION MAC TARGET TTL", "reply MD MA MEP " with LinktraceReplyEntry::Show and the port
  /// ids, "ended MD MA MEP TRANSACTION", "error TRIGGER MD MA MEP TARGET TTL".
  std::vector<std::string> linktrace;
  /// "started TRIGGER MAC", "reply TRIGGER MAC", "ended TRIGGER", "error TRIGGER CODE MD MA MEP TARGET".
  std::vector<std::string> delay;
  std::vector<DelayEnd> delay_ended;
  std::vector<cfm::delay_measurement_session_report> sessions;
  std::vector<Statistics> statistics;

  /// Forgets what has happened.
  void Clear() { *this = Events(); }

  /// The last status; null when there was none.
  const cfm::st_local_mep_status* Local(const LocalKey& key) const;
  const cfm::st_remote_mep_status* Remote(const RemoteKey& key) const;
  /// The last status as text, "" when there was none.
  std::string LocalText(const LocalKey& key) const;
  std::string RemoteText(const RemoteKey& key) const;
};

/// Writes down all but linktraces.
class EventHandler final : public cfm::ReceivedStatusHandlerIntf,
                           public cfm::ReceivedStatisticsHandlerIntf,
                           public cfm::ReceivedLoopbackHandlerIntf,
                           public cfm::ReceivedDelayMeasurementHandlerIntf {
 public:
  explicit EventHandler(Events& events) : events_(events) {}

  void OnLocalMepStatus(const std::string& md, const std::string& ma, std::uint16_t mep_id,
                        const cfm::st_local_mep_status& status) override;
  void OnRemoteMepStatus(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                         std::uint16_t remote_mep_id, const cfm::st_remote_mep_status& status) override;
  void OnLocalMepRemoved(const std::string& md, const std::string& ma, std::uint16_t mep_id) override;
  void OnRemoteMepRemoved(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                          std::uint16_t remote_mep_id) override;
  // The linktrace handler is told the same.
  void OnLinktraceStarted(const std::string& /*md*/, const std::string& /*ma*/, std::uint16_t /*mep_id*/,
                          std::uint32_t /*transaction_id*/, cfm::st_mac /*target_mac*/, std::uint16_t /*target_mep_id*/,
                          bool /*has_optional_value*/, std::uint32_t /*optional_value*/) override {}
  void OnLinktraceEnded(const std::string& /*md*/, const std::string& /*ma*/, std::uint16_t /*mep_id*/,
                        std::uint32_t /*transaction_id*/) override {}
  void OnLinktraceReply(const std::string& /*md*/, const std::string& /*ma*/, std::uint16_t /*mep_id*/,
                        const cfm::LinktraceReplyEntry& /*reply*/) override {}
  void OnDelayMeasurementSessionEnded(const cfm::delay_measurement_session_report& report) override;
  void OnServerFound() override {}

  void OnLocalMepStatistics(const std::string& md, const std::string& ma, std::uint16_t mep_id,
                            const cfm::st_local_mep_stats& stats) override;
  void OnRemoteMepStatistics(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                             std::uint16_t remote_mep_id, const cfm::st_remote_mep_stats& stats) override;
  void OnStatisticsEnd() override;

  void OnLoopbackTriggerError(std::uint32_t trigger_id, std::uint32_t error_code, const std::string& md_name,
                              const std::string& ma_name, std::uint16_t mep_id, std::uint16_t target_mep_id) override;
  void OnLoopbackStarted(std::uint32_t trigger_id, const cfm::st_mac& target_mac) override;
  void OnLoopbackReply(std::uint32_t trigger_id, std::uint32_t transaction_id, const cfm::st_mac& source_mac) override;
  void OnLoopbackEnded(std::uint32_t trigger_id, std::uint64_t expected, std::uint64_t in_order,
                       std::uint64_t out_of_order, std::uint64_t wrong_payload) override;

  void OnDelayMeasurementTriggerError(std::uint32_t trigger_id, std::uint32_t error_code, const std::string& md_name,
                                      const std::string& ma_name, std::uint16_t mep_id,
                                      std::uint16_t target_mep_id) override;
  void OnDelayMeasurementStarted(std::uint32_t trigger_id, const cfm::st_mac& target_mac) override;
  void OnDelayMeasurementReply(std::uint32_t trigger_id, const cfm::st_mac& source_mac) override;
  void OnDelayMeasurementEnded(std::uint32_t trigger_id, std::uint64_t rx_count, std::uint64_t tx_count,
                               double dm_result_1, double dm_result_2, double dm_result_3, double dm_result_4,
                               double dm_result_5, double dm_result_6, std::uint64_t dm_result_7) override;

 private:
  Events& events_;
  Statistics unfinished_;
};

/// Writes down linktraces.
class LinktraceEventHandler final : public cfm::ReceivedLinktraceHandlerIntf {
 public:
  explicit LinktraceEventHandler(Events& events) : events_(events) {}

  void OnLinktraceStarted(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                          std::uint32_t transaction_id, cfm::st_mac target_mac, std::uint16_t target_mep_id,
                          bool has_optional_value, std::uint32_t optional_value) override;
  void OnLinktraceEnded(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                        std::uint32_t transaction_id) override;
  void OnLinktraceReply(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                        const cfm::LinktraceReplyEntry& reply) override;
  void OnLinktraceTriggerError(const cfm::linktrace_trigger& trigger) override;

 private:
  Events& events_;
};

}  // namespace cfm_test

#endif
