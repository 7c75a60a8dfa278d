// What is told about a local MEP and about the remote ones that it watches.
#ifndef CFM_SERVER_PROTOCOL_STATUS_H
#define CFM_SERVER_PROTOCOL_STATUS_H

#include <cstdint>
#include <string>

#include "pdu/ccm.h"
#include "pdu/mac_address.h"
#include "protocol/defects.h"
#include "protocol/time.h"

namespace cfm::protocol {

enum class FaultAction : std::uint8_t { kNone = 0, kBlock = 1, kShutdown = 2 };

struct LocalStatus {
  pdu::MacAddress mac{};
  bool rdi = false;  ///< as it is sent
  pdu::PortStatus port_status = pdu::PortStatus::kNone;
  pdu::InterfaceStatus interface_status = pdu::InterfaceStatus::kNone;
  FaultAction action_in_force = FaultAction::kNone;
  Defect highest_defect = Defect::kNone;  ///< since the fault notification generator left its reset state
  DefectFlags defects;                    ///< present now

  bool operator==(const LocalStatus&) const = default;
};

/// IEEE 802.1Q clause 20.20.
enum class RemoteState : std::uint8_t { kIdle = 1, kStart = 2, kFailed = 3, kOk = 4 };

struct RemoteStatus {
  RemoteState state = RemoteState::kStart;
  TimePoint last_change;  ///< the last entry into failed or ok; until then the beginning of the clock
  pdu::MacAddress mac{};  ///< of the last valid CCM; zeros before the first
  bool rdi = false;
  pdu::PortStatus port_status = pdu::PortStatus::kNone;
  pdu::InterfaceStatus interface_status = pdu::InterfaceStatus::kNone;
  std::string sender_id;  ///< printable

  bool operator==(const RemoteStatus&) const = default;
};

}  // namespace cfm::protocol

#endif
