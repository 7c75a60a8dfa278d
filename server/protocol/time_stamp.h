// Time stamps as frames carry them.
#ifndef CFM_SERVER_PROTOCOL_TIME_STAMP_H
#define CFM_SERVER_PROTOCOL_TIME_STAMP_H

#include <chrono>
#include <cstdint>

#include "pdu/delay.h"
#include "protocol/time.h"

namespace cfm::protocol {

/// Seconds wrap as the field does, in 2106.
constexpr pdu::TimeStamp ToTimeStamp(Duration since_epoch) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(since_epoch);
  return {.seconds = static_cast<std::uint32_t>(seconds.count()),
          .nanoseconds = static_cast<std::uint32_t>((since_epoch - seconds).count())};
}

/// Of any stamp, as they come from the network; fits, whatever it holds.
constexpr Duration ToDuration(const pdu::TimeStamp& stamp) {
  return std::chrono::seconds(stamp.seconds) + std::chrono::nanoseconds(stamp.nanoseconds);
}

}  // namespace cfm::protocol

#endif
