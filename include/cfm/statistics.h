// CCM counters of local and remote MEPs.
#ifndef CFM_STATISTICS_H
#define CFM_STATISTICS_H

#include <cstdint>
#include <string>

#include "cfm/visibility.h"

namespace cfm {

/// Counters of a local MEP (IEEE 802.1Q clauses 20.10.2 and 20.16.12).
struct st_local_mep_stats {
  std::uint64_t ccm_rx_seq_errors;
  std::uint64_t ccm_tx_total;
  std::uint32_t ccm_tx_current_seq;  ///< wraps at 2^32
};

/// Counters of a remote MEP as a local MEP sees it.
struct st_remote_mep_stats {
  std::uint32_t last_ccm_seq;  ///< sequence number of the last CCM received from it
};

/// Implemented by the application; see the notes on handlers in cfm/client.h. One reply of the server is delivered as
/// all its local MEPs, then all its remote MEPs, then the end mark. Every reference is valid only during the call.
class CFM_API ReceivedStatisticsHandlerIntf {
 public:
  virtual void OnLocalMepStatistics(const std::string& md, const std::string& ma, std::uint16_t mep_id,
                                    const st_local_mep_stats& stats) = 0;
  virtual void OnRemoteMepStatistics(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                                     std::uint16_t remote_mep_id, const st_remote_mep_stats& stats) = 0;
  virtual void OnStatisticsEnd() = 0;

 protected:
  ~ReceivedStatisticsHandlerIntf() = default;
};

}  // namespace cfm

#endif
