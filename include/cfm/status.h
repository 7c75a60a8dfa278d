// Status of local and remote MEPs, their removal, and the end of standing measurement sessions.
#ifndef CFM_STATUS_H
#define CFM_STATUS_H

#include <cstdint>
#include <string>

#include "cfm/linktrace.h"
#include "cfm/mac.h"
#include "cfm/visibility.h"

namespace cfm {

/// State of a MEP that is configured on this element.
struct st_local_mep_status {
  st_mac mac;
  bool rdi;                      ///< RDI that the MEP transmits
  std::uint8_t intf_status;      ///< interface status, IEEE 802.1Q clause 21.5.5; 0 none
  std::uint32_t port_state;      ///< port status, IEEE 802.1Q clause 21.5.4: 0 none, 1 blocked, 2 up
  std::uint32_t block_state;     ///< 1 while the fault action blocks the port
  std::uint32_t shutdown_state;  ///< 1 while the fault action shuts the port down
  std::uint32_t highest_defect;  ///< 0 none, 1 RDI, 2 MAC status, 3 remote CCM, 4 CCM error, 5 cross-connect
  bool defect_rdi;
  bool defect_mac_status;
  bool defect_remote_ccm;
  bool defect_error_ccm;
  bool defect_xcon_ccm;
  bool defect_ais;
};

/// State of a remote MEP as a local MEP sees it.
struct st_remote_mep_status {
  std::uint32_t fsm_state;           ///< 1 idle, 2 start, 3 failed, 4 ok (IEEE 802.1Q clause 20.20)
  std::uint64_t last_change_uptime;  ///< system up-time at the last entry into failed or ok
  st_mac mac;
  bool rdi;                  ///< RDI received from the remote MEP
  std::uint32_t port_state;  ///< port status that it reports, 0 none
  std::uint8_t intf_status;  ///< interface status that it reports, 0 none
  std::string sender_id;     ///< its Sender ID, as printable text
};

/// One run of one session of a probe (cfm/probe.h) that has ended.
struct delay_measurement_session_report {
  std::uint32_t report_u32_1;   ///< probe id
  std::uint32_t report_u32_2;   ///< session id
  std::uint8_t report_flag;     ///< 1 complete, 0 aborted
  std::uint32_t report_u32_3;   ///< local MEP id
  std::uint32_t report_u32_4;   ///< remote MEP id
  std::uint32_t report_u32_5;   ///< messages sent
  std::uint32_t report_u32_6;   ///< replies received
  std::uint32_t report_u32_7;   ///< messages lost
  std::uint32_t report_u32_8;   ///< run number
  double report_double_1;       ///< two-way delay, mean, microseconds
  double report_double_2;       ///< two-way delay, standard deviation, microseconds
  std::uint32_t report_u32_9;   ///< two-way delay, minimum, microseconds
  std::uint32_t report_u32_10;  ///< two-way delay, maximum, microseconds
  std::uint32_t report_u32_11;  ///< two-way delay, median, microseconds
  std::uint32_t report_u32_12;  ///< two-way delay, 95th percentile, microseconds
  std::uint32_t report_u32_13;  ///< two-way delay, 99th percentile, microseconds
  std::uint32_t report_u32_14;  ///< start of the run, seconds since 1970
  double report_double_3;       ///< delay variation, mean, microseconds
  double report_double_4;       ///< delay variation, standard deviation, microseconds
};

/// Implemented by the application; see the notes on handlers in cfm/client.h. Every reference is valid only during the
/// call.
class CFM_API ReceivedStatusHandlerIntf {
 public:
  virtual void OnLocalMepStatus(const std::string& md, const std::string& ma, std::uint16_t mep_id,
                                const st_local_mep_status& status) = 0;
  virtual void OnRemoteMepStatus(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                                 std::uint16_t remote_mep_id, const st_remote_mep_status& status) = 0;
  virtual void OnLocalMepRemoved(const std::string& md, const std::string& ma, std::uint16_t mep_id) = 0;
  virtual void OnRemoteMepRemoved(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                                  std::uint16_t remote_mep_id) = 0;
  /// The three linktrace notifications are those of ReceivedLinktraceHandlerIntf, delivered here first.
  virtual void OnLinktraceStarted(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                                  std::uint32_t transaction_id, st_mac target_mac, std::uint16_t target_mep_id,
                                  bool has_optional_value, std::uint32_t optional_value) = 0;
  virtual void OnLinktraceEnded(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                                std::uint32_t transaction_id) = 0;
  virtual void OnLinktraceReply(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                                const LinktraceReplyEntry& reply) = 0;
  virtual void OnDelayMeasurementSessionEnded(const delay_measurement_session_report& report) = 0;
  /// The server came up and was asked for its cache. No configuration has been exchanged yet.
  virtual void OnServerFound() = 0;

 protected:
  ~ReceivedStatusHandlerIntf() = default;
};

}  // namespace cfm

#endif
