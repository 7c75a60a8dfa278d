// What holds for the decoders of all kinds of frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <iterator>

#include "golden_frames.h"

namespace cfm::pdu {
namespace {

constexpr std::size_t kOpcodeAt = 1;
constexpr std::size_t kFlagsAt = 2;
constexpr std::size_t kFirstTlvOffsetAt = 3;

class ADecoder : public testing::TestWithParam<GoldenFrame> {
 protected:
  /// The golden frame up to the first TLV, followed by these.
  Buffer WithTlvs(std::string_view tlvs) const {
    const Buffer& golden = GetParam().octets;
    Buffer octets(golden.begin(), golden.begin() + kHeaderSize + GetParam().fields_size);
    std::ranges::copy(Hex(tlvs), std::back_inserter(octets));
    return octets;
  }

  std::size_t first_tlv() const { return kHeaderSize + GetParam().fields_size; }
};

TEST_P(ADecoder, AcceptsAFrameCutAtTheBeginningOfATlvAndNoOtherCutFrame) {
  const auto& [name, target, opcode, fields_size, octets, boundaries, refusal, same] = GetParam();
  ASSERT_EQ(boundaries.front(), first_tlv());
  ASSERT_EQ(boundaries.back(), octets.size());
  for (std::size_t size = 0; size <= octets.size(); ++size) {
    // In a buffer of its own, beyond which the sanitizers see every read.
    const Buffer cut(octets.begin(), octets.begin() + static_cast<std::ptrdiff_t>(size));
    const auto error = refusal(cut);
    if (std::ranges::find(boundaries, size) != boundaries.end()) {
      EXPECT_EQ(error, std::nullopt) << size;
    } else if (size < first_tlv()) {
      EXPECT_EQ(error, (Error{Problem::kTooShort, size})) << size;
    } else {
      const std::size_t tlv = *std::prev(std::ranges::upper_bound(boundaries, size));
      EXPECT_EQ(error, (Error{Problem::kTlvOverrun, tlv})) << size;
    }
  }
}

TEST_P(ADecoder, RefusesEveryOtherOpcode) {
  Buffer octets = GetParam().octets;
  for (unsigned opcode = 0; opcode < 256; ++opcode) {
    octets[kOpcodeAt] = static_cast<std::uint8_t>(opcode);
    const bool own = opcode == static_cast<unsigned>(GetParam().opcode);
    EXPECT_EQ(GetParam().refusal(octets), own ? std::nullopt : std::optional(Error{Problem::kOpcode, kOpcodeAt}));
  }
}

TEST_P(ADecoder, SkipsTheOctetsBeforeALargerFirstTlvOffset) {
  Buffer octets = GetParam().octets;
  octets[kFirstTlvOffsetAt] = static_cast<std::uint8_t>(octets[kFirstTlvOffsetAt] + 4);
  const Buffer skipped = Hex("ff0103ff");
  octets.insert(octets.begin() + static_cast<std::ptrdiff_t>(first_tlv()), skipped.begin(), skipped.end());
  ASSERT_EQ(GetParam().refusal(octets), std::nullopt);
  EXPECT_TRUE(GetParam().same(octets, GetParam().octets));
}

TEST_P(ADecoder, AcceptsALargerFirstTlvOffsetThatEndsTheFrame) {
  Buffer octets = WithTlvs("");
  octets[kFirstTlvOffsetAt] = 255;
  octets.resize(kHeaderSize + 255, 0xff);
  EXPECT_EQ(GetParam().refusal(octets), std::nullopt);
  octets.pop_back();
  EXPECT_EQ(GetParam().refusal(octets), (Error{Problem::kTooShort, octets.size()}));
}

TEST_P(ADecoder, RefusesEverySmallerFirstTlvOffset) {
  Buffer octets = GetParam().octets;
  for (unsigned offset = 0; offset <= GetParam().fields_size; ++offset) {
    octets[kFirstTlvOffsetAt] = static_cast<std::uint8_t>(offset);
    const bool smaller = offset < GetParam().fields_size;
    const Error refused{Problem::kFirstTlvOffset, kFirstTlvOffsetAt};
    EXPECT_EQ(GetParam().refusal(octets), smaller ? std::optional(refused) : std::nullopt) << offset;
  }
}

TEST_P(ADecoder, AcceptsEveryLevelAndVersion) {
  Buffer octets = GetParam().octets;
  for (unsigned first = 0; first < 256; ++first) {
    octets[0] = static_cast<std::uint8_t>(first);
    EXPECT_EQ(GetParam().refusal(octets), std::nullopt);
  }
}

TEST_P(ADecoder, IgnoresReservedFlags) {
  const auto defined = [](Opcode opcode) -> std::uint8_t {
    switch (opcode) {
      case Opcode::kCcm:
        return 0x87;
      case Opcode::kLtm:
        return 0x80;
      case Opcode::kLtr:
        return 0xe0;
      case Opcode::kAis:
        return 0x07;
      case Opcode::kDmm:
      case Opcode::kDmr:
      case Opcode::k1dm:
        return 0x01;
      default:
        return 0x00;
    }
  };
  Buffer octets = GetParam().octets;
  const auto reserved = static_cast<std::uint8_t>(~defined(GetParam().opcode));
  octets[kFlagsAt] |= reserved;
  ASSERT_NE(octets, GetParam().octets);
  ASSERT_EQ(GetParam().refusal(octets), std::nullopt);
  EXPECT_TRUE(GetParam().same(octets, GetParam().octets));
}

TEST_P(ADecoder, SkipsTlvsThatItDoesNotKnow) {
  Buffer octets = GetParam().octets;
  const Buffer organisation = Hex("1f 0004 0080c201 20 0000");
  // In front of each TLV, the last first so that the places stay right.
  for (auto place = GetParam().boundaries.rbegin() + 1; place != GetParam().boundaries.rend(); ++place) {
    octets.insert(octets.begin() + static_cast<std::ptrdiff_t>(*place), organisation.begin(), organisation.end());
  }
  ASSERT_EQ(GetParam().refusal(octets), std::nullopt);
  EXPECT_TRUE(GetParam().same(octets, GetParam().octets));
}

TEST_P(ADecoder, SkipsTlvsOfEveryOtherType) {
  for (unsigned type = 9; type < 256; ++type) {
    Buffer octets = WithTlvs("00 0002 ffff 00");
    octets[first_tlv()] = static_cast<std::uint8_t>(type);
    EXPECT_EQ(GetParam().refusal(octets), std::nullopt) << type;
    EXPECT_TRUE(GetParam().same(octets, WithTlvs("")));
  }
}

TEST_P(ADecoder, TakesNoNoticeOfWhatFollowsTheEndTlv) {
  Buffer octets = GetParam().octets;
  octets.resize(octets.size() + 50, 0xff);
  ASSERT_EQ(GetParam().refusal(octets), std::nullopt);
  EXPECT_TRUE(GetParam().same(octets, GetParam().octets));
}

TEST_P(ADecoder, TakesTheFirstOfTwoTlvsOfOneType) {
  // Of every type that any frame has; the second ones are longer, and say something else.
  constexpr std::string_view kSecond =
      "01 000c 04 01 01020304 01 2a 03 0a0b0c"
      "02 0002 01ff"
      "03 0002 5555"
      "04 0002 05ff"
      "05 0008 02 0a0a0a0a0a0a 00"
      "06 0008 02 0a0a0a0a0a0a 00"
      "07 0009 7777 0a0a0a0a0a0a ff"
      "08 0011 7777 0a0a0a0a0a0a 8888 0a0a0a0a0a0a ff"
      "00";
  // What the golden frame lacks comes first, too.
  constexpr std::string_view kFirst =
      "01 0002 00 00"
      "02 0001 02"
      "03 0001 aa"
      "04 0001 01"
      "05 0007 01 020202020202"
      "06 0007 01 030303030303"
      "07 0008 0001 040404040404"
      "08 0010 0002 050505050505 0003 060606060606";
  const Buffer both = WithTlvs(std::string(kFirst) + std::string(kSecond));
  ASSERT_EQ(GetParam().refusal(both), std::nullopt);
  EXPECT_TRUE(GetParam().same(both, WithTlvs(kFirst)));
  const bool knows_any = GetParam().opcode != Opcode::kAis;
  EXPECT_EQ(GetParam().same(WithTlvs(kSecond), WithTlvs(kFirst)), !knows_any);
}

TEST_P(ADecoder, RefusesATlvWhoseLengthRunsPastTheFrame) {
  for (const std::string_view tlv : {"1f 0001", "1f 0005 01020304", "1f ffff 00", "03 ffff 00", "1f 0000 1f 0002 00",
                                     "ff", "ff 00", "01 0003 0000"}) {
    const auto error = GetParam().refusal(WithTlvs(tlv));
    ASSERT_TRUE(error) << tlv;
    EXPECT_EQ(error->problem, Problem::kTlvOverrun) << tlv;
    EXPECT_EQ(error->offset, first_tlv() + (tlv.starts_with("1f 0000") ? 3 : 0)) << tlv;
  }
}

INSTANTIATE_TEST_SUITE_P(OfAllKinds, ADecoder, testing::ValuesIn(GoldenFrames()), [](const auto& test) {
  std::string name = test.param.name;
  std::erase(name, '-');
  return name;
});

/// A TLV as the only one of a frame of its kind.
struct KnownTlv {
  std::string name;
  std::string frame;  ///< a golden frame that may carry it
  std::string octets;
  /// The lengths that are accepted, up to that of the octets; every larger one is, too.
  std::vector<std::size_t> accepted;
};

std::ostream& operator<<(std::ostream& out, const KnownTlv& tlv) {
  return out << tlv.name;
}

class AKnownTlv : public testing::TestWithParam<KnownTlv> {
 protected:
  static const GoldenFrame& Kind() { return *std::ranges::find(GoldenFrames(), GetParam().frame, &GoldenFrame::name); }

  /// Cut to this length, or filled up to it with zeros.
  static Buffer WithLength(std::size_t length) {
    Buffer tlv = Hex(GetParam().octets);
    tlv[2] = static_cast<std::uint8_t>(length);
    tlv.resize(3 + length);
    const GoldenFrame& kind = Kind();
    Buffer frame(kind.octets.begin(), kind.octets.begin() + kHeaderSize + kind.fields_size);
    frame.insert(frame.end(), tlv.begin(), tlv.end());
    frame.push_back(0);
    return frame;
  }
};

TEST_P(AKnownTlv, MayBeLongerThanItsFieldsButNotShorter) {
  const std::size_t own = Hex(GetParam().octets).size() - 3;
  ASSERT_EQ(GetParam().accepted.back(), own);
  for (std::size_t length = 0; length < own; ++length) {
    const bool accepted = std::ranges::find(GetParam().accepted, length) != GetParam().accepted.end();
    const Error too_short{Problem::kTlvTooShort, kHeaderSize + Kind().fields_size};
    EXPECT_EQ(Kind().refusal(WithLength(length)), accepted ? std::nullopt : std::optional(too_short)) << length;
  }
  for (std::size_t length = own; length < own + 4; ++length) {
    ASSERT_EQ(Kind().refusal(WithLength(length)), std::nullopt) << length;
    EXPECT_TRUE(Kind().same(WithLength(own), WithLength(length))) << length;
  }
}

INSTANTIATE_TEST_SUITE_P(
    OfAnyKind, AKnownTlv,
    testing::Values(KnownTlv{"SenderIdWithChassis", "ccm-full", "01 0000 02 07 0a0b 00", {4, 5}},
                    KnownTlv{"SenderIdWithAddress", "lbm", "01 0000 00 01 2a 02 0a0b", {1, 6}},
                    KnownTlv{"PortStatus", "ccm-full", "02 0000 02", {1}},
                    KnownTlv{"InterfaceStatus", "ccm-full", "04 0000 01", {1}},
                    KnownTlv{"LtmEgressIdentifier", "ltm", "07 0000 0001 020000000001", {8}},
                    KnownTlv{"LtrEgressIdentifier", "ltr", "08 0000 0001 020000000001 0002 020000000003", {16}},
                    KnownTlv{"ReplyIngress", "ltr", "05 0000 01 020000000002", {7}},
                    KnownTlv{"ReplyIngressWithPort", "ltr", "05 0000 01 020000000002 02 05 6130", {7, 11}},
                    KnownTlv{"ReplyEgress", "ltr", "06 0000 04 020000000002", {7}},
                    KnownTlv{"ReplyEgressWithPort", "ltr", "06 0000 04 020000000002 01 07 61", {7, 10}}),
    [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace cfm::pdu
