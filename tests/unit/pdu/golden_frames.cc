#include "golden_frames.h"

#include <algorithm>
#include <ostream>
#include <stdexcept>
#include <utility>

#include "pdu/ais.h"
#include "pdu/ccm.h"
#include "pdu/delay.h"
#include "pdu/linktrace.h"
#include "pdu/loopback.h"
#include "same.h"

namespace cfm::pdu {
namespace {

template <typename Record>
GoldenFrame Frame(std::string name, std::string target, Opcode opcode, std::uint8_t fields_size,
                  Decoded<Record> (*decode)(Octets), std::vector<std::size_t> boundaries, std::string_view hex) {
  return {.name = std::move(name),
          .target = std::move(target),
          .opcode = opcode,
          .fields_size = fields_size,
          .octets = Hex(hex),
          .boundaries = std::move(boundaries),
          .refusal = [decode](Octets octets) -> std::optional<Error> {
            const auto decoded = decode(octets);
            if (decoded) return std::nullopt;
            return decoded.error();
          },
          .same = [decode](Octets a, Octets b) { return fuzz::Same(*decode(a), *decode(b)); }};
}

// clang-format off
constexpr std::string_view kZeros16 = "00000000 00000000 00000000 00000000";

std::vector<GoldenFrame> Frames() {
  return {
    Frame("ccm-shortest", "ccm", Opcode::kCcm, 70, DecodeCcm, {74, 75}, std::string(
      "00 01 04 46"                                   // level 0, version 0; CCM; 1 s; first TLV at 70
      "00000001 0001"                                 // sequence number, MEP id
      "01 0201 61") + "00000000 00000000 00000000"    // no domain name, string "a"
      + std::string(kZeros16) + std::string(kZeros16)
      + std::string(kZeros16) +                       // the counters of Y.1731
      "00"),
    Frame("ccm-full", "ccm", Opcode::kCcm, 70, DecodeCcm, {74, 101, 105, 109, 110}, std::string(
      "a0 01 83 46"                                   // level 5; RDI, 100 ms
      "fffffffe 1fff"
      "04 04 77657374 01 02 0064 000000000000")       // "west", VLAN 100
      + std::string(kZeros16) + std::string(kZeros16)
      + std::string(kZeros16) +
      "01 0018"                                       // Sender ID
      "  06 04 0a0b0c0d0e0f"                          // a port's address
      "  08 2b06010201640101"                         // 1.3.6.1.2.1.100.1.1: UDP over IPv4
      "  06 c0000201 00a1"                            // 192.0.2.1, port 161
      "02 0001 02"                                    // port status up
      "04 0001 07"                                    // interface status lower layer down
      "00"),
    Frame("lbm", "lbm", Opcode::kLbm, 4, DecodeLbm, {8, 18, 26, 27},
      "60 03 00 04 01020304"                          // level 3; transaction id
      "01 0007 04 07 77657374 00"                     // locally assigned "west", no address
      "03 0005 a0a1a2a3a4"
      "00"),
    Frame("lbr", "lbr", Opcode::kLbr, 4, DecodeLbr, {8, 18, 26, 27},
      "60 02 00 04 01020304"
      "01 0007 04 07 77657374 00"
      "03 0005 a0a1a2a3a4"
      "00"),
    Frame("ltm", "ltm", Opcode::kLtm, 17, DecodeLtm, {21, 32, 44, 45},
      "e0 05 80 11 0000002a 40"                       // level 7; filtering database only; id 42, TTL 64
      "020000000001 020000000002"                     // original, target
      "07 0008 0001 020000000001"                     // egress identifier
      "01 0009 06 04 020000000001 00"
      "00"),
    Frame("ltr", "ltr", Opcode::kLtr, 6, DecodeLtr, {10, 29, 45, 55, 67, 68},
      "e0 04 e0 06 0000002a 3f 02"                    // all three flags; TTL 63, filtering database
      "08 0010 0001 020000000001 0002 020000000003"   // last, next
      "05 000d 01 020000000002 04 05 65746830"        // ingress ok, interface name "eth0"
      "06 0007 03 020000000003"                       // egress blocked
      "01 0009 06 04 020000000002 00"
      "00"),
    Frame("ais-second", "ais", Opcode::kAis, 0, DecodeAis, {4, 5}, "40 21 04 00 00"),
    Frame("ais-minute", "ais", Opcode::kAis, 0, DecodeAis, {4, 5}, "40 21 06 00 00"),
    Frame("dmm", "dmm", Opcode::kDmm, 32, DecodeDmm, {36, 42, 43}, std::string(
      "80 2f 01 20"                                   // level 4; of a standing session
      "5f5e1000 075bcd15"                             // sent f: 1600000000 s, 123456789 ns
      "00000000 00000000") + std::string(kZeros16) +
      "03 0003 010203"
      "00"),
    Frame("dmr", "dmr", Opcode::kDmr, 32, DecodeDmr, {36, 42, 43},
      "80 2e 01 20"
      "5f5e1000 075bcd15"
      "5f5e1001 00000010"
      "5f5e1001 00000020"
      "00000000 00000000"
      "03 0003 010203"
      "00"),
    Frame("1dm", "1dm", Opcode::k1dm, 16, Decode1dm, {20, 21},
      "20 2d 00 10"
      "5f5e1000 3b9ac9ff"
      "00000000 00000000"
      "00"),
  };
}
// clang-format on

}  // namespace

std::ostream& operator<<(std::ostream& out, const GoldenFrame& frame) {
  return out << frame.name;
}

const std::vector<GoldenFrame>& GoldenFrames() {
  static const std::vector<GoldenFrame> frames = Frames();
  return frames;
}

const Buffer& GoldenOctets(const std::string& name) {
  const auto found = std::ranges::find(GoldenFrames(), name, &GoldenFrame::name);
  if (found == GoldenFrames().end()) throw std::invalid_argument("no golden frame " + name);
  return found->octets;
}

}  // namespace cfm::pdu
