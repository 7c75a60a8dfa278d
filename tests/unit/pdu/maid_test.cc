#include "pdu/maid.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "octets.h"

namespace cfm::pdu {
namespace {

struct Names {
  std::uint32_t md_format;
  std::string md_name;
  std::uint32_t ma_format;
  std::string ma_name;
};

std::ostream& operator<<(std::ostream& out, const Names& names) {
  return out << names.md_format << " '" << names.md_name << "', " << names.ma_format << " '" << names.ma_name << "'";
}

std::variant<Maid, std::string> Encode(const Names& names) {
  return EncodeMaid({names.md_format, names.md_name, names.ma_format, names.ma_name});
}

std::string OctetsOf(const Names& names) {
  const auto encoded = Encode(names);
  return std::holds_alternative<Maid>(encoded) ? ToHex(std::get<Maid>(encoded).octets) : std::get<std::string>(encoded);
}

/// Empty when the names are accepted.
std::string RefusalOf(const Names& names) {
  const auto encoded = Encode(names);
  return std::holds_alternative<Maid>(encoded) ? "" : std::get<std::string>(encoded);
}

std::string Padded(std::string_view hex) {
  Buffer octets = Hex(hex);
  octets.resize(kMaidSize);
  return ToHex(octets);
}

TEST(AMaid, HasFormatLengthAndOctetsOfBothNames) {
  const std::vector<std::pair<Names, std::string>> golden = {
      {{1, "unsent", 1, "100"}, "01 01 02 0064"},
      {{1, "unsent", 2, "service 5"}, "01 02 09 736572766963652035"},
      {{1, "", 3, "65535"}, "01 03 02 ffff"},
      {{1, "", 3, "0"}, "01 03 02 0000"},
      {{1, "", 4, "00a0b1:00000001"}, "01 04 07 00a0b1 00000001"},
      {{1, "", 4, "FFFFFF:ffffffff"}, "01 04 07 ffffff ffffffff"},
      {{1, "", 32, "ABCDEF1234567"}, "01 20 0d 41424344454631323334353637"},
      {{1, "", 32, "ABC123"}, "01 20 0d 41424331323300000000000000"},
      {{2, "net-1.example_x.org", 1, "1"}, "02 13 6e65742d312e6578616d706c655f782e6f7267 01 02 0001"},
      {{3, "00:11:22:33:44:55:7", 3, "256"}, "03 08 001122334455 0007 03 02 0100"},
      {{3, "aA:bB:cC:dD:eE:fF:65535", 1, "4094"}, "03 08 aabbccddeeff ffff 01 02 0ffe"},
      {{4, "west", 2, "a"}, "04 04 77657374 02 01 61"},
      {{4, " ~", 4, "000000:00000000"}, "04 02 207e 04 07 000000 00000000"},
  };
  for (const auto& [names, octets] : golden) EXPECT_EQ(OctetsOf(names), Padded(octets)) << names;
}

TEST(AMaid, HoldsTwoNamesOf44OctetsTogether) {
  EXPECT_EQ(OctetsOf({4, std::string(43, 'd'), 2, "a"}), "042b" + ToHex(Buffer(43, 'd')) + "020161");
  EXPECT_EQ(RefusalOf({4, std::string(43, 'd'), 2, "ab"}),
            "the names of domain and association are together longer than 44 octets");
  EXPECT_EQ(RefusalOf({2, std::string(42, 'd'), 1, "100"}), "");
  EXPECT_NE(RefusalOf({2, std::string(43, 'd'), 1, "100"}), "");
  EXPECT_EQ(RefusalOf({3, "00:11:22:33:44:55:7", 2, std::string(36, 'a')}), "");
  EXPECT_NE(RefusalOf({3, "00:11:22:33:44:55:7", 2, std::string(37, 'a')}), "");
}

TEST(AMaid, HoldsOneNameOf45OctetsAlone) {
  EXPECT_EQ(OctetsOf({1, "", 2, std::string(45, 'a')}), "01022d" + ToHex(Buffer(45, 'a')));
  EXPECT_EQ(RefusalOf({1, "", 2, std::string(46, 'a')}), "the association's name is too long");
}

TEST(AMaid, IsRefusedWithADomainNameThatDoesNotFitItsFormat) {
  for (const std::uint32_t format : {0U, 5U, 32U, 256U + 4U}) {
    EXPECT_EQ(RefusalOf({format, "west", 2, "a"}), "the domain's name has an unknown format") << format;
  }
  EXPECT_EQ(RefusalOf({2, "", 2, "a"}), "the domain's name is empty");
  EXPECT_EQ(RefusalOf({4, "", 2, "a"}), "the domain's name is empty");
  EXPECT_EQ(RefusalOf({2, std::string(44, 'd'), 2, "a"}), "the domain's name is too long");
  EXPECT_EQ(RefusalOf({4, std::string(44, 'd'), 2, "a"}), "the domain's name is too long");
  EXPECT_EQ(RefusalOf({4, "we\tst", 2, "a"}), "the domain's name holds characters outside of 32 to 126");
  EXPECT_EQ(RefusalOf({4, "we\x7fst", 2, "a"}), "the domain's name holds characters outside of 32 to 126");
  EXPECT_EQ(RefusalOf({4, "w\xc3\xa9st", 2, "a"}), "the domain's name holds characters outside of 32 to 126");
  EXPECT_NE(RefusalOf({2, "we st", 2, "a"}), "");
  EXPECT_NE(RefusalOf({2, "we/st", 2, "a"}), "");
  for (const auto* name :
       {"abc", "", "00:11:22:33:44:55", "00:11:22:33:44:55:", "00:11:22:33:44:55:65536", "00:11:22:33:44:55:-1",
        "00:11:22:33:44:55:7x", "0:11:22:33:44:55:77", "00-11-22-33-44-55:7", "00:11:22:33:44:5g:7",
        "00:11:22:33:44:55 7", "00:11:22:33:44:55:4294967296", "0x:11:22:33:44:55:7", "+1:11:22:33:44:55:7"}) {
    EXPECT_TRUE(RefusalOf({3, name, 2, "a"}).starts_with("the domain's name is not an address and an integer")) << name;
  }
}

TEST(AMaid, IsRefusedWithAnAssociationNameThatDoesNotFitItsFormat) {
  for (const std::uint32_t format : {0U, 5U, 31U, 33U, 255U, 256U + 2U}) {
    EXPECT_EQ(RefusalOf({1, "", format, "a"}), "the association's name has an unknown format") << format;
  }
  for (const auto* name : {"", "0", "4095", "abc", "-1", "+1", " 1", "1 ", "65636", "4294967396", "0x10"}) {
    EXPECT_EQ(RefusalOf({1, "", 1, name}), "the association's name is not a VLAN id from 1 to 4094") << name;
  }
  for (const auto* name : {"", "65536", "abc", "-1", "1.0", "4294967296"}) {
    EXPECT_EQ(RefusalOf({1, "", 3, name}), "the association's name is not an integer from 0 to 65535") << name;
  }
  for (const auto* name : {"", "00a0b1", "00a0b1:0000001", "0a0b1:00000001", "00a0b1-00000001", "00a0bg:00000001",
                           "00a0b1:0000000g", "00a0b1:000000011", "-0a0b1:00000001"}) {
    EXPECT_TRUE(RefusalOf({1, "", 4, name}).starts_with("the association's name is not a VPN id")) << name;
  }
  EXPECT_EQ(RefusalOf({1, "", 2, ""}), "the association's name is empty");
  EXPECT_EQ(RefusalOf({1, "", 2, "a\nb"}), "the association's name holds characters outside of 32 to 126");
  EXPECT_EQ(RefusalOf({1, "", 32, ""}), "the association's name is empty");
  EXPECT_EQ(RefusalOf({1, "", 32, "ABCDEF12345678"}), "the association's name is too long");
}

TEST(AMaid, IsIccBasedOnlyWithoutADomainName) {
  for (const auto& [format, name] :
       {std::pair(2U, "west"), std::pair(3U, "00:11:22:33:44:55:7"), std::pair(4U, "west")}) {
    EXPECT_EQ(RefusalOf({format, name, 32, "ABCDEF1234567"}), "an ICC-based name needs a domain without a name");
  }
}

TEST(AMaid, EqualsAnotherOnlyInAllOctets) {
  const Maid maid = std::get<Maid>(Encode({4, "west", 2, "a"}));
  EXPECT_EQ(maid, std::get<Maid>(Encode({4, "west", 2, "a"})));
  for (std::size_t i = 0; i < kMaidSize; ++i) {
    Maid other = maid;
    other.octets.at(i) ^= 1;
    EXPECT_NE(other, maid) << i;
  }
}

TEST(AMaid, DoesNotDependOnHowANumberIsWrittenNorOnANameThatIsNotSent) {
  EXPECT_EQ(OctetsOf({1, "one name", 3, "100"}), OctetsOf({1, "another", 3, "0100"}));
}

TEST(AMaidAsText, ShowsTheNames) {
  const auto text = [](const Names& names) { return ToText(std::get<Maid>(Encode(names))); };
  EXPECT_EQ(text({4, "west", 2, "service 5"}), "'west' 'service 5'");
  EXPECT_EQ(text({2, "example.net", 1, "100"}), "'example.net' '100'");
  EXPECT_EQ(text({3, "00:11:22:33:44:55:7", 3, "65535"}), "'00:11:22:33:44:55:7' '65535'");
  EXPECT_EQ(text({1, "unsent", 4, "00a0b1:00000001"}), "no domain name '00a0b1:00000001'");
  EXPECT_EQ(text({1, "unsent", 32, "ABC123"}), "no domain name 'ABC123'");
}

TEST(AMaidAsText, ShowsOctetsThatMakeNoSense) {
  const auto text = [](std::string_view hex) {
    Maid maid;
    std::ranges::copy(Hex(hex), maid.octets.begin());
    return ToText(maid);
  };
  EXPECT_EQ(text("01 21 02 abcd"), "no domain name format 33 0xabcd");
  EXPECT_EQ(text("04 02 1b5b 02 01 61"), "format 4 0x1b5b 'a'");
  EXPECT_EQ(text("04 02 6162 02 02 610a"), "'ab' format 2 0x610a");
  EXPECT_EQ(text("01 01 03 000001"), "no domain name format 1 0x000001");
  EXPECT_EQ(text("03 02 0001 04 01 61"), "format 3 0x0001 format 4 0x61");
  EXPECT_EQ(text("04 ff"), "0x04ff" + std::string(92, '0'));
  EXPECT_EQ(text("04 2d"), "0x042d" + std::string(92, '0'));
}

}  // namespace
}  // namespace cfm::pdu
