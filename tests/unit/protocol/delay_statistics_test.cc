#include "protocol/delay_statistics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <random>
#include <vector>

namespace cfm::protocol {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(ASummary, OfNothingIsZero) {
  const Summary summary = Summarise({});
  EXPECT_EQ(summary.count, 0U);
  EXPECT_EQ(summary.max, 0ns);
  EXPECT_EQ(summary.mean_us, 0);
}

TEST(ASummary, OfOneSampleIsThatSample) {
  const Summary summary = Summarise({1500ns});
  for (const Duration value : {summary.min, summary.median, summary.percentile95, summary.percentile99, summary.max}) {
    EXPECT_EQ(value, 1500ns);
  }
  EXPECT_DOUBLE_EQ(summary.mean_us, 1.5);
  EXPECT_DOUBLE_EQ(summary.deviation_us, 0);
}

TEST(ASummary, TakesPercentilesByNearestRank) {
  std::vector<Duration> samples;
  for (int i = 100; i >= 1; --i) samples.push_back(i * 1us);
  const Summary summary = Summarise(samples);
  EXPECT_EQ(summary.min, 1us);
  EXPECT_EQ(summary.median, 50us);
  EXPECT_EQ(summary.percentile95, 95us);
  EXPECT_EQ(summary.percentile99, 99us);
  EXPECT_EQ(summary.max, 100us);
  EXPECT_EQ(Summarise({1us, 2us, 3us, 4us}).median, 2us);
  EXPECT_EQ(Summarise({1us, 2us, 3us, 4us}).percentile95, 4us);
}

TEST(ASummary, HasTheDeviationOfThePopulation) {
  const Summary summary = Summarise({2us, 4us, 4us, 4us, 5us, 5us, 7us, 9us});
  EXPECT_DOUBLE_EQ(summary.mean_us, 5);
  EXPECT_DOUBLE_EQ(summary.deviation_us, 2);
}

TEST(ASummary, AgreesWithAnIndependentComputation) {
  std::mt19937 random(7);
  for (std::size_t count = 1; count < 200; ++count) {
    std::vector<Duration> samples;
    for (std::size_t i = 0; i < count; ++i) samples.emplace_back(random() % 5000000);
    const Summary summary = Summarise(samples);
    // The nearest rank of p percent is the smallest sample that at least p percent of all do not exceed.
    const auto at_least = [&samples](double percent) {
      Duration best = Duration::max();
      for (const Duration candidate : samples) {
        const auto not_above =
            std::count_if(samples.begin(), samples.end(), [candidate](Duration s) { return s <= candidate; });
        const bool enough = static_cast<double>(not_above) * 100 >= percent * static_cast<double>(samples.size());
        if (enough) best = std::min(best, candidate);
      }
      return best;
    };
    EXPECT_EQ(summary.median, at_least(50));
    EXPECT_EQ(summary.percentile95, at_least(95));
    EXPECT_EQ(summary.percentile99, at_least(99));
    double sum = 0;
    double squares = 0;
    for (const Duration sample : samples) {
      const double us = static_cast<double>(sample.count()) / 1000;
      sum += us;
      squares += us * us;
    }
    const auto n = static_cast<double>(count);
    EXPECT_NEAR(summary.mean_us, sum / n, 1e-6);
    EXPECT_NEAR(summary.deviation_us, std::sqrt(std::max(0.0, squares / n - sum / n * sum / n)), 1e-2);
  }
}

TEST(AVariation, LiesBetweenMessagesThatWereSentOneAfterTheOther) {
  EXPECT_THAT(Variations(std::vector<std::optional<Duration>>{1us, 2us, std::nullopt, 4us}), ElementsAre(1us));
  EXPECT_THAT(Variations(std::vector<std::optional<Duration>>{5us, 2us, 4us}), ElementsAre(3us, 2us));
  EXPECT_THAT(Variations(std::vector<std::optional<Duration>>{5us}), IsEmpty());
  EXPECT_THAT(Variations({}), IsEmpty());
}

TEST(ADelayInMicroseconds, IsRoundedUp) {
  EXPECT_EQ(ToMicroseconds(0ns), 0U);
  EXPECT_EQ(ToMicroseconds(1ns), 1U);
  EXPECT_EQ(ToMicroseconds(1000ns), 1U);
  EXPECT_EQ(ToMicroseconds(1001ns), 2U);
  EXPECT_EQ(ToMicroseconds(24h), 4294967295U);
}

}  // namespace
}  // namespace cfm::protocol
