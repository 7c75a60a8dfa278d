#include "pdu/decoded.h"

namespace cfm::pdu {

const char* ToText(Problem problem) {
  switch (problem) {
    case Problem::kTooShort:
      return "frame too short";
    case Problem::kOpcode:
      return "unexpected opcode";
    case Problem::kFirstTlvOffset:
      return "first TLV offset too small";
    case Problem::kTlvOverrun:
      return "TLV runs past the frame";
    case Problem::kTlvTooShort:
      return "TLV too short";
    case Problem::kValue:
      return "value out of range";
    case Problem::kTags:
      return "unexpected VLAN tags";
    case Problem::kEtherType:
      return "not a CFM frame";
  }
  return "unknown problem";
}

}  // namespace cfm::pdu
