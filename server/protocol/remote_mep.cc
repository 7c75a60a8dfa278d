#include "protocol/remote_mep.h"

namespace cfm::protocol {

RemoteMep::RemoteMep(std::optional<Duration> interval, TimePoint now) {
  Restart(interval, now);
}

RemoteMep::Received RemoteMep::Receive(const pdu::Ccm& ccm, const pdu::MacAddress& source, TimePoint now) {
  if (interval_) loss_ = now + LossTime(*interval_);
  bool changed = StoreSenderId(ccm.sender_id);
  if (status_.state != RemoteState::kOk) {
    Enter(RemoteState::kOk, now);
    changed = true;
  }
  const auto store = [&changed](auto& stored, const auto& received) {
    changed |= stored != received;
    stored = received;
  };
  store(status_.mac, source);
  store(status_.rdi, ccm.rdi);
  store(status_.port_status, ccm.port_status);
  store(status_.interface_status, ccm.interface_status);

  // Senders that do not count send 0.
  const bool gap =
      last_sequence_number_ != 0 && ccm.sequence_number != 0 && ccm.sequence_number != last_sequence_number_ + 1;
  last_sequence_number_ = ccm.sequence_number;
  return {.status_changed = changed, .sequence_error = gap};
}

void RemoteMep::Restart(std::optional<Duration> interval, TimePoint now) {
  interval_ = interval;
  const bool watched = interval_ && status_.state != RemoteState::kFailed;
  loss_ = watched ? now + LossTime(*interval_) : kNever;
}

void RemoteMep::Advance(TimePoint now) {
  if (now < loss_) return;
  loss_ = kNever;
  Enter(RemoteState::kFailed, now);
  // What a silent MEP said last is not what it would say now; its loss covers it.
  status_.rdi = false;
  status_.port_status = pdu::PortStatus::kNone;
  status_.interface_status = pdu::InterfaceStatus::kNone;
}

void RemoteMep::Enter(RemoteState state, TimePoint now) {
  status_.state = state;
  status_.last_change = now;
}

bool RemoteMep::StoreSenderId(const std::optional<pdu::SenderId>& received) {
  if (!received) {
    const bool changed = sender_.has_value();
    sender_.reset();
    status_.sender_id.clear();
    return changed;
  }
  if (sender_ && SaysTheSame(*sender_, *received)) return false;
  if (!sender_) sender_.emplace();
  Assign(*sender_, *received);
  status_.sender_id = ToText(*sender_);
  return true;
}

}  // namespace cfm::protocol
