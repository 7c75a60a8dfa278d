#include "pdu/loopback.h"

#include <gtest/gtest.h>

#include "golden_frames.h"

namespace cfm::pdu {
namespace {

class ALoopback : public testing::Test {
 protected:
  ALoopback() {
    lbm.level = 3;
    lbm.transaction_id = 0x01020304;
    lbm.sender_id =
        SenderId{.chassis_subtype = 7, .chassis_id = chassis, .management_domain = {}, .management_address = {}};
    lbm.data = data;
  }

  const Buffer chassis = Hex("77657374");
  const Buffer data = Hex("a0a1a2a3a4");
  Loopback lbm;
};

TEST_F(ALoopback, IsWrittenAsItsGoldenOctets) {
  EXPECT_EQ(Encoded(EncodeLbm, lbm), ToHex(GoldenOctets("lbm")));
}

TEST_F(ALoopback, HasItsLevelInTheUpperThreeBits) {
  for (unsigned level = 0; level <= kHighestLevel; ++level) {
    lbm.level = static_cast<std::uint8_t>(level);
    Buffer expected = GoldenOctets("lbm");
    expected[0] = static_cast<std::uint8_t>(level << 5);
    EXPECT_EQ(Encoded(EncodeLbm, lbm), ToHex(expected));
  }
}

TEST_F(ALoopback, IsReadFieldByField) {
  for (const auto& decoded : {DecodeLbm(GoldenOctets("lbm")), DecodeLbr(GoldenOctets("lbr"))}) {
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->level, 3);
    EXPECT_EQ(decoded->version, 0);
    EXPECT_EQ(decoded->transaction_id, 0x01020304U);
    ASSERT_TRUE(decoded->sender_id);
    EXPECT_EQ(decoded->sender_id->chassis_subtype, 7);
    EXPECT_EQ(ToHex(decoded->sender_id->chassis_id), ToHex(chassis));
    EXPECT_TRUE(decoded->sender_id->management_domain.empty());
    EXPECT_TRUE(decoded->sender_id->management_address.empty());
    EXPECT_EQ(ToHex(decoded->data), ToHex(data));
  }
}

TEST_F(ALoopback, HasNoTlvForWhatIsNotThere) {
  lbm.sender_id.reset();
  lbm.data = {};
  EXPECT_EQ(Encoded(EncodeLbm, lbm), ToHex(Hex("60 03 00 04 01020304 00")));
}

TEST_F(ALoopback, CarriesDataUpToTheLengthThatATlvCanSay) {
  const Buffer longest(65535, 0x5a);
  const Buffer too_long(65536, 0x5a);
  Buffer buffer(70000);
  lbm.data = longest;
  const std::size_t size = EncodeLbm(lbm, buffer);
  ASSERT_EQ(size, 8U + 10 + 3 + 65535 + 1);
  EXPECT_EQ(DecodeLbm(Octets(buffer).first(size))->data.size(), longest.size());
  lbm.data = too_long;
  EXPECT_EQ(EncodeLbm(lbm, buffer), 0U);
}

TEST_F(ALoopback, IsNotWrittenIntoASmallerBuffer) {
  for (std::size_t size = 0; size < GoldenOctets("lbm").size(); ++size) {
    Buffer buffer(size);
    EXPECT_EQ(EncodeLbm(lbm, buffer), 0U) << size;
  }
}

TEST(ALoopbackReply, IsTheMessageWithAnotherOpcode) {
  // Version 9, reserved flags, octets before the TLVs, an unknown TLV, padding: all of it comes back.
  const Buffer message = Hex("69 03 a5 06 01020304 beef fd 0003 112233 03 0001 44 00 ffffffff");
  Buffer expected = message;
  expected[1] = 2;
  Buffer reply(message.size());
  ASSERT_EQ(MakeLbr(message, reply), message.size());
  EXPECT_EQ(ToHex(reply), ToHex(expected));
  EXPECT_TRUE(DecodeLbr(reply));
}

TEST(ALoopbackReply, OfTheGoldenMessageIsTheGoldenReply) {
  Buffer buffer(100);
  const std::size_t size = MakeLbr(GoldenOctets("lbm"), buffer);
  EXPECT_EQ(ToHex(Octets(buffer).first(size)), ToHex(GoldenOctets("lbr")));
}

TEST(ALoopbackReply, IsNotMadeInASmallerBuffer) {
  Buffer buffer(GoldenOctets("lbm").size() - 1);
  EXPECT_EQ(MakeLbr(GoldenOctets("lbm"), buffer), 0U);
}

}  // namespace
}  // namespace cfm::pdu
