// The end points of one port, and which of them a frame from the wire is for.
#ifndef CFM_SERVER_PROTOCOL_END_POINTS_H
#define CFM_SERVER_PROTOCOL_END_POINTS_H

#include <cstdint>
#include <map>
#include <span>
#include <unordered_map>
#include <vector>

#include "pdu/decoded.h"
#include "pdu/ethernet.h"
#include "protocol/frame.h"
#include "protocol/mep.h"
#include "protocol/time.h"

namespace cfm::protocol {

class EndPoints {
 public:
  /// Takes the frames of its primary VID and of the other VIDs of its MA, each with its inner VID when it has one. An
  /// untagged end point takes frames without a tag and those whose tag holds a priority only.
  void Add(Mep& mep, std::span<const std::uint16_t> vids);
  /// Also before its VIDs change; Add() then takes it in again.
  void Remove(Mep& mep);

  /// Hands the frame to the end point that stops it: of those on its VLAN that are enabled, the one of the lowest level
  /// that is not below the frame's. Null: it passes all of them, or is too short to have a level.
  Mep* Receive(const ReceivedFrame& frame, TimePoint now);

  std::uint64_t malformed() const { return malformed_; }

 private:
  std::unordered_map<std::uint32_t, std::multimap<std::uint8_t, Mep*>> by_vlan_;  ///< then by level
  std::uint64_t malformed_ = 0;
};

}  // namespace cfm::protocol

#endif
