// On-demand two-way delay measurement: the request and its reports (ITU-T G.8013/Y.1731 clause 8.2).
#ifndef CFM_DELAY_MEASUREMENT_H
#define CFM_DELAY_MEASUREMENT_H

#include <cstdint>
#include <string>

#include "cfm/mac.h"
#include "cfm/visibility.h"

namespace cfm {

/// A request for one delay measurement from a local MEP towards a remote one.
struct delay_measurement_trigger {
  std::uint32_t trigger_id;  ///< chosen by the application, carried by every report of this request
  std::string md_name;
  std::string ma_name;
  std::uint16_t mep_id;         ///< local MEP that sends
  std::uint16_t target_mep_id;  ///< remote MEP aimed at
  std::uint32_t dm_param_1;     ///< number of messages, 1 to 1024
  std::uint32_t dm_param_2;     ///< milliseconds between messages, 10 to 60000
  std::uint16_t dm_param_3;     ///< octets of the data TLV, 0 to 1480
  std::uint8_t dm_param_4;      ///< priority, 0 to 7
};

/// Implemented by the application; see the notes on handlers in cfm/client.h. Every reference is valid only during the
/// call. Error codes: 1 no such MEP, 2 MEP not operational, 3 target unknown, 4 bad parameter, 5 too many tests.
class CFM_API ReceivedDelayMeasurementHandlerIntf {
 public:
  virtual void OnDelayMeasurementTriggerError(std::uint32_t trigger_id, std::uint32_t error_code,
                                              const std::string& md_name, const std::string& ma_name,
                                              std::uint16_t mep_id, std::uint16_t target_mep_id) = 0;
  virtual void OnDelayMeasurementStarted(std::uint32_t trigger_id, const st_mac& target_mac) = 0;
  virtual void OnDelayMeasurementReply(std::uint32_t trigger_id, const st_mac& source_mac) = 0;
  /// dm_result_1 to dm_result_3: two-way delay, minimum, mean, maximum; dm_result_4 to dm_result_6: delay variation,
  /// likewise; all in microseconds. dm_result_7: octets of data TLV that were used.
  virtual void OnDelayMeasurementEnded(std::uint32_t trigger_id, std::uint64_t rx_count, std::uint64_t tx_count,
                                       double dm_result_1, double dm_result_2, double dm_result_3, double dm_result_4,
                                       double dm_result_5, double dm_result_6, std::uint64_t dm_result_7) = 0;

 protected:
  ~ReceivedDelayMeasurementHandlerIntf() = default;
};

}  // namespace cfm

#endif
