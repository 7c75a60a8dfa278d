// The names by which people know the codes of the configuration. The file, the tree, the differences and the JSON
// output use the same ones.
#ifndef CFMCTL_NAMES_H
#define CFMCTL_NAMES_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace cfmctl {

struct CodeName {
  std::uint32_t code;
  std::string_view name;
};

/// Of several names for one code the first is the one that is printed; all of them are read.
using CodeNames = std::span<const CodeName>;

extern const CodeNames kSenderIdNames;
extern const CodeNames kMhfCreationNames;
extern const CodeNames kCcmIntervalNames;
extern const CodeNames kLowestAlarmNames;
extern const CodeNames kFaultActionNames;
extern const CodeNames kMdFormatNames;
extern const CodeNames kMaFormatNames;
extern const CodeNames kDirectionNames;

// The codes of the two name formats and of the direction, which the public records carry as plain numbers.
inline constexpr std::uint32_t kMdFormatNone = 1;
inline constexpr std::uint32_t kMdFormatDns = 2;
inline constexpr std::uint32_t kMdFormatMac = 3;
inline constexpr std::uint32_t kMdFormatString = 4;
inline constexpr std::uint32_t kMaFormatVid = 1;
inline constexpr std::uint32_t kMaFormatString = 2;
inline constexpr std::uint32_t kMaFormatUint16 = 3;
inline constexpr std::uint32_t kMaFormatVpnId = 4;
inline constexpr std::uint32_t kMaFormatIcc = 32;
inline constexpr std::uint32_t kDirectionDown = 1;
inline constexpr std::uint32_t kDirectionUp = 2;

/// "code 9" for a code without a name.
std::string NameOf(CodeNames names, std::uint32_t code);

/// Letter case does not matter.
std::optional<std::uint32_t> CodeOf(CodeNames names, std::string_view text);

/// "none, default, explicit, defer"
std::string ListOf(CodeNames names);

/// The candidate that `text` is most likely a slip of, or empty when none is near.
std::string_view Nearest(std::string_view text, std::span<const std::string_view> candidates);
std::string_view Nearest(std::string_view text, CodeNames names);

}  // namespace cfmctl

#endif
