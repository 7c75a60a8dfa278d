// The maintenance points of one port, and which of them a frame meets.
#ifndef CFM_SERVER_PROTOCOL_END_POINTS_H
#define CFM_SERVER_PROTOCOL_END_POINTS_H

#include <cstdint>
#include <map>
#include <span>
#include <unordered_map>
#include <vector>

#include "pdu/ethernet.h"
#include "pdu/header.h"
#include "protocol/frame.h"
#include "protocol/level_filter.h"
#include "protocol/mep.h"
#include "protocol/mip.h"
#include "protocol/vlan.h"

namespace cfm::protocol {

/// On each VLAN the points stand between the wire and the relay in this order: Down MEPs by rising level, at most one
/// MIP, Up MEPs by falling level. Every MEP that is enabled stops frames of its level and of lower ones from both sides
/// (IEEE 802.1Q clause 19.2).
class EndPoints {
 public:
  /// What a frame meets on its way through the port.
  struct Encounter {
    Mip* mip = nullptr;
    Mep* mep = nullptr;   ///< that stops it
    bool behind = false;  ///< the MEP does not face the side that the frame comes from
    bool passes = true;
  };

  /// Takes the frames of its primary VID and of the other VIDs of its MA, each with its inner VID when it has one. An
  /// untagged end point takes frames without a tag and those whose tag holds a priority only.
  void Add(Mep& mep, std::span<const std::uint16_t> vids);
  /// Also before its VIDs change; Add() then takes it in again.
  void Remove(Mep& mep);

  /// At most one on each VLAN.
  void Add(Mip& mip) { by_vlan_[mip.place().vlan].mip = &mip; }
  void Remove(Mip& mip);

  /// The MEP that stops a frame is, of those that are enabled, the one of the lowest level that is not below the
  /// frame's.
  Encounter Meet(const pdu::EthernetHeader& ethernet, const pdu::Header& header, Side from) const;

  /// One for each VLAN on which something is to be dropped, in their order.
  std::vector<LevelFilter> Filters() const;

  bool empty() const { return by_vlan_.empty(); }
  /// Whether one of them sends towards the relay, or takes frames from there.
  bool FaceRelay() const;

 private:
  using MepsByLevel = std::multimap<std::uint8_t, Mep*>;

  struct Points {
    MepsByLevel down;
    Mip* mip = nullptr;
    MepsByLevel up;

    bool empty() const { return down.empty() && mip == nullptr && up.empty(); }
  };

  /// Null: none stops a frame of this level.
  static Mep* Stopping(const MepsByLevel& meps, std::uint8_t level);

  std::unordered_map<Vlan, Points, VlanHash> by_vlan_;
};

}  // namespace cfm::protocol

#endif
