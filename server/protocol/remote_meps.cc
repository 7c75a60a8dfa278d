#include "protocol/remote_meps.h"

#include <algorithm>

namespace cfm::protocol {
TimePoint RemoteMeps::Watched::deadline() const {
  const bool ageing = learned && mep.status().state == RemoteState::kFailed;
  const TimePoint next = ageing ? mep.status().last_change + kAgeingTime : mep.deadline();
  return std::min(next, events.deadline());
}

void RemoteMeps::SetIds(const std::set<std::uint16_t>& ids, bool learn, TimePoint now) {
  learn_ = learn;
  for (auto position = watched_.begin(); position != watched_.end();) {
    const bool listed = ids.contains(position->first);
    if (listed && position->second.learned) {
      position->second.learned = false;
      --learned_;
    }
    const bool stays = listed || (position->second.learned && learn);
    position = stays ? std::next(position) : End(position);
  }
  for (const std::uint16_t id : ids) {
    if (!watched_.contains(id)) Begin(id, false, now);
  }
  Judge();
}

void RemoteMeps::SetInterval(std::optional<Duration> interval, TimePoint now) {
  interval_ = interval;
  for (auto& [id, watched] : watched_) watched.mep.Restart(interval, now);
  Work(now);
}

void RemoteMeps::Clear() {
  for (auto position = watched_.begin(); position != watched_.end();) position = End(position);
  deadline_ = kNever;
  Judge();
}

bool RemoteMeps::Accepts(std::uint16_t id) const {
  constexpr std::uint16_t kHighestId = 8191;
  if (watched_.contains(id)) return true;
  return learn_ && learned_ < kMostLearned && id >= 1 && id <= kHighestId;
}

void RemoteMeps::Receive(const pdu::Ccm& ccm, const pdu::MacAddress& source, TimePoint now) {
  auto position = watched_.find(ccm.mep_id);
  if (position == watched_.end()) {
    Begin(ccm.mep_id, true, now);
    position = watched_.find(ccm.mep_id);
  }
  Watched& watched = position->second;
  const RemoteMep::Received received = watched.mep.Receive(ccm, source, now);
  if (received.sequence_error) ++sequence_errors_;
  if (!received.status_changed) return;
  Judge();
  Tell(position->first, watched, now);
  deadline_ = std::min(deadline_, watched.deadline());
}

void RemoteMeps::Advance(TimePoint now) {
  if (now >= deadline_) Work(now);
}

std::optional<pdu::MacAddress> RemoteMeps::AddressOf(std::uint16_t id) const {
  const RemoteMep* mep = Find(id);
  if (mep == nullptr || mep->status().mac == pdu::MacAddress{}) return std::nullopt;
  return mep->status().mac;
}

const RemoteMep* RemoteMeps::Find(std::uint16_t id) const {
  const auto position = watched_.find(id);
  return position == watched_.end() ? nullptr : &position->second.mep;
}

void RemoteMeps::Begin(std::uint16_t id, bool learned, TimePoint now) {
  auto& watched = watched_.try_emplace(id, Watched{RemoteMep(interval_, now), learned}).first->second;
  if (learned) {
    ++learned_;
  } else {
    Tell(id, watched, now);
  }
  deadline_ = std::min(deadline_, watched.deadline());
}

RemoteMeps::Map::iterator RemoteMeps::End(Map::iterator position) {
  const std::uint16_t id = position->first;
  if (position->second.learned) --learned_;
  const auto next = watched_.erase(position);
  output_.RemoteRemoved(id);
  return next;
}

void RemoteMeps::Tell(std::uint16_t id, Watched& watched, TimePoint now) {
  if (watched.events.Offer(watched.mep.status(), now)) output_.RemoteStatusChanged(id, watched.mep.status());
}

void RemoteMeps::TellAll() {
  for (auto& [id, watched] : watched_) {
    watched.events.Told(watched.mep.status());
    output_.RemoteStatusChanged(id, watched.mep.status());
  }
}

void RemoteMeps::Work(TimePoint now) {
  deadline_ = kNever;
  for (auto position = watched_.begin(); position != watched_.end();) {
    auto& [id, watched] = *position;
    if (now >= watched.deadline()) {
      if (now >= watched.mep.deadline()) {
        watched.mep.Advance(now);
      } else if (watched.learned && watched.mep.status().state == RemoteState::kFailed &&
                 now >= watched.mep.status().last_change + kAgeingTime) {
        position = End(position);
        continue;
      }
      Tell(id, watched, now);
    }
    deadline_ = std::min(deadline_, watched.deadline());
    ++position;
  }
  Judge();
}

void RemoteMeps::Judge() {
  defects_ = {};
  bool any_blocked = false;
  bool any_forwarding = false;
  for (const auto& [id, watched] : watched_) {
    const RemoteStatus& status = watched.mep.status();
    defects_.any_failed |= status.state == RemoteState::kFailed;
    defects_.any_rdi |= status.rdi;
    defects_.mac_status |=
        status.interface_status != pdu::InterfaceStatus::kNone && status.interface_status != pdu::InterfaceStatus::kUp;
    any_blocked |= status.port_status == pdu::PortStatus::kBlocked;
    any_forwarding |= status.port_status == pdu::PortStatus::kUp;
  }
  defects_.mac_status |= any_blocked && !any_forwarding;
}

}  // namespace cfm::protocol
