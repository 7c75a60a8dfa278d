#include "pdu/ethernet.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "octets.h"

namespace cfm::pdu {
namespace {

constexpr Tag kOuter{.priority = 7, .drop_eligible = false, .vid = 100};
constexpr Tag kInner{.priority = 5, .drop_eligible = true, .vid = 4094};
constexpr std::string_view kAddresses = "0180c2000035 020000000001";

EthernetHeader HeaderWith(std::optional<Tag> outer, std::optional<Tag> inner) {
  return {.destination = ToAddress({.group_class = GroupClass::k1, .level = 5}),
          .source = {2, 0, 0, 0, 0, 1},
          .outer = outer,
          .inner = inner};
}

Buffer Frame(std::string_view rest) {
  return Hex(std::string(kAddresses) + std::string(rest));
}

struct TagForm {
  std::optional<Tag> outer;
  std::optional<Tag> inner;
  std::string octets;  ///< from the tags to the EtherType
};

const std::vector<TagForm>& TagForms() {
  static const std::vector<TagForm> forms = {{std::nullopt, std::nullopt, "8902"},
                                             {kOuter, std::nullopt, "8100e064 8902"},
                                             {kOuter, kInner, "88a8e064 8100bffe 8902"}};
  return forms;
}

TEST(AnEthernetHeader, IsWrittenAndReadInEachTagForm) {
  for (const auto& [outer, inner, octets] : TagForms()) {
    const EthernetHeader header = HeaderWith(outer, inner);
    EXPECT_EQ(Encoded(EncodeEthernet, header), ToHex(Frame(octets)));
    const Buffer frame = Frame(octets + "a0010046");
    const auto decoded = DecodeEthernet(frame);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->header, header);
    EXPECT_EQ(ToHex(decoded->pdu), "a0010046");
  }
}

TEST(AnEthernetHeader, IsNotReadFromAShorterFrameNorWrittenIntoASmallerBuffer) {
  for (const auto& [outer, inner, octets] : TagForms()) {
    const Buffer frame = Frame(octets);
    for (std::size_t size = 0; size < frame.size(); ++size) {
      const Buffer cut(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size));
      const auto decoded = DecodeEthernet(cut);
      ASSERT_FALSE(decoded);
      EXPECT_EQ(decoded.error().problem, Problem::kTooShort);
      EXPECT_LE(decoded.error().offset, size);
      Buffer buffer(size);
      EXPECT_EQ(EncodeEthernet(HeaderWith(outer, inner), buffer), 0U);
    }
    ASSERT_TRUE(DecodeEthernet(frame));
    EXPECT_TRUE(DecodeEthernet(frame)->pdu.empty());
  }
}

TEST(AnEthernetHeader, IsRefusedWithAnotherEtherType) {
  for (const auto& [tags, offset] : {std::pair("0800", 12U), std::pair("81000001 88cc", 16U),
                                     std::pair("88a80001 81000001 8903", 20U), std::pair("91000001 8902", 12U)}) {
    const auto decoded = DecodeEthernet(Frame(tags));
    ASSERT_FALSE(decoded) << tags;
    EXPECT_EQ(decoded.error(), (Error{Problem::kEtherType, offset})) << tags;
  }
}

TEST(AnEthernetHeader, IsRefusedWithTagsInAnotherForm) {
  for (const auto* tags : {"88a80001 8902", "81000001 81000002 8902", "81000001 88a80002 8902",
                           "88a80001 88a80002 8902", "88a80001 81000002 81000003 8902"}) {
    const auto decoded = DecodeEthernet(Frame(tags));
    ASSERT_FALSE(decoded) << tags;
    EXPECT_EQ(decoded.error(), (Error{Problem::kTags, 12})) << tags;
  }
}

TEST(AnEthernetHeader, TakesTheTagThatWasStrippedAsTheOuterOne) {
  const auto one = DecodeEthernet(Frame("8902"), StrippedTag{.tpid = kTpidCustomer, .tci = 0xe064});
  ASSERT_TRUE(one);
  EXPECT_EQ(one->header, HeaderWith(kOuter, std::nullopt));
  const auto two = DecodeEthernet(Frame("8100bffe 8902"), StrippedTag{.tpid = kTpidService, .tci = 0xe064});
  ASSERT_TRUE(two);
  EXPECT_EQ(two->header, HeaderWith(kOuter, kInner));

  for (const auto& [tpid, rest] :
       {std::pair(kTpidService, "8902"), std::pair(kTpidCustomer, "8100bffe 8902"),
        std::pair(kTpidService, "88a8bffe 8902"), std::pair(kTpidService, "8100bffe 8100bffe 8902"),
        std::pair(std::uint16_t{0x9100}, "8902")}) {
    const auto decoded = DecodeEthernet(Frame(rest), StrippedTag{.tpid = tpid, .tci = 0xe064});
    ASSERT_FALSE(decoded) << rest;
    EXPECT_EQ(decoded.error(), (Error{Problem::kTags, 12})) << rest;
  }
}

TEST(ATag, HasPriorityDropEligibleAndVidInSixteenBits) {
  for (unsigned tci = 0; tci < 65536; ++tci) {
    ASSERT_EQ(ToTci(FromTci(static_cast<std::uint16_t>(tci))), tci);
  }
  EXPECT_EQ(FromTci(0xe064), kOuter);
  EXPECT_EQ(FromTci(0xbffe), kInner);
}

TEST(AGroupAddress, NamesItsClassAndLevelInTheLowestDigit) {
  for (unsigned level = 0; level <= 7; ++level) {
    const auto narrow = static_cast<std::uint8_t>(level);
    const GroupAddress first{.group_class = GroupClass::k1, .level = narrow};
    const GroupAddress second{.group_class = GroupClass::k2, .level = narrow};
    EXPECT_EQ(ToHex(ToAddress(first)), "0180c200003" + std::to_string(level));
    EXPECT_EQ(ToHex(ToAddress(second)), std::string("0180c200003") + "89abcdef"[level]);
    EXPECT_EQ(ToGroupAddress(ToAddress(first)), first);
    EXPECT_EQ(ToGroupAddress(ToAddress(second)), second);
    EXPECT_TRUE(IsGroup(ToAddress(first)));
  }
}

TEST(AGroupAddress, IsNoneOfTheOthers) {
  for (const auto* other : {"0180c200002f", "0180c2000040", "0180c200000e", "0080c2000030", "ffffffffffff",
                            "0180c2000130", "0180c30000f3"}) {
    MacAddress address{};
    std::ranges::copy(Hex(other), address.begin());
    EXPECT_EQ(ToGroupAddress(address), std::nullopt) << other;
  }
  EXPECT_FALSE(IsGroup({2, 0, 0, 0, 0, 1}));
}

}  // namespace
}  // namespace cfm::pdu
