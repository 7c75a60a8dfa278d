// What a series of measured delays comes to.
#ifndef CFM_SERVER_PROTOCOL_DELAY_STATISTICS_H
#define CFM_SERVER_PROTOCOL_DELAY_STATISTICS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "protocol/time.h"

namespace cfm::protocol {

/// All zero without samples. Percentiles by nearest rank, the deviation is that of the population.
struct Summary {
  std::size_t count = 0;
  Duration min{};
  Duration median{};
  Duration percentile95{};
  Duration percentile99{};
  Duration max{};
  double mean_us = 0;
  double deviation_us = 0;
};

Summary Summarise(std::vector<Duration> samples);

/// The differences between the delays of messages that were sent one right after the other; none across a lost one.
std::vector<Duration> Variations(std::span<const std::optional<Duration>> delays);

/// Rounded up, so that no delay that was there becomes 0.
std::uint32_t ToMicroseconds(Duration duration);

struct DelayResult {
  std::uint32_t sent = 0;
  std::uint32_t received = 0;  ///< that gave a delay; the rest of those sent is lost
  Summary delay;
  Summary variation;
  std::uint32_t data_octets = 0;
  std::uint32_t duplicates = 0;
  std::uint32_t discarded = 0;       ///< replies without a delay, as a clock was stepped
  std::uint32_t without_stamps = 0;  ///< delays that hold the way through this host, for want of the kernel's stamps
};

}  // namespace cfm::protocol

#endif
