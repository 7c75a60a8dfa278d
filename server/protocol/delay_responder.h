// Answers delay measurement messages (ITU-T Y.1731).
#ifndef CFM_SERVER_PROTOCOL_DELAY_RESPONDER_H
#define CFM_SERVER_PROTOCOL_DELAY_RESPONDER_H

#include "protocol/frame.h"
#include "protocol/transmitter.h"

namespace cfm::protocol {

/// Answers a message that is valid and was addressed to this end point. Both of the reply's own stamps are of the
/// system's clock: when the kernel saw the message, and the moment of sending.
void AnswerDmm(const ReceivedFrame& dmm, Transmitter& transmitter);

}  // namespace cfm::protocol

#endif
