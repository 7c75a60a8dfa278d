// Between the hierarchy's records and the create messages that carry them. The two directions are each other's inverse.
#ifndef CFM_SRC_CLIENT_IMPL_HIERARCHY_MESSAGES_H
#define CFM_SRC_CLIENT_IMPL_HIERARCHY_MESSAGES_H

#include <map>
#include <string>

#include "cfm/hierarchy.h"
#include "client_server.pb.h"

namespace cfm {

// Fills the sub-message; while AIS is disabled only `enabled` and `aux_flag` become present.
void FillAis(const st_ais_cfg& ais, client_server::Ais& message);

// The hierarchy that the server's cache describes. Elements whose parents are missing get parents with default
// settings; of elements with equal keys the last one counts.
std::map<std::string, hierarchy_md> HierarchyFromCache(const client_server::OpCacheSync& cache);

}  // namespace cfm

#endif
