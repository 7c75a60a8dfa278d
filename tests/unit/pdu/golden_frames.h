// One PDU of each kind, written down octet by octet.
#ifndef CFM_TESTS_PDU_GOLDEN_FRAMES_H
#define CFM_TESTS_PDU_GOLDEN_FRAMES_H

#include <cstddef>
#include <functional>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "octets.h"
#include "pdu/header.h"

namespace cfm::pdu {

struct GoldenFrame {
  std::string name;
  std::string target;  ///< the fuzz target, and the folder of its seeds
  Opcode opcode;
  std::uint8_t fields_size;
  Buffer octets;
  /// Where a TLV begins, and the end: a frame that is cut there lacks an End TLV, which is accepted.
  std::vector<std::size_t> boundaries;
  /// Of the decoder of its opcode; none when it accepts.
  std::function<std::optional<Error>(Octets)> refusal;
  /// Whether that decoder reads the same record from both.
  std::function<bool(Octets, Octets)> same;
};

std::ostream& operator<<(std::ostream& out, const GoldenFrame& frame);

const std::vector<GoldenFrame>& GoldenFrames();

const Buffer& GoldenOctets(const std::string& name);

}  // namespace cfm::pdu

#endif
