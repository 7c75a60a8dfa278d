#include "pdu/header.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "octets.h"

namespace cfm::pdu {
namespace {

TEST(AHeader, IsReadOfEveryOpcodeAndLevel) {
  const auto header = DecodeHeader(Hex("bf 63 81 ff"));
  ASSERT_TRUE(header);
  EXPECT_EQ(header->level, 5);
  EXPECT_EQ(header->version, 31);
  EXPECT_EQ(static_cast<unsigned>(header->opcode), 99U);
  EXPECT_EQ(header->flags, 0x81);
  EXPECT_EQ(header->first_tlv_offset, 255);
}

TEST(AHeader, IsReadAsItWasWritten) {
  for (unsigned first = 0; first < 256; ++first) {
    const Buffer octets = {static_cast<std::uint8_t>(first), static_cast<std::uint8_t>(~first), 0x5a, 0xc3};
    Buffer written(kHeaderSize);
    Writer writer(written);
    WriteHeader(writer, *DecodeHeader(octets));
    EXPECT_EQ(writer.size(), kHeaderSize);
    EXPECT_EQ(ToHex(written), ToHex(octets));
  }
}

TEST(AHeader, NeedsFourOctets) {
  for (std::size_t size = 0; size < kHeaderSize; ++size) {
    const auto header = DecodeHeader(Buffer(size));
    ASSERT_FALSE(header);
    EXPECT_EQ(header.error(), (Error{Problem::kTooShort, size}));
  }
}

TEST(AProblem, HasATextOfItsOwn) {
  std::set<std::string> texts;
  for (std::size_t problem = 0; problem < kProblemCount; ++problem) {
    texts.insert(ToText(static_cast<Problem>(problem)));
  }
  EXPECT_EQ(texts.size(), kProblemCount);
  EXPECT_FALSE(texts.contains("unknown problem"));
}

}  // namespace
}  // namespace cfm::pdu
