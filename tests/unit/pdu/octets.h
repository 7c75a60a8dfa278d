// Frames as hexadecimal text, the form in which a person can check them.
#ifndef CFM_TESTS_PDU_OCTETS_H
#define CFM_TESTS_PDU_OCTETS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "pdu/decoded.h"

namespace cfm::pdu {

using Buffer = std::vector<std::uint8_t>;

/// White space counts for nothing.
Buffer Hex(std::string_view text);

std::string ToHex(Octets octets);

/// What an encoder writes into a buffer that is large enough.
template <typename Record>
std::string Encoded(std::size_t (*encode)(const Record&, std::span<std::uint8_t>), const Record& record) {
  Buffer buffer(9000, 0xee);
  return ToHex(Octets(buffer).first(encode(record, buffer)));
}

}  // namespace cfm::pdu

#endif
