// Bringing the server to the desired hierarchy.
#include "client_impl.h"
#include "client_impl/hierarchy_plan.h"
#include "client_impl/hierarchy_text.h"
#include "client_impl/log.h"

namespace cfm {

void ClientImpl::UpdateConfig(const hierarchy& desired) {
  desired_hierarchy_ = desired.mds;
  if (!Synchronised()) {
    LogDeferred("UpdateConfig");
    return;
  }
  Apply();
}

void ClientImpl::Apply() {
  const std::string text = HierarchyText(desired_hierarchy_);
  CFM_LOG(log_category_, kLogTrace, "Apply", "Applying CFM config...");
  CFM_LOG(log_category_, kLogTrace, "Apply", "%s", text.c_str());
  const HierarchyPlan plan = CompareHierarchies(applied_hierarchy_, desired_hierarchy_);
  ApplyDelete(plan.deletes.mds, plan.deletes.mas, plan.deletes.meps);
  ApplyCreate(plan.creates.mds, plan.creates.mas, plan.creates.meps);
  ApplyUpdate(plan.updates.mds, plan.updates.mas, plan.updates.meps);
  applied_hierarchy_ = desired_hierarchy_;
}

void ClientImpl::ApplyDelete(const MdMap& mds, const MaMap& mas, const MepList& meps) {
  for (const hierarchy_mep& mep : meps) {
    DeleteMep(mep.md_name, mep.ma_name, mep.cfg.mep_id);
  }
  for (const auto& [key, ma] : mas) {
    DeleteMa(ma.md_name, key.second);
  }
  for (const auto& [md_name, md] : mds) {
    DeleteMd(md_name);
  }
}

void ClientImpl::ApplyCreate(const MdMap& mds, const MaMap& mas, const MepList& meps) {
  for (const auto& [md_name, md] : mds) {
    CreateMd(md_name, md.cfg);
  }
  for (const auto& [key, ma] : mas) {
    CreateMa(ma.md_name, key.second, ma.cfg);
  }
  for (const hierarchy_mep& mep : meps) {
    CreateMep(mep.md_name, mep.ma_name, mep.cfg);
  }
}

void ClientImpl::ApplyUpdate(const MdMap& mds, const MaMap& mas, const MepList& meps) {
  for (const auto& [md_name, md] : mds) {
    UpdateMd(md_name, md.cfg.sender_id, md.cfg.mhf_creation);
  }
  for (const auto& [key, ma] : mas) {
    UpdateMa(ma.md_name, key.second, ma.cfg.ccm_interval, ma.cfg.sender_id, ma.cfg.mhf_creation, ma.cfg.mep_ids,
             ma.cfg.ais);
  }
  for (const hierarchy_mep& mep : meps) {
    const st_maintenance_endpoint_cfg& cfg = mep.cfg;
    UpdateMep(mep.md_name, mep.ma_name, cfg.mep_id, cfg.primary_vid, cfg.inner_vid, cfg.admin_state, cfg.tx_ccm_enabled,
              cfg.ccm_priority, cfg.lowest_prio_defect_allowed, cfg.fng_alarm_time, cfg.fng_reset_time, cfg.action,
              cfg.aux_flag);
  }
}

}  // namespace cfm
