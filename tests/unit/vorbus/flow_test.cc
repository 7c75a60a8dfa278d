#include "flow.h"

#include <gtest/gtest.h>

namespace bus {
namespace {

TEST(AWindow, ClosesAtItsNumberOfMessages) {
  Flow flow;
  for (std::uint32_t i = 0; i < Flow::kWindowMessages; ++i) {
    EXPECT_TRUE(flow.IsOpen());
    flow.CountSent(16);
  }
  EXPECT_FALSE(flow.IsOpen());
  EXPECT_TRUE(flow.WasTaken(1, 16));
  EXPECT_TRUE(flow.IsOpen());
}

TEST(AWindow, ClosesAtItsNumberOfOctetsAndLetsOneMessageOverlap) {
  Flow flow;
  flow.CountSent(Flow::kWindowOctets - 1);
  EXPECT_TRUE(flow.IsOpen());
  flow.CountSent(std::size_t{256} << 20);
  EXPECT_FALSE(flow.IsOpen());
}

TEST(AWindow, RefusesAReportOfMoreThanWasSent) {
  Flow flow;
  flow.CountSent(100);
  EXPECT_FALSE(flow.WasTaken(2, 100));
  EXPECT_FALSE(flow.WasTaken(1, 101));
  EXPECT_TRUE(flow.WasTaken(1, 100));
  EXPECT_FALSE(flow.WasTaken(1, 0));
}

// A sender that the window holds back is let go on by a receiver that takes everything, however the messages fall.
TEST(AWindow, NeverStaysClosedForAReceiverThatTookEverything) {
  for (const std::size_t size : {std::size_t{16}, std::size_t{100}, std::size_t{8191}, std::size_t{8192},
                                 std::size_t{8} << 20, std::size_t{256} << 20}) {
    Flow sender;
    Flow receiver;
    for (int message = 0; message < 100000; ++message) {
      ASSERT_TRUE(sender.IsOpen()) << size;
      sender.CountSent(size);
      receiver.CountTaken(size);
      if (receiver.ReportIsDue()) {
        ASSERT_TRUE(sender.WasTaken(receiver.taken_messages(), receiver.taken_octets()));
        receiver.Reported();
      }
    }
  }
}

}  // namespace
}  // namespace bus
