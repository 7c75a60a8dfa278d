#include "maid.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "names.h"

namespace cfmctl {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using namespace std::string_literals;

TEST(ADomainName, OfStringFormatHasOneTo43PrintableCharacters) {
  EXPECT_EQ(EncodeMdName(kMdFormatString, "metro").octets, "metro");
  EXPECT_THAT(EncodeMdName(kMdFormatString, std::string(43, 'a')).problem, IsEmpty());
  EXPECT_THAT(EncodeMdName(kMdFormatString, std::string(44, 'a')).problem, HasSubstr("44 octets"));
  EXPECT_THAT(EncodeMdName(kMdFormatString, "").problem, HasSubstr("empty"));
  EXPECT_THAT(EncodeMdName(kMdFormatString, " ~").problem, IsEmpty());
  EXPECT_THAT(EncodeMdName(kMdFormatString, "a\x1f").problem, HasSubstr("\\x1f"));
  EXPECT_THAT(EncodeMdName(kMdFormatString, "a\x7f").problem, Not(IsEmpty()));
  EXPECT_THAT(EncodeMdName(kMdFormatString, "caf\xc3\xa9").problem, Not(IsEmpty()));
}

TEST(ADomainName, OfDnsFormatHasTheCharactersOfHostNames) {
  EXPECT_THAT(EncodeMdName(kMdFormatDns, "provider.example.net").problem, IsEmpty());
  EXPECT_THAT(EncodeMdName(kMdFormatDns, "two words").problem, HasSubstr("DNS"));
}

TEST(ADomainName, OfMacFormatIsAnAddressAndAnInteger) {
  EXPECT_EQ(EncodeMdName(kMdFormatMac, "00:11:22:33:44:fF:7").octets, "\x00\x11\x22\x33\x44\xff\x00\x07"s);
  EXPECT_EQ(EncodeMdName(kMdFormatMac, "00:11:22:33:44:55:65535").octets, "\x00\x11\x22\x33\x44\x55\xff\xff"s);
  for (const char* name :
       {"", "00:11:22:33:44:55", "00:11:22:33:44:55:", "00:11:22:33:44:55:65536", "00:11:22:33:44:55:-1",
        "00-11-22-33-44-55:7", "0:11:22:33:44:55:7", "00:11:22:33:44:5g:7", "00:11:22:33:44:55:7 "}) {
    EXPECT_THAT(EncodeMdName(kMdFormatMac, name).problem, HasSubstr("MAC address and an integer")) << name;
  }
}

TEST(ADomainName, OfNoFormatIsNamedButHasNoOctets) {
  EXPECT_EQ(EncodeMdName(kMdFormatNone, "operator-b").octets, "");
  EXPECT_THAT(EncodeMdName(kMdFormatNone, "operator-b").problem, IsEmpty());
  EXPECT_THAT(EncodeMdName(kMdFormatNone, "").problem, Not(IsEmpty()));
}

TEST(AnAssociationName, OfStringFormatHasOneTo45PrintableCharacters) {
  EXPECT_THAT(EncodeMaName(kMaFormatString, std::string(45, 'a')).problem, IsEmpty());
  EXPECT_THAT(EncodeMaName(kMaFormatString, std::string(46, 'a')).problem, HasSubstr("46 octets"));
  EXPECT_THAT(EncodeMaName(kMaFormatString, "").problem, Not(IsEmpty()));
}

TEST(AnAssociationName, OfVidFormatIsAVlanId) {
  EXPECT_EQ(EncodeMaName(kMaFormatVid, "100").octets, "\x00\x64"s);
  EXPECT_EQ(EncodeMaName(kMaFormatVid, "4094").octets, "\x0f\xfe"s);
  for (const char* name : {"0", "4095", "vlan", "", "1.0"}) {
    EXPECT_THAT(EncodeMaName(kMaFormatVid, name).problem, HasSubstr("1 to 4094")) << name;
  }
}

TEST(AnAssociationName, OfIntegerFormatHas16Bits) {
  EXPECT_EQ(EncodeMaName(kMaFormatUint16, "0").octets, "\x00\x00"s);
  EXPECT_EQ(EncodeMaName(kMaFormatUint16, "65535").octets, "\xff\xff"s);
  EXPECT_THAT(EncodeMaName(kMaFormatUint16, "65536").problem, HasSubstr("0 to 65535"));
  EXPECT_THAT(EncodeMaName(kMaFormatUint16, "abc").problem, Not(IsEmpty()));
}

TEST(AnAssociationName, OfVpnIdFormatIsAnOuiAndAnIndex) {
  EXPECT_EQ(EncodeMaName(kMaFormatVpnId, "00a0B1:00000001").octets, "\x00\xa0\xb1\x00\x00\x00\x01"s);
  for (const char* name : {"00a0b1", "00a0b1:1", "00a0b100000001", "00a0b1:0000000g", "00a0b1-00000001"}) {
    EXPECT_THAT(EncodeMaName(kMaFormatVpnId, name).problem, HasSubstr("VPN id")) << name;
  }
}

TEST(AnAssociationName, OfIccFormatFills13Octets) {
  EXPECT_EQ(EncodeMaName(kMaFormatIcc, "ABCDEF1234567").octets, "ABCDEF1234567");
  EXPECT_EQ(EncodeMaName(kMaFormatIcc, "AB1").octets, "AB1\0\0\0\0\0\0\0\0\0\0"s);
  EXPECT_THAT(EncodeMaName(kMaFormatIcc, "ABCDEF12345678").problem, HasSubstr("1 to 13"));
}

TEST(AMaid, HoldsFormatsLengthsAndNames) {
  EXPECT_EQ(EncodeMaid(kMdFormatString, "md", kMaFormatString, "ma"), "\x04\x02md\x02\x02ma"s);
  EXPECT_EQ(EncodeMaid(kMdFormatNone, "", kMaFormatUint16, "\x00\x07"s), "\x01\x03\x02\x00\x07"s);
}

}  // namespace
}  // namespace cfmctl
