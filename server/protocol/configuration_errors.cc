#include "protocol/configuration_errors.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace cfm::protocol {
namespace {

std::optional<Vlan> Shared(const std::set<Vlan>& one, const std::set<Vlan>& other) {
  const auto shared = std::find_if(one.begin(), one.end(), [&](const Vlan& vlan) { return other.contains(vlan); });
  if (shared == one.end()) return std::nullopt;
  return *shared;
}

std::string ToText(const CheckedMa& ma) {
  return "'" + ma.name + "' (level " + std::to_string(ma.level) + ")";
}

std::string ToText(const Vlan& vlan) {
  if (vlan.vid == 0) return "untagged frames";
  std::string text = "VID " + std::to_string(vlan.vid);
  if (vlan.inner_vid != 0) text += " with inner VID " + std::to_string(vlan.inner_vid);
  return text;
}

/// The VLANs of an MA that a port takes part in.
std::set<Vlan> On(const CheckedPort& port, const CheckedMa& ma) {
  std::set<Vlan> vlans;
  std::set_intersection(ma.vlans.begin(), ma.vlans.end(), port.vlans.begin(), port.vlans.end(),
                        std::inserter(vlans, vlans.end()));
  return vlans;
}

void FindLeaks(const CheckedPort& port, std::span<const CheckedMa> mas, std::vector<Finding>& findings) {
  for (const CheckedMa& low : mas) {
    if (low.meps.contains(port.index)) continue;
    for (const CheckedMa& high : mas) {
      if (high.level <= low.level || !high.meps.contains(port.index)) continue;
      const auto vlan = Shared(On(port, low), high.vlans);
      if (!vlan) continue;
      findings.push_back({.error = ConfigurationError::kLeak,
                          .port = port.index,
                          .text = "leak: " + ToText(low) + " has no end point on " + port.name + ", but " +
                                  ToText(*vlan) + " of it pass where " + ToText(high) + " has one"});
    }
  }
}

void FindConflicts(const CheckedPort& port, std::span<const CheckedMa> mas, std::vector<Finding>& findings) {
  const auto has_up_mep = [&port](const CheckedMa& ma) {
    const auto mep = ma.meps.find(port.index);
    return mep != ma.meps.end() && mep->second == Direction::kUp;
  };
  for (std::size_t i = 0; i < mas.size(); ++i) {
    for (std::size_t j = i + 1; j < mas.size(); ++j) {
      if (mas[i].level != mas[j].level || !has_up_mep(mas[i]) || !has_up_mep(mas[j])) continue;
      const auto vlan = Shared(mas[i].vlans, mas[j].vlans);
      if (!vlan) continue;
      findings.push_back({.error = ConfigurationError::kConflictingVids,
                          .port = port.index,
                          .text = "conflicting VIDs: " + ToText(mas[i]) + " and " + ToText(mas[j]) +
                                  " both have an Up MEP for " + ToText(*vlan) + " on " + port.name});
    }
  }
}

void FindExcessiveLevels(const CheckedPort& port, const std::set<MipPlace>& mips, const BridgeLimits& limits,
                         std::vector<Finding>& findings) {
  std::set<std::uint8_t> levels;
  for (const MipPlace& mip : mips) {
    if (mip.port == port.index) levels.insert(mip.level);
  }
  if (levels.size() <= limits.mip_levels_per_port) return;
  findings.push_back({.error = ConfigurationError::kExcessiveLevels,
                      .port = port.index,
                      .text = "too many levels: MIPs at " + std::to_string(levels.size()) + " levels on " + port.name +
                              ", more than " + std::to_string(limits.mip_levels_per_port)});
}

void FindOverlaps(const CheckedPort& port, std::span<const CheckedMa> mas, const BridgeLimits& limits,
                  std::vector<Finding>& findings) {
  if (limits.mep_levels_differ_by_vlan) return;
  for (const CheckedMa& one : mas) {
    if (!one.meps.contains(port.index)) continue;
    for (const CheckedMa& other : mas) {
      if (&one == &other || !other.meps.contains(port.index) || other.level < one.level) continue;
      // Of two at one level the first one tells.
      if (other.level == one.level && &other < &one) continue;
      if (Shared(one.vlans, other.vlans)) continue;
      findings.push_back({.error = ConfigurationError::kOverlappedLevels,
                          .port = port.index,
                          .text = "overlapped levels: " + ToText(one) + " and " + ToText(other) +
                                  " have end points for different VLANs on " + port.name});
    }
  }
}

}  // namespace

std::vector<Finding> FindConfigurationErrors(std::span<const CheckedPort> ports, std::span<const CheckedMa> mas,
                                             const std::set<MipPlace>& mips, const BridgeLimits& limits) {
  std::vector<Finding> findings;
  for (const CheckedPort& port : ports) FindLeaks(port, mas, findings);
  for (const CheckedPort& port : ports) FindConflicts(port, mas, findings);
  for (const CheckedPort& port : ports) FindExcessiveLevels(port, mips, limits, findings);
  for (const CheckedPort& port : ports) FindOverlaps(port, mas, limits, findings);
  return findings;
}

}  // namespace cfm::protocol
