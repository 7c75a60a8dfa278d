#include "maid.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "names.h"
#include "text.h"

namespace cfmctl {
namespace {

EncodedName Wrong(std::string problem) {
  return {.octets = {}, .problem = std::move(problem)};
}

void AppendBigEndian(std::string& octets, std::uint64_t value, int count) {
  for (int shift = 8 * (count - 1); shift >= 0; shift -= 8) {
    octets += static_cast<char>(static_cast<unsigned char>(value >> shift));
  }
}

bool AllHex(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char digit) { return std::isxdigit(digit) != 0; });
}

std::uint64_t HexValue(std::string_view text) {
  return std::stoull(std::string(text), nullptr, 16);
}

/// IEEE 802.1Q allows the characters 32 to 126.
EncodedName EncodeString(std::string_view name, std::size_t longest) {
  if (name.empty()) return Wrong(fmt::format("an empty name; allowed: 1 to {} characters", longest));
  if (name.size() > longest) {
    return Wrong(fmt::format("'{}' is {} octets long; allowed: 1 to {}", Escape(name), name.size(), longest));
  }
  const bool printable =
      std::all_of(name.begin(), name.end(), [](unsigned char octet) { return octet >= 32 && octet <= 126; });
  if (!printable) {
    return Wrong(fmt::format("'{}' holds characters outside of 32 to 126; allowed: printable ASCII", Escape(name)));
  }
  return {.octets = std::string(name), .problem = {}};
}

EncodedName EncodeDns(std::string_view name) {
  EncodedName encoded = EncodeString(name, kLongestMdName);
  const bool dns_like = std::all_of(name.begin(), name.end(), [](unsigned char octet) {
    return std::isalnum(octet) != 0 || octet == '-' || octet == '_' || octet == '.';
  });
  if (encoded.problem.empty() && !dns_like) {
    return Wrong(fmt::format("'{}' is not DNS-like; allowed: letters, digits, '-', '_' and '.'", Escape(name)));
  }
  return encoded;
}

/// "00:11:22:33:44:55:7": a MAC address and an integer of 16 bits.
EncodedName EncodeMacAndInteger(std::string_view name) {
  constexpr std::size_t kAddressLength = 17;
  const auto wrong = [name] {
    return Wrong(
        fmt::format("'{}' is not a MAC address and an integer; allowed: 00:11:22:33:44:55:0 to "
                    "...:65535",
                    Escape(name)));
  };
  if (name.size() < kAddressLength + 2 || name[kAddressLength] != ':') return wrong();
  EncodedName encoded;
  for (std::size_t start = 0; start < kAddressLength; start += 3) {
    const std::string_view octet = name.substr(start, 2);
    if (!AllHex(octet) || name[start + 2] != ':') return wrong();
    AppendBigEndian(encoded.octets, HexValue(octet), 1);
  }
  const auto integer = ParseNumber(name.substr(kAddressLength + 1));
  if (!integer || *integer > 65535) return wrong();
  AppendBigEndian(encoded.octets, *integer, 2);
  return encoded;
}

EncodedName EncodeInteger(std::string_view name, std::uint64_t lowest, std::uint64_t highest, std::string_view what) {
  const auto number = ParseNumber(name);
  if (!number || *number < lowest || *number > highest) {
    return Wrong(fmt::format("'{}' is not {}; allowed: {} to {}", Escape(name), what, lowest, highest));
  }
  EncodedName encoded;
  AppendBigEndian(encoded.octets, *number, 2);
  return encoded;
}

/// RFC 2685: an OUI of 3 octets and an index of 4.
EncodedName EncodeVpnId(std::string_view name) {
  if (name.size() != 15 || name[6] != ':' || !AllHex(name.substr(0, 6)) || !AllHex(name.substr(7))) {
    return Wrong(
        fmt::format("'{}' is not a VPN id; allowed: 6 hexadecimal digits (OUI), ':', 8 hexadecimal digits "
                    "(index), as in 00a0b1:00000001",
                    Escape(name)));
  }
  EncodedName encoded;
  AppendBigEndian(encoded.octets, HexValue(name.substr(0, 6)), 3);
  AppendBigEndian(encoded.octets, HexValue(name.substr(7)), 4);
  return encoded;
}

/// A carrier code of 1 to 6 characters and a unique code, together 13 octets filled with zeros.
EncodedName EncodeIcc(std::string_view name) {
  constexpr std::size_t kIccLength = 13;
  EncodedName encoded = EncodeString(name, kIccLength);
  if (encoded.problem.empty()) encoded.octets.resize(kIccLength);
  return encoded;
}

}  // namespace

EncodedName EncodeMdName(std::uint32_t format, std::string_view name) {
  switch (format) {
    case kMdFormatDns:
      return EncodeDns(name);
    case kMdFormatMac:
      return EncodeMacAndInteger(name);
    case kMdFormatNone: {
      EncodedName encoded = EncodeString(name, kLongestMdName);
      encoded.octets.clear();
      return encoded;
    }
    default:
      return EncodeString(name, kLongestMdName);
  }
}

EncodedName EncodeMaName(std::uint32_t format, std::string_view name) {
  switch (format) {
    case kMaFormatVid:
      return EncodeInteger(name, 1, 4094, "a VLAN id");
    case kMaFormatUint16:
      return EncodeInteger(name, 0, 65535, "an integer of 16 bits");
    case kMaFormatVpnId:
      return EncodeVpnId(name);
    case kMaFormatIcc:
      return EncodeIcc(name);
    default:
      return EncodeString(name, kLongestMaName);
  }
}

std::string EncodeMaid(std::uint32_t md_format, std::string_view md_octets, std::uint32_t ma_format,
                       std::string_view ma_octets) {
  std::string maid;
  AppendBigEndian(maid, md_format, 1);
  if (md_format != kMdFormatNone) {
    AppendBigEndian(maid, md_octets.size(), 1);
    maid += md_octets;
  }
  AppendBigEndian(maid, ma_format, 1);
  AppendBigEndian(maid, ma_octets.size(), 1);
  maid += ma_octets;
  return maid;
}

}  // namespace cfmctl
