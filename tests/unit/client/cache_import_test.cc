// The server's cache read into records: conversions, parents that are missing, and elements that come twice.
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "expected_requests.h"

namespace {

using expected::AddMa;
using expected::AddToCache;
using expected::kServer;
using expected::Md;
using recording::AskedLimid;
using recording::Journal;
using recording::Same;
using recording::Sent;

class CacheImport : public expected::Fixture {
 protected:
  client_server::OpCacheSync cache;

  // The client is empty, so that the server's side is taken over whole.
  const cfm::ClientImpl::MdMap& Hierarchy() {
    client.applied_hierarchy_.clear();
    client.ReqCacheReplyHierarchy(cache);
    return client.applied_hierarchy_;
  }

  const cfm::ClientImpl::ProbeMap& Probes() {
    client.applied_probes_.clear();
    client.ReqCacheReplyProbe(cache);
    return client.applied_probes_;
  }

  client_server::OpCreateMaintenanceEndpoint& AddEndpoint(const char* md, const char* ma, std::uint32_t id) {
    auto& endpoint = *cache.add_endpoints();
    endpoint.set_md_name(md);
    endpoint.set_ma_name(ma);
    endpoint.set_mep_id(id);
    return endpoint;
  }
};

// ---- The message ----

TEST(CacheMessage, HasFiveRepeatedListsOfCreateRequestsInThisOrder) {
  const auto* descriptor = client_server::OpCacheSync::descriptor();
  ASSERT_EQ(descriptor->field_count(), 5);
  const std::vector<std::pair<std::string, std::string>> fields = {
      {"domains", "OpCreateMaintenanceDomain"},        {"associations", "OpCreateMaintenanceAssociation"},
      {"endpoints", "OpCreateMaintenanceEndpoint"},    {"probes", "OpCreateDelayMeasurementProbe"},
      {"sessions", "OpCreateDelayMeasurementSession"},
  };
  for (int i = 0; i < 5; ++i) {
    const auto* field = descriptor->field(i);
    EXPECT_EQ(field->number(), i + 1);
    EXPECT_TRUE(field->is_repeated());
    EXPECT_EQ(field->name(), fields[static_cast<std::size_t>(i)].first);
    EXPECT_EQ(field->message_type()->name(), fields[static_cast<std::size_t>(i)].second);
  }
}

// ---- The hierarchy ----

TEST_F(CacheImport, OfWhatTheClientSentEqualsTheRecords) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1, 2, 8191});
  AddMa(tree, "md1", "ma2").cfg.ais = {};
  AddMa(tree, "md2", "ma1", {3}).cfg.vids = {30, 10, 30};
  tree.mds["md2"].cfg = {.format = 4294967295U,
                         .level = 255,
                         .sender_id = static_cast<cfm::SenderIdTlvContent>(0xffffffffU),
                         .mhf_creation = static_cast<cfm::MhfCreationMode>(0xfffffffeU)};
  AddToCache(tree, &cache);
  EXPECT_EQ(expected::Difference(Hierarchy(), tree.mds), "");
}

TEST_F(CacheImport, ReadsBackEveryRequestThatItSends) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1, 2});
  AddMa(tree, "md2", "ma1", {3});
  Synchronise();
  for (const recording::Entry& request : expected::Requests(Update(tree))) {
    const std::string& octets = request.octets.value();
    if (request.text.find("MD_CREATE") != std::string::npos) {
      ASSERT_TRUE(cache.add_domains()->ParseFromString(octets));
    } else if (request.text.find("MA_CREATE") != std::string::npos) {
      ASSERT_TRUE(cache.add_associations()->ParseFromString(octets));
    } else {
      ASSERT_TRUE(cache.add_endpoints()->ParseFromString(octets));
    }
  }
  EXPECT_EQ(cache.endpoints_size(), 3);
  EXPECT_EQ(expected::Difference(Hierarchy(), tree.mds), "");
}

TEST_F(CacheImport, KeepsTheLowBitsOfEveryNarrowSetting) {
  auto& domain = *cache.add_domains();
  domain.set_name("md1");
  domain.set_level(0x1234ab05U);
  auto& association = *cache.add_associations();
  association.set_md_name("md1");
  association.set_ma_name("ma1");
  association.add_vids(0x10001U);
  association.add_vids(0x1ffffU);
  association.add_mep_ids(0x20003U);
  association.mutable_ais()->set_enabled(true);
  association.mutable_ais()->set_aux_u8(0x1ffU);
  association.mutable_ais()->set_aux_u16(0x1fffeU);
  association.mutable_ais()->add_aux_ids(0x30004U);
  auto& endpoint = AddEndpoint("md1", "ma1", 0x10007U);
  endpoint.set_ifindex(1011);
  endpoint.set_direction(0xfffffff0U);
  endpoint.set_primary_vid(0x1fff1U);
  endpoint.set_inner_vid(0x1fff2U);
  endpoint.set_ccm_priority(0x1f3U);
  endpoint.set_lowest_prio_defect_allowed(0x1f4U);
  endpoint.set_fng_alarm_time(0x1fff5U);
  endpoint.set_fng_reset_time(0x1fff6U);
  endpoint.set_action(0xfffffff7U);

  const cfm::ClientImpl::MdMap& mds = Hierarchy();
  EXPECT_EQ(mds.at("md1").cfg.level, 5);
  const cfm::hierarchy_ma& ma = mds.at("md1").mas.at("ma1");
  EXPECT_EQ(ma.cfg.vids, (std::vector<std::uint16_t>{1, 0xffff}));
  EXPECT_EQ(ma.cfg.mep_ids, (std::set<std::uint16_t>{3}));
  EXPECT_EQ(ma.cfg.ais.aux_u8, 0xff);
  EXPECT_EQ(ma.cfg.ais.aux_u16, 0xfffe);
  EXPECT_EQ(ma.cfg.ais.aux_ids, (std::set<std::uint16_t>{4}));
  ASSERT_EQ(ma.meps.size(), 1U);
  const cfm::st_maintenance_endpoint_cfg& mep = ma.meps.at(7).cfg;
  EXPECT_EQ(mep.mep_id, 7);
  EXPECT_EQ(mep.port, 11U);
  EXPECT_EQ(mep.direction, 0xfffffff0U);
  EXPECT_EQ(mep.primary_vid, 0xfff1);
  EXPECT_EQ(mep.inner_vid, 0xfff2);
  EXPECT_EQ(mep.ccm_priority, 0xf3);
  EXPECT_EQ(static_cast<unsigned int>(mep.lowest_prio_defect_allowed), 0xf4U);
  EXPECT_EQ(mep.fng_alarm_time, 0xfff5);
  EXPECT_EQ(mep.fng_reset_time, 0xfff6);
  EXPECT_EQ(static_cast<std::uint32_t>(mep.action), 0xfffffff7U);
}

TEST_F(CacheImport, KeepsWideValuesWhole) {
  auto& domain = *cache.add_domains();
  domain.set_name("md1");
  domain.set_format(0xfffffff1U);
  domain.set_sender_id(0xfffffff2U);
  domain.set_mhf_creation(0xfffffff3U);
  auto& association = *cache.add_associations();
  association.set_md_name("md1");
  association.set_ma_name("ma1");
  association.set_format(0xfffffff4U);
  association.set_ccm_interval(0xfffffff5U);
  association.set_sender_id(0xfffffff6U);
  association.set_mhf_creation(0xfffffff7U);
  association.mutable_ais()->set_enabled(true);
  association.mutable_ais()->set_aux_u32(0xfffffff8U);
  const cfm::hierarchy_md& md = Hierarchy().at("md1");
  EXPECT_EQ(md.cfg.format, 0xfffffff1U);
  EXPECT_EQ(static_cast<std::uint32_t>(md.cfg.sender_id), 0xfffffff2U);
  EXPECT_EQ(static_cast<std::uint32_t>(md.cfg.mhf_creation), 0xfffffff3U);
  const cfm::st_maintenance_association_cfg& ma = md.mas.at("ma1").cfg;
  EXPECT_EQ(ma.format, 0xfffffff4U);
  EXPECT_EQ(static_cast<std::uint32_t>(ma.ccm_interval), 0xfffffff5U);
  EXPECT_EQ(static_cast<std::uint32_t>(ma.sender_id), 0xfffffff6U);
  EXPECT_EQ(static_cast<std::uint32_t>(ma.mhf_creation), 0xfffffff7U);
  EXPECT_EQ(ma.ais.aux_u32, 0xfffffff8U);
}

TEST_F(CacheImport, KeepsVidsInListOrderWithDuplicatesAndFoldsMepIds) {
  auto& association = *cache.add_associations();
  association.set_md_name("md1");
  association.set_ma_name("ma1");
  for (const unsigned int value : {30U, 10U, 30U}) {
    association.add_vids(value);
    association.add_mep_ids(value);
  }
  const cfm::st_maintenance_association_cfg& cfg = Hierarchy().at("md1").mas.at("ma1").cfg;
  EXPECT_EQ(cfg.vids, (std::vector<std::uint16_t>{30, 10, 30}));
  EXPECT_EQ(cfg.mep_ids, (std::set<std::uint16_t>{10, 30}));
}

TEST_F(CacheImport, OfDisabledAisReadsTheFlagAndNothingElse) {
  auto& association = *cache.add_associations();
  association.set_md_name("md1");
  association.set_ma_name("ma1");
  auto& ais = *association.mutable_ais();
  ais.set_enabled(false);
  ais.set_aux_flag(true);
  ais.set_aux_u8(1);
  ais.set_aux_u32(2);
  ais.set_aux_u16(3);
  ais.add_aux_ids(4);
  const cfm::st_ais_cfg& cfg = Hierarchy().at("md1").mas.at("ma1").cfg.ais;
  EXPECT_FALSE(cfg.enabled);
  EXPECT_TRUE(cfg.aux_flag);
  EXPECT_EQ(cfg.aux_u8, 0);
  EXPECT_EQ(cfg.aux_u32, 0U);
  EXPECT_EQ(cfg.aux_u16, 0);
  EXPECT_TRUE(cfg.aux_ids.empty());
}

TEST_F(CacheImport, OfAnAssociationWithoutAisReadsItsDefault) {
  auto& association = *cache.add_associations();
  association.set_md_name("md1");
  association.set_ma_name("ma1");
  const cfm::st_ais_cfg& cfg = Hierarchy().at("md1").mas.at("ma1").cfg.ais;
  EXPECT_FALSE(cfg.enabled);
  EXPECT_FALSE(cfg.aux_flag);
  EXPECT_EQ(cfg.aux_u8 + cfg.aux_u16, 0);
  EXPECT_EQ(cfg.aux_u32, 0U);
  EXPECT_TRUE(cfg.aux_ids.empty());
}

TEST_F(CacheImport, OfEndPointsAloneMakesTheirParentsWithDefaultSettings) {
  AddEndpoint("md2", "ma2", 5).set_ifindex(1011);
  AddEndpoint("md1", "ma1", 4).set_ifindex(1012);
  cfm::hierarchy tree;
  for (const auto& [md, ma, id, port] :
       {std::tuple("md2", "ma2", std::uint16_t{5}, 11U), std::tuple("md1", "ma1", std::uint16_t{4}, 12U)}) {
    cfm::hierarchy_mep mep{};
    mep.md_name = md;
    mep.ma_name = ma;
    mep.cfg.mep_id = id;
    mep.cfg.port = port;
    tree.mds[md].mas[ma].meps[id] = mep;
  }
  EXPECT_EQ(expected::Difference(Hierarchy(), tree.mds), "");
}

TEST_F(CacheImport, OfEndPointsAloneCountsAsAServerThatHoldsAHierarchy) {
  AddEndpoint("md1", "ma1", 1);
  Hierarchy();
  EXPECT_EQ(middleware.Take().back(),
            recording::Logged(10, "ReqCacheReplyHierarchy", "App died, will use last cached status from server"));
}

TEST_F(CacheImport, OfAnAssociationWithoutItsDomainMakesTheDomainWithDefaultSettings) {
  auto& association = *cache.add_associations();
  association.set_md_name("md1");
  association.set_ma_name("ma1");
  association.set_format(32);
  cfm::hierarchy tree;
  tree.mds["md1"].mas["ma1"].md_name = "md1";
  tree.mds["md1"].mas["ma1"].cfg.format = 32;
  EXPECT_EQ(expected::Difference(Hierarchy(), tree.mds), "");
}

TEST_F(CacheImport, OfAnAssociationListedTwiceTakesTheSecondAndLosesNoEndPoint) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1, 2});
  AddToCache(tree, &cache);
  auto& again = *cache.add_associations();
  again.set_md_name("md1");
  again.set_ma_name("ma1");
  again.set_ccm_interval(7);
  cfm::hierarchy_ma& ma = tree.mds["md1"].mas["ma1"];
  ma.cfg = {};
  ma.cfg.ccm_interval = cfm::CcmInterval::k10min;
  EXPECT_EQ(expected::Difference(Hierarchy(), tree.mds), "");
}

TEST_F(CacheImport, OfADomainOrEndPointListedTwiceTakesTheSecond) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1});
  AddToCache(tree, &cache);
  *cache.add_domains() = expected::CreateMdMessage("md1", Md(7).cfg);
  tree.mds["md1"].cfg.level = 7;
  cfm::hierarchy_mep& mep = tree.mds["md1"].mas["ma1"].meps[1];
  mep.cfg.port = 13;
  mep.cfg.admin_state = false;
  *cache.add_endpoints() = expected::CreateMepMessage("md1", "ma1", mep.cfg);
  EXPECT_EQ(expected::Difference(Hierarchy(), tree.mds), "");
}

TEST_F(CacheImport, ReadsMissingFieldsAsTheirDefaults) {
  cache.add_domains();
  cache.add_associations();
  cache.add_endpoints();
  cfm::hierarchy tree;
  tree.mds[""].mas[""].meps[0] = {};
  EXPECT_EQ(expected::Difference(Hierarchy(), tree.mds), "");
}

TEST_F(CacheImport, ConvertsEachInterfaceIndexOnceInListOrder) {
  AddEndpoint("md2", "ma", 1).set_ifindex(1012);
  AddEndpoint("md1", "ma", 1).set_ifindex(1011);
  AddEndpoint("md1", "ma", 2);
  Hierarchy();
  EXPECT_TRUE(Same(recording::Only(middleware.Take(), {recording::Kind::kLimid}),
                   {AskedLimid(1012), AskedLimid(1011), AskedLimid(0)}));
}

TEST_F(CacheImport, OfAnInterfaceIndexWithoutALogicalIdTakesWhatTheConversionLeaves) {
  AddEndpoint("md1", "ma1", 1).set_ifindex(5);
  EXPECT_EQ(Hierarchy().at("md1").mas.at("ma1").meps.at(1).cfg.port, 0U);
  middleware.limid_failure_keeps_output = true;
  EXPECT_EQ(Hierarchy().at("md1").mas.at("ma1").meps.at(1).cfg.port, 0U);
}

TEST_F(CacheImport, TakesNamesWithAnyOctetsApart) {
  const std::string name("md\0one", 6);
  cache.add_domains()->set_name(name);
  cache.add_domains()->set_name("md");
  EXPECT_EQ(Hierarchy().size(), 2U);
  EXPECT_EQ(client.applied_hierarchy_.count(name), 1U);
}

// ---- The probes ----

TEST_F(CacheImport, OfProbesAndSessionsEqualsTheRecords) {
  cfm::probe probes;
  probes.probes[7] = expected::Probe(7, {1, 2});
  probes.probes[65535] = expected::Probe(65535);
  AddToCache(probes, &cache);
  EXPECT_EQ(expected::Difference(Probes(), probes.probes), "");
}

TEST_F(CacheImport, OfASessionAloneMakesABareProbeUnderItsId) {
  *cache.add_sessions() = expected::CreateSessionMessage(7, 3, expected::Session(3));
  cfm::probe probes;
  probes.probes[7].sessions[3] = expected::Session(3);
  EXPECT_EQ(expected::Difference(Probes(), probes.probes), "");
  EXPECT_EQ(client.applied_probes_.at(7).probe_id, 0);
}

TEST_F(CacheImport, OfASessionAloneMakesTheReconciliationCreateTheDesiredProbeAgain) {
  *cache.add_sessions() = expected::CreateSessionMessage(7, 3, expected::Session(3));
  cfm::probe desired;
  desired.probes[7] = expected::Probe(7, {3});
  client.UpdateConfigProbe(desired);
  middleware.Find(kServer);
  middleware.Take();
  middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, cache);
  EXPECT_TRUE(Same(expected::Requests(middleware.Take()),
                   {expected::CreateProbe(7, desired.probes[7]), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(CacheImport, StoresAProbeIdAbove65535UnderItsLowBits) {
  cache.add_probes()->set_probe_id(65537);
  auto& session = *cache.add_sessions();
  session.set_probe_id(0x30001U);
  session.set_session_id(0x20002U);
  const cfm::ClientImpl::ProbeMap& probes = Probes();
  ASSERT_EQ(probes.size(), 1U);
  EXPECT_EQ(probes.at(1).probe_id, 1);
  ASSERT_EQ(probes.at(1).sessions.size(), 1U);
  EXPECT_EQ(probes.at(1).sessions.count(2), 1U);
}

TEST_F(CacheImport, StoresAPriorityOf260As4) {
  auto& session = *cache.add_sessions();
  session.set_probe_id(1);
  session.set_session_id(1);
  session.set_pcp(260);
  EXPECT_EQ(Probes().at(1).sessions.at(1).pcp, 4);
}

TEST_F(CacheImport, KeepsTheLowBitsOfEveryProbeAndSessionSetting) {
  auto& probe = *cache.add_probes();
  probe.set_probe_id(1);
  probe.set_interval(0x10005U);
  probe.set_local_mep_id(0x10006U);
  probe.set_remote_mep_id(0x10007U);
  auto& session = *cache.add_sessions();
  session.set_probe_id(1);
  session.set_session_id(1);
  session.set_count(0x1fff1U);
  session.set_interval(0x1fff2U);
  session.set_size(0x1fff3U);
  session.set_pcp(0xff07U);
  const cfm::probe_cfg& cfg = Probes().at(1);
  EXPECT_EQ(cfg.interval, 5);
  EXPECT_EQ(cfg.local_mep_id, 6);
  EXPECT_EQ(cfg.remote_mep_id, 7);
  EXPECT_EQ(cfg.sessions.at(1).count, 0xfff1);
  EXPECT_EQ(cfg.sessions.at(1).interval, 0xfff2);
  EXPECT_EQ(cfg.sessions.at(1).size, 0xfff3);
  EXPECT_EQ(cfg.sessions.at(1).pcp, 7);
}

TEST_F(CacheImport, GivesEveryProbeItsKeyAsProbeIdSoThatAZeroIdOfTheApplicationDiffers) {
  cfm::probe probes;
  probes.probes[7] = expected::Probe(7, {1});
  AddToCache(probes, &cache);
  EXPECT_EQ(Probes().at(7).probe_id, 7);
  client.applied_probes_.clear();
  probes.probes[7].probe_id = 0;
  client.UpdateConfigProbe(probes);
  middleware.Find(kServer);
  middleware.Take();
  middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, cache);
  EXPECT_TRUE(Same(expected::Requests(middleware.Take()),
                   {expected::CreateProbe(7, probes.probes[7]), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(CacheImport, OfAProbeOrSessionListedTwiceTakesTheLast) {
  cfm::probe probes;
  probes.probes[7] = expected::Probe(7, {1});
  AddToCache(probes, &cache);
  probes.probes[7].interval = 5;
  probes.probes[7].md_name = "other";
  probes.probes[7].sessions[1].size = 9;
  AddToCache(probes, &cache);
  EXPECT_EQ(expected::Difference(Probes(), probes.probes), "");
}

TEST_F(CacheImport, ReadsSessionsAfterAllProbesWhateverTheirOrderOnTheWire) {
  client_server::OpCacheSync sessions;
  *sessions.add_sessions() = expected::CreateSessionMessage(7, 1, expected::Session(1));
  client_server::OpCacheSync probes;
  *probes.add_probes() = expected::CreateProbeMessage(7, expected::Probe(7));
  ASSERT_TRUE(cache.ParseFromString(sessions.SerializeAsString() + probes.SerializeAsString()));
  cfm::probe held;
  held.probes[7] = expected::Probe(7, {1});
  EXPECT_EQ(expected::Difference(Probes(), held.probes), "");
}

TEST_F(CacheImport, ReadsMissingProbeFieldsAsTheirDefaults) {
  cache.add_probes();
  cache.add_sessions();
  cfm::probe held;
  held.probes[0].sessions[0] = {};
  EXPECT_EQ(expected::Difference(Probes(), held.probes), "");
}

}  // namespace
