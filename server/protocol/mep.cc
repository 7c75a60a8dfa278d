#include "protocol/mep.h"

#include <algorithm>
#include <array>
#include <utility>

#include "pdu/ais.h"
#include "pdu/ccm.h"
#include "pdu/linktrace.h"
#include "pdu/loopback.h"
#include "protocol/ccm_check.h"
#include "protocol/delay_responder.h"

namespace cfm::protocol {

Mep::Mep(const MepIdentity& identity, MepSettings settings, PortState port, MepOutput& output, const Random& random,
         TimePoint now)
    : identity_(identity),
      settings_(std::move(settings)),
      port_(std::move(port)),
      output_(output),
      random_(random),
      transmitter_(output, Facing(identity.direction)),
      ccm_sender_([this](std::uint32_t sequence_number) { return SendCcm(sequence_number); }),
      remotes_(output),
      ais_sender_(Transmitter(output, Opposite(Facing(identity.direction)))),
      loopback_(transmitter_, output),
      loopback_responder_(transmitter_, random),
      linktrace_(transmitter_, output),
      linktrace_responder_(transmitter_, random),
      delay_(transmitter_, output) {
  Address();
  fault_notifier_.set_times(settings_.fault_times);
  remotes_.SetInterval(IntervalOf(settings_.interval), now);
  if (settings_.enabled) Begin(now);
  Settle(now);
}

void Mep::Remove() {
  End();
}

void Mep::Begin(TimePoint now) {
  remotes_.SetIds(RemoteIds(), settings_.learn, now);
  RestartCcms(now);
}

void Mep::End() {
  ccm_sender_.Stop();
  remotes_.Clear();
  ccm_error_.Reset();
  cross_connect_.Reset();
  ais_.Reset();
  ais_sender_.Stop();
  fault_notifier_.Reset();
  loopback_.Abort();
  loopback_responder_.Clear();
  linktrace_.Abort();
  linktrace_responder_.Clear();
  delay_.Abort();
  for (auto& [id, probe] : probes_) probe.Abort();
  if (std::exchange(action_in_force_, FaultAction::kNone) != FaultAction::kNone) {
    output_.FaultActionChanged(FaultAction::kNone);
  }
}

void Mep::Update(const MepSettings& settings, TimePoint now) {
  if (settings == settings_) return;
  const MepSettings old = std::exchange(settings_, settings);
  Address();
  if (settings_.ais != old.ais) ais_sender_.Stop();
  fault_notifier_.set_times(settings_.fault_times);
  const bool new_interval = settings_.interval != old.interval;
  if (new_interval) remotes_.SetInterval(IntervalOf(settings_.interval), now);

  if (settings_.enabled != old.enabled) {
    settings_.enabled ? Begin(now) : End();
  } else if (settings_.enabled) {
    remotes_.SetIds(RemoteIds(), settings_.learn, now);
    if (new_interval || settings_.send_ccms != old.send_ccms) RestartCcms(now);
  }
  Settle(now);
}

void Mep::SetPort(const PortState& port, TimePoint now) {
  if (port == port_) return;
  const PortState old = std::exchange(port_, port);
  Address();
  if (settings_.enabled && PortFits(port_) != PortFits(old)) {
    RestartCcms(now);
  } else if (port_.port_status != old.port_status || port_.interface_status != old.interface_status) {
    ccm_sender_.StatusChanged(now);
  }
  Settle(now);
}

void Mep::Address() {
  transmitter_.set_addressing({.level = identity_.level,
                               .address = port_.address,
                               .primary_vid = settings_.primary_vid,
                               .inner_vid = settings_.inner_vid,
                               .mtu = port_.mtu});
  ais_sender_.set_address(port_.address);
}

void Mep::RestartCcms(TimePoint now) {
  const auto interval = IntervalOf(settings_.interval);
  if (!operational() || !settings_.send_ccms || !interval) {
    ccm_sender_.Stop();
    return;
  }
  ccm_sender_.Start(*interval, random_(*interval), now);
}

bool Mep::SendCcm(std::uint32_t sequence_number) {
  const pdu::Ccm ccm{.level = identity_.level,
                     .rdi = RdiToSend(CurrentDefects(), settings_.lowest_alarm),
                     .interval = settings_.interval,
                     .sequence_number = sequence_number,
                     .mep_id = identity_.mep_id,
                     .maid = identity_.maid,
                     .sender_id = sender_id(),
                     .port_status = port_.port_status,
                     .interface_status = port_.interface_status};
  std::array<std::uint8_t, pdu::kLongestCcm> buffer;
  const pdu::Octets octets = pdu::Octets(buffer).first(pdu::EncodeCcm(ccm, buffer));
  return transmitter_.ToGroup(pdu::GroupClass::k1, settings_.priority, octets);
}

std::optional<pdu::SenderId> Mep::sender_id() const {
  if (!settings_.sender_id) return std::nullopt;
  return ToSenderId(*settings_.sender_id);
}

std::set<std::uint16_t> Mep::RemoteIds() const {
  std::set<std::uint16_t> ids(settings_.mep_ids.begin(), settings_.mep_ids.end());
  ids.erase(identity_.mep_id);
  return ids;
}

template <typename Record>
bool Mep::Good(const pdu::Decoded<Record>& decoded) {
  if (!decoded) ++dropped_.malformed[static_cast<std::size_t>(decoded.error().problem)];
  return static_cast<bool>(decoded);
}

void Mep::Receive(const ReceivedFrame& frame, TimePoint now, TraceRelay* relay) {
  if (!settings_.enabled) return;
  const auto header = pdu::DecodeHeader(frame.pdu);
  if (!Good(header) || header->level > identity_.level || !AddressFits(frame.header, *header)) return;
  Dispatch(*header, frame, now, relay);
  Settle(now);
}

bool Mep::AddressFits(const pdu::EthernetHeader& ethernet, const pdu::Header& header) {
  if (pdu::IsGroup(ethernet.source)) {
    ++dropped_.group_source;
    return false;
  }
  if (!pdu::IsGroup(ethernet.destination)) {
    if (ethernet.destination == port_.address) return true;
    ++dropped_.not_for_us;
    return false;
  }
  using pdu::Opcode;
  const bool for_groups = header.opcode != Opcode::kLbr && header.opcode != Opcode::kLtr &&
                          header.opcode != Opcode::kDmm && header.opcode != Opcode::kDmr;
  const pdu::GroupAddress expected{
      .group_class = header.opcode == Opcode::kLtm ? pdu::GroupClass::k2 : pdu::GroupClass::k1, .level = header.level};
  if (for_groups && ethernet.destination == pdu::ToAddress(expected)) return true;
  ++dropped_.wrong_group;
  return false;
}

void Mep::Dispatch(const pdu::Header& header, const ReceivedFrame& frame, TimePoint now, TraceRelay* relay) {
  using pdu::Opcode;
  if (header.opcode == Opcode::kCcm) {
    ReceiveCcm(frame, now);
    return;
  }
  if (header.level < identity_.level) {
    ++dropped_.lower_level;
    return;
  }
  switch (header.opcode) {
    case Opcode::kLbm:
      if (Good(pdu::DecodeLbm(frame.pdu))) loopback_responder_.Receive(frame.header, frame.pdu, now);
      break;
    case Opcode::kLbr:
      if (const auto lbr = pdu::DecodeLbr(frame.pdu); Good(lbr)) loopback_.Receive(frame.header, *lbr, frame.pdu);
      break;
    case Opcode::kLtm:
      if (const auto ltm = pdu::DecodeLtm(frame.pdu); Good(ltm)) {
        const TracePoint point{.kind = TracePoint::Kind::kMep,
                               .faces = Facing(identity_.direction),
                               .port = {.action = pdu::ReplyAction::kOk, .address = port_.address, .name = port_.name}};
        linktrace_responder_.Receive(frame, *ltm, point, sender_id(), now, relay);
      }
      break;
    case Opcode::kLtr:
      if (const auto ltr = pdu::DecodeLtr(frame.pdu); Good(ltr)) linktrace_.Receive(frame.header, *ltr);
      break;
    case Opcode::kAis:
      if (const auto ais = pdu::DecodeAis(frame.pdu); Good(ais)) ais_.Receive(*ais, now);
      break;
    case Opcode::kDmm:
      if (Good(pdu::DecodeDmm(frame.pdu))) AnswerDmm(frame, transmitter_);
      break;
    case Opcode::kDmr:
      if (const auto dmr = pdu::DecodeDmr(frame.pdu); Good(dmr)) ReceiveDmr(frame.header, *dmr, frame.stamps, now);
      break;
    default:
      ++dropped_.unknown_opcode;
  }
}

void Mep::ReceiveCcm(const ReceivedFrame& frame, TimePoint now) {
  const auto ccm = pdu::DecodeCcm(frame.pdu);
  if (!Good(ccm)) return;
  const CcmVerdict verdict = CheckCcm(*ccm, {.level = identity_.level,
                                             .maid = identity_.maid,
                                             .own_id = identity_.mep_id,
                                             .interval = settings_.interval,
                                             .id_accepted = remotes_.Accepts(ccm->mep_id)});
  if (verdict == CcmVerdict::kValid) {
    remotes_.Receive(*ccm, frame.header.source, now);
    return;
  }
  CcmDefect& defect = IsCrossConnect(verdict) ? cross_connect_ : ccm_error_;
  const Duration own_interval = IntervalOf(settings_.interval).value_or(Duration::zero());
  if (defect.Raise(verdict, *ccm, frame.header.source, frame.pdu, own_interval, now)) {
    output_.CcmDefectBegan(*defect.last());
  }
}

void Mep::ReceiveDmr(const pdu::EthernetHeader& header, const pdu::TwoWayDelay& dmr, const Stamps& stamps,
                     TimePoint now) {
  if (delay_.Receive(header, dmr, stamps) != DelayRun::Reply::kStranger) return;
  for (auto& [id, probe] : probes_) {
    if (probe.Receive(dmr, stamps, remotes_, now) != DelayRun::Reply::kStranger) return;
  }
  ++dropped_.unexpected_delay;
}

void Mep::Stamped(std::uint32_t stamp_id, const Stamps& stamps) {
  delay_.Stamped(stamp_id, stamps);
  for (auto& [id, probe] : probes_) probe.Stamped(stamp_id, stamps);
}

void Mep::NotSent(pdu::Octets pdu) {
  // A CCM of an Up MEP leaves by several ports, and by some of them it did.
  if (identity_.direction == Direction::kUp) return;
  if (const auto header = pdu::DecodeHeader(pdu); header && header->opcode == pdu::Opcode::kCcm) ccm_sender_.NotSent();
}

void Mep::Advance(TimePoint now) {
  remotes_.Advance(now);
  ccm_error_.Advance(now);
  cross_connect_.Advance(now);
  ais_.Advance(now);
  ais_sender_.Advance(now);
  const std::uint64_t late = ccm_sender_.counters().late;
  ccm_sender_.Advance(now);
  if (ccm_sender_.counters().late != late) output_.CcmWasLate(ccm_sender_.counters().late);
  loopback_.Advance(now);
  loopback_responder_.Advance(now);
  linktrace_.Advance(now);
  linktrace_responder_.Advance(now);
  delay_.Advance(now);
  for (auto& [id, probe] : probes_) probe.Advance(remotes_, now);
  Settle(now);
}

TimePoint Mep::deadline() const {
  TimePoint earliest = std::min(
      {ccm_sender_.deadline(), remotes_.deadline(), ccm_error_.deadline(), cross_connect_.deadline(), ais_.deadline(),
       ais_sender_.deadline(), fault_notifier_.deadline(), loopback_.deadline(), loopback_responder_.deadline(),
       linktrace_.deadline(), linktrace_responder_.deadline(), delay_.deadline(), events_.deadline()});
  for (const auto& [id, probe] : probes_) earliest = std::min(earliest, probe.deadline());
  return earliest;
}

template <typename Start>
std::optional<TestError> Mep::StartTest(std::uint16_t target_mep_id, Start start) {
  if (!operational()) return TestError::kMepNotOperational;
  const auto target = remotes_.AddressOf(target_mep_id);
  if (!target) return TestError::kTargetUnknown;
  return start(*target);
}

std::optional<TestError> Mep::StartLoopback(const LoopbackRequest& request, TimePoint now) {
  return StartTest(request.target_mep_id, [&](const pdu::MacAddress& target) {
    return loopback_.Start(request, target, settings_.priority, sender_id(), now);
  });
}

std::optional<TestError> Mep::StartLinktrace(const LinktraceRequest& request, TimePoint now) {
  return StartTest(request.target_mep_id, [&](const pdu::MacAddress& target) {
    return linktrace_.Start(request, target, settings_.priority, sender_id(), now);
  });
}

std::optional<TestError> Mep::StartDelayMeasurement(const DelayRequest& request, TimePoint now) {
  return StartTest(request.target_mep_id,
                   [&](const pdu::MacAddress& target) { return delay_.Start(request, target, now); });
}

void Mep::SetProbe(std::uint16_t probe_id, std::uint16_t interval_s, std::uint16_t remote_mep_id, TimePoint now) {
  const ProbeSettings settings{
      .probe_id = probe_id, .interval_s = interval_s, .local_mep_id = identity_.mep_id, .remote_mep_id = remote_mep_id};
  if (const auto known = probes_.find(probe_id); known != probes_.end()) {
    if (known->second.settings() == settings) return;
    RemoveProbe(probe_id);
  }
  probes_.try_emplace(probe_id, settings, transmitter_, output_, now);
}

void Mep::RemoveProbe(std::uint16_t probe_id) {
  const auto probe = probes_.find(probe_id);
  if (probe == probes_.end()) return;
  probe->second.Abort();
  probes_.erase(probe);
}

void Mep::SetSession(std::uint16_t probe_id, std::uint16_t session_id, const DelayParameters& parameters) {
  if (const auto probe = probes_.find(probe_id); probe != probes_.end()) {
    probe->second.SetSession(session_id, parameters);
  }
}

void Mep::RemoveSession(std::uint16_t probe_id, std::uint16_t session_id, TimePoint now) {
  if (const auto probe = probes_.find(probe_id); probe != probes_.end()) {
    probe->second.RemoveSession(session_id, remotes_, now);
  }
}

const Probe* Mep::FindProbe(std::uint16_t probe_id) const {
  const auto probe = probes_.find(probe_id);
  return probe == probes_.end() ? nullptr : &probe->second;
}

LocalStatus Mep::status() const {
  const DefectFlags defects = CurrentDefects();
  return {.mac = port_.address,
          .rdi = RdiToSend(defects, settings_.lowest_alarm),
          .port_status = port_.port_status,
          .interface_status = port_.interface_status,
          .action_in_force = action_in_force_,
          .highest_defect = fault_notifier_.highest(),
          .defects = defects};
}

void Mep::TellStatus() {
  const LocalStatus current = status();
  events_.Told(current);
  output_.LocalStatusChanged(current);
  remotes_.TellAll();
}

void Mep::ClearStatistics() {
  ccm_sender_.ClearCounters();
  remotes_.ClearCounters();
}

DefectFlags Mep::CurrentDefects() const {
  const RemoteMeps::Defects& remote = remotes_.defects();
  return {.rdi = remote.any_rdi,
          .mac_status = remote.mac_status,
          .remote_ccm = remote.any_failed,
          .error_ccm = ccm_error_.present(),
          .xcon_ccm = cross_connect_.present(),
          .ais = ais_.present()};
}

bool Mep::HasCauseForAis(const DefectFlags& defects) const {
  DefectFlags causes = defects;
  causes.rdi = causes.mac_status = false;
  return causes.ais || HighestAlarm(causes, settings_.lowest_alarm) != Defect::kNone;
}

void Mep::Settle(TimePoint now) {
  DefectFlags alarms = CurrentDefects();
  if (!settings_.ais || !operational() || !HasCauseForAis(alarms)) {
    ais_sender_.Stop();
  } else if (!ais_sender_.running() && !CheckAis(*settings_.ais, identity_.level)) {
    ais_sender_.Start(*settings_.ais, now);
  }
  if (alarms.ais && settings_.ais_suppresses_missing) alarms.remote_ccm = false;
  if (fault_notifier_.Update(HighestAlarm(alarms, settings_.lowest_alarm), now)) events_.Force();

  const FaultAction action = fault_notifier_.in_force() ? settings_.fault_action : FaultAction::kNone;
  if (std::exchange(action_in_force_, action) != action) output_.FaultActionChanged(action);

  if (const LocalStatus current = status(); events_.Offer(current, now)) output_.LocalStatusChanged(current);
}

}  // namespace cfm::protocol
