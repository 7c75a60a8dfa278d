#include "protocol/mip_creation.h"

#include <iterator>

namespace cfm::protocol {

MhfCreation Resolve(MhfCreation ma, MhfCreation md) {
  const MhfCreation creation = ma == MhfCreation::kDefer ? md : ma;
  return creation == MhfCreation::kDefer ? MhfCreation::kNone : creation;
}

std::optional<std::uint8_t> MipLevel(const CoveredVlan& vlan) {
  std::set<std::uint8_t> active = vlan.mep_levels;
  std::set<std::uint8_t> wanted_by_default;
  std::set<std::uint8_t> wanted_above_a_mep;
  for (const CoveringMa& ma : vlan.mas) {
    active.insert(ma.level);
    if (ma.creation == MhfCreation::kDefault) wanted_by_default.insert(ma.level);
    if (ma.creation == MhfCreation::kExplicit) wanted_above_a_mep.insert(ma.level);
  }
  const auto first = vlan.mep_levels.empty() ? active.begin() : active.upper_bound(*vlan.mep_levels.rbegin());
  for (auto level = first; level != active.end(); ++level) {
    const bool lowest = level == active.begin();
    const bool above_a_mep = !lowest && vlan.mep_levels.contains(*std::prev(level));
    if (wanted_by_default.contains(*level) && (lowest || above_a_mep)) return *level;
    if (wanted_above_a_mep.contains(*level) && above_a_mep) return *level;
  }
  return std::nullopt;
}

std::set<MipPlace> MipsOf(std::span<const CoveredVlan> vlans) {
  std::set<MipPlace> mips;
  for (const CoveredVlan& vlan : vlans) {
    if (const auto level = MipLevel(vlan)) mips.insert({.port = vlan.port, .vlan = vlan.vlan, .level = *level});
  }
  return mips;
}

}  // namespace cfm::protocol
