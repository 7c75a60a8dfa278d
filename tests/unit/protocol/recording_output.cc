#include "recording_output.h"

#include <sstream>

namespace cfm::protocol {
namespace {

template <typename... Parts>
std::string Line(const Parts&... parts) {
  std::ostringstream line;
  (line << ... << parts);
  return line.str();
}

/// Of a station of the test.
int NumberOf(const pdu::MacAddress& address) {
  return address[5];
}

const char* Name(RemoteState state) {
  switch (state) {
    case RemoteState::kIdle:
      return "idle";
    case RemoteState::kStart:
      return "start";
    case RemoteState::kFailed:
      return "failed";
    case RemoteState::kOk:
      return "ok";
  }
  return "";
}

}  // namespace

bool RecordingOutput::Send(const OutgoingFrame& frame) {
  if (!can_send) return false;
  frames.push_back({frame.header, {frame.pdu.begin(), frame.pdu.end()}, frame.stamp_id});
  return true;
}

ClockReading RecordingOutput::ReadClocks() {
  return {.system = now.time_since_epoch() + system_offset, .monotonic = now};
}

void RecordingOutput::RemoteStatusChanged(std::uint16_t mep_id, const RemoteStatus& status) {
  events.push_back(Line("remote ", mep_id, " ", Name(status.state), status.rdi ? " rdi" : ""));
}

void RecordingOutput::RemoteRemoved(std::uint16_t mep_id) {
  events.push_back(Line("remote ", mep_id, " removed"));
}

void RecordingOutput::LocalStatusChanged(const LocalStatus& status) {
  std::string line = Line("local highest ", static_cast<int>(status.highest_defect));
  if (status.rdi) line += " sends-rdi";
  if (status.defects.rdi) line += " rdi";
  if (status.defects.mac_status) line += " mac-status";
  if (status.defects.remote_ccm) line += " missing";
  if (status.defects.error_ccm) line += " error";
  if (status.defects.xcon_ccm) line += " cross-connect";
  if (status.defects.ais) line += " ais";
  events.push_back(line);
  local.push_back(status);
}

void RecordingOutput::FaultActionChanged(FaultAction action) {
  events.push_back(Line("action ", static_cast<int>(action)));
}

void RecordingOutput::CcmWasLate(std::uint64_t late) {
  events.push_back(Line("late CCMs: ", late));
}

void RecordingOutput::CcmDefectBegan(const OffendingCcm& offender) {
  events.push_back(Line("defect: ", ToText(offender.reason), ", from ", NumberOf(offender.source), ", level ",
                        static_cast<int>(offender.level), ", id ", offender.mep_id, ", interval ",
                        static_cast<int>(offender.interval)));
}

void RecordingOutput::LoopbackStarted(std::uint32_t trigger_id, const pdu::MacAddress& target) {
  events.push_back(Line("loopback ", trigger_id, " started to ", NumberOf(target)));
}

void RecordingOutput::LoopbackReply(std::uint32_t trigger_id, std::uint32_t transaction_id,
                                    const pdu::MacAddress& source) {
  events.push_back(Line("loopback ", trigger_id, " reply ", transaction_id, " from ", NumberOf(source)));
}

void RecordingOutput::LoopbackEnded(std::uint32_t trigger_id, const LoopbackResult& result) {
  events.push_back(Line("loopback ", trigger_id, " ended: ", result.expected, " expected, ", result.in_order,
                        " in order, ", result.out_of_order, " out of order, ", result.wrong_payload, " wrong"));
}

void RecordingOutput::LinktraceStarted(std::uint32_t transaction_id, const pdu::MacAddress& target,
                                       std::uint16_t target_mep_id, std::uint8_t ttl) {
  events.push_back(Line("linktrace ", transaction_id, " started to ", NumberOf(target), " mep ", target_mep_id, " ttl ",
                        static_cast<int>(ttl)));
}

void RecordingOutput::LinktraceReply(const pdu::EthernetHeader& header, const pdu::Ltr& reply) {
  events.push_back(Line("linktrace ", reply.transaction_id, " reply from ", NumberOf(header.source), " ttl ",
                        static_cast<int>(reply.ttl)));
}

void RecordingOutput::LinktraceEnded(std::uint32_t transaction_id) {
  events.push_back(Line("linktrace ", transaction_id, " ended"));
}

void RecordingOutput::DelayMeasurementStarted(std::uint32_t trigger_id, const pdu::MacAddress& target) {
  events.push_back(Line("delay ", trigger_id, " started to ", NumberOf(target)));
}

void RecordingOutput::DelayMeasurementReply(std::uint32_t trigger_id, const pdu::MacAddress& source) {
  events.push_back(Line("delay ", trigger_id, " reply from ", NumberOf(source)));
}

void RecordingOutput::DelayMeasurementEnded(std::uint32_t trigger_id, const DelayResult& result) {
  events.push_back(Line("delay ", trigger_id, " ended: ", result.received, " of ", result.sent));
  delays.push_back(result);
}

void RecordingOutput::SessionEnded(const SessionReport& report) {
  events.push_back(Line("probe ", report.probe_id, " session ", report.session_id, " run ", report.run,
                        report.complete ? " complete: " : " aborted: ", report.result.received, " of ",
                        report.result.sent));
  reports.push_back(report);
}

pdu::MacAddress Station(std::uint8_t number) {
  return {0x02, 0, 0, 0, 0, number};
}

}  // namespace cfm::protocol
