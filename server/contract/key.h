// What the configuration's objects are known by, and how they are called in log lines.
#ifndef CFM_SERVER_CONTRACT_KEY_H
#define CFM_SERVER_CONTRACT_KEY_H

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace cfm::contract {

struct DomainKey {
  std::string md_name;
  auto operator<=>(const DomainKey&) const = default;
};

struct AssociationKey {
  std::string md_name;
  std::string ma_name;
  auto operator<=>(const AssociationKey&) const = default;  // NOLINT(modernize-use-nullptr): a false alarm
};

struct EndpointKey {
  std::string md_name;
  std::string ma_name;
  uint16_t mep_id = 0;
  auto operator<=>(const EndpointKey&) const = default;  // NOLINT(modernize-use-nullptr): a false alarm
};

struct ProbeKey {
  uint16_t probe_id = 0;
  auto operator<=>(const ProbeKey&) const = default;
};

struct SessionKey {
  uint16_t probe_id = 0;
  uint16_t session_id = 0;
  auto operator<=>(const SessionKey&) const = default;
};

using ObjectKey = std::variant<DomainKey, AssociationKey, EndpointKey, ProbeKey, SessionKey>;

// "end point 'west'/'service 5'/12", "session 3/1".
std::string ToText(const ObjectKey& key);

// The name in quotes, made printable ASCII and cut after 64 octets: names are a client's octets, and log lines are read
// on terminals.
std::string Quoted(std::string_view name);

}  // namespace cfm::contract

#endif
