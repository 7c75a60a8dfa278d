#include "pdu/ccm.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "golden_frames.h"

namespace cfm::pdu {
namespace {

Maid MaidOf(const MaidNames& names) {
  return std::get<Maid>(EncodeMaid(names));
}

Ccm Shortest() {
  Ccm ccm;
  ccm.interval = 4;
  ccm.sequence_number = 1;
  ccm.mep_id = 1;
  ccm.maid = MaidOf({1, "unsent", 2, "a"});
  return ccm;
}

/// With octets that live as long as the test.
class AFullCcm : public testing::Test {
 protected:
  AFullCcm() {
    ccm.level = 5;
    ccm.rdi = true;
    ccm.interval = 3;
    ccm.sequence_number = 0xfffffffe;
    ccm.mep_id = 8191;
    ccm.maid = MaidOf({4, "west", 1, "100"});
    ccm.sender_id = SenderId{.chassis_subtype = kChassisMacAddress,
                             .chassis_id = chassis,
                             .management_domain = domain,
                             .management_address = address};
    ccm.port_status = PortStatus::kUp;
    ccm.interface_status = InterfaceStatus::kLowerLayerDown;
  }

  const Buffer chassis = Hex("0a0b0c0d0e0f");
  const Buffer domain = Hex("2b06010201640101");
  const Buffer address = Hex("c000020100a1");
  Ccm ccm;
};

TEST(AShortCcm, IsWrittenAsItsGoldenOctets) {
  EXPECT_EQ(Encoded(EncodeCcm, Shortest()), ToHex(GoldenOctets("ccm-shortest")));
  EXPECT_EQ(GoldenOctets("ccm-shortest").size(), kShortestCcm);
}

TEST(AShortCcm, IsReadFieldByField) {
  const auto ccm = DecodeCcm(GoldenOctets("ccm-shortest"));
  ASSERT_TRUE(ccm);
  EXPECT_EQ(ccm->level, 0);
  EXPECT_EQ(ccm->version, 0);
  EXPECT_FALSE(ccm->rdi);
  EXPECT_EQ(ccm->interval, 4);
  EXPECT_EQ(ccm->sequence_number, 1U);
  EXPECT_EQ(ccm->mep_id, 1);
  EXPECT_EQ(ccm->maid, Shortest().maid);
  EXPECT_FALSE(ccm->sender_id);
  EXPECT_EQ(ccm->port_status, PortStatus::kNone);
  EXPECT_EQ(ccm->interface_status, InterfaceStatus::kNone);
}

TEST(AShortCcm, HasItsLevelInTheUpperThreeBits) {
  Ccm ccm = Shortest();
  Buffer expected = GoldenOctets("ccm-shortest");
  for (unsigned level = 0; level <= kHighestLevel; ++level) {
    ccm.level = static_cast<std::uint8_t>(level);
    expected[0] = static_cast<std::uint8_t>(level << 5);
    EXPECT_EQ(Encoded(EncodeCcm, ccm), ToHex(expected));
    EXPECT_EQ(DecodeCcm(expected)->level, level);
  }
}

TEST_F(AFullCcm, IsWrittenAsItsGoldenOctets) {
  EXPECT_EQ(Encoded(EncodeCcm, ccm), ToHex(GoldenOctets("ccm-full")));
}

TEST_F(AFullCcm, IsReadFieldByField) {
  const auto decoded = DecodeCcm(GoldenOctets("ccm-full"));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->level, 5);
  EXPECT_TRUE(decoded->rdi);
  EXPECT_EQ(decoded->interval, 3);
  EXPECT_EQ(decoded->sequence_number, 0xfffffffeU);
  EXPECT_EQ(decoded->mep_id, 8191);
  EXPECT_EQ(decoded->maid, ccm.maid);
  ASSERT_TRUE(decoded->sender_id);
  EXPECT_EQ(decoded->sender_id->chassis_subtype, 4);
  EXPECT_EQ(ToHex(decoded->sender_id->chassis_id), ToHex(chassis));
  EXPECT_EQ(ToHex(decoded->sender_id->management_domain), ToHex(domain));
  EXPECT_EQ(ToHex(decoded->sender_id->management_address), ToHex(address));
  EXPECT_EQ(decoded->port_status, PortStatus::kUp);
  EXPECT_EQ(decoded->interface_status, InterfaceStatus::kLowerLayerDown);
}

TEST_F(AFullCcm, LeavesOutTheAddressAndTheChassisThatItMayNotTell) {
  const auto sender_id_octets = [this] { return Encoded(EncodeCcm, ccm).substr(2 * 74); };
  ccm.port_status = PortStatus::kNone;
  ccm.interface_status = InterfaceStatus::kNone;
  ccm.sender_id->management_domain = {};
  EXPECT_EQ(sender_id_octets(), ToHex(Hex("01 0009 06 04 0a0b0c0d0e0f 00 00")));
  ccm.sender_id->chassis_id = {};
  EXPECT_EQ(sender_id_octets(), ToHex(Hex("01 0002 00 00 00")));
  ccm.sender_id->management_domain = domain;
  EXPECT_EQ(sender_id_octets(), ToHex(Hex("01 0011 00 08 2b06010201640101 06 c000020100a1 00")));
  ccm.sender_id.reset();
  EXPECT_EQ(sender_id_octets(), "00");
}

TEST_F(AFullCcm, LeavesOutASenderIdWithWhichItWouldBeLongerThan128Octets) {
  const Buffer long_chassis(100, 0x61);
  ccm.sender_id =
      SenderId{.chassis_subtype = 7, .chassis_id = long_chassis, .management_domain = {}, .management_address = {}};
  Buffer buffer(1500);
  EXPECT_EQ(EncodeCcm(ccm, buffer), kShortestCcm + 4 + 4);

  // All but the chassis id itself: 75, both status TLVs, the Sender ID's type, length and three octets.
  const std::size_t longest = kLongestCcm - (75 + 4 + 4 + 3 + 3);
  ccm.sender_id->chassis_id = Octets(long_chassis).first(longest);
  EXPECT_EQ(EncodeCcm(ccm, buffer), kLongestCcm);
  EXPECT_TRUE(DecodeCcm(buffer)->sender_id);
  ccm.sender_id->chassis_id = Octets(long_chassis).first(longest + 1);
  EXPECT_EQ(EncodeCcm(ccm, buffer), kShortestCcm + 4 + 4);
  EXPECT_FALSE(DecodeCcm(buffer)->sender_id);
}

TEST_F(AFullCcm, LeavesOutASenderIdOfWhichAPartIsLongerThanItsLengthOctetCanSay) {
  const Buffer too_long(256, 0x61);
  for (Octets SenderId::*part : {&SenderId::chassis_id, &SenderId::management_domain, &SenderId::management_address}) {
    Ccm wrong = ccm;
    *wrong.sender_id.*part = too_long;
    Buffer buffer(1500);
    EXPECT_EQ(EncodeCcm(wrong, buffer), kShortestCcm + 4 + 4);
  }
}

TEST_F(AFullCcm, IsNotWrittenIntoASmallerBuffer) {
  const std::size_t without_sender_id = kShortestCcm + 4 + 4;
  for (std::size_t size = 0; size < GoldenOctets("ccm-full").size(); ++size) {
    Buffer buffer(size);
    EXPECT_EQ(EncodeCcm(ccm, buffer), size < without_sender_id ? 0 : without_sender_id) << size;
  }
}

TEST_F(AFullCcm, ReadsAStatusThatIsNotInItsTableAsAbsent) {
  Buffer octets = GoldenOctets("ccm-full");
  constexpr std::size_t kPortStatusAt = 104;
  constexpr std::size_t kInterfaceStatusAt = 108;
  for (unsigned value = 0; value < 256; ++value) {
    octets[kPortStatusAt] = static_cast<std::uint8_t>(value);
    octets[kInterfaceStatusAt] = static_cast<std::uint8_t>(value);
    const auto decoded = DecodeCcm(octets);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(static_cast<unsigned>(decoded->port_status), value <= 2 ? value : 0);
    EXPECT_EQ(static_cast<unsigned>(decoded->interface_status), value <= 7 ? value : 0);
  }
}

TEST(ACcm, IsValidWithAllReservedBitsSet) {
  Buffer octets = GoldenOctets("ccm-shortest");
  octets[0] |= 0x1f;  // version
  octets[2] |= 0x78;
  octets[8] |= 0xe0;  // above the MEP id
  std::fill(octets.begin() + 58, octets.begin() + 74, 0xff);
  const auto ccm = DecodeCcm(octets);
  ASSERT_TRUE(ccm);
  EXPECT_EQ(ccm->level, 0);
  EXPECT_FALSE(ccm->rdi);
  EXPECT_EQ(ccm->interval, 4);
  EXPECT_EQ(ccm->mep_id, 1);
}

TEST(ACcm, CarriesEveryIntervalCodeAndEveryOctetOfTheMaid) {
  for (unsigned interval = 0; interval < 8; ++interval) {
    Buffer octets = GoldenOctets("ccm-shortest");
    octets[2] = static_cast<std::uint8_t>(interval);
    EXPECT_EQ(DecodeCcm(octets)->interval, interval);
  }
  for (std::size_t i = 0; i < kMaidSize; ++i) {
    Buffer octets = GoldenOctets("ccm-shortest");
    octets[10 + i] ^= 0x80;
    EXPECT_NE(DecodeCcm(octets)->maid, Shortest().maid) << i;
  }
}

}  // namespace
}  // namespace cfm::pdu
