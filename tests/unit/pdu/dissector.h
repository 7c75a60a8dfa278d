// What an independent dissector, tshark, reads out of frames.
#ifndef CFM_TESTS_PDU_DISSECTOR_H
#define CFM_TESTS_PDU_DISSECTOR_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "octets.h"

namespace cfm::pdu {

/// From a field's name ("cfm.opcode") to its value; of a field that occurs more often, all of them with ';' between.
using Fields = std::map<std::string, std::string>;

/// The fields of each frame, all that the dissector knows of its addresses, its tags and its PDU, and its complaints.
/// None when there is no dissector on this machine.
std::optional<std::vector<Fields>> Dissect(const std::vector<Buffer>& frames);

}  // namespace cfm::pdu

#endif
