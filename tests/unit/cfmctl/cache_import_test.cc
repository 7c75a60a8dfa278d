#include "cache_import.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace cfmctl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

client_server::OpCreateMaintenanceEndpoint EndPoint(std::uint32_t id) {
  client_server::OpCreateMaintenanceEndpoint message;
  message.set_md_name("d");
  message.set_ma_name("a");
  message.set_mep_id(id);
  message.set_direction(2);
  message.set_ifindex(70000);
  message.set_primary_vid(10);
  message.set_inner_vid(20);
  message.set_ccm_priority(5);
  message.set_admin_state(true);
  message.set_tx_ccm_enabled(true);
  message.set_aux_flag(true);
  message.set_lowest_prio_defect_allowed(4);
  message.set_fng_alarm_time(300);
  message.set_fng_reset_time(900);
  message.set_action(2);
  return message;
}

TEST(ACache, BecomesAModelWithEveryValue) {
  client_server::OpCacheSync cache;
  auto& domain = *cache.add_domains();
  domain.set_name("d");
  domain.set_format(2);
  domain.set_level(6);
  domain.set_sender_id(3);
  domain.set_mhf_creation(2);
  auto& association = *cache.add_associations();
  association.set_md_name("d");
  association.set_ma_name("a");
  association.set_format(3);
  association.set_ccm_interval(7);
  association.set_sender_id(5);
  association.set_mhf_creation(4);
  for (const std::uint32_t vid : {20u, 10u, 20u}) association.add_vids(vid);
  for (const std::uint32_t id : {9u, 8u}) association.add_mep_ids(id);
  association.mutable_ais()->set_enabled(true);
  association.mutable_ais()->set_aux_flag(true);
  association.mutable_ais()->set_aux_u8(7);
  association.mutable_ais()->set_aux_u32(60);
  association.mutable_ais()->set_aux_u16(3);
  association.mutable_ais()->add_aux_ids(77);
  *cache.add_endpoints() = EndPoint(9);
  auto& probe = *cache.add_probes();
  probe.set_probe_id(4);
  probe.set_interval(60);
  probe.set_md_name("d");
  probe.set_ma_name("a");
  probe.set_local_mep_id(9);
  probe.set_remote_mep_id(8);
  auto& session = *cache.add_sessions();
  session.set_probe_id(4);
  session.set_session_id(2);
  session.set_count(11);
  session.set_interval(22);
  session.set_size(33);
  session.set_pcp(4);

  const Model model = ImportCache(cache);
  const cfm::hierarchy_md& md = model.hierarchy.mds.at("d");
  EXPECT_EQ(md.cfg.format, 2u);
  EXPECT_EQ(md.cfg.level, 6);
  EXPECT_EQ(md.cfg.sender_id, cfm::SenderIdTlvContent::kManage);
  EXPECT_EQ(md.cfg.mhf_creation, cfm::MhfCreationMode::kDefault);
  const cfm::hierarchy_ma& ma = md.mas.at("a");
  EXPECT_EQ(ma.md_name, "d");
  EXPECT_EQ(ma.cfg.format, 3u);
  EXPECT_EQ(ma.cfg.ccm_interval, cfm::CcmInterval::k10min);
  EXPECT_EQ(ma.cfg.sender_id, cfm::SenderIdTlvContent::kDefer);
  EXPECT_EQ(ma.cfg.mhf_creation, cfm::MhfCreationMode::kDefer);
  EXPECT_THAT(ma.cfg.vids, ElementsAre(20, 10, 20));
  EXPECT_THAT(ma.cfg.mep_ids, ElementsAre(8, 9));
  EXPECT_TRUE(ma.cfg.ais.enabled);
  EXPECT_TRUE(ma.cfg.ais.aux_flag);
  EXPECT_EQ(ma.cfg.ais.aux_u8, 7);
  EXPECT_EQ(ma.cfg.ais.aux_u32, 60u);
  EXPECT_EQ(ma.cfg.ais.aux_u16, 3);
  EXPECT_THAT(ma.cfg.ais.aux_ids, ElementsAre(77));
  const cfm::hierarchy_mep& mep = ma.meps.at(9);
  EXPECT_EQ(mep.md_name, "d");
  EXPECT_EQ(mep.ma_name, "a");
  EXPECT_EQ(mep.cfg.mep_id, 9);
  EXPECT_EQ(mep.cfg.direction, 2u);
  EXPECT_EQ(mep.cfg.port, 70000u);
  EXPECT_EQ(mep.cfg.primary_vid, 10);
  EXPECT_EQ(mep.cfg.inner_vid, 20);
  EXPECT_TRUE(mep.cfg.admin_state);
  EXPECT_TRUE(mep.cfg.tx_ccm_enabled);
  EXPECT_EQ(mep.cfg.ccm_priority, 5);
  EXPECT_EQ(mep.cfg.lowest_prio_defect_allowed, cfm::Defects::kErrorCcmAndHigher);
  EXPECT_EQ(mep.cfg.fng_alarm_time, 300);
  EXPECT_EQ(mep.cfg.fng_reset_time, 900);
  EXPECT_EQ(mep.cfg.action, cfm::FaultAction::kShutdown);
  EXPECT_TRUE(mep.cfg.aux_flag);
  const cfm::probe_cfg& imported = model.probes.probes.at(4);
  EXPECT_EQ(imported.probe_id, 4);
  EXPECT_EQ(imported.interval, 60);
  EXPECT_EQ(imported.md_name, "d");
  EXPECT_EQ(imported.ma_name, "a");
  EXPECT_EQ(imported.local_mep_id, 9);
  EXPECT_EQ(imported.remote_mep_id, 8);
  EXPECT_EQ(imported.sessions.at(2).count, 11);
  EXPECT_EQ(imported.sessions.at(2).interval, 22);
  EXPECT_EQ(imported.sessions.at(2).size, 33);
  EXPECT_EQ(imported.sessions.at(2).pcp, 4);
}

TEST(ACache, ShowsTheParentsThatItsElementsOnlyName) {
  client_server::OpCacheSync cache;
  *cache.add_endpoints() = EndPoint(1);
  cache.add_sessions()->set_probe_id(3);
  const Model model = ImportCache(cache);
  EXPECT_EQ(model.hierarchy.mds.at("d").mas.at("a").meps.size(), 1u);
  EXPECT_EQ(model.probes.probes.at(3).sessions.size(), 1u);
}

TEST(ACache, ThatIsEmptyIsAnEmptyModel) {
  EXPECT_EQ(SizeOf(ImportCache({})).total(), 0u);
}

TEST(ACache, WithDisabledAisHasNoneOfItsValuesButTheFlag) {
  client_server::OpCacheSync cache;
  auto& ais = *cache.add_associations()->mutable_ais();
  ais.set_enabled(false);
  ais.set_aux_flag(true);
  ais.set_aux_u8(5);
  ais.add_aux_ids(5);
  const cfm::st_ais_cfg imported = ImportCache(cache).hierarchy.mds.at("").mas.at("").cfg.ais;
  EXPECT_TRUE(imported.aux_flag);
  EXPECT_EQ(imported.aux_u8, 0);
  EXPECT_THAT(imported.aux_ids, IsEmpty());
}

}  // namespace
}  // namespace cfmctl
