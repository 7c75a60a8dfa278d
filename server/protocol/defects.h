// The defects of a MEP, their priorities, and what follows from them.
#ifndef CFM_SERVER_PROTOCOL_DEFECTS_H
#define CFM_SERVER_PROTOCOL_DEFECTS_H

#include <cstdint>

namespace cfm::protocol {

/// In the order of priority (IEEE 802.1Q clause 20.1.2, table 20-1).
enum class Defect : std::uint8_t { kNone = 0, kRdi = 1, kMacStatus = 2, kRemoteCcm = 3, kErrorCcm = 4, kXconCcm = 5 };

struct DefectFlags {
  bool rdi = false;
  bool mac_status = false;
  bool remote_ccm = false;
  bool error_ccm = false;
  bool xcon_ccm = false;
  bool ais = false;  ///< has no priority: raises no alarm of its own

  bool operator==(const DefectFlags&) const = default;
};

/// The highest one that is present and not below `lowest` (IEEE 802.1Q clause 20.9.5: 1 all … 5 cross-connect only,
/// 6 none).
Defect HighestAlarm(const DefectFlags& defects, std::uint8_t lowest);

/// The RDI to send. The RDI that is received never sets it, or two MEPs would hold each other in that state for ever.
bool RdiToSend(const DefectFlags& defects, std::uint8_t lowest);

}  // namespace cfm::protocol

#endif
