// Takes down what an end point hands out: frames as they were, events as lines.
#ifndef CFM_TESTS_UNIT_PROTOCOL_RECORDING_OUTPUT_H
#define CFM_TESTS_UNIT_PROTOCOL_RECORDING_OUTPUT_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pdu/ethernet.h"
#include "pdu/header.h"
#include "protocol/mep_output.h"
#include "protocol/time.h"

namespace cfm::protocol {

struct SentFrame {
  pdu::EthernetHeader header;
  std::vector<std::uint8_t> pdu;
  std::optional<std::uint32_t> stamp_id;

  pdu::Opcode opcode() const { return pdu::DecodeHeader(pdu)->opcode; }
};

/// The beginning of test time; later than any span that the code might subtract.
inline constexpr TimePoint kStart{std::chrono::hours(1000)};

class RecordingOutput : public MepOutput {
 public:
  bool Send(const OutgoingFrame& frame) override;
  ClockReading ReadClocks() override;
  void RemoteStatusChanged(std::uint16_t mep_id, const RemoteStatus& status) override;
  void RemoteRemoved(std::uint16_t mep_id) override;
  void LocalStatusChanged(const LocalStatus& status) override;
  void FaultActionChanged(FaultAction action) override;
  void CcmWasLate(std::uint64_t late) override;
  void CcmDefectBegan(const OffendingCcm& offender) override;
  void LoopbackStarted(std::uint32_t trigger_id, const pdu::MacAddress& target) override;
  void LoopbackReply(std::uint32_t trigger_id, std::uint32_t transaction_id, const pdu::MacAddress& source) override;
  void LoopbackEnded(std::uint32_t trigger_id, const LoopbackResult& result) override;
  void LinktraceStarted(std::uint32_t transaction_id, const pdu::MacAddress& target, std::uint16_t target_mep_id,
                        std::uint8_t ttl) override;
  void LinktraceReply(const pdu::EthernetHeader& header, const pdu::Ltr& reply) override;
  void LinktraceEnded(std::uint32_t transaction_id) override;
  void DelayMeasurementStarted(std::uint32_t trigger_id, const pdu::MacAddress& target) override;
  void DelayMeasurementReply(std::uint32_t trigger_id, const pdu::MacAddress& source) override;
  void DelayMeasurementEnded(std::uint32_t trigger_id, const DelayResult& result) override;
  void SessionEnded(const SessionReport& report) override;

  /// The events since the last call.
  std::vector<std::string> TakeEvents() { return std::exchange(events, {}); }
  std::vector<SentFrame> TakeFrames() { return std::exchange(frames, {}); }

  std::vector<SentFrame> frames;
  std::vector<std::string> events;
  std::vector<LocalStatus> local;
  std::vector<DelayResult> delays;
  std::vector<SessionReport> reports;
  bool can_send = true;
  TimePoint now = kStart;
  Duration system_offset = std::chrono::hours(480000);
};

/// The address of a test's station: 02:00:00:00:00:<number>.
pdu::MacAddress Station(std::uint8_t number);

}  // namespace cfm::protocol

#endif
