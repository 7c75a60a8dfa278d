// What happens to the configuration when the server, the application or both go and come back.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <string>
#include <vector>

#include "element.h"
#include "random_configuration.h"

namespace cfm_test {
namespace {

// Two domains, three associations, six end points, two probes with three sessions; every kind of setting in use.
Configuration Example() {
  Configuration example{Grid(2, 1, 2), {}};
  cfm::hierarchy_md& md = example.hierarchy.mds["domain-1"];
  cfm::hierarchy_ma& ma = md.mas["with alarms"];
  ma.md_name = "domain-1";
  ma.cfg = {2,
            {30, 10, 30},
            cfm::CcmInterval::k1s,
            {1, 2, 8191},
            cfm::SenderIdTlvContent::kManage,
            cfm::MhfCreationMode::kExplicit,
            {true, 6, 60, {100, 200}, 5, true}};
  ma.meps = md.mas["association-0"].meps;
  for (auto& [mep_id, mep] : ma.meps) {
    mep.ma_name = "with alarms";
    mep.cfg.primary_vid = 30;
    mep.cfg.inner_vid = 7;
    mep.cfg.admin_state = true;
    mep.cfg.tx_ccm_enabled = true;
    mep.cfg.action = cfm::FaultAction::kBlock;
    mep.cfg.aux_flag = true;
  }
  example.probe.probes[1] = {1, 60, "domain-1", "with alarms", 1, 2, {{1, {10, 100, 64, 5}}, {2, {20, 50, 1400, 0}}}};
  example.probe.probes[9] = {9, 300, "domain-0", "association-0", 2, 1, {{3, {1, 10, 1, 7}}}};
  return example;
}

// More requests than a link holds at a time (8192): what happens while it is applied happens in the middle of it.
Configuration BigConfiguration() {
#ifdef CFM_SANITIZED
  return {Grid(2, 10, 500), {}};
#else
  return {Grid(2, 10, 1000), {}};
#endif
}

class Restart : public testing::Test {
 protected:
  void Start(const Configuration& configuration) {
    element_.StartServer();
    element_.StartApplication(configuration);
    element_.Synchronise();
    element_.ExpectCache(configuration);
  }

  // Leaves when the server holds some of the configuration's end points, but not all.
  void AwaitMiddleOfApplying(const Configuration& configuration) {
    const int endpoints = CacheOf(configuration).endpoints_size();
    for (int attempt = 0; attempt < 20; ++attempt) {
      element_.application().Give(configuration);
      int seen = 0;
      while (seen == 0) {
        const auto cache = element_.reader().Read(kDeadline);
        ASSERT_TRUE(cache);
        seen = cache->endpoints_size();
      }
      if (seen < endpoints) {
        return;
      }
      element_.application().Give({});
      element_.ExpectCache({});
    }
    FAIL() << "the change was always over when it was looked at";
  }

  Element element_;
};

TEST_F(Restart, OfTheServerBringsBackHierarchyAndProbes) {
  const Configuration configuration = Example();
  Start(configuration);
  element_.KillServer();
  element_.application().AwaitLine("lost");
  element_.StartServer();
  element_.application().AwaitLine("found");
  element_.Synchronise();
  element_.ExpectCache(configuration);
}

TEST_F(Restart, OfTheServerBringsAChangeThatWasGivenMeanwhile) {
  Configuration configuration = Example();
  Start(configuration);
  element_.KillServer();
  element_.application().AwaitLine("lost");
  configuration.hierarchy.mds.erase("domain-0");
  configuration.probe.probes.erase(9);
  configuration.hierarchy.mds["domain-1"].cfg.level = 7;
  configuration.hierarchy.mds["domain-1"].mas["with alarms"].cfg.vids = {30, 30, 10};
  element_.application().Give(configuration);
  element_.application().AwaitApplied();
  element_.StartServer();
  element_.Synchronise();
  element_.ExpectCache(configuration);
}

TEST_F(Restart, OfTheApplicationLeavesTheServerAsItIs) {
  const Configuration configuration = Example();
  Start(configuration);
  element_.KillApplication();
  element_.ExpectCache(configuration);
  element_.StartApplication(configuration);
  element_.Synchronise();
  element_.ExpectCache(configuration);
}

TEST_F(Restart, OfTheApplicationBringsAnotherConfiguration) {
  Start(Example());
  element_.KillApplication();
  Configuration other{Grid(1, 3, 3), {}};
  other.probe.probes[9] = {9, 10, "domain-0", "association-2", 3, 1, {{4, {2, 20, 2, 2}}}};
  element_.StartApplication(other);
  element_.Synchronise();
  element_.ExpectCache(other);
}

TEST_F(Restart, OfTheApplicationWithoutAConfigurationEmptiesTheServer) {
  Start(Example());
  element_.KillApplication();
  element_.StartApplication({});
  element_.Synchronise();
  element_.ExpectCache({});
}

TEST_F(Restart, OfBothComesBackInEitherOrder) {
  const Configuration configuration = Example();
  Start(configuration);
  element_.KillServer();
  element_.KillApplication();
  element_.StartApplication(configuration);
  element_.StartServer();
  element_.Synchronise();
  element_.ExpectCache(configuration);

  element_.KillApplication();
  element_.KillServer();
  element_.StartServer();
  element_.StartApplication(configuration);
  element_.Synchronise();
  element_.ExpectCache(configuration);
}

TEST_F(Restart, OfTheServerTwentyTimesInARowWhileTheConfigurationChanges) {
  RandomConfigurations random(20);
  Configuration configuration = Example();
  Start(configuration);
  for (int i = 0; i < 20; ++i) {
    element_.KillServer();
    random.Change(configuration);
    element_.application().Give(configuration);
    element_.StartServer();
    if (i % 2 == 0) {  // the other half are killed as they come up
      element_.application().AwaitLine("found");
    }
  }
  element_.Synchronise();
  element_.application().AwaitApplied();
  element_.ExpectCache(configuration);
}

TEST_F(Restart, OfTheApplicationInTheMiddleOfABigChangeCompletesIt) {
  Start({});
  const Configuration big = BigConfiguration();
  ASSERT_NO_FATAL_FAILURE(AwaitMiddleOfApplying(big));
  element_.KillApplication();
  element_.StartApplication(big);
  element_.Synchronise();
  element_.ExpectCache(big);
}

TEST_F(Restart, OfTheServerInTheMiddleOfABigChangeCompletesIt) {
  Start({});
  const Configuration big = BigConfiguration();
  ASSERT_NO_FATAL_FAILURE(AwaitMiddleOfApplying(big));
  element_.KillServer();
  element_.StartServer();
  element_.Synchronise();
  element_.ExpectCache(big);
}

TEST_F(Restart, IsNotNeededAfterTheServerWasStoppedAndContinued) {
  Configuration configuration = Example();
  Start(configuration);
  element_.server().Signal(SIGSTOP);
  configuration.hierarchy.mds["domain-0"].cfg.level = 6;
  configuration.probe.probes[1].sessions.erase(2);
  element_.application().Give(configuration);
  element_.server().Signal(SIGCONT);
  element_.ExpectCache(configuration);
}

// A server that takes nothing for the send timeout loses its link; when it goes on, both synchronise anew.
TEST(AStoppedServer, LosesItsLinkAndIsBroughtUpToDateWhenItGoesOn) {
  Element element;
  element.StartServer();
  Application application(element.directory(), std::chrono::milliseconds(200));
  application.Give(Example());
  application.Run();
  ASSERT_TRUE(element.reader().WaitForServer(kDeadline));
  application.AwaitSynchronised(element.reader().server());
  element.ExpectCache(Example());

  element.server().Signal(SIGSTOP);
  const Configuration big = BigConfiguration();
  application.Give(big);
  application.AwaitLine("lost");
  element.server().Signal(SIGCONT);
  application.AwaitLine("synchronised");
  application.AwaitApplied();
  element.ExpectCache(big);
}

// What the application sends is what a recording peer in the server's place is sent.
TEST(ARestartedApplication, SendsOnlyTheDifferenceToWhatTheServerHolds) {
  Configuration desired;
  desired.hierarchy = Grid(1, 1, 3);
  desired.probe.probes[1] = {1, 60, "domain-0", "association-0", 1, 2, {{1, {10, 100, 64, 5}}, {2, {20, 50, 1400, 0}}}};
  desired.probe.probes[2] = {2, 60, "domain-0", "association-0", 1, 3, {{1, {10, 100, 64, 5}}}};

  Configuration held = desired;  // but for one end point turned round, one too many and one missing ...
  auto& meps = held.hierarchy.mds["domain-0"].mas["association-0"].meps;
  meps[2].cfg.direction = 2;
  meps[4] = meps[1];
  meps[4].cfg.mep_id = 4;
  meps.erase(3);
  held.probe.probes[1].sessions[2].pcp = 3;  // ... and one session different, one probe missing, one too many
  held.probe.probes.erase(2);
  held.probe.probes[3] = {3, 1, "domain-0", "association-0", 1, 2, {{1, {1, 1, 1, 1}}}};

  const TempDir directory;
  Peer peer(directory, "on CACHE_GET reply CACHE_REPLY " + Text(CacheOf(held)));
  Application application(directory);
  application.Give(desired);
  application.Run();

  std::vector<std::string> names;
  for (const std::string& line : peer.LinesBefore("STATUS_GET_ALL")) {
    names.push_back(line.substr(0, line.find(' ')));
  }
  const std::vector<std::string> expected = {
      "CACHE_GET",                                                  //
      "MEP_DELETE",        "MEP_DELETE",                            // 2, 4
      "MEP_CREATE",        "MEP_CREATE",                            // 2, 3
      "MD_UPDATE",         "MA_UPDATE",       "MEP_UPDATE",         // 1
      "DM_SESSION_CREATE", "DM_PROBE_CREATE", "DM_SESSION_CREATE",  // 1/2, 2, 2/1
      "DM_PROBE_DELETE",                                            // 3
  };
  EXPECT_EQ(names, expected);
}

TEST(ARestartedApplication, SendsOneUpdatePerObjectToAServerThatHoldsItsConfiguration) {
  const Configuration configuration{Grid(2, 2, 10), {}};
  const TempDir directory;
  Peer peer(directory, "on CACHE_GET reply CACHE_REPLY " + Text(CacheOf(configuration)));
  Application application(directory);
  application.Give(configuration);
  application.Run();

  unsigned mds = 0;
  unsigned mas = 0;
  unsigned meps = 0;
  for (const std::string& line : peer.LinesBefore("STATUS_GET_ALL")) {
    mds += line.starts_with("MD_UPDATE ") ? 1U : 0U;
    mas += line.starts_with("MA_UPDATE ") ? 1U : 0U;
    meps += line.starts_with("MEP_UPDATE ") ? 1U : 0U;
    EXPECT_TRUE(line == "CACHE_GET" || line.find("_UPDATE ") != std::string::npos) << line;
  }
  EXPECT_EQ(mds, 2U);
  EXPECT_EQ(mas, 4U);
  EXPECT_EQ(meps, 40U);
}

}  // namespace
}  // namespace cfm_test
