// From the server's cache to probe records.
#ifndef CFM_SRC_CLIENT_IMPL_PROBE_MESSAGES_H
#define CFM_SRC_CLIENT_IMPL_PROBE_MESSAGES_H

#include <cstdint>
#include <map>

#include "cfm/probe.h"
#include "client_server.pb.h"

namespace cfm {

// The probes that the server's cache describes. A session whose probe is missing gets a bare one, all zero and empty;
// of elements with equal ids the last one counts.
std::map<std::uint16_t, probe_cfg> ProbesFromCache(const client_server::OpCacheSync& cache);

}  // namespace cfm

#endif
