#include <gtest/gtest.h>

#include "octets.h"
#include "pdu/reader.h"
#include "pdu/writer.h"

namespace cfm::pdu {
namespace {

TEST(AReader, ReadsBigEndianNumbersAndRunsOfOctets) {
  const Buffer octets = Hex("01 0203 04050607 08090a0b0c0d 0e 02 0f10 1112");
  Reader reader(octets);
  EXPECT_EQ(reader.u8(), 0x01);
  EXPECT_EQ(reader.u16(), 0x0203);
  EXPECT_EQ(reader.u32(), 0x04050607U);
  EXPECT_EQ(ToHex(reader.mac()), "08090a0b0c0d");
  reader.skip(1);
  EXPECT_EQ(ToHex(reader.counted_octets()), "0f10");
  EXPECT_EQ(reader.offset(), 17U);
  EXPECT_EQ(ToHex(reader.octets(2)), "1112");
  EXPECT_EQ(reader.remaining(), 0U);
  EXPECT_TRUE(reader.ok());
}

TEST(AReader, FailsForGoodAndRemembersWhere) {
  const Buffer octets = Hex("01020304");
  Reader reader(octets, 100);
  EXPECT_EQ(reader.u8(), 1);
  EXPECT_EQ(reader.u32(), 0U);
  EXPECT_FALSE(reader.ok());
  EXPECT_EQ(reader.offset(), 101U);
  EXPECT_EQ(reader.u8(), 0);
  EXPECT_TRUE(reader.octets(1).empty());
  EXPECT_TRUE(reader.octets(0).empty());
  EXPECT_FALSE(reader.next_tlv());
  EXPECT_EQ(reader.mac(), MacAddress{});
  EXPECT_EQ(reader.offset(), 101U);
  EXPECT_FALSE(reader.ok());
}

TEST(AReader, RefusesACountThatIsLargerThanAnyFrame) {
  const Buffer octets = Hex("01020304");
  Reader reader(octets);
  reader.u8();
  EXPECT_TRUE(reader.octets(static_cast<std::size_t>(-1)).empty());
  EXPECT_FALSE(reader.ok());
}

TEST(AReader, HandsOutTlvsUpToTheEndTlv) {
  const Buffer octets = Hex("1f 0002 abcd 03 0000 00 ff ffff");
  Reader reader(octets, 10);
  const auto first = reader.next_tlv();
  ASSERT_TRUE(first);
  EXPECT_EQ(first->type, 0x1f);
  EXPECT_EQ(first->offset, 10U);
  EXPECT_EQ(ToHex(first->value), "abcd");
  const auto second = reader.next_tlv();
  ASSERT_TRUE(second);
  EXPECT_EQ(second->type, 3);
  EXPECT_EQ(second->offset, 15U);
  EXPECT_TRUE(second->value.empty());
  EXPECT_FALSE(reader.next_tlv());
  EXPECT_TRUE(reader.ok());
}

TEST(AReader, FailsAtTheBeginningOfATlvThatDoesNotFit) {
  const Buffer octets = Hex("1f 0002 abcd 03 0003 0102");
  Reader reader(octets);
  EXPECT_TRUE(reader.next_tlv());
  EXPECT_FALSE(reader.next_tlv());
  EXPECT_FALSE(reader.ok());
  EXPECT_EQ(reader.offset(), 5U);
}

TEST(AWriter, WritesWhatAReaderReads) {
  Buffer buffer(40, 0xee);
  Writer writer(buffer);
  writer.u8(0x01);
  writer.u16(0x0203);
  writer.u32(0x04050607);
  writer.mac({8, 9, 10, 11, 12, 13});
  writer.counted_octets(Hex("0f10"));
  writer.zeros(2);
  const std::size_t tlv = writer.begin_tlv(31);
  writer.octets(Hex("aabbcc"));
  writer.end_tlv(tlv);
  ASSERT_TRUE(writer.ok());
  EXPECT_EQ(ToHex(Octets(buffer).first(writer.size())),
            ToHex(Hex("01 0203 04050607 08090a0b0c0d 02 0f10 0000 1f 0003 aabbcc")));
  EXPECT_EQ(buffer[writer.size()], 0xee);
}

TEST(AWriter, FailsForGood) {
  Buffer buffer(5, 0xee);
  Writer writer(buffer);
  writer.u8(1);
  writer.octets(Hex("0102030405"));
  EXPECT_FALSE(writer.ok());
  EXPECT_EQ(writer.size(), 0U);
  writer.u8(2);
  writer.end_tlv(writer.begin_tlv(31));
  EXPECT_FALSE(writer.ok());
  EXPECT_EQ(ToHex(buffer), "01eeeeeeee");
}

TEST(AWriter, RefusesLengthsThatTheirFieldsCannotSay) {
  Buffer buffer(70000);
  Writer counted(buffer);
  counted.counted_octets(Buffer(256));
  EXPECT_FALSE(counted.ok());

  Writer longest(buffer);
  const std::size_t begin = longest.begin_tlv(3);
  longest.zeros(65535);
  longest.end_tlv(begin);
  EXPECT_EQ(longest.size(), 65538U);
  Writer too_long(buffer);
  too_long.begin_tlv(3);
  too_long.zeros(65536);
  too_long.end_tlv(0);
  EXPECT_FALSE(too_long.ok());
}

}  // namespace
}  // namespace cfm::pdu
