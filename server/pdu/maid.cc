#include "pdu/maid.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <optional>

#include "pdu/reader.h"
#include "pdu/writer.h"

namespace cfm::pdu {
namespace {

/// The domain's name, the association's, and four octets of formats and lengths share the 48.
constexpr std::size_t kLongestNamePair = kMaidSize - 4;
constexpr std::size_t kLongestMdName = 43;
constexpr std::size_t kLongestMaName = 45;
constexpr std::size_t kIccSize = 13;
constexpr std::uint32_t kLowestVid = 1;
constexpr std::uint32_t kHighestVid = 4094;
constexpr std::uint32_t kHighestUint16 = 65535;

/// The octets of one name, or why there are none.
struct Name {
  std::array<std::uint8_t, kMaidSize> octets{};
  std::size_t size = 0;
  const char* problem = nullptr;

  Octets view() const { return Octets(octets).first(size); }
};

Name Wrong(const char* problem) {
  return {.octets = {}, .size = 0, .problem = problem};
}

bool IsPrintable(unsigned char character) {
  return character >= 32 && character <= 126;
}

bool IsDnsLike(unsigned char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || character == '-' || character == '_' || character == '.';
}

/// Digits only.
std::optional<std::uint32_t> ParseNumber(std::string_view text, int base) {
  if (text.empty()) return std::nullopt;
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [parsed, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc() || parsed != end) return std::nullopt;
  return number;
}

Name EncodeString(std::string_view text, std::size_t longest) {
  if (text.empty()) return Wrong("is empty");
  if (text.size() > longest) return Wrong("is too long");
  if (!std::ranges::all_of(text, IsPrintable)) return Wrong("holds characters outside of 32 to 126");
  Name name;
  std::ranges::copy(text, name.octets.begin());
  name.size = text.size();
  return name;
}

Name EncodeDnsLike(std::string_view text) {
  if (!std::ranges::all_of(text, IsDnsLike)) return Wrong("holds more than letters, digits, '-', '_' and '.'");
  return EncodeString(text, kLongestMdName);
}

Name EncodeUint16(std::string_view text, std::uint32_t lowest, std::uint32_t highest, const char* problem) {
  const auto number = ParseNumber(text, 10);
  if (!number || *number < lowest || *number > highest) return Wrong(problem);
  Name name;
  Writer writer(name.octets);
  writer.u16(static_cast<std::uint16_t>(*number));
  name.size = writer.size();
  return name;
}

Name EncodeMacAndInteger(std::string_view text) {
  constexpr const char* kProblem = "is not an address and an integer of 16 bits, as 00:11:22:33:44:55:7 is";
  constexpr std::size_t kAddressLength = 18;  // with the colon behind
  if (text.size() <= kAddressLength) return Wrong(kProblem);
  Name name;
  Writer writer(name.octets);
  for (std::size_t start = 0; start < kAddressLength; start += 3) {
    const auto octet = ParseNumber(text.substr(start, 2), 16);
    if (!octet || text[start + 2] != ':') return Wrong(kProblem);
    writer.u8(static_cast<std::uint8_t>(*octet));
  }
  const auto integer = ParseNumber(text.substr(kAddressLength), 10);
  if (!integer || *integer > kHighestUint16) return Wrong(kProblem);
  writer.u16(static_cast<std::uint16_t>(*integer));
  name.size = writer.size();
  return name;
}

Name EncodeVpnId(std::string_view text) {
  constexpr const char* kProblem = "is not a VPN id, as 00a0b1:00000001 is";
  constexpr std::size_t kOuiLength = 6;
  constexpr std::size_t kIndexLength = 8;
  if (text.size() != kOuiLength + 1 + kIndexLength || text[kOuiLength] != ':') return Wrong(kProblem);
  const auto oui = ParseNumber(text.substr(0, kOuiLength), 16);
  const auto index = ParseNumber(text.substr(kOuiLength + 1), 16);
  if (!oui || !index) return Wrong(kProblem);
  Name name;
  Writer writer(name.octets);
  writer.u8(static_cast<std::uint8_t>(*oui >> 16));
  writer.u16(static_cast<std::uint16_t>(*oui));
  writer.u32(*index);
  name.size = writer.size();
  return name;
}

/// A carrier code of 1 to 6 characters and what the carrier makes of the rest; zeros fill it up.
Name EncodeIccBased(std::string_view text) {
  Name name = EncodeString(text, kIccSize);
  if (name.problem == nullptr) name.size = kIccSize;
  return name;
}

Name EncodeMdName(std::uint32_t format, std::string_view text) {
  switch (static_cast<MdNameFormat>(format)) {
    case MdNameFormat::kNone:
      return {};
    case MdNameFormat::kDnsLike:
      return EncodeDnsLike(text);
    case MdNameFormat::kMacAndInteger:
      return EncodeMacAndInteger(text);
    case MdNameFormat::kString:
      return EncodeString(text, kLongestMdName);
  }
  return Wrong("has an unknown format");
}

Name EncodeMaName(std::uint32_t format, std::string_view text) {
  switch (static_cast<MaNameFormat>(format)) {
    case MaNameFormat::kPrimaryVid:
      return EncodeUint16(text, kLowestVid, kHighestVid, "is not a VLAN id from 1 to 4094");
    case MaNameFormat::kString:
      return EncodeString(text, kLongestMaName);
    case MaNameFormat::kUint16:
      return EncodeUint16(text, 0, kHighestUint16, "is not an integer from 0 to 65535");
    case MaNameFormat::kVpnId:
      return EncodeVpnId(text);
    case MaNameFormat::kIccBased:
      return EncodeIccBased(text);
  }
  return Wrong("has an unknown format");
}

std::string Hexadecimal(Octets octets) {
  std::string text;
  for (const std::uint8_t octet : octets) {
    std::array<char, 3> digits{};
    std::snprintf(digits.data(), digits.size(), "%02x", octet);
    text += digits.data();
  }
  return text;
}

/// A name as a configuration has it, as far as its format can be recognised.
std::string MdNameText(std::uint32_t format, Octets name) {
  const bool is_text = format == static_cast<std::uint32_t>(MdNameFormat::kDnsLike) ||
                       format == static_cast<std::uint32_t>(MdNameFormat::kString);
  if (is_text && std::ranges::all_of(name, IsPrintable)) return "'" + std::string(name.begin(), name.end()) + "'";
  if (format == static_cast<std::uint32_t>(MdNameFormat::kMacAndInteger) && name.size() == 8) {
    std::string text;
    for (const std::uint8_t octet : name.first(6)) text += Hexadecimal({&octet, 1}) + ":";
    return "'" + text + std::to_string(name[6] << 8 | name[7]) + "'";
  }
  return "format " + std::to_string(format) + " 0x" + Hexadecimal(name);
}

std::string MaNameText(std::uint32_t format, Octets name) {
  switch (static_cast<MaNameFormat>(format)) {
    case MaNameFormat::kPrimaryVid:
    case MaNameFormat::kUint16:
      if (name.size() == 2) return "'" + std::to_string(name[0] << 8 | name[1]) + "'";
      break;
    case MaNameFormat::kVpnId:
      if (name.size() == 7) return "'" + Hexadecimal(name.first(3)) + ":" + Hexadecimal(name.subspan(3)) + "'";
      break;
    case MaNameFormat::kIccBased:
    case MaNameFormat::kString: {
      const auto last = std::ranges::find_if(name.rbegin(), name.rend(), [](std::uint8_t octet) { return octet != 0; });
      const Octets text = name.first(static_cast<std::size_t>(name.rend() - last));
      if (std::ranges::all_of(text, IsPrintable)) return "'" + std::string(text.begin(), text.end()) + "'";
      break;
    }
  }
  return "format " + std::to_string(format) + " 0x" + Hexadecimal(name);
}

}  // namespace

std::variant<Maid, std::string> EncodeMaid(const MaidNames& names) {
  const bool has_md_name = names.md_format != static_cast<std::uint32_t>(MdNameFormat::kNone);
  const Name md = EncodeMdName(names.md_format, names.md_name);
  if (md.problem != nullptr) return std::string("the domain's name ") + md.problem;
  const Name ma = EncodeMaName(names.ma_format, names.ma_name);
  if (ma.problem != nullptr) return std::string("the association's name ") + ma.problem;
  if (has_md_name && names.ma_format == static_cast<std::uint32_t>(MaNameFormat::kIccBased)) {
    return std::string("an ICC-based name needs a domain without a name");
  }
  if (has_md_name && md.size + ma.size > kLongestNamePair) {
    return std::string("the names of domain and association are together longer than ") +
           std::to_string(kLongestNamePair) + " octets";
  }

  Maid maid;
  Writer writer(maid.octets);
  writer.u8(static_cast<std::uint8_t>(names.md_format));
  if (has_md_name) writer.counted_octets(md.view());
  writer.u8(static_cast<std::uint8_t>(names.ma_format));
  writer.counted_octets(ma.view());
  return maid;
}

std::string ToText(const Maid& maid) {
  Reader reader(maid.octets);
  const std::uint8_t md_format = reader.u8();
  const bool has_md_name = md_format != static_cast<std::uint32_t>(MdNameFormat::kNone);
  const Octets md_name = has_md_name ? reader.counted_octets() : Octets();
  const std::uint8_t ma_format = reader.u8();
  const Octets ma_name = reader.counted_octets();
  if (!reader.ok()) return "0x" + Hexadecimal(maid.octets);
  return (has_md_name ? MdNameText(md_format, md_name) : "no domain name") + " " + MaNameText(ma_format, ma_name);
}

}  // namespace cfm::pdu
