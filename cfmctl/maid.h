// The names of domains and associations as they travel in the MAID of a CCM (IEEE 802.1Q clause 21.6.5, ICC-based names
// ITU-T G.8013/Y.1731 annex A).
#ifndef CFMCTL_MAID_H
#define CFMCTL_MAID_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace cfmctl {

/// With a domain name, its octets and those of the association's name share the MAID's 48 octets with four of header.
inline constexpr std::size_t kLongestNamePair = 44;
/// Without one, the header takes three.
inline constexpr std::size_t kLongestMaName = 45;
inline constexpr std::size_t kLongestMdName = 43;

/// The octets of a name, or what is wrong with it and what is allowed. A name is wrong when `problem` is not empty.
struct EncodedName {
  std::string octets;
  std::string problem;
};

/// A domain name of format "none" has no octets; it must be a proper name all the same, because the server knows the
/// domain by it.
EncodedName EncodeMdName(std::uint32_t format, std::string_view name);
EncodedName EncodeMaName(std::uint32_t format, std::string_view name);

/// Format octets, lengths and names without the padding: equal exactly when the MAIDs are.
std::string EncodeMaid(std::uint32_t md_format, std::string_view md_octets, std::uint32_t ma_format,
                       std::string_view ma_octets);

}  // namespace cfmctl

#endif
