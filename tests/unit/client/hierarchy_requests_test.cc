// The nine requests about domains, associations and end points, field by field with presence. The expected octets are
// written out here, and not made by expected_requests.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <type_traits>

#include "expected_requests.h"
#include "from_text.h"

namespace {

// The widths that records have: one octet for defects, 32 bits for the other codes, whatever their enumerators.
static_assert(std::is_same_v<std::underlying_type_t<cfm::Defects>, std::uint8_t>);
static_assert(sizeof(cfm::SenderIdTlvContent) == 4 && sizeof(cfm::MhfCreationMode) == 4);
static_assert(sizeof(cfm::CcmInterval) == 4 && sizeof(cfm::FaultAction) == 4);

using cfm_test::From;
using expected::kServer;
using recording::AskedIfindex;
using recording::Same;
using recording::Sent;

class HierarchyRequest : public expected::Fixture {
 protected:
  HierarchyRequest() {
    middleware.Find(kServer);
    middleware.Take();
  }
};

// ---- Domains ----

TEST_F(HierarchyRequest, CreateMdCarriesEverySetting) {
  client.CreateMd("md1", {.format = 4000000000U,
                          .level = 255,
                          .sender_id = static_cast<cfm::SenderIdTlvContent>(0xfffffffeU),
                          .mhf_creation = static_cast<cfm::MhfCreationMode>(0xfffffffdU)});
  EXPECT_TRUE(Same(middleware.Take(),
                   {Sent(CFM_MGR_C2S_SIG_MD_CREATE, kServer, From<client_server::OpCreateMaintenanceDomain>(R"(
                                              name: "md1" format: 4000000000 level: 255
                                              sender_id: 4294967294 mhf_creation: 4294967293)"))}));
}

TEST_F(HierarchyRequest, CreateMdSetsFieldsThatAreZeroOrEmpty) {
  client.CreateMd("", {});
  EXPECT_TRUE(Same(middleware.Take(),
                   {Sent(CFM_MGR_C2S_SIG_MD_CREATE, kServer, From<client_server::OpCreateMaintenanceDomain>(R"(
                                              name: "" format: 0 level: 0 sender_id: 0 mhf_creation: 0)"))}));
}

TEST_F(HierarchyRequest, CreateMdHasTheseOctetsOnTheWire) {
  client.CreateMd("md", {.format = 4,
                         .level = 255,
                         .sender_id = cfm::SenderIdTlvContent::kNone,
                         .mhf_creation = cfm::MhfCreationMode::kDefault});
  const recording::Journal sent = middleware.Take();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].octets, std::string("\x0a\x02md\x10\x04\x18\xff\x01\x20\x01\x28\x02"));
}

TEST_F(HierarchyRequest, UpdateMdCarriesTheTwoSettingsThatCanChange) {
  client.UpdateMd("md1", cfm::SenderIdTlvContent::kManage, cfm::MhfCreationMode::kExplicit);
  EXPECT_TRUE(Same(middleware.Take(),
                   {Sent(CFM_MGR_C2S_SIG_MD_UPDATE, kServer, From<client_server::OpUpdateMaintenanceDomain>(R"(
                                              name: "md1" sender_id: 3 mhf_creation: 3)"))}));
}

TEST_F(HierarchyRequest, UpdateMdSetsFieldsThatAreZeroOrEmpty) {
  client.UpdateMd("", {}, {});
  EXPECT_TRUE(Same(middleware.Take(),
                   {Sent(CFM_MGR_C2S_SIG_MD_UPDATE, kServer, From<client_server::OpUpdateMaintenanceDomain>(R"(
                                              name: "" sender_id: 0 mhf_creation: 0)"))}));
}

TEST_F(HierarchyRequest, DeleteMdCarriesTheName) {
  client.DeleteMd("md1");
  client.DeleteMd("");
  EXPECT_TRUE(
      Same(middleware.Take(),
           {Sent(CFM_MGR_C2S_SIG_MD_DELETE, kServer, From<client_server::OpDeleteMaintenanceDomain>(R"(name: "md1")")),
            Sent(CFM_MGR_C2S_SIG_MD_DELETE, kServer, From<client_server::OpDeleteMaintenanceDomain>(R"(name: "")"))}));
}

// ---- Associations ----

TEST_F(HierarchyRequest, CreateMaCarriesEverySetting) {
  cfm::st_maintenance_association_cfg cfg{};
  cfg.format = 32;
  cfg.vids = {4094, 1};
  cfg.ccm_interval = static_cast<cfm::CcmInterval>(0xffffffffU);
  cfg.mep_ids = {8191, 5, 65535};
  cfg.sender_id = cfm::SenderIdTlvContent::kDefer;
  cfg.mhf_creation = cfm::MhfCreationMode::kDefer;
  cfg.ais = {.enabled = true,
             .aux_u8 = 255,
             .aux_u32 = 4294967295U,
             .aux_ids = {65535, 2},
             .aux_u16 = 65535,
             .aux_flag = true};
  client.CreateMa("md1", "ma1", cfg);
  EXPECT_TRUE(Same(middleware.Take(),
                   {Sent(CFM_MGR_C2S_SIG_MA_CREATE, kServer, From<client_server::OpCreateMaintenanceAssociation>(R"(
      md_name: "md1" ma_name: "ma1" format: 32 ccm_interval: 4294967295 sender_id: 5 mhf_creation: 4
      vids: 4094 vids: 1 mep_ids: 5 mep_ids: 8191 mep_ids: 65535
      ais { enabled: true aux_flag: true aux_u8: 255 aux_u32: 4294967295 aux_u16: 65535 aux_ids: 2 aux_ids: 65535 })"))}));
}

TEST_F(HierarchyRequest, CreateMaWithDisabledAisSendsOnlyEnabledAndTheFlagWhateverTheRecordHolds) {
  cfm::st_maintenance_association_cfg cfg{};
  cfg.ais = {.enabled = false, .aux_u8 = 1, .aux_u32 = 2, .aux_ids = {3, 4}, .aux_u16 = 5, .aux_flag = true};
  client.CreateMa("md1", "ma1", cfg);
  cfg.ais.aux_flag = false;
  client.CreateMa("md1", "ma1", cfg);
  const std::string rest = R"(md_name: "md1" ma_name: "ma1" format: 0 ccm_interval: 0 sender_id: 0 mhf_creation: 0 )";
  EXPECT_TRUE(Same(
      middleware.Take(),
      {Sent(CFM_MGR_C2S_SIG_MA_CREATE, kServer,
            From<client_server::OpCreateMaintenanceAssociation>(rest + "ais { enabled: false aux_flag: true }")),
       Sent(CFM_MGR_C2S_SIG_MA_CREATE, kServer,
            From<client_server::OpCreateMaintenanceAssociation>(rest + "ais { enabled: false aux_flag: false }"))}));
}

TEST_F(HierarchyRequest, CreateMaWithEnabledAisSetsItsFieldsThatAreZero) {
  cfm::st_maintenance_association_cfg cfg{};
  cfg.ais.enabled = true;
  client.CreateMa("md1", "ma1", cfg);
  EXPECT_TRUE(Same(middleware.Take(),
                   {Sent(CFM_MGR_C2S_SIG_MA_CREATE, kServer, From<client_server::OpCreateMaintenanceAssociation>(R"(
      md_name: "md1" ma_name: "ma1" format: 0 ccm_interval: 0 sender_id: 0 mhf_creation: 0
      ais { enabled: true aux_flag: false aux_u8: 0 aux_u32: 0 aux_u16: 0 })"))}));
}

TEST_F(HierarchyRequest, CreateMaWithoutVidsAndMepIdsHasEmptyListsAndStillItsAis) {
  client.CreateMa("", "", {});
  EXPECT_TRUE(Same(middleware.Take(),
                   {Sent(CFM_MGR_C2S_SIG_MA_CREATE, kServer, From<client_server::OpCreateMaintenanceAssociation>(R"(
      md_name: "" ma_name: "" format: 0 ccm_interval: 0 sender_id: 0 mhf_creation: 0
      ais { enabled: false aux_flag: false })"))}));
}

TEST_F(HierarchyRequest, CreateMaSendsVidsInTheirOrderWithDuplicates) {
  cfm::st_maintenance_association_cfg cfg{};
  cfg.vids = {30, 10, 30};
  client.CreateMa("md1", "ma1", cfg);
  EXPECT_TRUE(Same(middleware.Take(),
                   {Sent(CFM_MGR_C2S_SIG_MA_CREATE, kServer, From<client_server::OpCreateMaintenanceAssociation>(R"(
      md_name: "md1" ma_name: "ma1" format: 0 ccm_interval: 0 sender_id: 0 mhf_creation: 0
      vids: 30 vids: 10 vids: 30 ais { enabled: false aux_flag: false })"))}));
}

TEST_F(HierarchyRequest, UpdateMaCarriesEverythingButFormatAndVids) {
  client.UpdateMa(
      "md1", "ma1", cfm::CcmInterval::k300Hz, cfm::SenderIdTlvContent::kChassisManage, cfm::MhfCreationMode::kNone,
      {9, 3, 65535},
      {.enabled = true, .aux_u8 = 7, .aux_u32 = 60, .aux_ids = {400, 300}, .aux_u16 = 6, .aux_flag = false});
  EXPECT_TRUE(Same(middleware.Take(),
                   {Sent(CFM_MGR_C2S_SIG_MA_UPDATE, kServer, From<client_server::OpUpdateMaintenanceAssociation>(R"(
      md_name: "md1" ma_name: "ma1" ccm_interval: 1 sender_id: 4 mhf_creation: 1
      mep_ids: 3 mep_ids: 9 mep_ids: 65535
      ais { enabled: true aux_flag: false aux_u8: 7 aux_u32: 60 aux_u16: 6 aux_ids: 300 aux_ids: 400 })"))}));
}

TEST_F(HierarchyRequest, UpdateMaSetsFieldsThatAreZeroOrEmptyAndGatesAis) {
  client.UpdateMa(
      "", "", {}, {}, {}, {},
      {.enabled = false, .aux_u8 = 7, .aux_u32 = 60, .aux_ids = {400, 300}, .aux_u16 = 6, .aux_flag = true});
  EXPECT_TRUE(Same(middleware.Take(),
                   {Sent(CFM_MGR_C2S_SIG_MA_UPDATE, kServer, From<client_server::OpUpdateMaintenanceAssociation>(R"(
      md_name: "" ma_name: "" ccm_interval: 0 sender_id: 0 mhf_creation: 0
      ais { enabled: false aux_flag: true })"))}));
}

TEST_F(HierarchyRequest, DeleteMaCarriesBothNames) {
  client.DeleteMa("md1", "ma1");
  client.DeleteMa("", "");
  EXPECT_TRUE(Same(middleware.Take(),
                   {Sent(CFM_MGR_C2S_SIG_MA_DELETE, kServer,
                         From<client_server::OpDeleteMaintenanceAssociation>(R"(md_name: "md1" ma_name: "ma1")")),
                    Sent(CFM_MGR_C2S_SIG_MA_DELETE, kServer,
                         From<client_server::OpDeleteMaintenanceAssociation>(R"(md_name: "" ma_name: "")"))}));
}

// ---- End points ----

TEST_F(HierarchyRequest, CreateMepCarriesEverySetting) {
  client.CreateMep("md1", "ma1",
                   {.mep_id = 65535,
                    .direction = 4294967295U,
                    .port = 12,
                    .primary_vid = 65534,
                    .inner_vid = 65533,
                    .admin_state = true,
                    .tx_ccm_enabled = false,
                    .ccm_priority = 7,
                    .lowest_prio_defect_allowed = cfm::Defects::kNone,
                    .fng_alarm_time = 65532,
                    .fng_reset_time = 65531,
                    .action = static_cast<cfm::FaultAction>(0xfffffff0U),
                    .aux_flag = true});
  EXPECT_TRUE(Same(middleware.Take(), {AskedIfindex(12), Sent(CFM_MGR_C2S_SIG_MEP_CREATE, kServer,
                                                              From<client_server::OpCreateMaintenanceEndpoint>(R"(
      md_name: "md1" ma_name: "ma1" mep_id: 65535 direction: 4294967295 ifindex: 1012 primary_vid: 65534
      inner_vid: 65533 ccm_priority: 7 admin_state: true tx_ccm_enabled: false aux_flag: true
      lowest_prio_defect_allowed: 6 fng_alarm_time: 65532 fng_reset_time: 65531 action: 4294967280)"))}));
}

TEST_F(HierarchyRequest, CreateMepKeepsItsThreeFlagsApart) {
  for (int flag = 0; flag < 3; ++flag) {
    SCOPED_TRACE(flag);
    cfm::st_maintenance_endpoint_cfg cfg{};
    cfg.port = 1;
    cfg.admin_state = flag == 0;
    cfg.tx_ccm_enabled = flag == 1;
    cfg.aux_flag = flag == 2;
    client.CreateMep("", "", cfg);
    const auto text = [&](int which) { return flag == which ? "true" : "false"; };
    EXPECT_TRUE(Same(expected::Requests(middleware.Take()),
                     {Sent(CFM_MGR_C2S_SIG_MEP_CREATE, kServer,
                           From<client_server::OpCreateMaintenanceEndpoint>(
                               std::string(R"(md_name: "" ma_name: "" mep_id: 0 direction: 0 ifindex: 1001
                                              primary_vid: 0 inner_vid: 0 ccm_priority: 0 admin_state: )") +
                               text(0) + " tx_ccm_enabled: " + text(1) + " aux_flag: " + text(2) +
                               " lowest_prio_defect_allowed: 0 fng_alarm_time: 0 fng_reset_time: 0 action: 0"))}));
  }
}

TEST_F(HierarchyRequest, NarrowValuesAreWidenedWithoutTheirSign) {
  client.CreateMd("md1", {.format = 0, .level = 255, .sender_id = {}, .mhf_creation = {}});
  cfm::st_maintenance_endpoint_cfg cfg{};
  cfg.port = 1;
  cfg.ccm_priority = 255;
  cfg.lowest_prio_defect_allowed = static_cast<cfm::Defects>(255);
  client.CreateMep("md1", "ma1", cfg);
  const recording::Journal sent = expected::Requests(middleware.Take());
  ASSERT_EQ(sent.size(), 2U);
  client_server::OpCreateMaintenanceDomain md;
  ASSERT_TRUE(md.ParseFromString(sent[0].octets.value()));
  EXPECT_EQ(md.level(), 255U);
  client_server::OpCreateMaintenanceEndpoint mep;
  ASSERT_TRUE(mep.ParseFromString(sent[1].octets.value()));
  EXPECT_EQ(mep.ccm_priority(), 255U);
  EXPECT_EQ(mep.lowest_prio_defect_allowed(), 255U);
}

TEST_F(HierarchyRequest, CreateMepSendsTheInterfaceIndexZeroWhenThePortIsUnknown) {
  cfm::st_maintenance_endpoint_cfg cfg{};
  cfg.port = 99;
  client.CreateMep("md1", "ma1", cfg);
  EXPECT_TRUE(Same(middleware.Take(), {AskedIfindex(99), expected::CreateMep({"md1", "ma1", cfg})}));
}

TEST_F(HierarchyRequest, CreateMepSendsTheInterfaceIndexZeroAlsoWhenTheFailingConversionWritesNothing) {
  middleware.limid_fails = true;
  middleware.limid_failure_keeps_output = true;
  cfm::st_maintenance_endpoint_cfg cfg{};
  cfg.port = 1;
  client.CreateMep("md1", "ma1", cfg);
  const recording::Journal sent = expected::Requests(middleware.Take());
  ASSERT_EQ(sent.size(), 1U);
  client_server::OpCreateMaintenanceEndpoint message;
  ASSERT_TRUE(message.ParseFromString(sent[0].octets.value()));
  EXPECT_TRUE(message.has_ifindex());
  EXPECT_EQ(message.ifindex(), 0U);
}

TEST_F(HierarchyRequest, UpdateMepCarriesEverythingButDirectionAndPortAndAsksForNoInterface) {
  client.UpdateMep("md1", "ma1", 8191, 100, 200, false, true, 5, cfm::Defects::kXconCcmOnly, 300, 400,
                   cfm::FaultAction::kBlock, true);
  EXPECT_TRUE(Same(middleware.Take(),
                   {Sent(CFM_MGR_C2S_SIG_MEP_UPDATE, kServer, From<client_server::OpUpdateMaintenanceEndpoint>(R"(
      md_name: "md1" ma_name: "ma1" mep_id: 8191 primary_vid: 100 inner_vid: 200 ccm_priority: 5
      admin_state: false tx_ccm_enabled: true aux_flag: true lowest_prio_defect_allowed: 5
      fng_alarm_time: 300 fng_reset_time: 400 action: 1)"))}));
}

TEST_F(HierarchyRequest, UpdateMepSetsFieldsThatAreZeroOrEmptyAndKeepsItsFlagsApart) {
  client.UpdateMep("", "", 0, 0, 0, true, false, 0, {}, 0, 0, {}, false);
  EXPECT_TRUE(Same(middleware.Take(),
                   {Sent(CFM_MGR_C2S_SIG_MEP_UPDATE, kServer, From<client_server::OpUpdateMaintenanceEndpoint>(R"(
      md_name: "" ma_name: "" mep_id: 0 primary_vid: 0 inner_vid: 0 ccm_priority: 0
      admin_state: true tx_ccm_enabled: false aux_flag: false lowest_prio_defect_allowed: 0
      fng_alarm_time: 0 fng_reset_time: 0 action: 0)"))}));
}

TEST_F(HierarchyRequest, DeleteMepCarriesBothNamesAndTheId) {
  client.DeleteMep("md1", "ma1", 65535);
  client.DeleteMep("", "", 0);
  EXPECT_TRUE(
      Same(middleware.Take(),
           {Sent(CFM_MGR_C2S_SIG_MEP_DELETE, kServer,
                 From<client_server::OpDeleteMaintenanceEndpoint>(R"(md_name: "md1" ma_name: "ma1" mep_id: 65535)")),
            Sent(CFM_MGR_C2S_SIG_MEP_DELETE, kServer,
                 From<client_server::OpDeleteMaintenanceEndpoint>(R"(md_name: "" ma_name: "" mep_id: 0)"))}));
}

TEST_F(HierarchyRequest, ChangesNoStateOfTheClient) {
  client.CreateMd("md1", {});
  client.CreateMa("md1", "ma1", {});
  client.CreateMep("md1", "ma1", {});
  EXPECT_TRUE(client.applied_hierarchy_.empty());
  EXPECT_TRUE(client.desired_hierarchy_.empty());
}

// The settings that an update cannot express have no field there to carry them.
TEST(HierarchyUpdates, HaveNoFieldForFormatLevelVidsDirectionOrPort) {
  const auto* md = client_server::OpUpdateMaintenanceDomain::descriptor();
  EXPECT_EQ(md->FindFieldByName("format"), nullptr);
  EXPECT_EQ(md->FindFieldByName("level"), nullptr);
  const auto* ma = client_server::OpUpdateMaintenanceAssociation::descriptor();
  EXPECT_EQ(ma->FindFieldByName("format"), nullptr);
  EXPECT_EQ(ma->FindFieldByName("vids"), nullptr);
  const auto* mep = client_server::OpUpdateMaintenanceEndpoint::descriptor();
  EXPECT_EQ(mep->FindFieldByName("direction"), nullptr);
  EXPECT_EQ(mep->FindFieldByName("ifindex"), nullptr);
}

}  // namespace
