#include "port/bpf.h"

#include <linux/pkt_cls.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <tuple>

#include "pdu/ethernet.h"
#include "pdu/header.h"

namespace cfm::port {
namespace {

constexpr std::uint32_t kTakeAll = 0x40000;
constexpr std::uint32_t kRefuse = 0;

constexpr std::uint32_t kTypeOffset = 12;
constexpr std::uint32_t kTagSize = 4;
constexpr std::uint32_t kVidMask = 0x0fff;
constexpr std::uint32_t kVidBits = 12;
constexpr std::uint32_t kLevelShift = 5;  // of the first octet of a CFM PDU

// The scratch memory of a program.
constexpr std::uint32_t kInnerVid = 0;
constexpr std::uint32_t kLevel = 1;
constexpr std::uint32_t kOpcode = 2;

constexpr std::uint16_t kLoadHalf = BPF_LD | BPF_H | BPF_ABS;
constexpr std::uint16_t kLoadOctet = BPF_LD | BPF_B | BPF_ABS;
constexpr std::uint16_t kLoadAncillary = BPF_LD | BPF_W | BPF_ABS;
constexpr std::uint16_t kLoadLength = BPF_LD | BPF_W | BPF_LEN;
constexpr std::uint16_t kLoadConstant = BPF_LD | BPF_IMM;
constexpr std::uint16_t kLoadMemory = BPF_LD | BPF_MEM;
constexpr std::uint16_t kLoadMemoryX = BPF_LDX | BPF_MEM;
constexpr std::uint16_t kStore = BPF_ST;
constexpr std::uint16_t kAnd = BPF_ALU | BPF_AND | BPF_K;
constexpr std::uint16_t kOrX = BPF_ALU | BPF_OR | BPF_X;
constexpr std::uint16_t kShiftLeft = BPF_ALU | BPF_LSH | BPF_K;
constexpr std::uint16_t kShiftRight = BPF_ALU | BPF_RSH | BPF_K;
constexpr std::uint16_t kReturn = BPF_RET | BPF_K;

constexpr std::uint32_t Ancillary(int offset) {
  return static_cast<std::uint32_t>(SKF_AD_OFF + offset);
}

// Jumps go forward only, as the kernel demands it.
class Assembler {
 public:
  using Label = std::size_t;

  Label NewLabel() {
    places_.push_back(0);
    return places_.size() - 1;
  }
  void Place(Label label) { places_[label] = program_.size(); }

  void Do(std::uint16_t code, std::uint32_t operand) { program_.push_back(BPF_STMT(code, operand)); }

  void Jump(Label label) {
    jumps_.push_back({program_.size(), label});
    Do(BPF_JMP | BPF_JA, 0);
  }

  // Conditional jumps reach 255 instructions, unconditional ones any.
  void JumpIf(std::uint32_t value, Label label) {
    program_.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, 1));
    Jump(label);
  }
  void JumpUnless(std::uint32_t value, Label label) {
    program_.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 1, 0));
    Jump(label);
  }
  void JumpIfBetween(std::uint32_t lowest, std::uint32_t highest, Label label) {
    program_.push_back(BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, lowest, 0, 2));
    program_.push_back(BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, highest, 1, 0));
    Jump(label);
  }
  void JumpIfBelow(std::uint32_t limit, Label label) {
    program_.push_back(BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, limit, 1, 0));
    Jump(label);
  }

  Program Finish() {
    for (const auto& [position, label] : jumps_) {
      program_[position].k = static_cast<std::uint32_t>(places_[label] - position - 1);
    }
    return std::move(program_);
  }

 private:
  struct PendingJump {
    std::size_t position;
    Label label;
  };

  Program program_;
  std::vector<std::size_t> places_;
  std::vector<PendingJump> jumps_;
};

constexpr std::size_t kMostTags = 2;
using CfmLabels = std::array<Assembler::Label, kMostTags + 1>;

// To cfm[n] when the EtherType of CFM stands behind n tags in the frame and at most two in all, else to `other`.
void FindCfm(Assembler& code, const CfmLabels& cfm, Assembler::Label other) {
  for (std::uint32_t tags = 0; tags <= kMostTags; ++tags) {
    const std::uint32_t offset = kTypeOffset + tags * kTagSize;
    // A read beyond the frame would end the program with the value 0.
    code.Do(kLoadLength, 0);
    code.JumpIfBelow(offset + 2, other);
    code.Do(kLoadHalf, offset);
    if (tags == kMostTags) break;
    code.JumpIf(pdu::kEtherTypeCfm, cfm[tags]);
    const Assembler::Label is_tag = code.NewLabel();
    code.JumpIf(pdu::kTpidCustomer, is_tag);
    code.JumpIf(pdu::kTpidService, is_tag);
    code.Jump(other);
    code.Place(is_tag);
  }
  code.JumpUnless(pdu::kEtherTypeCfm, other);
  code.Do(kLoadAncillary, Ancillary(SKF_AD_VLAN_TAG_PRESENT));
  code.JumpIf(0, cfm[kMostTags]);
  code.Jump(other);
}

// A VLAN as one number: single tags that follow each other are neighbours.
constexpr std::uint32_t KeyOf(std::uint32_t vid, std::uint32_t inner_vid) {
  return inner_vid << kVidBits | vid;
}

class LevelFilters {
 public:
  LevelFilters(Assembler& code, std::span<const protocol::LevelFilter> filters) : code_(code), match_(code.NewLabel()) {
    for (const auto& [vlan, up_to_level, linktrace_level] : filters) {
      fates_[KeyOf(vlan.vid & kVidMask, vlan.inner_vid & kVidMask)] = {up_to_level, linktrace_level};
    }
  }

  bool empty() const { return fates_.empty(); }

  // From each cfm[n]: to `match` with the VLAN in the accumulator, or to `pass` when the tags are none that a MEP can
  // have: then it is nobody's.
  void LoadVlan(const CfmLabels& cfm, Assembler::Label pass) {
    for (std::uint32_t tags = 0; tags <= kMostTags; ++tags) {
      code_.Place(cfm[tags]);
      LoadPdu(kTypeOffset + tags * kTagSize + 2, pass);
      if (tags == kMostTags) {
        LoadVlanInFrame(tags, pass);
        break;
      }
      const Assembler::Label stripped = code_.NewLabel();
      code_.Do(kLoadAncillary, Ancillary(SKF_AD_VLAN_TAG_PRESENT));
      code_.JumpUnless(0, stripped);
      LoadVlanInFrame(tags, pass);
      code_.Place(stripped);
      LoadVlanBehindStripped(tags, pass);
    }
  }

  void Match(Assembler::Label drop, Assembler::Label pass) {
    std::map<Fate, Assembler::Label> labels;
    code_.Place(match_);
    for (auto first = fates_.begin(); first != fates_.end();) {
      const Fate& fate = first->second;
      std::uint32_t last = first->first;
      auto next = std::next(first);
      while (next != fates_.end() && next->first == last + 1 && next->second == fate) last = next++->first;
      const auto [label, is_new] = labels.try_emplace(fate, 0);
      if (is_new) label->second = code_.NewLabel();
      code_.JumpIfBetween(first->first, last, label->second);
      first = next;
    }
    code_.Jump(pass);
    for (const auto& [fate, label] : labels) {
      code_.Place(label);
      code_.Do(kLoadMemory, kLevel);
      if (fate.up_to_level) code_.JumpIfBetween(0, *fate.up_to_level, drop);
      if (fate.linktrace_level) {
        code_.JumpUnless(*fate.linktrace_level, pass);
        code_.Do(kLoadMemory, kOpcode);
        code_.JumpIf(static_cast<std::uint32_t>(pdu::Opcode::kLtm), drop);
      }
      code_.Jump(pass);
    }
  }

 private:
  struct Fate {
    std::optional<std::uint8_t> up_to_level;
    std::optional<std::uint8_t> linktrace_level;

    bool operator==(const Fate&) const = default;
    bool operator<(const Fate& other) const {
      return std::tie(up_to_level, linktrace_level) < std::tie(other.up_to_level, other.linktrace_level);
    }
  };

  void LoadPdu(std::uint32_t offset, Assembler::Label pass) {
    code_.Do(kLoadLength, 0);
    code_.JumpIfBelow(offset + 2, pass);
    code_.Do(kLoadOctet, offset + 1);
    code_.Do(kStore, kOpcode);
    code_.Do(kLoadOctet, offset);
    code_.Do(kShiftRight, kLevelShift);
    code_.Do(kStore, kLevel);
  }

  void CheckType(std::uint16_t load, std::uint32_t offset, std::uint16_t tpid, Assembler::Label pass) {
    code_.Do(load, offset);
    code_.JumpUnless(tpid, pass);
  }

  // The outer VID of a tag in the frame, or of the stripped one, joins the inner one, which is in the frame always.
  void LoadKey(std::uint16_t load_outer, std::uint32_t outer_tci, std::optional<std::uint32_t> inner_tci) {
    if (inner_tci) {
      code_.Do(kLoadHalf, *inner_tci);
      code_.Do(kAnd, kVidMask);
      code_.Do(kShiftLeft, kVidBits);
    } else {
      code_.Do(kLoadConstant, 0);
    }
    code_.Do(kStore, kInnerVid);
    code_.Do(load_outer, outer_tci);
    code_.Do(kAnd, kVidMask);
    code_.Do(kLoadMemoryX, kInnerVid);
    code_.Do(kOrX, 0);
    code_.Jump(match_);
  }

  void LoadVlanInFrame(std::uint32_t tags, Assembler::Label pass) {
    if (tags == 0) {
      code_.Do(kLoadConstant, KeyOf(0, 0));
      code_.Jump(match_);
      return;
    }
    const bool has_inner = tags == kMostTags;
    CheckType(kLoadHalf, kTypeOffset, has_inner ? pdu::kTpidService : pdu::kTpidCustomer, pass);
    if (has_inner) CheckType(kLoadHalf, kTypeOffset + kTagSize, pdu::kTpidCustomer, pass);
    LoadKey(kLoadHalf, kTypeOffset + 2,
            has_inner ? std::optional<std::uint32_t>(kTypeOffset + kTagSize + 2) : std::nullopt);
  }

  void LoadVlanBehindStripped(std::uint32_t tags, Assembler::Label pass) {
    const bool has_inner = tags == 1;
    CheckType(kLoadAncillary, Ancillary(SKF_AD_VLAN_TPID), has_inner ? pdu::kTpidService : pdu::kTpidCustomer, pass);
    if (has_inner) CheckType(kLoadHalf, kTypeOffset, pdu::kTpidCustomer, pass);
    LoadKey(kLoadAncillary, Ancillary(SKF_AD_VLAN_TAG),
            has_inner ? std::optional<std::uint32_t>(kTypeOffset + 2) : std::nullopt);
  }

  Assembler& code_;
  Assembler::Label match_;
  std::map<std::uint32_t, Fate> fates_;  // by VLAN
};

}  // namespace

Program SocketFilter() {
  Assembler code;
  const CfmLabels cfm = {code.NewLabel(), code.NewLabel(), code.NewLabel()};
  const Assembler::Label refuse = code.NewLabel();
  FindCfm(code, cfm, refuse);
  for (const Assembler::Label label : cfm) code.Place(label);
  code.Do(kReturn, kTakeAll);
  code.Place(refuse);
  code.Do(kReturn, kRefuse);
  return code.Finish();
}

std::optional<HookMark> MarkOf(std::span<const sock_filter> program) {
  if (program.empty() || program[0].code != kLoadConstant) return std::nullopt;
  for (const HookMark mark : {HookMark::kFilter, HookMark::kFilterOfDormantPort}) {
    if (program[0].k == static_cast<std::uint32_t>(mark)) return mark;
  }
  return std::nullopt;
}

std::optional<Program> HookProgram(const HookPolicy& policy) {
  Assembler code;
  const CfmLabels cfm = {code.NewLabel(), code.NewLabel(), code.NewLabel()};
  const Assembler::Label other = code.NewLabel();
  const Assembler::Label drop = code.NewLabel();
  const Assembler::Label pass = code.NewLabel();

  code.Do(kLoadConstant, static_cast<std::uint32_t>(policy.mark));
  FindCfm(code, cfm, other);
  LevelFilters filters(code, policy.filters);
  if (filters.empty()) {
    for (const Assembler::Label label : cfm) code.Place(label);
    code.Jump(pass);
  } else {
    filters.LoadVlan(cfm, pass);
    filters.Match(drop, pass);
  }
  code.Place(other);
  code.Jump(policy.cfm_only ? drop : pass);
  code.Place(drop);
  code.Do(kReturn, TC_ACT_SHOT);
  code.Place(pass);
  code.Do(kReturn, static_cast<std::uint32_t>(TC_ACT_UNSPEC));

  Program program = code.Finish();
  if (program.size() > BPF_MAXINSNS) return std::nullopt;
  return program;
}

}  // namespace cfm::port
