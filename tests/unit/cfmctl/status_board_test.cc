#include "status_board.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "status_names.h"

namespace cfmctl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const StatusBoard::Key kFirst("d", "a", 1);

// End points 1 (enabled) and 2 (disabled) of an association of MEPs 1 to 3.
Model TwoEndPoints() {
  Model model;
  cfm::hierarchy_ma& ma = model.hierarchy.mds["d"].mas["a"];
  ma.cfg.mep_ids = {1, 2, 3};
  ma.meps[1].cfg.admin_state = true;
  ma.meps[2].cfg.admin_state = false;
  return model;
}

cfm::st_local_mep_status WellLocal() {
  cfm::st_local_mep_status status{};
  status.intf_status = 1;
  status.port_state = 2;
  return status;
}

cfm::st_remote_mep_status WellRemote() {
  cfm::st_remote_mep_status status{};
  status.fsm_state = kRemoteMepOk;
  return status;
}

class ABoard : public testing::Test {
 protected:
  void ReportAll() {
    board_.Update("d", "a", 1, WellLocal());
    board_.Update("d", "a", 1, 2, WellRemote());
    board_.Update("d", "a", 1, 3, WellRemote());
  }

  StatusBoard board_{TwoEndPoints()};
};

TEST_F(ABoard, IsCompleteWhenEveryEnabledEndPointAndItsRemotesAreReported) {
  EXPECT_FALSE(board_.complete());
  EXPECT_TRUE(board_.Update("d", "a", 1, WellLocal()));
  EXPECT_TRUE(board_.Update("d", "a", 1, 2, WellRemote()));
  EXPECT_FALSE(board_.complete());
  EXPECT_FALSE(board_.well());
  EXPECT_TRUE(board_.Update("d", "a", 1, 3, WellRemote()));
  EXPECT_TRUE(board_.complete());
  EXPECT_TRUE(board_.well());
}

TEST_F(ABoard, OfNothingIsCompleteAndWell) {
  const StatusBoard board{Model()};
  EXPECT_TRUE(board.complete());
  EXPECT_TRUE(board.well());
}

TEST_F(ABoard, CountsAReportOnce) {
  board_.Update("d", "a", 1, WellLocal());
  EXPECT_FALSE(board_.Update("d", "a", 1, WellLocal()));
  board_.Update("d", "a", 1, 2, WellRemote());
  EXPECT_FALSE(board_.Update("d", "a", 1, 2, WellRemote()));
  EXPECT_FALSE(board_.complete());
}

TEST_F(ABoard, SeesAChangeOfEveryField) {
  ReportAll();
  cfm::st_local_mep_status local = WellLocal();
  const auto changed = [&] { return board_.Update("d", "a", 1, local); };
  local.mac.octets[5] = 1;
  EXPECT_TRUE(changed());
  local.rdi = true;
  EXPECT_TRUE(changed());
  local.defect_ais = true;
  EXPECT_TRUE(changed());
  local.highest_defect = 3;
  EXPECT_TRUE(changed());
  local.shutdown_state = 1;
  EXPECT_TRUE(changed());
  EXPECT_FALSE(changed());
  cfm::st_remote_mep_status remote = WellRemote();
  remote.sender_id = "x";
  EXPECT_TRUE(board_.Update("d", "a", 1, 3, remote));
  remote.last_change_uptime = 9;
  EXPECT_TRUE(board_.Update("d", "a", 1, 3, remote));
  EXPECT_FALSE(board_.Update("d", "a", 1, 3, remote));
}

TEST_F(ABoard, ExpectsNothingOfADisabledEndPoint) {
  ReportAll();
  EXPECT_FALSE(board_.Update("d", "a", 2, 1, cfm::st_remote_mep_status{}));
  EXPECT_TRUE(board_.well());
  EXPECT_TRUE(board_.Update("d", "a", 2, cfm::st_local_mep_status{}));
  EXPECT_TRUE(board_.RemoveLocal("d", "a", 2));
  EXPECT_TRUE(board_.complete());
  EXPECT_TRUE(board_.well());
}

TEST_F(ABoard, PassesOverWhatBelongsToOthers) {
  EXPECT_FALSE(board_.Update("e", "a", 1, WellLocal()));
  EXPECT_FALSE(board_.Update("d", "b", 1, 2, WellRemote()));
  EXPECT_FALSE(board_.RemoveLocal("d", "a", 7));
  EXPECT_FALSE(board_.RemoveRemote("d", "a", 7, 1));
  EXPECT_EQ(board_.meps().size(), 2u);
}

TEST_F(ABoard, ListsLearnedRemotesAsLongAsTheyAreThere) {
  ReportAll();
  EXPECT_TRUE(board_.Update("d", "a", 1, 9, WellRemote()));
  EXPECT_FALSE(board_.meps().at(kFirst).remotes.at(9).expected);
  EXPECT_TRUE(board_.complete());
  EXPECT_TRUE(board_.RemoveRemote("d", "a", 1, 9));
  EXPECT_FALSE(board_.RemoveRemote("d", "a", 1, 9));
  EXPECT_FALSE(board_.meps().at(kFirst).remotes.contains(9));
  EXPECT_TRUE(board_.complete());
}

TEST_F(ABoard, MissesWhatWasRemoved) {
  ReportAll();
  EXPECT_TRUE(board_.RemoveRemote("d", "a", 1, 3));
  EXPECT_FALSE(board_.RemoveRemote("d", "a", 1, 3));
  EXPECT_FALSE(board_.complete());
  board_.Update("d", "a", 1, 3, WellRemote());
  EXPECT_TRUE(board_.complete());
  EXPECT_TRUE(board_.RemoveLocal("d", "a", 1));
  EXPECT_FALSE(board_.complete());
  board_.Update("d", "a", 1, WellLocal());
  EXPECT_TRUE(board_.complete());
}

TEST_F(ABoard, ForgetsEverythingButWhatItExpects) {
  ReportAll();
  board_.Update("d", "a", 1, 9, WellRemote());
  board_.Forget();
  EXPECT_FALSE(board_.complete());
  EXPECT_FALSE(board_.meps().at(kFirst).status);
  EXPECT_EQ(board_.meps().at(kFirst).remotes.size(), 2u);
  ReportAll();
  EXPECT_TRUE(board_.complete());
}

TEST(TheProblemsOfALocalMep, AreNamedByPriority) {
  LocalMep mep;
  EXPECT_THAT(ProblemsOf(mep), ElementsAre("not reported by the server"));
  mep.status = WellLocal();
  EXPECT_THAT(ProblemsOf(mep), IsEmpty());
  mep.status->highest_defect = 3;
  EXPECT_THAT(ProblemsOf(mep), ElementsAre("fault remote-ccm not yet reset"));
  mep.status->defect_ais = true;
  mep.status->defect_rdi = true;
  mep.status->defect_mac_status = true;
  mep.status->defect_remote_ccm = true;
  mep.status->defect_error_ccm = true;
  mep.status->defect_xcon_ccm = true;
  mep.status->intf_status = 7;
  mep.status->port_state = 1;
  mep.status->block_state = 1;
  mep.status->shutdown_state = 1;
  EXPECT_THAT(ProblemsOf(mep),
              ElementsAre("cross-connection", "erroneous CCMs", "CCMs missing", "a remote port or interface is not up",
                          "remote defect indication received", "alarm indication signal received",
                          "own interface lower-layer-down", "own port blocked", "port blocked by the fault action",
                          "port shut down by the fault action"));
  mep.enabled = false;
  EXPECT_THAT(ProblemsOf(mep), IsEmpty());
}

TEST(TheProblemsOfARemoteMep, AreItsStateAndWhatItSays) {
  RemoteMep mep;
  EXPECT_THAT(ProblemsOf(mep), ElementsAre("not reported by the server"));
  mep.status = WellRemote();
  EXPECT_THAT(ProblemsOf(mep), IsEmpty());
  mep.status->fsm_state = 9;
  mep.status->rdi = true;
  mep.status->intf_status = 2;
  mep.status->port_state = 1;
  EXPECT_THAT(ProblemsOf(mep),
              ElementsAre("code 9", "sends remote defect indication", "its interface down", "its port blocked"));
}

TEST(ARefusal, IsExplainedByItsCode) {
  EXPECT_THAT(RefusalText(1), testing::StartsWith("no such MEP"));
  EXPECT_THAT(RefusalText(2), testing::StartsWith("the MEP is not operational"));
  EXPECT_THAT(RefusalText(3), testing::StartsWith("the target is unknown"));
  EXPECT_THAT(RefusalText(4), testing::StartsWith("a parameter is not one"));
  EXPECT_THAT(RefusalText(5), testing::StartsWith("too many tests"));
  EXPECT_EQ(RefusalText(0), "the server gives reason 0, which this version does not know");
  EXPECT_EQ(RefusalText(6), "the server gives reason 6, which this version does not know");
}

}  // namespace
}  // namespace cfmctl
