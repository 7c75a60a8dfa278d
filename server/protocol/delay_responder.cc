#include "protocol/delay_responder.h"

#include <algorithm>
#include <array>
#include <span>

#include "pdu/delay.h"
#include "protocol/time_stamp.h"

namespace cfm::protocol {

void AnswerDmm(const ReceivedFrame& dmm, Transmitter& transmitter) {
  std::array<std::uint8_t, kLargestPdu> buffer;
  const Duration received = dmm.stamps.software ? *dmm.stamps.software : transmitter.ReadClocks().system;
  const std::span dmr = std::span(buffer).first(pdu::MakeDmr(dmm.pdu, ToTimeStamp(received), buffer));
  if (dmr.empty()) return;
  // A clock that is set back in between must not make a reply leave before its message came.
  pdu::SetSentB(dmr, ToTimeStamp(std::max(received, transmitter.ReadClocks().system)));
  transmitter.Reply(dmm.header, dmr);
}

}  // namespace cfm::protocol
