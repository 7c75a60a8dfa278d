#include "protocol/end_points.h"

#include <set>

#include "pdu/header.h"

namespace cfm::protocol {
namespace {

constexpr std::uint32_t VlanKey(std::uint16_t vid, std::uint16_t inner_vid) {
  return (static_cast<std::uint32_t>(vid) << 16U) | inner_vid;
}

std::uint32_t VlanKey(const pdu::EthernetHeader& header) {
  return VlanKey(header.outer ? header.outer->vid : std::uint16_t{0},
                 header.inner ? header.inner->vid : std::uint16_t{0});
}

}  // namespace

void EndPoints::Add(Mep& mep, std::span<const std::uint16_t> vids) {
  const std::uint16_t primary = mep.settings().primary_vid;
  const auto add = [&](std::uint16_t vid) {
    by_vlan_[VlanKey(vid, vid == 0 ? std::uint16_t{0} : mep.settings().inner_vid)].emplace(mep.identity().level, &mep);
  };
  add(primary);
  if (primary == 0) return;
  for (const std::uint16_t vid : std::set<std::uint16_t>(vids.begin(), vids.end())) {
    if (vid != primary) add(vid);
  }
}

void EndPoints::Remove(Mep& mep) {
  for (auto& [key, by_level] : by_vlan_) {
    std::erase_if(by_level, [&mep](const auto& entry) { return entry.second == &mep; });
  }
  std::erase_if(by_vlan_, [](const auto& vlan) { return vlan.second.empty(); });
}

Mep* EndPoints::Receive(const ReceivedFrame& frame, TimePoint now) {
  const auto header = pdu::DecodeHeader(frame.pdu);
  if (!header) {
    ++malformed_;
    return nullptr;
  }
  const auto vlan = by_vlan_.find(VlanKey(frame.header));
  if (vlan == by_vlan_.end()) return nullptr;
  for (auto level = vlan->second.lower_bound(header->level); level != vlan->second.end(); ++level) {
    if (!level->second->settings().enabled) continue;
    level->second->Receive(frame, now);
    return level->second;
  }
  return nullptr;
}

}  // namespace cfm::protocol
