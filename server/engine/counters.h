// What an end point has counted beside the statistics that clients see: for the log.
#ifndef CFM_SERVER_ENGINE_COUNTERS_H
#define CFM_SERVER_ENGINE_COUNTERS_H

#include <string>

#include "port/ports.h"
#include "protocol/mep.h"

namespace cfm::engine {

/// "3 to another station, 1 with a TLV that ...": those that are not zero; empty when all are.
std::string ToText(const protocol::Mep& mep);
std::string ToText(const port::Counters& counters);

}  // namespace cfm::engine

#endif
