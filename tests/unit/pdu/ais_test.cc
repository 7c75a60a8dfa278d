#include "pdu/ais.h"

#include <gtest/gtest.h>

#include "golden_frames.h"

namespace cfm::pdu {
namespace {

TEST(AnAis, IsWrittenAsItsGoldenOctets) {
  EXPECT_EQ(Encoded(EncodeAis, Ais{.level = 2, .version = 0, .period = AisPeriod::k1s}),
            ToHex(GoldenOctets("ais-second")));
  EXPECT_EQ(Encoded(EncodeAis, Ais{.level = 2, .version = 0, .period = AisPeriod::k1min}),
            ToHex(GoldenOctets("ais-minute")));
}

TEST(AnAis, HasItsLevelInTheUpperThreeBits) {
  for (unsigned level = 0; level <= kHighestLevel; ++level) {
    Buffer expected = GoldenOctets("ais-second");
    expected[0] = static_cast<std::uint8_t>(level << 5);
    EXPECT_EQ(
        Encoded(EncodeAis, Ais{.level = static_cast<std::uint8_t>(level), .version = 0, .period = AisPeriod::k1s}),
        ToHex(expected));
    EXPECT_EQ(DecodeAis(expected)->level, level);
  }
}

TEST(AnAis, IsRefusedWithAPeriodOtherThanASecondOrAMinute) {
  for (unsigned flags = 0; flags < 256; ++flags) {
    const auto ais = DecodeAis(Buffer{0x40, 0x21, static_cast<std::uint8_t>(flags), 0x00, 0x00});
    const unsigned period = flags & 0x07;
    if (period == 4 || period == 6) {
      ASSERT_TRUE(ais);
      EXPECT_EQ(static_cast<unsigned>(ais->period), period);
    } else {
      ASSERT_FALSE(ais);
      EXPECT_EQ(ais.error(), (Error{Problem::kValue, 2}));
    }
  }
}

TEST(AnAis, IsNotWrittenIntoASmallerBuffer) {
  for (std::size_t size = 0; size < 5; ++size) {
    Buffer buffer(size);
    EXPECT_EQ(EncodeAis({}, buffer), 0U);
  }
}

}  // namespace
}  // namespace cfm::pdu
