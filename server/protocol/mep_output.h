// What an end point hands out: frames, events, and the progress of its tests.
#ifndef CFM_SERVER_PROTOCOL_MEP_OUTPUT_H
#define CFM_SERVER_PROTOCOL_MEP_OUTPUT_H

#include <cstdint>
#include <string_view>

#include "pdu/ethernet.h"
#include "pdu/linktrace.h"
#include "protocol/ccm_defect.h"
#include "protocol/delay_statistics.h"
#include "protocol/frame.h"
#include "protocol/status.h"

namespace cfm::protocol {

// None of these may call back into the end point.

class RemoteOutput {
 public:
  virtual void RemoteStatusChanged(std::uint16_t mep_id, const RemoteStatus& status) = 0;
  /// It is watched no longer.
  virtual void RemoteRemoved(std::uint16_t mep_id) = 0;

 protected:
  ~RemoteOutput() = default;
};

class LocalOutput {
 public:
  virtual void LocalStatusChanged(const LocalStatus& status) = 0;
  /// What the port is to suffer from now on because of this end point; none: nothing any more.
  virtual void FaultActionChanged(FaultAction action) = 0;
  /// A CCM left more than 1.5 intervals after the one before; `late`: how many have.
  virtual void CcmWasLate(std::uint64_t late) = 0;
  /// A CCM error or a cross-connect has begun.
  virtual void CcmDefectBegan(const OffendingCcm& offender) = 0;

 protected:
  ~LocalOutput() = default;
};

struct LoopbackResult {
  std::uint64_t expected = 0;  ///< messages that were sent
  std::uint64_t in_order = 0;
  std::uint64_t out_of_order = 0;
  std::uint64_t wrong_payload = 0;

  bool operator==(const LoopbackResult&) const = default;
};

class LoopbackOutput {
 public:
  virtual void LoopbackStarted(std::uint32_t trigger_id, const pdu::MacAddress& target) = 0;
  virtual void LoopbackReply(std::uint32_t trigger_id, std::uint32_t transaction_id, const pdu::MacAddress& source) = 0;
  virtual void LoopbackEnded(std::uint32_t trigger_id, const LoopbackResult& result) = 0;

 protected:
  ~LoopbackOutput() = default;
};

class LinktraceOutput {
 public:
  /// The LTM has left.
  virtual void LinktraceStarted(std::uint32_t transaction_id, const pdu::MacAddress& target,
                                std::uint16_t target_mep_id, std::uint8_t ttl) = 0;
  /// Called in the order of arrival.
  virtual void LinktraceReply(const pdu::EthernetHeader& header, const pdu::Ltr& reply) = 0;
  virtual void LinktraceEnded(std::uint32_t transaction_id) = 0;

 protected:
  ~LinktraceOutput() = default;
};

class DelayOutput {
 public:
  virtual void DelayMeasurementStarted(std::uint32_t trigger_id, const pdu::MacAddress& target) = 0;
  virtual void DelayMeasurementReply(std::uint32_t trigger_id, const pdu::MacAddress& source) = 0;
  virtual void DelayMeasurementEnded(std::uint32_t trigger_id, const DelayResult& result) = 0;

 protected:
  ~DelayOutput() = default;
};

/// One run of one session of a probe.
struct SessionReport {
  std::uint16_t probe_id = 0;
  std::uint16_t session_id = 0;
  bool complete = false;  ///< false: aborted
  std::uint16_t local_mep_id = 0;
  std::uint16_t remote_mep_id = 0;
  std::uint32_t run = 0;  ///< from 1
  Duration started_at{};  ///< since 1970
  DelayResult result;
};

class ProbeOutput {
 public:
  virtual void SessionEnded(const SessionReport& report) = 0;

 protected:
  ~ProbeOutput() = default;
};

class MepOutput : public FrameOutput,
                  public RemoteOutput,
                  public LocalOutput,
                  public LoopbackOutput,
                  public LinktraceOutput,
                  public DelayOutput,
                  public ProbeOutput {
 protected:
  ~MepOutput() = default;
};

}  // namespace cfm::protocol

#endif
