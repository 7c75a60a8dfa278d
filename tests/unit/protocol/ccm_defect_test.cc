#include "protocol/ccm_defect.h"

#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "recording_output.h"

namespace cfm::protocol {
namespace {

using namespace std::chrono_literals;

class ACcmDefect : public testing::Test {
 protected:
  bool RaiseAt(Duration time, std::uint8_t interval) {
    return defect_.Raise(CcmVerdict::kMaid, {.level = 3, .interval = interval, .mep_id = 7}, Station(9), octets_, 1s,
                         kStart + time);
  }

  std::vector<std::uint8_t> octets_ = std::vector<std::uint8_t>(200, 0x5a);
  CcmDefect defect_;
};

TEST_F(ACcmDefect, HoldsForThreeAndAHalfOfTheOffendersIntervals) {
  EXPECT_TRUE(RaiseAt(0s, 5));
  EXPECT_EQ(defect_.deadline(), kStart + 35s);
  defect_.Advance(kStart + 35s - 1ns);
  EXPECT_TRUE(defect_.present());
  defect_.Advance(kStart + 35s);
  EXPECT_FALSE(defect_.present());
  EXPECT_EQ(defect_.deadline(), kNever);
}

TEST_F(ACcmDefect, IsExtendedByAFurtherOne) {
  RaiseAt(0s, 4);
  EXPECT_FALSE(RaiseAt(1s, 4));
  EXPECT_EQ(defect_.deadline(), kStart + 4500ms);
}

TEST_F(ACcmDefect, IsNotShortenedByAFasterOffender) {
  RaiseAt(0s, 5);
  RaiseAt(1s, 3);
  EXPECT_EQ(defect_.deadline(), kStart + 35s);
}

TEST_F(ACcmDefect, TakesTheOwnIntervalForNone) {
  RaiseAt(0s, 0);
  EXPECT_EQ(defect_.deadline(), kStart + 3500ms);
}

TEST_F(ACcmDefect, KeepsTheLastOffenderWithItsReasonAndItsFirst128Octets) {
  EXPECT_FALSE(defect_.last());
  RaiseAt(0s, 4);
  octets_.assign(75, 0x11);
  defect_.Raise(CcmVerdict::kLevel, {.level = 2, .interval = 3, .mep_id = 8}, Station(4), octets_, 1s, kStart + 1s);
  defect_.Advance(kStart + 1h);
  ASSERT_TRUE(defect_.last());
  EXPECT_EQ(defect_.last()->reason, CcmVerdict::kLevel);
  EXPECT_EQ(defect_.last()->source, Station(4));
  EXPECT_EQ(defect_.last()->mep_id, 8);
  EXPECT_EQ(defect_.last()->octets, octets_);
  octets_.assign(200, 0x22);
  RaiseAt(2h, 4);
  EXPECT_EQ(defect_.last()->octets, std::vector<std::uint8_t>(128, 0x22));
}

TEST_F(ACcmDefect, BeginsAnewAfterItHasEnded) {
  EXPECT_TRUE(RaiseAt(0s, 4));
  defect_.Advance(kStart + 4s);
  EXPECT_TRUE(RaiseAt(5s, 4));
}

}  // namespace
}  // namespace cfm::protocol
