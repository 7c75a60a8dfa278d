#include "client_impl/hierarchy_plan.h"

namespace cfm {
namespace {

hierarchy_md WithoutChildren(const hierarchy_md& md) {
  return {md.cfg, {}};
}
hierarchy_ma WithoutChildren(const hierarchy_ma& ma) {
  return {ma.md_name, ma.cfg, {}};
}

bool PlacedAlike(const st_maintenance_endpoint_cfg& a, const st_maintenance_endpoint_cfg& b) {
  return a.port == b.port && a.direction == b.direction && a.primary_vid == b.primary_vid && a.inner_vid == b.inner_vid;
}

void CompareEndpoints(const hierarchy_ma& applied, const hierarchy_ma& desired, bool recreated, HierarchyPlan& plan) {
  for (const auto& [mep_id, applied_mep] : applied.meps) {
    const auto found = desired.meps.find(mep_id);
    if (found == desired.meps.end()) {
      plan.deletes.meps.push_back(applied_mep);
    } else if (recreated || !PlacedAlike(applied_mep.cfg, found->second.cfg)) {
      plan.deletes.meps.push_back(applied_mep);
      plan.creates.meps.push_back(found->second);
    } else {
      plan.updates.meps.push_back(found->second);
    }
  }
}

void CompareAssociations(const std::string& md_name, const hierarchy_md& applied, const hierarchy_md& desired,
                         bool domain_recreated, HierarchyPlan& plan) {
  for (const auto& [ma_name, applied_ma] : applied.mas) {
    const std::pair key(md_name, ma_name);
    const auto found = desired.mas.find(ma_name);
    if (found == desired.mas.end()) {
      plan.deletes.mas.emplace(key, WithoutChildren(applied_ma));
      continue;
    }
    const bool recreated = domain_recreated || applied_ma.cfg.vids != found->second.cfg.vids;
    if (recreated) {
      plan.deletes.mas.emplace(key, WithoutChildren(applied_ma));
      plan.creates.mas.emplace(key, WithoutChildren(found->second));
    } else {
      plan.updates.mas.emplace(key, WithoutChildren(found->second));
    }
    CompareEndpoints(applied_ma, found->second, recreated, plan);
  }
}

// What is applied: to be deleted, made anew or updated.
void WalkApplied(const ClientImpl::MdMap& applied, const ClientImpl::MdMap& desired, HierarchyPlan& plan) {
  for (const auto& [md_name, applied_md] : applied) {
    const auto found = desired.find(md_name);
    if (found == desired.end()) {
      plan.deletes.mds.emplace(md_name, WithoutChildren(applied_md));
      continue;
    }
    const bool recreated = applied_md.cfg.level != found->second.cfg.level;
    if (recreated) {
      plan.deletes.mds.emplace(md_name, WithoutChildren(applied_md));
      plan.creates.mds.emplace(md_name, WithoutChildren(found->second));
    } else {
      plan.updates.mds.emplace(md_name, WithoutChildren(found->second));
    }
    CompareAssociations(md_name, applied_md, found->second, recreated, plan);
  }
}

// What is desired and not yet there: to be created.
void WalkDesired(ClientImpl::MdMap& applied, const ClientImpl::MdMap& desired, HierarchyPlan& plan) {
  for (const auto& [md_name, desired_md] : desired) {
    const auto found = applied.find(md_name);
    hierarchy_md* const applied_md = found == applied.end() ? nullptr : &found->second;
    if (applied_md == nullptr) {
      plan.creates.mds.emplace(md_name, WithoutChildren(desired_md));
    }
    for (const auto& [ma_name, desired_ma] : desired_md.mas) {
      const bool association_is_new = applied_md == nullptr || !applied_md->mas.contains(ma_name);
      if (association_is_new) {
        plan.creates.mas.emplace(std::pair(md_name, ma_name), WithoutChildren(desired_ma));
      }
      for (const auto& [mep_id, desired_mep] : desired_ma.meps) {
        if (association_is_new || !applied_md->mas[desired_mep.ma_name].meps.contains(mep_id)) {
          plan.creates.meps.push_back(desired_mep);
        }
      }
    }
  }
}

}  // namespace

HierarchyPlan CompareHierarchies(ClientImpl::MdMap& applied, const ClientImpl::MdMap& desired) {
  HierarchyPlan plan;
  WalkApplied(applied, desired, plan);
  WalkDesired(applied, desired, plan);
  return plan;
}

}  // namespace cfm
