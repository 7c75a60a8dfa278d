// The maintenance association identifier: 48 octets made of the names of a domain and of an association (IEEE 802.1Q
// clause 21.6.5; ICC-based names ITU-T G.8013/Y.1731 annex A).
#ifndef CFM_SERVER_PDU_MAID_H
#define CFM_SERVER_PDU_MAID_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace cfm::pdu {

inline constexpr std::size_t kMaidSize = 48;

/// Two are equal when all octets are, padding included (IEEE 802.1Q clause 20.17.1).
struct Maid {
  std::array<std::uint8_t, kMaidSize> octets{};

  bool operator==(const Maid&) const = default;
};

enum class MdNameFormat : std::uint32_t {
  kNone = 1,           ///< the name is not sent
  kDnsLike = 2,        ///< "example.net"
  kMacAndInteger = 3,  ///< "00:11:22:33:44:55:7": an address and 0 to 65535
  kString = 4,         ///< 1 to 43 printable characters
};

enum class MaNameFormat : std::uint32_t {
  kPrimaryVid = 1,  ///< "100": 1 to 4094
  kString = 2,      ///< 1 to 45 printable characters
  kUint16 = 3,      ///< "65535"
  kVpnId = 4,       ///< "00a0b1:00000001": OUI and index of RFC 2685
  kIccBased = 32,   ///< "ABCDEF1234567": up to 13 characters, only with MD name format none
};

/// Formats as the configuration carries them, named or not.
struct MaidNames {
  std::uint32_t md_format = 0;
  std::string_view md_name;
  std::uint32_t ma_format = 0;
  std::string_view ma_name;
};

/// The identifier, or a sentence without an end mark that says which name does not fit its format, and why.
std::variant<Maid, std::string> EncodeMaid(const MaidNames& names);

/// For log lines, in printable ASCII whatever the octets are: "'example.net' '100'", or the octets in hexadecimal where
/// they do not make sense.
std::string ToText(const Maid& maid);

}  // namespace cfm::pdu

#endif
