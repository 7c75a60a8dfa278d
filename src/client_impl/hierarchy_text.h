// The hierarchy as the log shows it.
#ifndef CFM_SRC_CLIENT_IMPL_HIERARCHY_TEXT_H
#define CFM_SRC_CLIENT_IMPL_HIERARCHY_TEXT_H

#include <map>
#include <string>

#include "cfm/hierarchy.h"

namespace cfm {

// One line per object, in key order, under a heading line. Ports show as interface names, empty when there is none.
std::string HierarchyText(const std::map<std::string, hierarchy_md>& mds);

}  // namespace cfm

#endif
