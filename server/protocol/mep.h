// One end point (MEP): everything that it does, without I/O.
#ifndef CFM_SERVER_PROTOCOL_MEP_H
#define CFM_SERVER_PROTOCOL_MEP_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

#include "pdu/header.h"
#include "protocol/ais_sender.h"
#include "protocol/ais_watch.h"
#include "protocol/ccm_defect.h"
#include "protocol/ccm_sender.h"
#include "protocol/delay_initiator.h"
#include "protocol/fault_notifier.h"
#include "protocol/frame.h"
#include "protocol/linktrace_initiator.h"
#include "protocol/linktrace_responder.h"
#include "protocol/loopback_initiator.h"
#include "protocol/loopback_responder.h"
#include "protocol/mep_output.h"
#include "protocol/mep_settings.h"
#include "protocol/probe.h"
#include "protocol/remote_meps.h"
#include "protocol/test_error.h"
#include "protocol/throttle.h"
#include "protocol/time.h"
#include "protocol/transmitter.h"

namespace cfm::protocol {

/// After every call that is told the time, deadline() may be another.
class Mep {
 public:
  /// Why received frames went no further.
  struct Dropped {
    std::array<std::uint64_t, pdu::kProblemCount> malformed{};  ///< by problem
    std::uint64_t group_source = 0;
    std::uint64_t wrong_group = 0;  ///< not the group address of the frame's level and kind
    std::uint64_t not_for_us = 0;   ///< to another station
    std::uint64_t lower_level = 0;  ///< but no CCM
    std::uint64_t behind = 0;       ///< from the side that it does not face
    std::uint64_t unknown_opcode = 0;
    std::uint64_t unexpected_delay = 0;  ///< DMRs to nothing that was sent
  };

  /// Begins at once. The output outlives the end point.
  Mep(const MepIdentity& identity, MepSettings settings, PortState port, MepOutput& output, const Random& random,
      TimePoint now);
  Mep(const Mep&) = delete;
  Mep& operator=(const Mep&) = delete;
  ~Mep() = default;

  /// Ends everything, with the events that this means. To be called before the end point goes.
  void Remove();

  /// Touches only what depends on what has changed.
  void Update(const MepSettings& settings, TimePoint now);
  void SetPort(const PortState& port, TimePoint now);

  /// A frame on this end point's VLAN from the side that it faces, of its level or a lower one; others are ignored.
  /// Without a relay nothing is behind it.
  void Receive(const ReceivedFrame& frame, TimePoint now, TraceRelay* relay = nullptr);
  /// It has stopped a frame from the other side.
  void StoppedBehind() { ++dropped_.behind; }
  /// The kernel's answer to OutgoingFrame::stamp_id.
  void Stamped(std::uint32_t stamp_id, const Stamps& stamps);
  /// A frame that was counted as sent did not leave after all.
  void NotSent(pdu::Octets pdu);

  void Advance(TimePoint now);
  TimePoint deadline() const;

  std::optional<TestError> StartLoopback(const LoopbackRequest& request, TimePoint now);
  std::optional<TestError> StartLinktrace(const LinktraceRequest& request, TimePoint now);
  std::optional<TestError> StartDelayMeasurement(const DelayRequest& request, TimePoint now);

  /// One that is known with other settings ends, and begins anew without sessions.
  void SetProbe(std::uint16_t probe_id, std::uint16_t interval_s, std::uint16_t remote_mep_id, TimePoint now);
  void RemoveProbe(std::uint16_t probe_id);
  /// Of a probe that is known.
  void SetSession(std::uint16_t probe_id, std::uint16_t session_id, const DelayParameters& parameters);
  void RemoveSession(std::uint16_t probe_id, std::uint16_t session_id, TimePoint now);

  MepOutput& output() const { return output_; }
  const MepIdentity& identity() const { return identity_; }
  const MepSettings& settings() const { return settings_; }
  const PortState& port() const { return port_; }
  LocalStatus status() const;
  /// Tells the status and those of the remote MEPs as they are now.
  void TellStatus();
  const RemoteMeps& remotes() const { return remotes_; }
  const CcmSender& ccm_sender() const { return ccm_sender_; }
  const CcmDefect& ccm_error() const { return ccm_error_; }
  const CcmDefect& cross_connect() const { return cross_connect_; }
  const LoopbackInitiator& loopback() const { return loopback_; }
  const LoopbackResponder& loopback_responder() const { return loopback_responder_; }
  const LinktraceInitiator& linktrace() const { return linktrace_; }
  const LinktraceResponder& linktrace_responder() const { return linktrace_responder_; }
  /// Null when it is not known.
  const Probe* FindProbe(std::uint16_t probe_id) const;
  const AisSender& ais_sender() const { return ais_sender_; }
  const Dropped& dropped() const { return dropped_; }
  /// Those of CCMs, which clients see.
  void ClearStatistics();

 private:
  void Begin(TimePoint now);
  void End();
  void Address();
  void RestartCcms(TimePoint now);
  bool SendCcm(std::uint32_t sequence_number);
  std::optional<pdu::SenderId> sender_id() const;
  std::set<std::uint16_t> RemoteIds() const;
  /// An Up MEP needs a bridge.
  bool PortFits(const PortState& port) const {
    return port.present && (identity_.direction == Direction::kDown || port.port_status != pdu::PortStatus::kNone);
  }
  bool operational() const { return settings_.enabled && PortFits(port_); }

  bool AddressFits(const pdu::EthernetHeader& ethernet, const pdu::Header& header);
  void Dispatch(const pdu::Header& header, const ReceivedFrame& frame, TimePoint now, TraceRelay* relay);
  void ReceiveCcm(const ReceivedFrame& frame, TimePoint now);
  void ReceiveDmr(const pdu::EthernetHeader& header, const pdu::TwoWayDelay& dmr, const Stamps& stamps, TimePoint now);
  template <typename Record>
  bool Good(const pdu::Decoded<Record>& decoded);
  template <typename Start>
  std::optional<TestError> StartTest(std::uint16_t target_mep_id, Start start);

  DefectFlags CurrentDefects() const;
  bool HasCauseForAis(const DefectFlags& defects) const;
  void Settle(TimePoint now);

  MepIdentity identity_;
  MepSettings settings_;
  PortState port_;
  MepOutput& output_;
  Random random_;

  Transmitter transmitter_;
  CcmSender ccm_sender_;
  RemoteMeps remotes_;
  CcmDefect ccm_error_;
  CcmDefect cross_connect_;
  AisWatch ais_;
  AisSender ais_sender_;
  FaultNotifier fault_notifier_;
  LoopbackInitiator loopback_;
  LoopbackResponder loopback_responder_;
  LinktraceInitiator linktrace_;
  LinktraceResponder linktrace_responder_;
  DelayInitiator delay_;
  std::map<std::uint16_t, Probe> probes_;

  FaultAction action_in_force_ = FaultAction::kNone;
  Throttle<LocalStatus> events_;
  Dropped dropped_;
};

}  // namespace cfm::protocol

#endif
