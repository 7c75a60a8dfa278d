#include "pdu/linktrace.h"

#include <gtest/gtest.h>

#include "golden_frames.h"

namespace cfm::pdu {
namespace {

constexpr MacAddress kFirst = {2, 0, 0, 0, 0, 1};
constexpr MacAddress kSecond = {2, 0, 0, 0, 0, 2};
constexpr MacAddress kThird = {2, 0, 0, 0, 0, 3};

SenderId ChassisOnly(Octets address) {
  return {
      .chassis_subtype = kChassisMacAddress, .chassis_id = address, .management_domain = {}, .management_address = {}};
}

Ltm FullLtm() {
  Ltm ltm;
  ltm.level = 7;
  ltm.use_fdb_only = true;
  ltm.transaction_id = 42;
  ltm.ttl = 64;
  ltm.original_address = kFirst;
  ltm.target_address = kSecond;
  ltm.egress_identifier = EgressIdentifier{.unique_id = 1, .address = kFirst};
  ltm.sender_id = ChassisOnly(kFirst);
  return ltm;
}

TEST(ALinktraceMessage, GoesOnWithOneHopLessInTheNameOfWhomItGoesThrough) {
  Buffer octets(1500);
  octets.resize(EncodeLtm(FullLtm(), octets));
  // Reserved flags are kept, and so is an organisation's TLV; the version is ours, and what lies beyond the fixed
  // fields before the first TLV is not known here.
  octets[0] |= 3U;
  octets[2] |= 0x11U;
  octets[3] += 2;
  octets.insert(octets.begin() + 21, {0xaa, 0xbb});
  const Buffer organisation = {31, 0, 4, 0x00, 0x80, 0xc2, 1};
  octets.insert(octets.end() - 1, organisation.begin(), organisation.end());

  Buffer forwarded(1500);
  forwarded.resize(MakeForwardedLtm(octets, {.unique_id = 5, .address = kThird}, ChassisOnly(kThird), forwarded));
  Ltm expected = FullLtm();
  expected.ttl = 63;
  expected.egress_identifier = EgressIdentifier{.unique_id = 5, .address = kThird};
  expected.sender_id = ChassisOnly(kThird);
  Buffer expected_octets(1500);
  expected_octets.resize(EncodeLtm(expected, expected_octets));
  expected_octets[2] |= 0x11U;
  expected_octets.insert(expected_octets.end() - 1, organisation.begin(), organisation.end());
  EXPECT_EQ(forwarded, expected_octets);
}

TEST(ALinktraceMessage, GoesOnWithoutASenderIdWhenNoneIsToBeTold) {
  Buffer octets(1500);
  octets.resize(EncodeLtm(FullLtm(), octets));
  Buffer forwarded(1500);
  forwarded.resize(MakeForwardedLtm(octets, {.unique_id = 0, .address = kThird}, std::nullopt, forwarded));
  const auto decoded = DecodeLtm(forwarded);
  ASSERT_TRUE(decoded);
  EXPECT_FALSE(decoded->sender_id);
  for (std::size_t size = 0; size < forwarded.size(); ++size) {
    Buffer small(size);
    EXPECT_EQ(MakeForwardedLtm(octets, {.unique_id = 0, .address = kThird}, std::nullopt, small), 0U) << size;
  }
}

class AnLtr : public testing::Test {
 protected:
  AnLtr() {
    ltr.level = 7;
    ltr.use_fdb_only = true;
    ltr.forwarded = true;
    ltr.terminal_mep = true;
    ltr.transaction_id = 42;
    ltr.ttl = 63;
    ltr.relay_action = RelayAction::kFdb;
    ltr.egress_identifiers =
        LtrEgressIdentifiers{.last = {.unique_id = 1, .address = kFirst}, .next = {.unique_id = 2, .address = kThird}};
    ltr.ingress =
        ReplyPort{.action = ReplyAction::kOk, .address = kSecond, .port_subtype = kPortInterfaceName, .port_id = port};
    ltr.egress = ReplyPort{.action = ReplyAction::kBlocked, .address = kThird, .port_subtype = 0, .port_id = {}};
    ltr.sender_id = ChassisOnly(kSecond);
  }

  const Buffer port = Hex("65746830");
  Ltr ltr;
};

TEST(AnLtm, IsWrittenAsItsGoldenOctets) {
  EXPECT_EQ(Encoded(EncodeLtm, FullLtm()), ToHex(GoldenOctets("ltm")));
}

TEST(AnLtm, HasItsLevelInTheUpperThreeBits) {
  for (unsigned level = 0; level <= kHighestLevel; ++level) {
    Ltm ltm = FullLtm();
    ltm.level = static_cast<std::uint8_t>(level);
    Buffer expected = GoldenOctets("ltm");
    expected[0] = static_cast<std::uint8_t>(level << 5);
    EXPECT_EQ(Encoded(EncodeLtm, ltm), ToHex(expected));
  }
}

TEST(AnLtm, IsReadFieldByField) {
  const auto ltm = DecodeLtm(GoldenOctets("ltm"));
  ASSERT_TRUE(ltm);
  EXPECT_EQ(ltm->level, 7);
  EXPECT_TRUE(ltm->use_fdb_only);
  EXPECT_EQ(ltm->transaction_id, 42U);
  EXPECT_EQ(ltm->ttl, 64);
  EXPECT_EQ(ltm->original_address, kFirst);
  EXPECT_EQ(ltm->target_address, kSecond);
  EXPECT_EQ(ltm->egress_identifier, (EgressIdentifier{.unique_id = 1, .address = kFirst}));
  ASSERT_TRUE(ltm->sender_id);
  EXPECT_EQ(ToHex(ltm->sender_id->chassis_id), ToHex(kFirst));
}

TEST(AnLtm, HasNoTlvForWhatIsNotThere) {
  Ltm ltm = FullLtm();
  ltm.use_fdb_only = false;
  ltm.egress_identifier.reset();
  ltm.sender_id.reset();
  const std::string octets = Encoded(EncodeLtm, ltm);
  EXPECT_EQ(octets, ToHex(Hex("e0 05 00 11 0000002a 40 020000000001 020000000002 00")));
  EXPECT_FALSE(DecodeLtm(Hex(octets))->egress_identifier);
  EXPECT_FALSE(DecodeLtm(Hex(octets))->use_fdb_only);
}

TEST(AnLtm, IsNotWrittenIntoASmallerBuffer) {
  for (std::size_t size = 0; size < GoldenOctets("ltm").size(); ++size) {
    Buffer buffer(size);
    EXPECT_EQ(EncodeLtm(FullLtm(), buffer), 0U) << size;
  }
}

TEST_F(AnLtr, IsWrittenAsItsGoldenOctets) {
  EXPECT_EQ(Encoded(EncodeLtr, ltr), ToHex(GoldenOctets("ltr")));
}

TEST_F(AnLtr, HasItsLevelInTheUpperThreeBits) {
  for (unsigned level = 0; level <= kHighestLevel; ++level) {
    ltr.level = static_cast<std::uint8_t>(level);
    Buffer expected = GoldenOctets("ltr");
    expected[0] = static_cast<std::uint8_t>(level << 5);
    EXPECT_EQ(Encoded(EncodeLtr, ltr), ToHex(expected));
  }
}

TEST_F(AnLtr, IsReadFieldByField) {
  const auto decoded = DecodeLtr(GoldenOctets("ltr"));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->level, 7);
  EXPECT_TRUE(decoded->use_fdb_only);
  EXPECT_TRUE(decoded->forwarded);
  EXPECT_TRUE(decoded->terminal_mep);
  EXPECT_EQ(decoded->transaction_id, 42U);
  EXPECT_EQ(decoded->ttl, 63);
  EXPECT_EQ(decoded->relay_action, RelayAction::kFdb);
  EXPECT_EQ(decoded->egress_identifiers, ltr.egress_identifiers);
  ASSERT_TRUE(decoded->ingress);
  EXPECT_EQ(decoded->ingress->action, ReplyAction::kOk);
  EXPECT_EQ(decoded->ingress->address, kSecond);
  EXPECT_EQ(decoded->ingress->port_subtype, 5);
  EXPECT_EQ(ToHex(decoded->ingress->port_id), ToHex(port));
  ASSERT_TRUE(decoded->egress);
  EXPECT_EQ(decoded->egress->action, ReplyAction::kBlocked);
  EXPECT_EQ(decoded->egress->address, kThird);
  EXPECT_TRUE(decoded->egress->port_id.empty());
  ASSERT_TRUE(decoded->sender_id);
  EXPECT_EQ(ToHex(decoded->sender_id->chassis_id), ToHex(kSecond));
}

TEST_F(AnLtr, HasAFlagOfItsOwnForEachOfItsAnswers) {
  const auto flags = [](bool use_fdb_only, bool forwarded, bool terminal_mep) {
    Ltr only_flags;
    only_flags.use_fdb_only = use_fdb_only;
    only_flags.forwarded = forwarded;
    only_flags.terminal_mep = terminal_mep;
    const Buffer octets = Hex(Encoded(EncodeLtr, only_flags));
    const auto decoded = DecodeLtr(octets);
    EXPECT_EQ(decoded->use_fdb_only, use_fdb_only);
    EXPECT_EQ(decoded->forwarded, forwarded);
    EXPECT_EQ(decoded->terminal_mep, terminal_mep);
    return octets[2];
  };
  EXPECT_EQ(flags(true, false, false), 0x80);
  EXPECT_EQ(flags(false, true, false), 0x40);
  EXPECT_EQ(flags(false, false, true), 0x20);
  EXPECT_EQ(flags(false, false, false), 0x00);
}

TEST_F(AnLtr, IsRefusedWithARelayActionThatIsNotInTheTable) {
  Buffer octets = GoldenOctets("ltr");
  for (unsigned action = 0; action < 256; ++action) {
    octets[9] = static_cast<std::uint8_t>(action);
    const auto decoded = DecodeLtr(octets);
    if (action >= 1 && action <= 3) {
      ASSERT_TRUE(decoded);
      EXPECT_EQ(static_cast<unsigned>(decoded->relay_action), action);
    } else {
      ASSERT_FALSE(decoded);
      EXPECT_EQ(decoded.error(), (Error{Problem::kValue, 9}));
    }
  }
}

TEST_F(AnLtr, ReadsAPortWithAnActionThatIsNotInTheTableAsAbsent) {
  Buffer octets = GoldenOctets("ltr");
  constexpr std::size_t kIngressActionAt = 32;
  constexpr std::size_t kEgressActionAt = 48;
  for (unsigned action = 0; action < 256; ++action) {
    octets[kIngressActionAt] = static_cast<std::uint8_t>(action);
    octets[kEgressActionAt] = static_cast<std::uint8_t>(action);
    const auto decoded = DecodeLtr(octets);
    ASSERT_TRUE(decoded);
    const bool in_table = action >= 1 && action <= 4;
    ASSERT_EQ(decoded->ingress.has_value(), in_table);
    ASSERT_EQ(decoded->egress.has_value(), in_table);
    if (!in_table) continue;
    EXPECT_EQ(static_cast<unsigned>(decoded->ingress->action), action);
    EXPECT_EQ(static_cast<unsigned>(decoded->egress->action), action);
  }
}

TEST_F(AnLtr, IsNotWrittenIntoASmallerBuffer) {
  for (std::size_t size = 0; size < GoldenOctets("ltr").size(); ++size) {
    Buffer buffer(size);
    EXPECT_EQ(EncodeLtr(ltr, buffer), 0U) << size;
  }
}

TEST_F(AnLtr, IsNotWrittenWithAPortIdThatIsLongerThanItsLengthOctetCanSay) {
  const Buffer too_long(256, 0x61);
  Buffer buffer(1500);
  ltr.egress->port_id = too_long;
  EXPECT_EQ(EncodeLtr(ltr, buffer), 0U);
  ltr.egress->port_id = Octets(too_long).first(255);
  EXPECT_GT(EncodeLtr(ltr, buffer), 0U);
}

}  // namespace
}  // namespace cfm::pdu
