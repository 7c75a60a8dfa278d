// The probes as the log shows them.
#ifndef CFM_SRC_CLIENT_IMPL_PROBE_TEXT_H
#define CFM_SRC_CLIENT_IMPL_PROBE_TEXT_H

#include <cstdint>
#include <map>
#include <string>

#include "cfm/probe.h"

namespace cfm {

// One line per probe and session, in the order of their ids, under a heading line.
std::string ProbeText(const std::map<std::uint16_t, probe_cfg>& probes);

}  // namespace cfm

#endif
