#include "pdu/delay.h"

#include <gtest/gtest.h>

#include "golden_frames.h"

namespace cfm::pdu {
namespace {

constexpr TimeStamp kSentF{.seconds = 1600000000, .nanoseconds = 123456789};
constexpr TimeStamp kReceivedF{.seconds = 1600000001, .nanoseconds = 16};
constexpr TimeStamp kSentB{.seconds = 1600000001, .nanoseconds = 32};

class ADmm : public testing::Test {
 protected:
  ADmm() {
    dmm.level = 4;
    dmm.proactive = true;
    dmm.sent_f = kSentF;
    dmm.data = data;
  }

  const Buffer data = Hex("010203");
  TwoWayDelay dmm;
};

OneWayDelay GoldenOneWay() {
  OneWayDelay message;
  message.level = 1;
  message.sent_f = {.seconds = 1600000000, .nanoseconds = 999999999};
  return message;
}

TEST_F(ADmm, IsWrittenAsItsGoldenOctets) {
  EXPECT_EQ(Encoded(EncodeDmm, dmm), ToHex(GoldenOctets("dmm")));
}

TEST_F(ADmm, HasItsLevelInTheUpperThreeBits) {
  for (unsigned level = 0; level <= kHighestLevel; ++level) {
    dmm.level = static_cast<std::uint8_t>(level);
    Buffer expected = GoldenOctets("dmm");
    expected[0] = static_cast<std::uint8_t>(level << 5);
    EXPECT_EQ(Encoded(EncodeDmm, dmm), ToHex(expected));
  }
}

TEST_F(ADmm, SaysWhetherItIsOnDemand) {
  dmm.proactive = false;
  Buffer expected = GoldenOctets("dmm");
  expected[2] = 0;
  EXPECT_EQ(Encoded(EncodeDmm, dmm), ToHex(expected));
  EXPECT_FALSE(DecodeDmm(expected)->proactive);
  EXPECT_TRUE(DecodeDmm(GoldenOctets("dmm"))->proactive);
}

TEST_F(ADmm, IsReadFieldByField) {
  const auto decoded = DecodeDmm(GoldenOctets("dmm"));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->level, 4);
  EXPECT_EQ(decoded->sent_f, kSentF);
  EXPECT_EQ(decoded->received_f, TimeStamp{});
  EXPECT_EQ(decoded->sent_b, TimeStamp{});
  EXPECT_EQ(decoded->received_b, TimeStamp{});
  EXPECT_EQ(ToHex(decoded->data), ToHex(data));
}

TEST_F(ADmm, TakesItsFirstStampWhenItIsReadyToGo) {
  dmm.sent_f = {};
  Buffer octets = Hex(Encoded(EncodeDmm, dmm));
  SetSentF(octets, kSentF);
  EXPECT_EQ(ToHex(octets), ToHex(GoldenOctets("dmm")));
}

TEST_F(ADmm, IsNotWrittenIntoASmallerBuffer) {
  for (std::size_t size = 0; size < GoldenOctets("dmm").size(); ++size) {
    Buffer buffer(size);
    EXPECT_EQ(EncodeDmm(dmm, buffer), 0U) << size;
  }
}

TEST(ADmr, IsTheMessageWithTwoMoreStamps) {
  Buffer reply(GoldenOctets("dmm").size());
  ASSERT_EQ(MakeDmr(GoldenOctets("dmm"), kReceivedF, reply), reply.size());
  SetSentB(reply, kSentB);
  EXPECT_EQ(ToHex(reply), ToHex(GoldenOctets("dmr")));
}

TEST(ADmr, CopiesVersionFlagsAndTlvs) {
  Buffer message = GoldenOctets("dmm");
  message[0] |= 0x1f;
  message[2] = 0xff;
  message.pop_back();
  const Buffer more = Hex("fd 0002 5a5a 00 eeee");
  message.insert(message.end(), more.begin(), more.end());
  Buffer expected = message;
  expected[1] = 46;
  Buffer reply(message.size());
  ASSERT_EQ(MakeDmr(message, TimeStamp{}, reply), reply.size());
  EXPECT_EQ(ToHex(reply), ToHex(expected));
}

TEST(ADmr, IsReadFieldByField) {
  const auto decoded = DecodeDmr(GoldenOctets("dmr"));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->level, 4);
  EXPECT_TRUE(decoded->proactive);
  EXPECT_EQ(decoded->sent_f, kSentF);
  EXPECT_EQ(decoded->received_f, kReceivedF);
  EXPECT_EQ(decoded->sent_b, kSentB);
  EXPECT_EQ(decoded->received_b, TimeStamp{});
  EXPECT_EQ(ToHex(decoded->data), "010203");
}

TEST(ADmr, HasFourStampsInTheirOrder) {
  Buffer octets = GoldenOctets("dmr");
  for (std::size_t i = 0; i < 32; ++i) octets[4 + i] = static_cast<std::uint8_t>(i);
  const auto decoded = DecodeDmr(octets);
  EXPECT_EQ(decoded->sent_f, (TimeStamp{0x00010203, 0x04050607}));
  EXPECT_EQ(decoded->received_f, (TimeStamp{0x08090a0b, 0x0c0d0e0f}));
  EXPECT_EQ(decoded->sent_b, (TimeStamp{0x10111213, 0x14151617}));
  EXPECT_EQ(decoded->received_b, (TimeStamp{0x18191a1b, 0x1c1d1e1f}));
}

TEST(ADmr, IsNotMadeInASmallerBuffer) {
  Buffer buffer(GoldenOctets("dmm").size() - 1);
  EXPECT_EQ(MakeDmr(GoldenOctets("dmm"), kReceivedF, buffer), 0U);
}

TEST(AOneWayMessage, IsWrittenAsItsGoldenOctets) {
  EXPECT_EQ(Encoded(Encode1dm, GoldenOneWay()), ToHex(GoldenOctets("1dm")));
}

TEST(AOneWayMessage, HasItsLevelInTheUpperThreeBits) {
  for (unsigned level = 0; level <= kHighestLevel; ++level) {
    OneWayDelay message = GoldenOneWay();
    message.level = static_cast<std::uint8_t>(level);
    Buffer expected = GoldenOctets("1dm");
    expected[0] = static_cast<std::uint8_t>(level << 5);
    EXPECT_EQ(Encoded(Encode1dm, message), ToHex(expected));
  }
}

TEST(AOneWayMessage, IsReadFieldByField) {
  Buffer octets = GoldenOctets("1dm");
  const Buffer tail = Hex("01020304 05060708 03 0002 aabb 00");
  octets.resize(12);
  octets.insert(octets.end(), tail.begin(), tail.end());
  const auto decoded = Decode1dm(octets);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->level, 1);
  EXPECT_FALSE(decoded->proactive);
  EXPECT_EQ(decoded->sent_f, GoldenOneWay().sent_f);
  EXPECT_EQ(decoded->received_f, (TimeStamp{0x01020304, 0x05060708}));
  EXPECT_EQ(ToHex(decoded->data), "aabb");
}

TEST(AOneWayMessage, IsNotWrittenIntoASmallerBuffer) {
  for (std::size_t size = 0; size < GoldenOctets("1dm").size(); ++size) {
    Buffer buffer(size);
    EXPECT_EQ(Encode1dm(GoldenOneWay(), buffer), 0U) << size;
  }
}

}  // namespace
}  // namespace cfm::pdu
