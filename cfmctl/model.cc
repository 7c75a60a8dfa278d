#include "model.h"

#include "text.h"

namespace cfmctl {

Size SizeOf(const Model& model) {
  Size size;
  size.domains = model.hierarchy.mds.size();
  for (const auto& [md_name, md] : model.hierarchy.mds) {
    size.associations += md.mas.size();
    for (const auto& [ma_name, ma] : md.mas) size.end_points += ma.meps.size();
  }
  size.probes = model.probes.probes.size();
  for (const auto& [id, probe] : model.probes.probes) size.sessions += probe.sessions.size();
  return size;
}

std::string Summary(const Size& size) {
  return Count(size.domains, "domain") + ", " + Count(size.associations, "association") + ", " +
         Count(size.end_points, "end point") + ", " + Count(size.probes, "probe") + ", " +
         Count(size.sessions, "session");
}

}  // namespace cfmctl
