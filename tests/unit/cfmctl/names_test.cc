#include "names.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "cfm/hierarchy.h"

namespace cfmctl {
namespace {

// The codes of the IEEE 802.1Q CFM MIB.
TEST(TheNames, StandForTheCodesOfTheMib) {
  const std::vector<std::pair<CodeNames, std::vector<std::pair<std::uint32_t, const char*>>>> expected = {
      {kSenderIdNames, {{1, "none"}, {2, "chassis"}, {3, "manage"}, {4, "chassis-manage"}, {5, "defer"}}},
      {kMhfCreationNames, {{1, "none"}, {2, "default"}, {3, "explicit"}, {4, "defer"}}},
      {kCcmIntervalNames, {{1, "3.3ms"}, {2, "10ms"}, {3, "100ms"}, {4, "1s"}, {5, "10s"}, {6, "1min"}, {7, "10min"}}},
      {kLowestAlarmNames,
       {{1, "all"}, {2, "mac-status"}, {3, "remote-ccm"}, {4, "error-ccm"}, {5, "xcon-ccm"}, {6, "none"}}},
      {kFaultActionNames, {{0, "none"}, {1, "block"}, {2, "shutdown"}}},
      {kMdFormatNames, {{1, "none"}, {2, "dns"}, {3, "mac"}, {4, "string"}}},
      {kMaFormatNames, {{1, "vid"}, {2, "string"}, {3, "uint16"}, {4, "vpn-id"}, {32, "icc"}}},
      {kDirectionNames, {{1, "down"}, {2, "up"}}},
  };
  for (const auto& [names, codes] : expected) {
    for (const auto& [code, name] : codes) {
      EXPECT_EQ(NameOf(names, code), name);
      EXPECT_EQ(CodeOf(names, name), code);
    }
  }
}

TEST(TheNames, AreReadInAnyLetterCase) {
  EXPECT_EQ(CodeOf(kCcmIntervalNames, "300Hz"), 1u);
  EXPECT_EQ(CodeOf(kDirectionNames, "UP"), 2u);
}

TEST(TheNames, OfAnUnknownCodeAreItsNumber) {
  EXPECT_EQ(NameOf(kDirectionNames, 9), "code 9");
}

TEST(TheNames, AreNotPrefixesOrExtensions) {
  EXPECT_EQ(CodeOf(kDirectionNames, "dow"), std::nullopt);
  EXPECT_EQ(CodeOf(kDirectionNames, "downs"), std::nullopt);
  EXPECT_EQ(CodeOf(kDirectionNames, ""), std::nullopt);
}

TEST(TheNearestName, IsTheOneWithTheFewestSlips) {
  EXPECT_EQ(Nearest("chasis", kSenderIdNames), "chassis");
  EXPECT_EQ(Nearest("mac_status", kLowestAlarmNames), "mac-status");
  EXPECT_EQ(Nearest("1sec", kCcmIntervalNames), "");
  EXPECT_EQ(Nearest("sideways", kDirectionNames), "");
  EXPECT_EQ(Nearest("", kDirectionNames), "");
  EXPECT_EQ(Nearest(std::string(100000, 'x'), kDirectionNames), "");
}

}  // namespace
}  // namespace cfmctl
