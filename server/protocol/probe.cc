#include "protocol/probe.h"

#include <algorithm>

namespace cfm::protocol {

Probe::Probe(const ProbeSettings& settings, Transmitter& transmitter, ProbeOutput& output, TimePoint now)
    : settings_(settings), transmitter_(transmitter), output_(output) {
  if (settings_.interval_s != 0) next_run_ = now + kSettling;
}

void Probe::SetSession(std::uint16_t session_id, const DelayParameters& parameters) {
  sessions_[session_id] = parameters;
}

void Probe::RemoveSession(std::uint16_t session_id, const RemoteMeps& remotes, TimePoint now) {
  sessions_.erase(session_id);
  if (current_ && current_->session_id == session_id) EndSession(false, remotes, now);
}

void Probe::Abort() {
  if (current_) Report(false);
}

DelayRun::Reply Probe::Receive(const pdu::TwoWayDelay& dmr, const Stamps& stamps, const RemoteMeps& remotes,
                               TimePoint now) {
  if (!current_) return DelayRun::Reply::kStranger;
  const DelayRun::Reply reply = current_->run.Receive(dmr, stamps);
  if (current_->run.over()) EndSession(true, remotes, now);
  return reply;
}

void Probe::Stamped(std::uint32_t stamp_id, const Stamps& stamps) {
  if (current_) current_->run.Stamped(stamp_id, stamps);
}

void Probe::Advance(const RemoteMeps& remotes, TimePoint now) {
  if (current_) current_->run.Advance(now);
  if (current_ && current_->run.over()) EndSession(true, remotes, now);
  if (now >= next_run_) BeginRun(remotes, now);
}

TimePoint Probe::deadline() const {
  return current_ ? std::min(current_->run.deadline(), next_run_) : next_run_;
}

void Probe::BeginRun(const RemoteMeps& remotes, TimePoint now) {
  if (!current_ && (sessions_.empty() || !remotes.AddressOf(settings_.remote_mep_id))) {
    next_run_ = now + kRetry;
    return;
  }
  next_run_ = NextSlot(next_run_, std::chrono::seconds(settings_.interval_s), now);
  if (current_) {
    ++skipped_runs_;
    return;
  }
  ++runs_;
  BeginSession(sessions_.begin(), remotes, now);
}

void Probe::BeginSession(Sessions::const_iterator position, const RemoteMeps& remotes, TimePoint now) {
  const auto target = remotes.AddressOf(settings_.remote_mep_id);
  if (!target) return;
  for (; position != sessions_.end(); ++position) {
    const auto& [id, parameters] = *position;
    if (Check(parameters, transmitter_)) continue;
    current_.emplace(Current{.session_id = id, .run = DelayRun(transmitter_, parameters, *target, now)});
    return;
  }
}

void Probe::EndSession(bool complete, const RemoteMeps& remotes, TimePoint now) {
  const std::uint16_t ended = current_->session_id;
  Report(complete);
  BeginSession(sessions_.upper_bound(ended), remotes, now);
}

void Probe::Report(bool complete) {
  const SessionReport report{.probe_id = settings_.probe_id,
                             .session_id = current_->session_id,
                             .complete = complete,
                             .local_mep_id = settings_.local_mep_id,
                             .remote_mep_id = settings_.remote_mep_id,
                             .run = runs_,
                             .started_at = current_->run.started_at(),
                             .result = current_->run.result()};
  current_.reset();
  output_.SessionEnded(report);
}

}  // namespace cfm::protocol
