// Loopback: the request and its reports (IEEE 802.1Q clauses 20.2 and 21.7).
#ifndef CFM_LOOPBACK_H
#define CFM_LOOPBACK_H

#include <cstdint>
#include <string>

#include "cfm/mac.h"
#include "cfm/visibility.h"

namespace cfm {

/// A request for one loopback test from a local MEP towards a remote one.
struct loopback_trigger {
  std::uint32_t trigger_id;  ///< chosen by the application, carried by every report of this request
  std::string md_name;
  std::string ma_name;
  std::uint16_t mep_id;         ///< local MEP that sends
  std::uint16_t target_mep_id;  ///< remote MEP aimed at
  std::uint32_t lb_param_1;     ///< number of messages, 1 to 1024; 0: 1
  std::uint16_t lb_param_2;     ///< octets of the data TLV, 0 to 1480
};

/// Implemented by the application; see the notes on handlers in cfm/client.h. Every reference is valid only during the
/// call. Error codes: 1 no such MEP, 2 MEP not operational, 3 target unknown, 4 bad parameter, 5 too many tests.
class CFM_API ReceivedLoopbackHandlerIntf {
 public:
  virtual void OnLoopbackTriggerError(std::uint32_t trigger_id, std::uint32_t error_code, const std::string& md_name,
                                      const std::string& ma_name, std::uint16_t mep_id,
                                      std::uint16_t target_mep_id) = 0;
  virtual void OnLoopbackStarted(std::uint32_t trigger_id, const st_mac& target_mac) = 0;
  virtual void OnLoopbackReply(std::uint32_t trigger_id, std::uint32_t transaction_id, const st_mac& source_mac) = 0;
  virtual void OnLoopbackEnded(std::uint32_t trigger_id, std::uint64_t expected, std::uint64_t in_order,
                               std::uint64_t out_of_order, std::uint64_t wrong_payload) = 0;

 protected:
  ~ReceivedLoopbackHandlerIntf() = default;
};

}  // namespace cfm

#endif
