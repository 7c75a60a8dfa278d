// The watch over one remote MEP (IEEE 802.1Q clause 20.20).
#ifndef CFM_SERVER_PROTOCOL_REMOTE_MEP_H
#define CFM_SERVER_PROTOCOL_REMOTE_MEP_H

#include <cstdint>
#include <optional>

#include "pdu/ccm.h"
#include "pdu/mac_address.h"
#include "protocol/sender_id.h"
#include "protocol/status.h"
#include "protocol/time.h"

namespace cfm::protocol {

/// How long after its last valid CCM a remote MEP has failed. The standard's timer runs 3.5 intervals and may end a
/// quarter of an interval early; the middle leaves the same room for the jitter of the CCMs as for a late wake-up.
constexpr Duration LossTime(Duration interval) {
  return interval * 27 / 8;
}

class RemoteMep {
 public:
  /// Without an interval nothing is ever declared lost.
  RemoteMep(std::optional<Duration> interval, TimePoint now);

  struct Received {
    bool status_changed;
    bool sequence_error;  ///< its number does not follow the one before (IEEE 802.1Q clause 20.16.12)
  };

  /// A valid CCM.
  Received Receive(const pdu::Ccm& ccm, const pdu::MacAddress& source, TimePoint now);

  /// The timer begins anew; the state stays.
  void Restart(std::optional<Duration> interval, TimePoint now);

  void Advance(TimePoint now);
  TimePoint deadline() const { return loss_; }

  const RemoteStatus& status() const { return status_; }
  std::uint32_t last_sequence_number() const { return last_sequence_number_; }

 private:
  void Enter(RemoteState state, TimePoint now);
  /// True when it is another one.
  bool StoreSenderId(const std::optional<pdu::SenderId>& received);

  std::optional<Duration> interval_;
  TimePoint loss_ = kNever;
  RemoteStatus status_;
  std::optional<SystemId> sender_;  ///< what status_.sender_id was made from
  std::uint32_t last_sequence_number_ = 0;
};

}  // namespace cfm::protocol

#endif
