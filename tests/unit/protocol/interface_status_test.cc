#include "protocol/interface_status.h"

#include <gtest/gtest.h>
#include <linux/if.h>

namespace cfm::protocol {
namespace {

using pdu::InterfaceStatus;

TEST(AnInterfaceStatus, IsTheStateOfTheSameName) {
  EXPECT_EQ(ToInterfaceStatus({.operstate = IF_OPER_UP}), InterfaceStatus::kUp);
  EXPECT_EQ(ToInterfaceStatus({.operstate = IF_OPER_DOWN}), InterfaceStatus::kDown);
  EXPECT_EQ(ToInterfaceStatus({.operstate = IF_OPER_TESTING}), InterfaceStatus::kTesting);
  EXPECT_EQ(ToInterfaceStatus({.operstate = IF_OPER_UNKNOWN}), InterfaceStatus::kUnknown);
  EXPECT_EQ(ToInterfaceStatus({.operstate = IF_OPER_DORMANT}), InterfaceStatus::kDormant);
  EXPECT_EQ(ToInterfaceStatus({.operstate = IF_OPER_NOTPRESENT}), InterfaceStatus::kNotPresent);
  EXPECT_EQ(ToInterfaceStatus({.operstate = IF_OPER_LOWERLAYERDOWN}), InterfaceStatus::kLowerLayerDown);
}

TEST(AnInterfaceStatus, IsUpForAPortThatWorksAndWhoseDriverDoesNotSay) {
  EXPECT_EQ(ToInterfaceStatus({.operstate = IF_OPER_UNKNOWN, .lower_up = true}), InterfaceStatus::kUp);
}

TEST(AnInterfaceStatus, DoesNotTellOfTheServersOwnFaultAction) {
  EXPECT_EQ(ToInterfaceStatus({.operstate = IF_OPER_DORMANT, .held_dormant = true}), InterfaceStatus::kUp);
  EXPECT_EQ(ToInterfaceStatus({.operstate = IF_OPER_DOWN, .held_dormant = true}), InterfaceStatus::kDown);
}

}  // namespace
}  // namespace cfm::protocol
