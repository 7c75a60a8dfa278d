#include "contract/key.h"

#include <gtest/gtest.h>

#include <string>

namespace cfm::contract {
namespace {

using namespace std::string_literals;

TEST(AnObjectsText, NamesItsKindAndKey) {
  EXPECT_EQ(ToText(DomainKey{"west"}), "domain 'west'");
  EXPECT_EQ(ToText(AssociationKey{"west", "5"}), "association 'west'/'5'");
  EXPECT_EQ(ToText(EndpointKey{"west", "5", 8191}), "end point 'west'/'5'/8191");
  EXPECT_EQ(ToText(ProbeKey{3}), "probe 3");
  EXPECT_EQ(ToText(SessionKey{3, 65535}), "session 3/65535");
}

TEST(AQuotedName, ShowsOnlyPrintableAscii) {
  EXPECT_EQ(Quoted(""), "''");
  EXPECT_EQ(Quoted("a b~"), "'a b~'");
  EXPECT_EQ(Quoted("\x1b[2J\n\0\x7f\xc3\xbc"s), "'\\x1b[2J\\x0a\\x00\\x7f\\xc3\\xbc'");
  EXPECT_EQ(Quoted("it's\\"), "'it\\x27s\\x5c'");
}

TEST(AQuotedName, IsCutAfter64Octets) {
  EXPECT_EQ(Quoted(std::string(64, 'a')), "'" + std::string(64, 'a') + "'");
  EXPECT_EQ(Quoted(std::string(65, 'a')), "'" + std::string(64, 'a') + "...'");
}

}  // namespace
}  // namespace cfm::contract
