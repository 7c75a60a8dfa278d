// The scripted peer does what its script says, and says what it is sent.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <string>

#include "cache_reader.h"
#include "cfm/identities.h"
#include "configuration.h"
#include "process.h"

namespace cfm_test {
namespace {

class AScript : public testing::Test {
 protected:
  void Play(const std::string& text) {
    peer_ = Process({CFM_SCRIPTED_PEER, Script(text)}, {{"VORBUS_DIR", directory_.path()}});
    EXPECT_EQ(peer_.ReadLine(), "ready") << peer_.Errors();
  }
  std::string Script(const std::string& text) {
    const std::string file = directory_ / "script";
    std::ofstream(file) << text;
    return file;
  }

  TempDir directory_;
  Process peer_{{"/bin/true"}};
};

TEST_F(AScript, AnswersByItsRulesUntilTheyAreForgotten) {
  Play(
      "# first the one, then the other\n"
      "once CACHE_GET reply CACHE_REPLY domains { name: \"d\" level: 3 }\n"
      "wait CACHE_GET\n"
      "on CACHE_GET reply CACHE_REPLY\n");
  CacheReader reader(directory_.path());
  client_server::OpCacheSync first;
  first.add_domains()->set_name("d");
  first.mutable_domains(0)->set_level(3);
  EXPECT_EQ(reader.WaitFor(first, kDeadline), "");
  EXPECT_EQ(reader.WaitFor({}, kDeadline), "");
  EXPECT_EQ(peer_.ReadLine(), "CACHE_GET");
  EXPECT_EQ(peer_.ReadLine(), "CACHE_GET");
}

TEST_F(AScript, ReadsAnArgumentFromAFile) {
  client_server::OpCacheSync cache;
  cache.add_domains()->set_name("from a file");
  const std::string file = directory_ / "cache";
  std::ofstream(file) << cache.DebugString();
  Play("on CACHE_GET reply CACHE_REPLY @" + file + "\n");
  CacheReader reader(directory_.path());
  EXPECT_EQ(reader.WaitFor(cache, kDeadline), "");
}

TEST_F(AScript, EndsWithTheStatusThatItNames) {
  Play("exit 7\n");
  EXPECT_EQ(peer_.Wait(), (End{7, 0}));
}

TEST_F(AScript, MayEndWithASignal) {
  Play("wait CACHE_GET\ndie\n");
  CacheReader reader(directory_.path());
  EXPECT_TRUE(reader.Ask(kDeadline));
  EXPECT_EQ(peer_.Wait(), (End{-1, SIGKILL}));
}

TEST_F(AScript, ServesAfterItsLastLineUntilItIsTerminated) {
  Play("say one\n");
  EXPECT_EQ(peer_.ReadLine(), "say one");
  peer_.Signal(SIGTERM);
  EXPECT_EQ(peer_.Wait(), (End{0, 0}));
}

TEST_F(AScript, FailsWhenAnotherSignalComesThanExpected) {
  Play("expect STATS_GET\n");
  CacheReader reader(directory_.path());
  EXPECT_TRUE(reader.Ask(kDeadline));
  EXPECT_EQ(peer_.ReadLine(), "CACHE_GET");
  EXPECT_EQ(peer_.ReadLine(), "unexpected CACHE_GET  instead of STATS_GET ");
  EXPECT_EQ(peer_.Wait(), (End{1, 0}));
}

TEST_F(AScript, FailsWhenNothingComes) {
  Play("timeout-ms 10\nwait STATS_GET\n");
  EXPECT_EQ(peer_.ReadLine(), "timeout wait STATS_GET");
  EXPECT_EQ(peer_.Wait(), (End{1, 0}));
}

class ABadLine : public AScript, public testing::WithParamInterface<const char*> {};

TEST_P(ABadLine, EndsThePeerWithAMessage) {
  peer_ = Process({CFM_SCRIPTED_PEER, Script(GetParam())}, {{"VORBUS_DIR", directory_.path()}});
  EXPECT_EQ(peer_.Wait(), (End{2, 0}));
  EXPECT_THAT(peer_.Errors(), testing::StartsWith("cfm-scripted-peer: "));
}

INSTANTIATE_TEST_SUITE_P(Each, ABadLine,
                         testing::Values("dance", "event NOTHING", "reply MD_CREATE", "wait CACHE_REPLY",
                                         "event LOOPBACK_ENDED expected: many", "raw-event LOOPBACK_ENDED fff",
                                         "raw-event LOOPBACK_ENDED xx", "exit soon", "event LOOPBACK_ENDED @/nowhere"));

}  // namespace
}  // namespace cfm_test
