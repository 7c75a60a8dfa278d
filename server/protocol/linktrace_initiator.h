// Linktrace messages and their replies (IEEE 802.1Q clause 20.41).
#ifndef CFM_SERVER_PROTOCOL_LINKTRACE_INITIATOR_H
#define CFM_SERVER_PROTOCOL_LINKTRACE_INITIATOR_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

#include "pdu/linktrace.h"
#include "protocol/mep_output.h"
#include "protocol/test_error.h"
#include "protocol/time.h"
#include "protocol/transmitter.h"

namespace cfm::protocol {

struct LinktraceRequest {
  std::uint16_t target_mep_id = 0;
  std::uint8_t ttl = 0;  ///< 0: 64
};

/// Several traces may be open at a time.
class LinktraceInitiator {
 public:
  static constexpr std::uint8_t kUsualTtl = 64;
  /// From the LTM to the end of its trace.
  static constexpr Duration kPatience = std::chrono::seconds(5);
  static constexpr std::size_t kMostTraces = 16;
  /// The longest path has as many hops as a TTL can count; what comes beyond is somebody's noise.
  static constexpr std::uint32_t kMostReplies = 255;

  LinktraceInitiator(Transmitter& transmitter, LinktraceOutput& output) : transmitter_(transmitter), output_(output) {}

  std::optional<TestError> Start(const LinktraceRequest& request, const pdu::MacAddress& target, std::uint8_t priority,
                                 const std::optional<pdu::SenderId>& sender_id, TimePoint now);
  /// A reply that was addressed to this end point.
  void Receive(const pdu::EthernetHeader& header, const pdu::Ltr& ltr);
  /// Ends all traces.
  void Abort();

  void Advance(TimePoint now);
  TimePoint deadline() const { return open_.empty() ? kNever : open_.front().end; }
  /// Replies to no open trace.
  std::uint64_t unexpected() const { return unexpected_; }

 private:
  struct Trace {
    std::uint32_t transaction_id;
    TimePoint end;
    std::uint32_t replies = 0;
  };

  void EndFirst();

  Transmitter& transmitter_;
  LinktraceOutput& output_;
  std::uint32_t next_id_ = 1;
  std::deque<Trace> open_;  ///< the one that ends first in front
  std::uint64_t unexpected_ = 0;
};

}  // namespace cfm::protocol

#endif
