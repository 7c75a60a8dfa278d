#include "protocol/end_points.h"

#include <algorithm>
#include <set>

namespace cfm::protocol {

void EndPoints::Add(Mep& mep, std::span<const std::uint16_t> vids) {
  const std::uint16_t primary = mep.settings().primary_vid;
  const auto add = [&](std::uint16_t vid) {
    Points& points = by_vlan_[{.vid = vid, .inner_vid = vid == 0 ? std::uint16_t{0} : mep.settings().inner_vid}];
    (mep.identity().direction == Direction::kDown ? points.down : points.up).emplace(mep.identity().level, &mep);
  };
  add(primary);
  if (primary == 0) return;
  for (const std::uint16_t vid : std::set<std::uint16_t>(vids.begin(), vids.end())) {
    if (vid != primary) add(vid);
  }
}

void EndPoints::Remove(Mep& mep) {
  const auto is_it = [&mep](const auto& entry) { return entry.second == &mep; };
  for (auto& [vlan, points] : by_vlan_) {
    std::erase_if(points.down, is_it);
    std::erase_if(points.up, is_it);
  }
  std::erase_if(by_vlan_, [](const auto& entry) { return entry.second.empty(); });
}

void EndPoints::Remove(Mip& mip) {
  const auto vlan = by_vlan_.find(mip.place().vlan);
  if (vlan == by_vlan_.end() || vlan->second.mip != &mip) return;
  vlan->second.mip = nullptr;
  if (vlan->second.empty()) by_vlan_.erase(vlan);
}

bool EndPoints::FaceRelay() const {
  const auto sends_ais = [](const auto& entry) { return entry.second->settings().ais.has_value(); };
  return std::any_of(by_vlan_.begin(), by_vlan_.end(), [&](const auto& entry) {
    const Points& points = entry.second;
    return points.mip != nullptr || !points.up.empty() ||
           std::any_of(points.down.begin(), points.down.end(), sends_ais);
  });
}

Mep* EndPoints::Stopping(const MepsByLevel& meps, std::uint8_t level) {
  const auto stops = [](const auto& entry) { return entry.second->settings().enabled; };
  const auto found = std::find_if(meps.lower_bound(level), meps.end(), stops);
  return found == meps.end() ? nullptr : found->second;
}

EndPoints::Encounter EndPoints::Meet(const pdu::EthernetHeader& ethernet, const pdu::Header& header, Side from) const {
  Encounter encounter;
  const auto vlan = by_vlan_.find(VlanOf(ethernet));
  if (vlan == by_vlan_.end()) return encounter;
  const Points& points = vlan->second;
  const auto stop = [&](const MepsByLevel& meps, bool behind) {
    encounter.mep = Stopping(meps, header.level);
    encounter.behind = behind;
    encounter.passes = encounter.mep == nullptr;
  };
  stop(from == Side::kWire ? points.down : points.up, false);
  if (!encounter.passes) return encounter;
  if (points.mip != nullptr && points.mip->place().level == header.level) {
    encounter.mip = points.mip;
    encounter.passes = !points.mip->Stops(ethernet, header);
    if (!encounter.passes) return encounter;
  }
  stop(from == Side::kWire ? points.up : points.down, true);
  return encounter;
}

std::vector<LevelFilter> EndPoints::Filters() const {
  std::vector<LevelFilter> filters;
  for (const auto& [vlan, points] : by_vlan_) {
    LevelFilter filter{.vlan = vlan};
    for (const MepsByLevel* meps : {&points.down, &points.up}) {
      for (const auto& [level, mep] : *meps) {
        if (mep->settings().enabled) filter.up_to_level = std::max(filter.up_to_level.value_or(level), level);
      }
    }
    if (points.mip != nullptr) filter.linktrace_level = points.mip->place().level;
    if (filter.up_to_level || filter.linktrace_level) filters.push_back(filter);
  }
  std::sort(filters.begin(), filters.end(), [](const auto& a, const auto& b) { return a.vlan < b.vlan; });
  return filters;
}

}  // namespace cfm::protocol
