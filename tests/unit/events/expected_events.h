// What the client library does when a message arrives, everything it may be asked for included: all five handlers
// registered, every log level on. Written from the message's side, for tests that draw or bend their messages; the
// tests of each subject pin the same texts as literals.
#ifndef TESTS_UNIT_EVENTS_EXPECTED_EVENTS_H
#define TESTS_UNIT_EVENTS_EXPECTED_EVENTS_H

#include <string>
#include <string_view>

#include "cfm/client.h"
#include "client_server.pb.h"
#include "recording_middleware.h"

namespace recording {

/// An address, in a message and in a record.
inline const std::string kMac("\x00\x1b\x21\xab\xcd\xef", 6);
inline constexpr cfm::st_mac kMacRecord = {{0x00, 0x1b, 0x21, 0xab, 0xcd, 0xef}};

/// The first six octets, zero beyond the field's end.
cfm::st_mac MacOf(std::string_view field);

Journal Expected(const client_server::StatusLocalMaintenanceEndpoint& message);
Journal Expected(const client_server::StatusRemoteMaintenanceEndpoint& message);
Journal Expected(const client_server::RemovedLocalMaintenanceEndpoint& message);
Journal Expected(const client_server::RemovedRemoteMaintenanceEndpoint& message);
Journal Expected(const client_server::OpDelayMeasurementSessionEnded& message);

Journal Expected(const client_server::OpReplyAllStats& message);

Journal Expected(const client_server::OpLinktraceStarted& message);
Journal Expected(const client_server::OpLinktraceEnded& message);
Journal Expected(const client_server::OpLinktraceReplyRx& message);
Journal Expected(const client_server::OpLinktraceTriggerError& message);

Journal Expected(const client_server::OpLoopbackTriggerError& message);
Journal Expected(const client_server::OpLoopbackStarted& message);
Journal Expected(const client_server::OpLoopbackReplyRx& message);
Journal Expected(const client_server::OpLoopbackEnded& message);

Journal Expected(const client_server::OpDelayMeasurementTriggerError& message);
Journal Expected(const client_server::OpDelayMeasurementStarted& message);
Journal Expected(const client_server::OpDelayMeasurementReplyRx& message);
Journal Expected(const client_server::OpDelayMeasurementEnded& message);

}  // namespace recording

#endif
