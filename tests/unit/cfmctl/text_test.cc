#include "text.h"

#include <gtest/gtest.h>

namespace cfmctl {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(AName, LeavesPrintableCharactersAsTheyAre) {
  EXPECT_EQ(Escape("evc 100/a~"), "evc 100/a~");
}

TEST(AName, ShowsEverythingThatCouldDriveATerminalAsHexadecimal) {
  EXPECT_EQ(Escape("\x1b[31m"), "\\x1b[31m");
  EXPECT_EQ(Escape("a\nb\tc\x7f"), "a\\x0ab\\x09c\\x7f");
  EXPECT_EQ(Escape(std::string("a\0b", 3)), "a\\x00b");
  EXPECT_EQ(Escape("\xc3\xa9"), "\\xc3\\xa9");
}

TEST(AName, CannotPretendToBeEscaped) {
  EXPECT_EQ(Escape("\\x1b"), "\\x5cx1b");
}

TEST(ACount, IsGroupedAndAgreesWithItsNoun) {
  EXPECT_EQ(Count(0, "probe"), "0 probes");
  EXPECT_EQ(Count(1, "probe"), "1 probe");
  EXPECT_EQ(Count(1000, "probe"), "1,000 probes");
  EXPECT_EQ(Count(2, "entry", "entries"), "2 entries");
  EXPECT_EQ(Grouped(999), "999");
  EXPECT_EQ(Grouped(1234567), "1,234,567");
}

TEST(APercentage, HasFourDigitsAtMost) {
  EXPECT_EQ(PercentText(0, 0), "0%");
  EXPECT_EQ(PercentText(0, 3), "0%");
  EXPECT_EQ(PercentText(1, 3), "33.33%");
  EXPECT_EQ(PercentText(1, 8), "12.5%");
  EXPECT_EQ(PercentText(3, 3), "100%");
  EXPECT_EQ(PercentText(1, 1024), "0.09766%");
}

TEST(ANumber, IsDecimalDigitsAndNothingElse) {
  EXPECT_EQ(ParseNumber("0"), 0u);
  EXPECT_EQ(ParseNumber("8191"), 8191u);
  for (const char* text : {"", " 1", "1 ", "-1", "+1", "0x10", "1e3", "1.0", "ten", "18446744073709551616"}) {
    EXPECT_EQ(ParseNumber(text), std::nullopt) << text;
  }
}

TEST(ADuration, IsANumberWithAUnit) {
  EXPECT_EQ(ParseDuration("2.5s"), milliseconds(2500));
  EXPECT_EQ(ParseDuration("100ms"), milliseconds(100));
  EXPECT_EQ(ParseDuration("100 ms"), milliseconds(100));
  EXPECT_EQ(ParseDuration("1min"), seconds(60));
  EXPECT_EQ(ParseDuration("1.5min"), seconds(90));
  EXPECT_EQ(ParseDuration("2h"), seconds(7200));
  EXPECT_EQ(ParseDuration("7us"), microseconds(7));
  EXPECT_EQ(ParseDuration("0.001ms"), microseconds(1));
}

TEST(ADuration, IsRefusedWithoutUnitOrBeyondItsResolution) {
  for (const char* text : {"", "s", "5", "2.5", "5 ", "5sec", "5S", "-5s", "+5s", ".5s", "1.s", "1..2s", "1.2.3s",
                           "0.0001ms", "0.5us", "99999999999999999999s", "9223372036854775807s", "1s s"}) {
    EXPECT_EQ(ParseDuration(text), std::nullopt) << text;
  }
}

TEST(ADuration, IsWrittenAsItIsRead) {
  for (const char* text : {"0s", "1s", "2.5s", "10s", "100ms", "1ms", "7us", "1500us", "1min", "61s", "2h", "2.55s"}) {
    const auto parsed = ParseDuration(text);
    ASSERT_TRUE(parsed) << text;
    EXPECT_EQ(FormatDuration(*parsed), text);
  }
}

}  // namespace
}  // namespace cfmctl
