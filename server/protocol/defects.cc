#include "protocol/defects.h"

#include <array>
#include <utility>

namespace cfm::protocol {

Defect HighestAlarm(const DefectFlags& defects, std::uint8_t lowest) {
  const std::array<std::pair<Defect, bool>, 5> by_priority = {{{Defect::kXconCcm, defects.xcon_ccm},
                                                               {Defect::kErrorCcm, defects.error_ccm},
                                                               {Defect::kRemoteCcm, defects.remote_ccm},
                                                               {Defect::kMacStatus, defects.mac_status},
                                                               {Defect::kRdi, defects.rdi}}};
  for (const auto& [defect, present] : by_priority) {
    if (static_cast<std::uint8_t>(defect) < lowest) break;
    if (present) return defect;
  }
  return Defect::kNone;
}

bool RdiToSend(const DefectFlags& defects, std::uint8_t lowest) {
  return HighestAlarm(defects, lowest) > Defect::kRdi;
}

}  // namespace cfm::protocol
