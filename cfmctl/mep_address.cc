#include "mep_address.h"

#include <fmt/format.h>

#include <string_view>
#include <vector>

#include "failure.h"
#include "names.h"
#include "settings_list.h"
#include "text.h"

namespace cfmctl {
namespace {

template <class Map>
const typename Map::mapped_type& FindByName(const Map& map, const std::string& name, const std::string& kind,
                                            const std::string& where) {
  const auto found = map.find(name);
  if (found != map.end()) return found->second;
  std::vector<std::string_view> names;
  names.reserve(map.size());
  for (const auto& [key, value] : map) names.push_back(key);
  const std::string_view nearest = Nearest(name, names);
  throw Failure(kBadInput, fmt::format("{} has no {} {}{}", where, kind, Escape(name),
                                       nearest.empty() ? std::string("; 'cfmctl check' prints what it has")
                                                       : fmt::format("; did you mean {}?", Escape(nearest))));
}

const cfm::hierarchy_md& FindDomain(const Model& model, const std::string& name) {
  return FindByName(model.hierarchy.mds, name, "domain", "the configuration file");
}

const cfm::hierarchy_ma& FindAssociation(const Model& model, const std::string& md, const std::string& ma) {
  return FindByName(FindDomain(model, md).mas, ma, "association", "domain " + Escape(md));
}

void RequireLocalMep(const cfm::hierarchy_ma& ma, const std::string& md_name, const std::string& ma_name,
                     std::uint16_t mep_id) {
  if (ma.meps.contains(mep_id)) return;
  std::vector<std::uint16_t> there;
  for (const auto& [id, mep] : ma.meps) there.push_back(id);
  throw Failure(kBadInput,
                fmt::format("association {}/{} has no end point {} on this element; it has {}", Escape(md_name),
                            Escape(ma_name), mep_id, there.empty() ? "none" : RangesText(there)));
}

}  // namespace

bool Scope::Holds(const std::string& md, const std::string& ma, std::uint16_t mep) const {
  return (md_name.empty() || md == md_name) && (ma_name.empty() || ma == ma_name) && (mep_id == 0 || mep == mep_id);
}

void Validate(const TestAddress& address, const Model& model) {
  const cfm::hierarchy_ma& ma = FindAssociation(model, address.md_name, address.ma_name);
  RequireLocalMep(ma, address.md_name, address.ma_name, address.mep_id);
  if (address.target_mep_id == address.mep_id) {
    throw Failure(kBadInput, "the target is the sending end point itself");
  }
  const bool learns = ma.meps.at(address.mep_id).cfg.aux_flag;
  if (!learns && !ma.cfg.mep_ids.contains(address.target_mep_id)) {
    const std::vector<std::uint16_t> there(ma.cfg.mep_ids.begin(), ma.cfg.mep_ids.end());
    throw Failure(kBadInput,
                  fmt::format("MEP {} is not in the MEP list of association {}/{}: {}", address.target_mep_id,
                              Escape(address.md_name), Escape(address.ma_name), RangesText(there)));
  }
}

void Validate(const Scope& scope, const Model& model) {
  if (scope.md_name.empty()) return;
  const cfm::hierarchy_md& md = FindDomain(model, scope.md_name);
  if (scope.ma_name.empty()) return;
  const cfm::hierarchy_ma& ma = FindByName(md.mas, scope.ma_name, "association", "domain " + Escape(scope.md_name));
  if (scope.mep_id != 0) RequireLocalMep(ma, scope.md_name, scope.ma_name, scope.mep_id);
}

std::string MepText(const std::string& md, const std::string& ma, std::uint16_t mep_id) {
  return fmt::format("{}/{} MEP {}", Escape(md), Escape(ma), mep_id);
}

std::string TestText(const TestAddress& address) {
  return fmt::format("{} -> MEP {}", MepText(address.md_name, address.ma_name, address.mep_id), address.target_mep_id);
}

std::string ScopeText(const Scope& scope) {
  if (scope.md_name.empty()) return "everything";
  if (scope.ma_name.empty()) return "domain " + Escape(scope.md_name);
  if (scope.mep_id == 0) return fmt::format("association {}/{}", Escape(scope.md_name), Escape(scope.ma_name));
  return MepText(scope.md_name, scope.ma_name, scope.mep_id);
}

}  // namespace cfmctl
