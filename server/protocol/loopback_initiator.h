// Runs of loopback messages and the count of their replies (IEEE 802.1Q clause 20.2).
#ifndef CFM_SERVER_PROTOCOL_LOOPBACK_INITIATOR_H
#define CFM_SERVER_PROTOCOL_LOOPBACK_INITIATOR_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "pdu/loopback.h"
#include "protocol/mep_output.h"
#include "protocol/test_error.h"
#include "protocol/time.h"
#include "protocol/transmitter.h"

namespace cfm::protocol {

struct LoopbackRequest {
  std::uint32_t trigger_id = 0;
  std::uint16_t target_mep_id = 0;
  std::uint32_t messages = 0;     ///< 1 to 1024; 0: 1
  std::uint32_t data_octets = 0;  ///< 0 to 1480, and within the port's MTU
};

/// One run at a time.
class LoopbackInitiator {
 public:
  static constexpr std::uint32_t kMostMessages = 1024;
  static constexpr Duration kMessageSpacing = std::chrono::seconds(1);
  /// For replies, after the last message.
  static constexpr Duration kPatience = std::chrono::seconds(5);

  struct Counters {
    std::uint64_t strangers = 0;   ///< replies to nothing that this run has sent
    std::uint64_t duplicates = 0;  ///< further replies to the same message
  };

  LoopbackInitiator(Transmitter& transmitter, LoopbackOutput& output) : transmitter_(transmitter), output_(output) {}

  std::optional<TestError> Start(const LoopbackRequest& request, const pdu::MacAddress& target, std::uint8_t priority,
                                 const std::optional<pdu::SenderId>& sender_id, TimePoint now);
  /// A reply that was addressed to this end point, as record and as octets.
  void Receive(const pdu::EthernetHeader& header, const pdu::Loopback& lbr, pdu::Octets octets);
  /// Ends the run with what was counted.
  void Abort();

  void Advance(TimePoint now);
  TimePoint deadline() const { return run_ ? run_->next : kNever; }
  const Counters& counters() const { return counters_; }

 private:
  struct Run {
    std::uint32_t trigger_id;
    pdu::MacAddress target;
    std::uint8_t priority;
    std::uint32_t messages;
    std::vector<std::uint8_t> lbm;  ///< the message, with the transaction id of the last one
    std::uint32_t first_id;
    std::uint32_t expected_id;
    std::vector<bool> answered;  ///< by message that was tried
    std::uint32_t replies = 0;
    LoopbackResult result;
    TimePoint next;  ///< message; after the last one: the end
  };

  void SendOne();
  bool AllIn() const;

  Transmitter& transmitter_;
  LoopbackOutput& output_;
  std::uint32_t next_id_ = 1;  ///< over all runs
  std::optional<Run> run_;
  Counters counters_;
};

}  // namespace cfm::protocol

#endif
