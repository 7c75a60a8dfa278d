// The programs, run on frames as the kernel would run them.
#include "port/bpf.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/pkt_cls.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "pdu/ethernet.h"
#include "pdu/header.h"

namespace cfm::port {
namespace {

struct Packet {
  std::vector<std::uint8_t> octets;
  std::optional<pdu::StrippedTag> stripped{};
};

class Machine {
 public:
  explicit Machine(const Packet& packet) : packet_(packet) {}

  std::uint32_t Run(const Program& program) {
    for (std::size_t at = 0;; ++at) {
      const sock_filter& now = program.at(at);
      switch (now.code) {
        case BPF_LD | BPF_W | BPF_ABS:
          a_ = Ancillary(static_cast<int>(now.k));
          break;
        case BPF_LD | BPF_H | BPF_ABS:
          if (now.k + 2 > packet_.octets.size()) return 0;
          a_ = static_cast<std::uint32_t>(packet_.octets[now.k] << 8 | packet_.octets[now.k + 1]);
          break;
        case BPF_LD | BPF_B | BPF_ABS:
          if (now.k >= packet_.octets.size()) return 0;
          a_ = packet_.octets[now.k];
          break;
        case BPF_LD | BPF_W | BPF_LEN:
          a_ = static_cast<std::uint32_t>(packet_.octets.size());
          break;
        case BPF_LD | BPF_IMM:
          a_ = now.k;
          break;
        case BPF_LD | BPF_MEM:
          a_ = memory_.at(now.k).value();
          break;
        case BPF_LDX | BPF_MEM:
          x_ = memory_.at(now.k).value();
          break;
        case BPF_ST:
          memory_.at(now.k) = a_;
          break;
        case BPF_ALU | BPF_AND | BPF_K:
          a_ &= now.k;
          break;
        case BPF_ALU | BPF_OR | BPF_X:
          a_ |= x_;
          break;
        case BPF_ALU | BPF_LSH | BPF_K:
          a_ <<= now.k;
          break;
        case BPF_ALU | BPF_RSH | BPF_K:
          a_ >>= now.k;
          break;
        case BPF_JMP | BPF_JA:
          at += now.k;
          break;
        case BPF_JMP | BPF_JEQ | BPF_K:
          at += a_ == now.k ? now.jt : now.jf;
          break;
        case BPF_JMP | BPF_JGE | BPF_K:
          at += a_ >= now.k ? now.jt : now.jf;
          break;
        case BPF_JMP | BPF_JGT | BPF_K:
          at += a_ > now.k ? now.jt : now.jf;
          break;
        case BPF_RET | BPF_K:
          return now.k;
        default:
          throw std::logic_error("instruction " + std::to_string(now.code));
      }
    }
  }

 private:
  std::uint32_t Ancillary(int offset) const {
    switch (offset - SKF_AD_OFF) {
      case SKF_AD_VLAN_TAG_PRESENT:
        return packet_.stripped ? 1 : 0;
      case SKF_AD_VLAN_TAG:
        return packet_.stripped ? packet_.stripped->tci : 0;
      case SKF_AD_VLAN_TPID:
        return packet_.stripped ? packet_.stripped->tpid : 0;
      default:
        throw std::logic_error("ancillary " + std::to_string(offset));
    }
  }

  const Packet& packet_;
  std::uint32_t a_ = 0;
  std::uint32_t x_ = 0;
  std::array<std::optional<std::uint32_t>, BPF_MEMWORDS> memory_;
};

using Tags = std::vector<pdu::StrippedTag>;

constexpr std::uint16_t kOther = 0x88b5;
constexpr std::uint16_t kCustomer = pdu::kTpidCustomer;
constexpr std::uint16_t kService = pdu::kTpidService;

Packet MakePacket(const Tags& tags, std::uint16_t type, std::uint8_t level, pdu::Opcode opcode, bool strips) {
  Packet packet{.octets = std::vector<std::uint8_t>(12)};
  const auto append = [&packet](std::uint16_t value) {
    packet.octets.push_back(static_cast<std::uint8_t>(value >> 8));
    packet.octets.push_back(static_cast<std::uint8_t>(value));
  };
  for (const pdu::StrippedTag& tag : tags) {
    if (strips && !packet.stripped) {
      packet.stripped = tag;
      continue;
    }
    append(tag.tpid);
    append(tag.tci);
  }
  append(type);
  packet.octets.push_back(static_cast<std::uint8_t>(level << 5));
  packet.octets.push_back(static_cast<std::uint8_t>(opcode));
  packet.octets.resize(packet.octets.size() + 60);
  return packet;
}

// With the outer tag in the frame and with the tag taken out of it, which must make no difference.
std::uint32_t Verdict(const Program& program, const Tags& tags, std::uint16_t type, std::uint8_t level = 0,
                      pdu::Opcode opcode = pdu::Opcode::kCcm) {
  const Packet whole = MakePacket(tags, type, level, opcode, false);
  const Packet stripped = MakePacket(tags, type, level, opcode, true);
  const std::uint32_t result = Machine(whole).Run(program);
  EXPECT_EQ(Machine(stripped).Run(program), result) << tags.size() << " tags";
  return result;
}

constexpr std::uint16_t Tci(std::uint16_t vid) {
  return static_cast<std::uint16_t>(7 << 13 | vid);
}

TEST(SocketFilter, TakesCfmBehindAtMostTwoTags) {
  const Program filter = SocketFilter();
  EXPECT_NE(Verdict(filter, {}, pdu::kEtherTypeCfm), 0U);
  EXPECT_NE(Verdict(filter, {{kCustomer, Tci(5)}}, pdu::kEtherTypeCfm), 0U);
  EXPECT_NE(Verdict(filter, {{kService, Tci(5)}, {kCustomer, Tci(6)}}, pdu::kEtherTypeCfm), 0U);
  EXPECT_EQ(Verdict(filter, {{kService, Tci(5)}, {kService, Tci(6)}, {kCustomer, Tci(7)}}, pdu::kEtherTypeCfm), 0U);
}

TEST(SocketFilter, RefusesEverythingElse) {
  const Program filter = SocketFilter();
  EXPECT_EQ(Verdict(filter, {}, kOther), 0U);
  EXPECT_EQ(Verdict(filter, {{kCustomer, Tci(5)}}, kOther), 0U);
  EXPECT_EQ(Verdict(filter, {{kService, Tci(5)}, {kCustomer, Tci(6)}}, kOther), 0U);
}

TEST(EveryProgram, LooksAtNothingBehindTheEndOfAFrame) {
  const std::vector<protocol::LevelFilter> filters = {{.vlan = {}, .up_to_level = 7}};
  const Program socket = SocketFilter();
  const Program hook = *HookProgram({.cfm_only = true, .filters = filters});
  for (const Tags& tags : {Tags{}, Tags{{kCustomer, Tci(5)}}, Tags{{kService, Tci(5)}, {kCustomer, Tci(6)}}}) {
    for (const bool strips : {false, true}) {
      const Packet whole = MakePacket(tags, pdu::kEtherTypeCfm, 0, pdu::Opcode::kCcm, strips);
      const std::size_t in_frame = tags.size() - (strips && !tags.empty() ? 1 : 0);
      for (std::size_t size = 14; size < whole.octets.size(); ++size) {
        Packet cut = whole;
        cut.octets.resize(size);
        const bool has_type = size >= 14 + 4 * in_frame;
        EXPECT_EQ(Machine(cut).Run(socket) != 0, has_type) << size;
        const bool is_dropped = Machine(cut).Run(hook) == TC_ACT_SHOT;
        // Without a type it is not CFM, as far as one can see; without a level it is nobody's.
        const bool has_level = size >= 16 + 4 * in_frame;
        EXPECT_EQ(is_dropped, !has_type || (has_level && tags.empty())) << size;
      }
    }
  }
}

TEST(AHookProgram, DropsEverythingButCfmWhenThePortIsBlocked) {
  const Program program = *HookProgram({.cfm_only = true});
  for (const Tags& tags : {Tags{}, Tags{{kCustomer, Tci(5)}}, Tags{{kService, Tci(5)}, {kCustomer, Tci(6)}}}) {
    EXPECT_EQ(Verdict(program, tags, pdu::kEtherTypeCfm), static_cast<std::uint32_t>(TC_ACT_UNSPEC));
    EXPECT_EQ(Verdict(program, tags, kOther), static_cast<std::uint32_t>(TC_ACT_SHOT));
  }
}

TEST(AHookProgram, DropsUpToALevelOnItsVlanOnly) {
  const std::vector<protocol::LevelFilter> filters = {{.vlan = {.vid = 0}, .up_to_level = 2},
                                                      {.vlan = {.vid = 10}, .up_to_level = 4},
                                                      {.vlan = {.vid = 10, .inner_vid = 20}, .up_to_level = 6}};
  const Program program = *HookProgram({.filters = filters});
  const auto drops = [&program](const Tags& tags) {
    std::string levels;
    for (std::uint8_t level = 0; level <= 7; ++level) {
      if (Verdict(program, tags, pdu::kEtherTypeCfm, level) == TC_ACT_SHOT) levels += std::to_string(level);
    }
    return levels;
  };
  EXPECT_EQ(drops({}), "012");
  EXPECT_EQ(drops({{kCustomer, Tci(0)}}), "012");
  EXPECT_EQ(drops({{kCustomer, Tci(10)}}), "01234");
  EXPECT_EQ(drops({{kCustomer, Tci(11)}}), "");
  EXPECT_EQ(drops({{kService, Tci(10)}, {kCustomer, Tci(20)}}), "0123456");
  EXPECT_EQ(drops({{kService, Tci(10)}, {kCustomer, Tci(21)}}), "");
  EXPECT_EQ(drops({{kService, Tci(20)}, {kCustomer, Tci(10)}}), "");
  EXPECT_EQ(drops({{kService, Tci(10)}}), "") << "tagged as no MEP is";
  EXPECT_EQ(drops({{kCustomer, Tci(10)}, {kCustomer, Tci(20)}}), "") << "tagged as no MEP is";
  EXPECT_EQ(Verdict(program, {}, kOther), static_cast<std::uint32_t>(TC_ACT_UNSPEC));
}

TEST(AHookProgram, DropsLinktraceMessagesOfOneLevel) {
  const std::vector<protocol::LevelFilter> filters = {
      {.vlan = {.vid = 3}, .linktrace_level = 5},
      {.vlan = {.vid = 4}, .up_to_level = 1, .linktrace_level = 3},
  };
  const Program program = *HookProgram({.filters = filters});
  for (std::uint8_t level = 0; level <= 7; ++level) {
    for (const pdu::Opcode opcode : {pdu::Opcode::kCcm, pdu::Opcode::kLtr, pdu::Opcode::kLtm}) {
      const bool is_trace = opcode == pdu::Opcode::kLtm;
      EXPECT_EQ(Verdict(program, {{kCustomer, Tci(3)}}, pdu::kEtherTypeCfm, level, opcode) == TC_ACT_SHOT,
                is_trace && level == 5);
      EXPECT_EQ(Verdict(program, {{kCustomer, Tci(4)}}, pdu::kEtherTypeCfm, level, opcode) == TC_ACT_SHOT,
                level <= 1 || (is_trace && level == 3));
    }
  }
}

TEST(AHookProgram, HoldsEveryVlanInRangesAndSaysWhenItCannot) {
  std::vector<protocol::LevelFilter> filters;
  for (std::uint16_t vid = 1; vid < 4095; ++vid) filters.push_back({.vlan = {.vid = vid}, .up_to_level = 4});
  const auto one_range = HookProgram({.filters = filters});
  ASSERT_TRUE(one_range);
  EXPECT_LT(one_range->size(), 200U);
  EXPECT_EQ(Verdict(*one_range, {{kCustomer, Tci(4094)}}, pdu::kEtherTypeCfm, 4),
            static_cast<std::uint32_t>(TC_ACT_SHOT));
  EXPECT_EQ(Verdict(*one_range, {{kCustomer, Tci(4095)}}, pdu::kEtherTypeCfm, 4),
            static_cast<std::uint32_t>(TC_ACT_UNSPEC));
  EXPECT_EQ(Verdict(*one_range, {}, pdu::kEtherTypeCfm, 4), static_cast<std::uint32_t>(TC_ACT_UNSPEC));

  std::erase_if(filters, [](const protocol::LevelFilter& filter) { return filter.vlan.vid % 2 != 0; });
  EXPECT_FALSE(HookProgram({.filters = filters})) << "2047 ranges";
  filters.resize(1000);
  const auto many = HookProgram({.filters = filters});
  ASSERT_TRUE(many);
  EXPECT_EQ(Verdict(*many, {{kCustomer, Tci(2000)}}, pdu::kEtherTypeCfm, 4), static_cast<std::uint32_t>(TC_ACT_SHOT));
  EXPECT_EQ(Verdict(*many, {{kCustomer, Tci(1999)}}, pdu::kEtherTypeCfm, 4), static_cast<std::uint32_t>(TC_ACT_UNSPEC));
}

TEST(AHookProgram, IsKnownByItsMark) {
  EXPECT_EQ(MarkOf(*HookProgram({.cfm_only = true})), HookMark::kFilter);
  EXPECT_EQ(MarkOf(*HookProgram({.cfm_only = true, .mark = HookMark::kFilterOfDormantPort})),
            HookMark::kFilterOfDormantPort);
  EXPECT_EQ(MarkOf(SocketFilter()), std::nullopt);
  EXPECT_EQ(MarkOf({}), std::nullopt);
}

}  // namespace
}  // namespace cfm::port
