// Delay measurement on demand.
#ifndef CFM_SERVER_PROTOCOL_DELAY_INITIATOR_H
#define CFM_SERVER_PROTOCOL_DELAY_INITIATOR_H

#include <cstdint>
#include <optional>

#include "pdu/delay.h"
#include "protocol/delay_run.h"
#include "protocol/mep_output.h"
#include "protocol/test_error.h"
#include "protocol/time.h"
#include "protocol/transmitter.h"

namespace cfm::protocol {

struct DelayRequest {
  std::uint32_t trigger_id = 0;
  std::uint16_t target_mep_id = 0;
  DelayParameters parameters;
};

/// One run at a time.
class DelayInitiator {
 public:
  DelayInitiator(Transmitter& transmitter, DelayOutput& output) : transmitter_(transmitter), output_(output) {}

  std::optional<TestError> Start(const DelayRequest& request, const pdu::MacAddress& target, TimePoint now);
  DelayRun::Reply Receive(const pdu::EthernetHeader& header, const pdu::TwoWayDelay& dmr, const Stamps& stamps);
  void Stamped(std::uint32_t stamp_id, const Stamps& stamps);
  /// Ends the run with what was measured.
  void Abort();

  void Advance(TimePoint now);
  TimePoint deadline() const { return run_ ? run_->deadline() : kNever; }

 private:
  void EndIfOver();

  Transmitter& transmitter_;
  DelayOutput& output_;
  std::uint32_t trigger_id_ = 0;
  std::optional<DelayRun> run_;
};

}  // namespace cfm::protocol

#endif
