// What a port's state on Linux is in a CCM.
#ifndef CFM_SERVER_PROTOCOL_INTERFACE_STATUS_H
#define CFM_SERVER_PROTOCOL_INTERFACE_STATUS_H

#include <cstdint>

#include "pdu/ccm.h"

namespace cfm::protocol {

struct LinkState {
  std::uint8_t operstate = 0;  ///< IF_OPER_... of linux/if.h
  bool lower_up = false;       ///< the port is up and has carrier
  bool held_dormant = false;   ///< by this server's own fault action

  bool operator==(const LinkState&) const = default;
};

/// By name: Linux numbers its states otherwise than IEEE 802.1Q clause 21.5.5 does. A port that works but whose driver
/// does not maintain the state ("unknown") is up, or every peer would see a defect. So is one that only this server
/// holds dormant: two MEPs with that action would otherwise hold each other down for ever.
pdu::InterfaceStatus ToInterfaceStatus(const LinkState& link);

}  // namespace cfm::protocol

#endif
