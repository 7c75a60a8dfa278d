// Answers loopback messages (IEEE 802.1Q clause 20.28.2).
#ifndef CFM_SERVER_PROTOCOL_LOOPBACK_RESPONDER_H
#define CFM_SERVER_PROTOCOL_LOOPBACK_RESPONDER_H

#include <cstddef>
#include <cstdint>

#include "protocol/frame.h"
#include "protocol/rate_limit.h"
#include "protocol/reply_queue.h"
#include "protocol/time.h"
#include "protocol/transmitter.h"

namespace cfm::protocol {

class LoopbackResponder {
 public:
  static constexpr std::size_t kMostPerSecond = 100;

  struct Counters {
    std::uint64_t sent = 0;
    std::uint64_t over_rate = 0;  ///< dropped, as more came than are answered
  };

  LoopbackResponder(Transmitter& transmitter, Random random)
      : transmitter_(transmitter), random_(std::move(random)), limit_(kMostPerSecond), waiting_(kMostPerSecond) {}

  /// A message that is valid and for this end point: to its own address, or to all.
  void Receive(const pdu::EthernetHeader& header, pdu::Octets lbm, TimePoint now);
  void Clear() { waiting_.Clear(); }

  void Advance(TimePoint now);
  TimePoint deadline() const { return waiting_.deadline(); }
  const Counters& counters() const { return counters_; }

 private:
  void Reply(const pdu::EthernetHeader& header, pdu::Octets lbr);

  Transmitter& transmitter_;
  Random random_;
  RateLimit limit_;
  ReplyQueue waiting_;
  Counters counters_;
};

}  // namespace cfm::protocol

#endif
