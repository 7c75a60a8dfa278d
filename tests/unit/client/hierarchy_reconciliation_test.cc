// A desired hierarchy against the applied one: which requests go out, in which order, and what is logged.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "expected_requests.h"

namespace {

using expected::AddMa;
using expected::CreateMa;
using expected::CreateMd;
using expected::CreateMep;
using expected::DeleteMa;
using expected::DeleteMd;
using expected::DeleteMep;
using expected::kServer;
using expected::Md;
using expected::Mep;
using expected::Requests;
using expected::UpdateMa;
using expected::UpdateMd;
using expected::UpdateMep;
using recording::AskedIfindex;
using recording::AskedName;
using recording::Journal;
using recording::Logged;
using recording::Same;
using recording::Sent;

class Reconciliation : public expected::Fixture {
 protected:
  // The requests of one UpdateConfig; the desired hierarchy has become the applied one.
  Journal RequestsFor(const cfm::hierarchy& desired) {
    Journal requests = Requests(Update(desired));
    EXPECT_EQ(expected::Difference(client.applied_hierarchy_, desired.mds), "");
    EXPECT_EQ(expected::Difference(client.desired_hierarchy_, desired.mds), "");
    return requests;
  }

  // Updates for everything in the tree: domains, then associations, then end points.
  static Journal UpdatesOf(const cfm::hierarchy& tree) {
    Journal mds;
    Journal mas;
    Journal meps;
    for (const auto& [md_name, md] : tree.mds) {
      mds.push_back(UpdateMd(md_name, md.cfg));
      for (const auto& [ma_name, ma] : md.mas) {
        mas.push_back(UpdateMa(ma.md_name, ma_name, ma.cfg));
        for (const auto& [mep_id, mep] : ma.meps) {
          meps.push_back(UpdateMep(mep));
        }
      }
    }
    mds.insert(mds.end(), mas.begin(), mas.end());
    mds.insert(mds.end(), meps.begin(), meps.end());
    return mds;
  }

  static cfm::hierarchy_ma& MaOf(cfm::hierarchy& tree) { return tree.mds.at("md1").mas.at("ma1"); }
};

// ---- Order, and what is sent for whole objects ----

TEST_F(Reconciliation, OfANewTreeCreatesDomainsThenAssociationsThenEndPointsInKeyOrder) {
  Synchronise();
  cfm::hierarchy tree;
  AddMa(tree, "md2", "ma1", {5});
  AddMa(tree, "md1", "ma2", {300, 2});
  AddMa(tree, "md1", "ma1", {1});
  auto& md1 = tree.mds.at("md1");
  auto& md2 = tree.mds.at("md2");
  EXPECT_TRUE(Same(RequestsFor(tree),
                   {CreateMd("md1", md1.cfg), CreateMd("md2", md2.cfg), CreateMa("md1", "ma1", md1.mas["ma1"].cfg),
                    CreateMa("md1", "ma2", md1.mas["ma2"].cfg), CreateMa("md2", "ma1", md2.mas["ma1"].cfg),
                    CreateMep(Mep("md1", "ma1", 1)), CreateMep(Mep("md1", "ma2", 2)), CreateMep(Mep("md1", "ma2", 300)),
                    CreateMep(Mep("md2", "ma1", 5))}));
}

TEST_F(Reconciliation, VisitsNamesByteByByteWithTheShorterPrefixFirst) {
  Synchronise();
  cfm::hierarchy tree;
  for (const char* name : {"b", "a\xff", "ab", "a", "B", ""}) {
    tree.mds[name] = Md();
  }
  EXPECT_TRUE(
      Same(RequestsFor(tree), {CreateMd("", Md().cfg), CreateMd("B", Md().cfg), CreateMd("a", Md().cfg),
                               CreateMd("ab", Md().cfg), CreateMd("a\xff", Md().cfg), CreateMd("b", Md().cfg)}));
}

TEST_F(Reconciliation, DeletesEverythingBeforeItCreatesAndCreatesEverythingBeforeItUpdates) {
  cfm::hierarchy applied;
  AddMa(applied, "gone", "ma", {1});
  AddMa(applied, "kept", "gone", {1});
  AddMa(applied, "kept", "kept", {1, 2});
  Hold(applied);

  cfm::hierarchy desired;
  AddMa(desired, "kept", "kept", {2, 3});
  AddMa(desired, "kept", "new", {1});
  AddMa(desired, "new", "ma", {1});
  const auto& cfg = expected::Ma("kept").cfg;
  EXPECT_TRUE(Same(RequestsFor(desired),
                   {DeleteMep(Mep("kept", "kept", 1)), DeleteMa("kept", "gone"), DeleteMd("gone"),
                    CreateMd("new", Md().cfg), CreateMa("kept", "new", cfg), CreateMa("new", "ma", cfg),
                    CreateMep(Mep("kept", "kept", 3)), CreateMep(Mep("kept", "new", 1)), CreateMep(Mep("new", "ma", 1)),
                    UpdateMd("kept", Md().cfg), UpdateMa("kept", "kept", cfg), UpdateMep(Mep("kept", "kept", 2))}));
}

TEST_F(Reconciliation, OfTheSameHierarchyTwiceSendsOneUpdateForEveryObjectAndNothingElse) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1, 2});
  AddMa(tree, "md1", "ma2", {3});
  AddMa(tree, "md2", "ma1", {4});
  Hold(tree);
  const Journal requests = RequestsFor(tree);
  EXPECT_TRUE(Same(requests, UpdatesOf(tree)));
  EXPECT_EQ(requests.size(), 2U + 3U + 4U);
}

TEST_F(Reconciliation, OfAnEmptyHierarchyDeletesTheDomainsOnly) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1, 2});
  AddMa(tree, "md2", "ma2", {3});
  Hold(tree);
  EXPECT_TRUE(Same(RequestsFor({}), {DeleteMd("md1"), DeleteMd("md2")}));
  EXPECT_TRUE(client.applied_hierarchy_.empty());
}

TEST_F(Reconciliation, OfAnEmptyHierarchyAgainstNothingSendsNothing) {
  Synchronise();
  EXPECT_TRUE(Same(RequestsFor({}), {}));
}

TEST_F(Reconciliation, OfADomainWithoutAssociationsOrAnAssociationWithoutEndPointsCreatesItOnItsOwn) {
  Synchronise();
  cfm::hierarchy tree;
  tree.mds["alone"] = Md();
  AddMa(tree, "with", "ma");
  EXPECT_TRUE(Same(RequestsFor(tree), {CreateMd("alone", Md().cfg), CreateMd("with", Md().cfg),
                                       CreateMa("with", "ma", expected::Ma("with").cfg)}));
}

TEST_F(Reconciliation, TakesAssociationsOfTheSameNameInTwoDomainsForTwoObjects) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma", {1});
  AddMa(tree, "md2", "ma", {1});
  Hold(tree);
  tree.mds["md1"].mas.clear();
  EXPECT_TRUE(
      Same(RequestsFor(tree), {DeleteMa("md1", "ma"), UpdateMd("md1", Md().cfg), UpdateMd("md2", Md().cfg),
                               UpdateMa("md2", "ma", expected::Ma("md2").cfg), UpdateMep(Mep("md2", "ma", 1))}));
}

TEST_F(Reconciliation, OfARemovedAssociationDeletesItWithoutItsEndPointsAndUpdatesTheRest) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1, 2});
  AddMa(tree, "md1", "ma2", {3});
  Hold(tree);
  tree.mds["md1"].mas.erase("ma1");
  Journal all = {DeleteMa("md1", "ma1")};
  const Journal updates = UpdatesOf(tree);
  all.insert(all.end(), updates.begin(), updates.end());
  EXPECT_TRUE(Same(RequestsFor(tree), all));
}

// ---- What makes an object be deleted and created again ----

TEST_F(Reconciliation, OfAChangedLevelRecreatesTheDomainWithAllThatMatchesInIt) {
  cfm::hierarchy applied;
  AddMa(applied, "md1", "ma1", {1, 2});
  Hold(applied);
  cfm::hierarchy desired;
  AddMa(desired, "md1", "ma1", {2, 3});
  desired.mds["md1"].cfg.level = 4;
  EXPECT_TRUE(Same(RequestsFor(desired),
                   {DeleteMep(Mep("md1", "ma1", 1)), DeleteMep(Mep("md1", "ma1", 2)), DeleteMa("md1", "ma1"),
                    DeleteMd("md1"), CreateMd("md1", desired.mds["md1"].cfg), CreateMa("md1", "ma1", MaOf(desired).cfg),
                    CreateMep(Mep("md1", "ma1", 2)), CreateMep(Mep("md1", "ma1", 3))}));
}

TEST_F(Reconciliation, CreatesRecreatedEndPointsOfLaterDomainsBeforeNewOnesOfEarlierDomains) {
  cfm::hierarchy applied;
  AddMa(applied, "md1", "ma", {2});
  AddMa(applied, "md2", "ma", {1});
  Hold(applied);
  cfm::hierarchy desired;
  AddMa(desired, "md1", "ma", {1, 2});
  AddMa(desired, "md2", "ma", {1}).cfg.vids = {99};
  EXPECT_TRUE(Same(
      RequestsFor(desired),
      {DeleteMep(Mep("md2", "ma", 1)), DeleteMa("md2", "ma"), CreateMa("md2", "ma", desired.mds["md2"].mas["ma"].cfg),
       CreateMep(Mep("md2", "ma", 1)), CreateMep(Mep("md1", "ma", 1)), UpdateMd("md1", Md().cfg),
       UpdateMd("md2", Md().cfg), UpdateMa("md1", "ma", expected::Ma("md1").cfg), UpdateMep(Mep("md1", "ma", 2))}));
}

TEST_F(Reconciliation, OfAChangedVidOrderRecreatesTheAssociationAndItsMatchingEndPoints) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1, 2}).cfg.vids = {10, 20};
  Hold(tree);
  MaOf(tree).cfg.vids = {20, 10};
  EXPECT_TRUE(
      Same(RequestsFor(tree), {DeleteMep(Mep("md1", "ma1", 1)), DeleteMep(Mep("md1", "ma1", 2)), DeleteMa("md1", "ma1"),
                               CreateMa("md1", "ma1", MaOf(tree).cfg), CreateMep(Mep("md1", "ma1", 1)),
                               CreateMep(Mep("md1", "ma1", 2)), UpdateMd("md1", Md().cfg)}));
}

TEST_F(Reconciliation, OfALongerOrShorterVidListRecreatesTheAssociation) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1").cfg.vids = {10, 20};
  Hold(tree);
  for (const auto& vids : {std::vector<std::uint16_t>{10, 20, 20}, {10}, {}, {30}}) {
    MaOf(tree).cfg.vids = vids;
    EXPECT_TRUE(Same(RequestsFor(tree),
                     {DeleteMa("md1", "ma1"), CreateMa("md1", "ma1", MaOf(tree).cfg), UpdateMd("md1", Md().cfg)}));
  }
}

TEST_F(Reconciliation, OfTheSameMepIdsInAnotherOrderIsAnUpdate) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1").cfg.mep_ids = {1, 2, 3};
  Hold(tree);
  MaOf(tree).cfg.mep_ids = {3, 2, 1};
  EXPECT_TRUE(Same(RequestsFor(tree), UpdatesOf(tree)));
}

TEST_F(Reconciliation, OfAChangedPrimaryVidRecreatesTheEndPointAndUpdatesItsParents) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1, 2});
  Hold(tree);
  MaOf(tree).meps[1].cfg.primary_vid = 99;
  EXPECT_TRUE(Same(RequestsFor(tree),
                   {DeleteMep(Mep("md1", "ma1", 1)), CreateMep(MaOf(tree).meps[1]), UpdateMd("md1", Md().cfg),
                    UpdateMa("md1", "ma1", MaOf(tree).cfg), UpdateMep(Mep("md1", "ma1", 2))}));
}

TEST_F(Reconciliation, RecreatesAnEndPointForPortDirectionPrimaryVidAndInnerVidAndForNothingElse) {
  using Cfg = cfm::st_maintenance_endpoint_cfg;
  const std::vector<std::pair<const char*, void (*)(Cfg&)>> recreating = {
      {"port", [](Cfg& cfg) { cfg.port = 12; }},
      {"direction", [](Cfg& cfg) { cfg.direction = 1; }},
      {"primary_vid", [](Cfg& cfg) { cfg.primary_vid = 11; }},
      {"inner_vid", [](Cfg& cfg) { cfg.inner_vid = 21; }},
  };
  const std::vector<std::pair<const char*, void (*)(Cfg&)>> updating = {
      {"mep_id", [](Cfg& cfg) { cfg.mep_id = 77; }},
      {"admin_state", [](Cfg& cfg) { cfg.admin_state = !cfg.admin_state; }},
      {"tx_ccm_enabled", [](Cfg& cfg) { cfg.tx_ccm_enabled = !cfg.tx_ccm_enabled; }},
      {"ccm_priority", [](Cfg& cfg) { cfg.ccm_priority = 1; }},
      {"lowest_prio_defect_allowed", [](Cfg& cfg) { cfg.lowest_prio_defect_allowed = cfm::Defects::kAll; }},
      {"fng_alarm_time", [](Cfg& cfg) { cfg.fng_alarm_time = 251; }},
      {"fng_reset_time", [](Cfg& cfg) { cfg.fng_reset_time = 999; }},
      {"action", [](Cfg& cfg) { cfg.action = cfm::FaultAction::kNone; }},
      {"aux_flag", [](Cfg& cfg) { cfg.aux_flag = !cfg.aux_flag; }},
  };
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1});
  Hold(tree);
  const cfm::hierarchy before = tree;
  const auto* parents = &before.mds.at("md1");
  for (const auto& [member, change] : recreating) {
    SCOPED_TRACE(member);
    Hold(before);
    tree = before;
    change(MaOf(tree).meps[1].cfg);
    EXPECT_TRUE(Same(RequestsFor(tree), {DeleteMep(Mep("md1", "ma1", 1)), CreateMep(MaOf(tree).meps[1]),
                                         UpdateMd("md1", parents->cfg), UpdateMa("md1", "ma1", MaOf(tree).cfg)}));
  }
  for (const auto& [member, change] : updating) {
    SCOPED_TRACE(member);
    Hold(before);
    tree = before;
    change(MaOf(tree).meps[1].cfg);
    EXPECT_TRUE(Same(RequestsFor(tree), UpdatesOf(tree)));
  }
}

TEST_F(Reconciliation, OfAChangedAdminStateAloneUpdatesWithTheNewValue) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1, 2});
  Hold(tree);
  MaOf(tree).meps[1].cfg.admin_state = false;
  const Journal requests = RequestsFor(tree);
  EXPECT_TRUE(Same(requests, UpdatesOf(tree)));
  client_server::OpUpdateMaintenanceEndpoint message;
  ASSERT_TRUE(message.ParseFromString(requests.at(2).octets.value()));
  EXPECT_FALSE(message.admin_state());
}

TEST_F(Reconciliation, OfAChangedDomainSettingOtherThanLevelIsAnUpdate) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1});
  Hold(tree);
  tree.mds["md1"].cfg.sender_id = cfm::SenderIdTlvContent::kNone;
  tree.mds["md1"].cfg.mhf_creation = cfm::MhfCreationMode::kNone;
  EXPECT_TRUE(Same(RequestsFor(tree), UpdatesOf(tree)));
}

TEST_F(Reconciliation, OfAChangedDomainFormatAloneIsAnUpdateWithoutItAndIsTakenAsApplied) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1});
  Hold(tree);
  tree.mds["md1"].cfg.format = 2;
  EXPECT_TRUE(Same(RequestsFor(tree), UpdatesOf(tree)));
  EXPECT_EQ(client.applied_hierarchy_.at("md1").cfg.format, 2U);
  EXPECT_TRUE(Same(RequestsFor(tree), UpdatesOf(tree)));
  // Recreated for another reason, it is sent.
  tree.mds["md1"].cfg.level = 5;
  const Journal requests = RequestsFor(tree);
  ASSERT_EQ(requests.size(), 6U);
  EXPECT_EQ(requests[3], CreateMd("md1", tree.mds["md1"].cfg));
}

TEST_F(Reconciliation, OfAnyAssociationSettingButVidsIsAnUpdate) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1});
  Hold(tree);
  MaOf(tree).cfg.format = 2;
  MaOf(tree).cfg.ccm_interval = cfm::CcmInterval::k10min;
  MaOf(tree).cfg.mep_ids = {9};
  MaOf(tree).cfg.sender_id = cfm::SenderIdTlvContent::kNone;
  MaOf(tree).cfg.mhf_creation = cfm::MhfCreationMode::kNone;
  MaOf(tree).cfg.ais = {};
  EXPECT_TRUE(Same(RequestsFor(tree), UpdatesOf(tree)));
}

// ---- Records whose inner names differ from their keys ----

TEST_F(Reconciliation, SendsTheMdNameOfAnAssociationAsItStandsThereAndMatchesByKey) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1").md_name = "other";
  Synchronise();
  EXPECT_TRUE(Same(RequestsFor(tree), {CreateMd("md1", Md().cfg), CreateMa("other", "ma1", MaOf(tree).cfg)}));
  EXPECT_TRUE(Same(RequestsFor(tree), {UpdateMd("md1", Md().cfg), UpdateMa("other", "ma1", MaOf(tree).cfg)}));
  cfm::hierarchy without;
  without.mds["md1"] = Md();
  EXPECT_TRUE(Same(RequestsFor(without), {DeleteMa("other", "ma1"), UpdateMd("md1", Md().cfg)}));
}

TEST_F(Reconciliation, SendsTheMepIdOfTheRecordAndMatchesByKey) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1}).meps[1].cfg.mep_id = 500;
  Synchronise();
  const cfm::hierarchy_mep mep = MaOf(tree).meps[1];
  EXPECT_TRUE(
      Same(RequestsFor(tree), {CreateMd("md1", Md().cfg), CreateMa("md1", "ma1", MaOf(tree).cfg), CreateMep(mep)}));
  EXPECT_TRUE(Same(RequestsFor(tree), UpdatesOf(tree)));
  MaOf(tree).meps.clear();
  EXPECT_TRUE(
      Same(RequestsFor(tree), {DeleteMep(mep), UpdateMd("md1", Md().cfg), UpdateMa("md1", "ma1", MaOf(tree).cfg)}));
}

TEST_F(Reconciliation, CreatesAnEndPointWhoseMaNameDiffersFromItsAssociationsKeyAlsoWhenItsKeyMatches) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1}).meps[1].ma_name = "elsewhere";
  Hold(tree);
  const cfm::hierarchy_mep mep = MaOf(tree).meps[1];
  EXPECT_TRUE(Same(RequestsFor(tree), {CreateMep(mep), UpdateMd("md1", Md().cfg),
                                       UpdateMa("md1", "ma1", MaOf(tree).cfg), UpdateMep(mep)}));
  EXPECT_EQ(client.applied_hierarchy_.at("md1").mas.count("elsewhere"), 0U);
}

TEST_F(Reconciliation, CreatesNoEndPointWhenTheAssociationOfItsMaNameHoldsOneOfItsId) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1});
  AddMa(tree, "md1", "ma2", {1, 2});
  Hold(tree);
  MaOf(tree).meps[2] = Mep("md1", "ma2", 2);
  // End point 2 of ma1 is new there, but names ma2, which has an end point 2: nothing is sent for it.
  Journal updates = UpdatesOf(tree);
  const auto added = std::find(updates.begin(), updates.end(), UpdateMep(Mep("md1", "ma2", 2)));
  ASSERT_NE(added, updates.end());
  updates.erase(added);
  EXPECT_TRUE(Same(RequestsFor(tree), updates));
}

TEST_F(Reconciliation, DoesNotCreateAnAssociationThatTheSearchForAnEndPointsMaNameHasJustMade) {
  cfm::hierarchy applied;
  AddMa(applied, "md1", "ma1", {1});
  Hold(applied);
  cfm::hierarchy desired;
  AddMa(desired, "md1", "ma1", {1}).meps[1].ma_name = "zz";
  AddMa(desired, "md1", "zz", {3});
  // "zz" stands in the applied domain as an empty association by the time it is visited: its end points are new in it,
  // it is not.
  const cfm::hierarchy_mep mep = MaOf(desired).meps[1];
  EXPECT_TRUE(Same(RequestsFor(desired), {CreateMep(mep), CreateMep(Mep("md1", "zz", 3)), UpdateMd("md1", Md().cfg),
                                          UpdateMa("md1", "ma1", MaOf(desired).cfg), UpdateMep(mep)}));
}

// ---- Without a server ----

TEST_F(Reconciliation, WithoutAServerIsDeferredWithOneLineAndOnlyTheLastHierarchyStays) {
  cfm::hierarchy first;
  AddMa(first, "md1", "ma1", {1});
  cfm::hierarchy second;
  second.mds["md2"] = Md();
  const Journal deferred = {
      Logged(10, "UpdateConfig", "Server unavailable, request will be handled later: pid 0 sync 0")};
  EXPECT_TRUE(Same(Update(first), deferred));
  EXPECT_TRUE(Same(Update(second), deferred));
  EXPECT_EQ(expected::Difference(client.desired_hierarchy_, second.mds), "");
  EXPECT_TRUE(client.applied_hierarchy_.empty());

  middleware.Find(kServer);
  middleware.Take();
  EXPECT_TRUE(Same(Update(first),
                   {Logged(10, "UpdateConfig", "Server unavailable, request will be handled later: pid 7 sync 0")}));
  EXPECT_TRUE(Same(Update(second),
                   {Logged(10, "UpdateConfig", "Server unavailable, request will be handled later: pid 7 sync 0")}));
  middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, "");
  EXPECT_TRUE(
      Same(Requests(middleware.Take()), {CreateMd("md2", Md().cfg), Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer)}));
}

TEST_F(Reconciliation, CopiesTheApplicationsTree) {
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1});
  const cfm::hierarchy before = tree;
  client.UpdateConfig(tree);
  tree.mds.clear();
  EXPECT_EQ(expected::Difference(client.desired_hierarchy_, before.mds), "");
}

// ---- The log ----

TEST_F(Reconciliation, LogsTheHeadingThenTheWholeTreeThenSends) {
  Synchronise();
  cfm::hierarchy tree;
  tree.mds["md1"] = Md();
  EXPECT_TRUE(Same(Update(tree), {Logged(10, "Apply", "Applying CFM config..."),
                                  Logged(10, "Apply",
                                         "CFM Hierarchy\n"
                                         "+ MD Id: md1, Format: 4, Level: 3, Sender Id: 2, Mhf Creation: 3\n"),
                                  CreateMd("md1", Md().cfg)}));
}

TEST_F(Reconciliation, LogsOfAnEmptyTreeTheHeadingAlone) {
  Synchronise();
  EXPECT_TRUE(Same(Update(cfm::hierarchy{}),
                   {Logged(10, "Apply", "Applying CFM config..."), Logged(10, "Apply", "CFM Hierarchy\n")}));
}

TEST_F(Reconciliation, LogsThreeLinesForADomainWithAnAssociationWithoutVidsAndEndPoints) {
  Synchronise();
  cfm::hierarchy tree;
  cfm::hierarchy_ma& ma = AddMa(tree, "md1", "ma1");
  ma.cfg.vids.clear();
  ma.cfg.mep_ids = {2, 1};
  EXPECT_TRUE(Same(expected::Lines(Update(tree)),
                   {Logged(10, "Apply", "Applying CFM config..."),
                    Logged(10, "Apply",
                           "CFM Hierarchy\n"
                           "+ MD Id: md1, Format: 4, Level: 3, Sender Id: 2, Mhf Creation: 3\n"
                           "  + MA Id: ma1, MD Name: md1, Format: 32, VID List: { }, CCM Interval: 4, "
                           "MEP Id List : { 1 2 }, Sender Id: 5, Mhf Creation: 2\n")}));
}

TEST_F(Reconciliation, LogsKeysAndInnerNamesEnumerationsAsUnsignedAndBytesAsNumbers) {
  Synchronise();
  cfm::hierarchy tree;
  cfm::hierarchy_md md{};
  md.cfg = {.format = 4294967295U,
            .level = 255,
            .sender_id = static_cast<cfm::SenderIdTlvContent>(0xffffffffU),
            .mhf_creation = static_cast<cfm::MhfCreationMode>(0x80000000U)};
  cfm::hierarchy_ma ma{};
  ma.md_name = "inner md";
  ma.cfg.format = 7;
  ma.cfg.vids = {30, 10, 30};
  ma.cfg.ccm_interval = static_cast<cfm::CcmInterval>(0xfffffffeU);
  ma.cfg.sender_id = cfm::SenderIdTlvContent::kNone;
  ma.cfg.mhf_creation = cfm::MhfCreationMode::kDefault;
  ma.cfg.ais.enabled = true;
  cfm::hierarchy_mep mep{};
  mep.md_name = "other md";
  mep.ma_name = "other ma";
  mep.cfg = {.mep_id = 65535,
             .direction = 4294967295U,
             .port = 12,
             .primary_vid = 1,
             .inner_vid = 2,
             .admin_state = true,
             .tx_ccm_enabled = false,
             .ccm_priority = 65,
             .lowest_prio_defect_allowed = static_cast<cfm::Defects>(66),
             .fng_alarm_time = 250,
             .fng_reset_time = 1000,
             .action = static_cast<cfm::FaultAction>(0xfffffffdU),
             .aux_flag = true};
  ma.meps[9] = mep;
  md.mas["ma%s"] = ma;
  tree.mds["md%n"] = md;
  EXPECT_TRUE(Same(
      expected::Lines(Update(tree)),
      {Logged(10, "Apply", "Applying CFM config..."),
       Logged(10, "Apply",
              "CFM Hierarchy\n"
              "+ MD Id: md%n, Format: 4294967295, Level: 255, Sender Id: 4294967295, Mhf Creation: 2147483648\n"
              "  + MA Id: ma%s, MD Name: inner md, Format: 7, VID List: { 30 10 30 }, CCM Interval: 4294967294, "
              "MEP Id List : { }, Sender Id: 1, Mhf Creation: 2\n"
              "    + MEP Id: 9, MD Name: other md, MA Name: other ma, Id: 65535, Direction: 4294967295, Port: port12, "
              "Primary VID: 1, Inner VID: 2, Admin State: 1, TX CCM Enabled: 0, CCM Priority: 65, "
              "LowestPrioDefectAllowed: 66, FNG Alarm Time: 250, FNG Reset Time: 1000, Action: 4294967293\n")}));
}

TEST_F(Reconciliation, LogsObjectsInKeyOrderEachUnderItsParent) {
  Synchronise();
  cfm::hierarchy tree;
  AddMa(tree, "b", "y");
  AddMa(tree, "a", "z", {10, 9});
  AddMa(tree, "a", "x");
  const Journal lines = expected::Lines(Update(tree));
  ASSERT_EQ(lines.size(), 2U);
  std::vector<std::string> beginnings;
  std::string line;
  std::istringstream text(lines[1].text);
  while (std::getline(text, line)) {
    beginnings.push_back(line.substr(0, line.find(',')));
  }
  EXPECT_EQ(beginnings, (std::vector<std::string>{"log 10 Apply@client_impl: CFM Hierarchy", "+ MD Id: a",
                                                  "  + MA Id: x", "  + MA Id: z", "    + MEP Id: 9", "    + MEP Id: 10",
                                                  "+ MD Id: b", "  + MA Id: y"}));
}

TEST_F(Reconciliation, AsksForEachInterfaceNameOnceWithSixtyFourOctetsBeforeItLogs) {
  Synchronise();
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1, 2});
  MaOf(tree).meps[2].cfg.port = 12;
  const Journal journal = Update(tree);
  const Journal asked = recording::Only(journal, {recording::Kind::kLimid, recording::Kind::kLog});
  ASSERT_EQ(asked.size(), 6U);
  EXPECT_EQ(asked[0], AskedName(11, 64));
  EXPECT_EQ(asked[1], AskedName(12, 64));
  EXPECT_EQ(asked[2].kind, recording::Kind::kLog);
  EXPECT_EQ(asked[3].kind, recording::Kind::kLog);
  EXPECT_EQ(asked[4], AskedIfindex(11));
  EXPECT_EQ(asked[5], AskedIfindex(12));
}

TEST_F(Reconciliation, LogsAnEmptyNameForAPortThatHasNone) {
  Synchronise();
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1});
  MaOf(tree).meps[1].cfg.port = 99;
  for (const bool keeps_output : {false, true}) {
    SCOPED_TRACE(keeps_output);
    middleware.limid_failure_keeps_output = keeps_output;
    const Journal lines = expected::Lines(Update(tree));
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_NE(lines[1].text.find(", Port: , Primary VID: 10,"), std::string::npos) << lines[1].text;
  }
}

TEST_F(Reconciliation, PrintsAnInterfaceNameOfUpTo63Octets) {
  Synchronise();
  middleware.ports.push_back({.limid = 500, .ifindex = 1, .name = std::string(63, 'n')});
  cfm::hierarchy tree;
  AddMa(tree, "md1", "ma1", {1});
  MaOf(tree).meps[1].cfg.port = 500;
  const Journal lines = expected::Lines(Update(tree));
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_NE(lines[1].text.find(", Port: " + std::string(63, 'n') + ", Primary VID: 10,"), std::string::npos);
}

TEST_F(Reconciliation, LogsTheWholeTextHoweverLong) {
  Synchronise();
  cfm::hierarchy tree;
  for (std::uint16_t id = 1; id <= 8191; ++id) {
    AddMa(tree, "md", "ma" + std::to_string(id % 64)).cfg.vids.assign(100, id);
  }
  cfm::hierarchy_ma& ma = tree.mds["md"].mas["ma1"];
  for (std::uint16_t id = 1; id <= 8191; ++id) {
    ma.meps[id] = Mep("md", "ma1", id);
  }
  const Journal lines = expected::Lines(Update(tree));
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_GT(lines[1].text.size(), 1000000U);
  EXPECT_EQ(std::count(lines[1].text.begin(), lines[1].text.end(), '\n'), 1 + 1 + 64 + 8191);
  EXPECT_EQ(lines[1].text.back(), '\n');
}

TEST_F(Reconciliation, LogsWhateverLevelsAreEnabled) {
  Synchronise();
  middleware.level_enabled = [](int) { return false; };
  const Journal journal = Update(cfm::hierarchy{});
  EXPECT_EQ(expected::Lines(journal).size(), 2U);
  EXPECT_TRUE(Same(recording::Only(journal, {recording::Kind::kLevelQuery}), {}));
}

// ---- The three lists, given directly ----

TEST_F(Reconciliation, ApplyDeleteTakesEndPointsThenAssociationsThenDomains) {
  cfm::ClientImpl::MdMap mds;
  mds["b"] = Md();
  mds["a"] = Md();
  cfm::ClientImpl::MaMap mas;
  mas[{"a", "z"}] = expected::Ma("named");
  mas[{"a", "b"}] = expected::Ma("a");
  const cfm::ClientImpl::MepList meps = {Mep("x", "y", 9), Mep("x", "y", 1)};
  client.ApplyDelete(mds, mas, meps);
  EXPECT_TRUE(
      Same(middleware.Take(), {DeleteMep(Mep("x", "y", 9), 0), DeleteMep(Mep("x", "y", 1), 0), DeleteMa("a", "b", 0),
                               DeleteMa("named", "z", 0), DeleteMd("a", 0), DeleteMd("b", 0)}));
}

TEST_F(Reconciliation, ApplyCreateTakesDomainsThenAssociationsThenEndPoints) {
  cfm::ClientImpl::MdMap mds;
  mds["b"] = Md();
  cfm::ClientImpl::MaMap mas;
  mas[{"a", "z"}] = expected::Ma("named");
  const cfm::ClientImpl::MepList meps = {Mep("x", "y", 9), Mep("x", "y", 1)};
  client.ApplyCreate(mds, mas, meps);
  EXPECT_TRUE(Same(Requests(middleware.Take()),
                   {CreateMd("b", Md().cfg, 0), CreateMa("named", "z", expected::Ma("named").cfg, 0),
                    CreateMep(Mep("x", "y", 9), 0), CreateMep(Mep("x", "y", 1), 0)}));
}

TEST_F(Reconciliation, ApplyUpdateTakesDomainsThenAssociationsThenEndPoints) {
  cfm::ClientImpl::MdMap mds;
  mds["b"] = Md();
  cfm::ClientImpl::MaMap mas;
  mas[{"a", "z"}] = expected::Ma("named");
  const cfm::ClientImpl::MepList meps = {Mep("x", "y", 9), Mep("x", "y", 1)};
  client.ApplyUpdate(mds, mas, meps);
  EXPECT_TRUE(Same(middleware.Take(), {UpdateMd("b", Md().cfg, 0), UpdateMa("named", "z", expected::Ma("named").cfg, 0),
                                       UpdateMep(Mep("x", "y", 9), 0), UpdateMep(Mep("x", "y", 1), 0)}));
}

}  // namespace
