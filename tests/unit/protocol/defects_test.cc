#include "protocol/defects.h"

#include <gtest/gtest.h>

namespace cfm::protocol {
namespace {

/// Only this one.
DefectFlags Flags(Defect defect) {
  return {.rdi = defect == Defect::kRdi,
          .mac_status = defect == Defect::kMacStatus,
          .remote_ccm = defect == Defect::kRemoteCcm,
          .error_ccm = defect == Defect::kErrorCcm,
          .xcon_ccm = defect == Defect::kXconCcm};
}

TEST(ADefect, IsAnAlarmFromTheLowestAllowedPriorityOn) {
  for (std::uint8_t priority = 1; priority <= 5; ++priority) {
    for (std::uint8_t lowest = 1; lowest <= 6; ++lowest) {
      const auto defect = static_cast<Defect>(priority);
      EXPECT_EQ(HighestAlarm(Flags(defect), lowest), priority >= lowest ? defect : Defect::kNone)
          << int{priority} << " with lowest " << int{lowest};
    }
  }
}

TEST(ADefect, GivesWayToOneOfHigherPriority) {
  DefectFlags defects = Flags(Defect::kRdi);
  defects.mac_status = true;
  EXPECT_EQ(HighestAlarm(defects, 1), Defect::kMacStatus);
  defects.remote_ccm = true;
  EXPECT_EQ(HighestAlarm(defects, 1), Defect::kRemoteCcm);
  defects.error_ccm = true;
  EXPECT_EQ(HighestAlarm(defects, 1), Defect::kErrorCcm);
  defects.xcon_ccm = true;
  EXPECT_EQ(HighestAlarm(defects, 1), Defect::kXconCcm);
}

TEST(ADefect, NoneAtAllIsNoAlarm) {
  EXPECT_EQ(HighestAlarm({}, 0), Defect::kNone);
  EXPECT_EQ(HighestAlarm({}, 1), Defect::kNone);
}

TEST(ADefect, AisRaisesNoAlarm) {
  EXPECT_EQ(HighestAlarm({.ais = true}, 1), Defect::kNone);
}

TEST(ADefect, SetsTheRdiThatIsSentWhenItIsAllowedAndNotRdiItself) {
  for (std::uint8_t priority = 1; priority <= 5; ++priority) {
    for (std::uint8_t lowest = 1; lowest <= 6; ++lowest) {
      EXPECT_EQ(RdiToSend(Flags(static_cast<Defect>(priority)), lowest), priority >= lowest && priority != 1)
          << int{priority} << " with lowest " << int{lowest};
    }
  }
}

}  // namespace
}  // namespace cfm::protocol
