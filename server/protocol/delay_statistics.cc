#include "protocol/delay_statistics.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace cfm::protocol {
namespace {

using Microseconds = std::chrono::duration<double, std::micro>;

/// `sorted` is not empty.
Duration NearestRank(const std::vector<Duration>& sorted, std::size_t percent) {
  const std::size_t rank = (sorted.size() * percent + 99) / 100;
  return sorted[rank - 1];
}

}  // namespace

Summary Summarise(std::vector<Duration> samples) {
  Summary summary;
  if (samples.empty()) return summary;
  std::sort(samples.begin(), samples.end());
  summary.count = samples.size();
  summary.min = samples.front();
  summary.median = NearestRank(samples, 50);
  summary.percentile95 = NearestRank(samples, 95);
  summary.percentile99 = NearestRank(samples, 99);
  summary.max = samples.back();

  const auto count = static_cast<double>(samples.size());
  for (const Duration sample : samples) summary.mean_us += Microseconds(sample).count() / count;
  double variance = 0;
  for (const Duration sample : samples) {
    const double difference = Microseconds(sample).count() - summary.mean_us;
    variance += difference * difference / count;
  }
  summary.deviation_us = std::sqrt(variance);
  return summary;
}

std::vector<Duration> Variations(std::span<const std::optional<Duration>> delays) {
  std::vector<Duration> variations;
  for (std::size_t i = 1; i < delays.size(); ++i) {
    if (delays[i - 1] && delays[i]) variations.push_back(std::chrono::abs(*delays[i] - *delays[i - 1]));
  }
  return variations;
}

std::uint32_t ToMicroseconds(Duration duration) {
  const auto microseconds = std::chrono::ceil<std::chrono::microseconds>(duration).count();
  return static_cast<std::uint32_t>(
      std::clamp<std::int64_t>(microseconds, 0, std::numeric_limits<std::uint32_t>::max()));
}

}  // namespace cfm::protocol
