// Answers linktrace messages, and passes them on where that is to be.
#ifndef CFM_SERVER_PROTOCOL_LINKTRACE_RESPONDER_H
#define CFM_SERVER_PROTOCOL_LINKTRACE_RESPONDER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include "pdu/linktrace.h"
#include "protocol/linktrace_decision.h"
#include "protocol/reply_queue.h"
#include "protocol/time.h"
#include "protocol/transmitter.h"

namespace cfm::protocol {

class LinktraceResponder {
 public:
  /// Replies that may wait at a time.
  static constexpr std::size_t kMostWaiting = 64;

  struct Counters {
    std::uint64_t sent = 0;
    std::uint64_t invalid = 0;   ///< no egress identifier, TTL 0, or a group address to reply to
    std::uint64_t overflow = 0;  ///< dropped, as too many wait
    std::uint64_t forwarded = 0;
  };

  LinktraceResponder(Transmitter& transmitter, Random random)
      : transmitter_(transmitter), random_(std::move(random)), waiting_(kMostWaiting) {}

  /// A message of this point's level, as octets and as record. Without a relay nothing is behind the point.
  void Receive(const ReceivedFrame& frame, const pdu::Ltm& ltm, TracePoint point,
               const std::optional<pdu::SenderId>& sender_id, TimePoint now, TraceRelay* relay = nullptr);
  void Clear() { waiting_.Clear(); }

  void Advance(TimePoint now);
  TimePoint deadline() const { return waiting_.deadline(); }
  const Counters& counters() const { return counters_; }

 private:
  void Forward(const ReceivedFrame& frame, const pdu::MacAddress& forwarder,
               const std::optional<pdu::SenderId>& sender_id, PortIndex port, TraceRelay& relay);

  Transmitter& transmitter_;
  Random random_;
  ReplyQueue waiting_;
  Counters counters_;
};

}  // namespace cfm::protocol

#endif
