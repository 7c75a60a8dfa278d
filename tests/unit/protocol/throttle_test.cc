#include "protocol/throttle.h"

#include <gtest/gtest.h>

#include <chrono>

#include "recording_output.h"

namespace cfm::protocol {
namespace {

using namespace std::chrono_literals;

TEST(AThrottle, LetsTheFirstStatusThroughAndThenChangesOnly) {
  Throttle<int> throttle;
  EXPECT_TRUE(throttle.Offer(1, kStart));
  EXPECT_FALSE(throttle.Offer(1, kStart + 1s));
  EXPECT_TRUE(throttle.Offer(2, kStart + 1s));
  EXPECT_EQ(throttle.deadline(), kNever);
}

TEST(AThrottle, HoldsAChangeBackUntilItsTime) {
  Throttle<int> throttle;
  throttle.Offer(1, kStart);
  EXPECT_FALSE(throttle.Offer(2, kStart + 10ms));
  EXPECT_EQ(throttle.deadline(), kStart + 100ms);
  EXPECT_TRUE(throttle.Offer(2, kStart + 100ms));
  EXPECT_EQ(throttle.deadline(), kNever);
}

TEST(AThrottle, ForgetsAChangeThatWasTakenBack) {
  Throttle<int> throttle;
  throttle.Offer(1, kStart);
  throttle.Offer(2, kStart + 10ms);
  EXPECT_FALSE(throttle.Offer(1, kStart + 20ms));
  EXPECT_EQ(throttle.deadline(), kNever);
}

TEST(AThrottle, ComparesWithWhatWasToldByAnotherWay) {
  Throttle<int> throttle;
  throttle.Offer(1, kStart);
  throttle.Offer(2, kStart + 10ms);
  throttle.Told(2);
  EXPECT_EQ(throttle.deadline(), kNever);
  EXPECT_FALSE(throttle.Offer(1, kStart + 20ms)) << "too early";
  EXPECT_TRUE(throttle.Offer(1, throttle.deadline()));
  throttle.Force();
  throttle.Told(1);
  EXPECT_TRUE(throttle.Offer(1, kStart + 300ms));
}

TEST(AThrottle, TellsTheSameOnceMoreWhenItIsForcedTo) {
  Throttle<int> throttle;
  throttle.Offer(1, kStart);
  throttle.Force();
  EXPECT_FALSE(throttle.Offer(1, kStart + 10ms));
  EXPECT_TRUE(throttle.Offer(1, kStart + 100ms));
  EXPECT_FALSE(throttle.Offer(1, kStart + 300ms));
}

}  // namespace
}  // namespace cfm::protocol
