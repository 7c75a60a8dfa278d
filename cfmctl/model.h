// The whole state of a server as cfmctl compares and prints it, whether it comes from a file or from the server's
// cache.
#ifndef CFMCTL_MODEL_H
#define CFMCTL_MODEL_H

#include <cstddef>
#include <string>

#include "cfm/hierarchy.h"
#include "cfm/probe.h"

namespace cfmctl {

/// As on the wire: st_maintenance_endpoint_cfg::port holds the kernel's interface index here, not a logical id.
struct Model {
  cfm::hierarchy hierarchy;
  cfm::probe probes;
};

/// How many objects of each kind a model holds.
struct Size {
  std::size_t domains = 0;
  std::size_t associations = 0;
  std::size_t end_points = 0;
  std::size_t probes = 0;
  std::size_t sessions = 0;

  std::size_t total() const { return domains + associations + end_points + probes + sessions; }
};

Size SizeOf(const Model& model);

/// "2 domains, 3 associations, 12 end points, 2 probes, 3 sessions"
std::string Summary(const Size& size);

}  // namespace cfmctl

#endif
