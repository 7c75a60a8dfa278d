#include "contract/key.h"

#include <cstddef>

namespace cfm::contract {
namespace {

constexpr size_t kMaxShownOctets = 64;

struct Describe {
  std::string operator()(const DomainKey& key) const { return "domain " + Quoted(key.md_name); }
  std::string operator()(const AssociationKey& key) const {
    return "association " + Quoted(key.md_name) + '/' + Quoted(key.ma_name);
  }
  std::string operator()(const EndpointKey& key) const {
    return "end point " + Quoted(key.md_name) + '/' + Quoted(key.ma_name) + '/' + std::to_string(key.mep_id);
  }
  std::string operator()(const ProbeKey& key) const { return "probe " + std::to_string(key.probe_id); }
  std::string operator()(const SessionKey& key) const {
    return "session " + std::to_string(key.probe_id) + '/' + std::to_string(key.session_id);
  }
};

}  // namespace

std::string ToText(const ObjectKey& key) {
  return std::visit(Describe(), key);
}

std::string Quoted(std::string_view name) {
  static constexpr std::string_view kHex = "0123456789abcdef";
  std::string text = "'";
  for (const char c : name.substr(0, kMaxShownOctets)) {
    const auto octet = static_cast<unsigned char>(c);
    if (octet >= 0x20 && octet < 0x7f && c != '\'' && c != '\\') {
      text += c;
    } else {
      text += {'\\', 'x', kHex[octet >> 4], kHex[octet & 0xf]};
    }
  }
  text += name.size() > kMaxShownOctets ? "...'" : "'";
  return text;
}

}  // namespace cfm::contract
