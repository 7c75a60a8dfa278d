// What the data TLV of a test message holds.
#ifndef CFM_SERVER_PROTOCOL_TEST_DATA_H
#define CFM_SERVER_PROTOCOL_TEST_DATA_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "pdu/decoded.h"

namespace cfm::protocol {

inline constexpr std::size_t kMostTestData = 1480;

/// Octets that count up, so that a shifted or damaged copy is seen. At most kMostTestData.
inline pdu::Octets TestData(std::size_t size) {
  static constexpr auto kPattern = [] {
    std::array<std::uint8_t, kMostTestData> pattern{};
    for (std::size_t i = 0; i < pattern.size(); ++i) pattern[i] = static_cast<std::uint8_t>(i);
    return pattern;
  }();
  return pdu::Octets(kPattern).first(size);
}

}  // namespace cfm::protocol

#endif
