// What an end point is, what it is told to do, and the port that it is on.
#ifndef CFM_SERVER_PROTOCOL_MEP_SETTINGS_H
#define CFM_SERVER_PROTOCOL_MEP_SETTINGS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pdu/ccm.h"
#include "pdu/mac_address.h"
#include "pdu/maid.h"
#include "protocol/ais_sender.h"
#include "protocol/fault_notifier.h"
#include "protocol/frame.h"
#include "protocol/sender_id.h"
#include "protocol/status.h"

namespace cfm::protocol {

/// Down: it faces the wire of its port. Up: it faces the other ports of its bridge.
enum class Direction : std::uint8_t { kDown = 1, kUp = 2 };

/// The side of its port that an end point faces.
constexpr Side Facing(Direction direction) {
  return direction == Direction::kDown ? Side::kWire : Side::kRelay;
}

/// What never changes of an end point.
struct MepIdentity {
  std::uint8_t level = 0;
  std::uint16_t mep_id = 0;
  pdu::Maid maid;

  bool operator==(const MepIdentity&) const = default;
  Direction direction = Direction::kDown;
};

struct MepSettings {
  bool enabled = false;  ///< otherwise the end point is as if it were not there
  bool send_ccms = false;
  std::uint8_t interval = 0;           ///< code, see IntervalOf()
  std::vector<std::uint16_t> mep_ids;  ///< of the MA, the own one included; ascending
  bool learn = false;                  ///< remote MEPs that are not in the list are watched too
  std::uint16_t primary_vid = 0;       ///< 0: untagged
  std::uint16_t inner_vid = 0;         ///< 0: none
  std::uint8_t priority = 0;           ///< of CCMs, LBMs and LTMs
  std::uint8_t lowest_alarm = 2;       ///< 1 all … 6 none
  FaultTimes fault_times;
  FaultAction fault_action = FaultAction::kNone;
  bool ais_suppresses_missing = false;  ///< while AIS is received, missing remote MEPs raise no alarm
  std::optional<SystemId> sender_id;    ///< what the end point may tell; none: no TLV
  std::optional<AisSettings> ais;       ///< none, or refused by CheckAis(): it sends no AIS

  bool operator==(const MepSettings&) const = default;
};

struct PortState {
  bool present = false;
  std::string name;
  pdu::MacAddress address{};
  std::size_t mtu = 1500;
  pdu::PortStatus port_status = pdu::PortStatus::kNone;  ///< none outside of a bridge, where no Up MEP can work
  pdu::InterfaceStatus interface_status = pdu::InterfaceStatus::kNone;

  bool operator==(const PortState&) const = default;
};

}  // namespace cfm::protocol

#endif
