#include "octets.h"

#include <array>
#include <cctype>
#include <cstdio>

namespace cfm::pdu {

Buffer Hex(std::string_view text) {
  std::string digits;
  for (const char character : text) {
    if (std::isspace(static_cast<unsigned char>(character)) == 0) digits += character;
  }
  Buffer octets;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    octets.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  }
  return octets;
}

std::string ToHex(Octets octets) {
  std::string text;
  for (const std::uint8_t octet : octets) {
    std::array<char, 3> digits{};
    std::snprintf(digits.data(), digits.size(), "%02x", octet);
    text += digits.data();
  }
  return text;
}

}  // namespace cfm::pdu
