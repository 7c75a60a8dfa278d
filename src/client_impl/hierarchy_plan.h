// What has to be sent so that a server that holds one hierarchy comes to hold another.
#ifndef CFM_SRC_CLIENT_IMPL_HIERARCHY_PLAN_H
#define CFM_SRC_CLIENT_IMPL_HIERARCHY_PLAN_H

#include "client_impl.h"

namespace cfm {

// The objects of one kind of request. Records are copies without their children, which no request reads.
struct HierarchyWork {
  ClientImpl::MdMap mds;
  ClientImpl::MaMap mas;
  ClientImpl::MepList meps;
};

struct HierarchyPlan {
  HierarchyWork deletes;
  HierarchyWork creates;
  HierarchyWork updates;
};

// Compares by keys. An object is made anew when a setting changed that no update carries (the domain's level, the
// association's VLAN list, the end point's direction or port) or when its parent is; the end point also for its VLANs.
// Everything else that is on both sides is updated, changed or not.
//
// An end point is looked for under the association that its record names. Where `applied` lacks that one, an empty
// association is inserted, so that later end points see it: `applied` is no longer a true record afterwards.
HierarchyPlan CompareHierarchies(ClientImpl::MdMap& applied, const ClientImpl::MdMap& desired);

}  // namespace cfm

#endif
