// How the server process starts and ends.
#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <string>
#include <vector>

#include "cfm/identities.h"
#include "process.h"
#include "raw_client.h"

namespace cfm_test {
namespace {

namespace pb = client_server;
using testing::HasSubstr;
using testing::Not;

pb::OpCreateMaintenanceDomain Domain(const std::string& name) {
  pb::OpCreateMaintenanceDomain request;
  request.set_name(name);
  return request;
}

class EndingSignal : public testing::TestWithParam<int> {};

TEST_P(EndingSignal, EndsTheServerWithStatusZeroWhileClientsAreConnected) {
  ServerProcess server;
  RawClient first(server.directory());
  RawClient second(server.directory());
  ASSERT_TRUE(first.WaitForServer());
  ASSERT_TRUE(second.WaitForServer());
  first.Send(CFM_MGR_C2S_SIG_MD_CREATE, Domain("d"));
  EXPECT_EQ(first.Cache().domains_size(), 1);
  server.process().Signal(GetParam());
  EXPECT_EQ(server.process().Wait(), (End{0, 0}));
  EXPECT_EQ(server.process().Errors(), "");
  EXPECT_TRUE(first.WaitForNoServer());
  EXPECT_TRUE(second.WaitForNoServer());
}

INSTANTIATE_TEST_SUITE_P(Which, EndingSignal, testing::Values(SIGTERM, SIGINT),
                         [](const auto& which) { return which.param == SIGTERM ? "SigTerm" : "SigInt"; });

class OtherSignal : public testing::TestWithParam<int> {};

TEST_P(OtherSignal, DoesNotEndTheServer) {
  ServerProcess server;
  server.process().Signal(GetParam());
  RawClient client(server.directory());
  ASSERT_TRUE(client.WaitForServer());
  EXPECT_EQ(client.Cache().domains_size(), 0);
  server.process().Signal(SIGTERM);
  EXPECT_EQ(server.process().Wait(), (End{0, 0}));
}

INSTANTIATE_TEST_SUITE_P(Which, OtherSignal, testing::Values(SIGHUP, SIGUSR1),
                         [](const auto& which) { return which.param == SIGHUP ? "SigHup" : "SigUsr1"; });

TEST(AServerProcess, BeginsWithAnEmptyCacheAfterItWasKilled) {
  ServerProcess server;
  RawClient client(server.directory());
  ASSERT_TRUE(client.WaitForServer());
  const vorbus_pid_t killed = client.server();
  client.Send(CFM_MGR_C2S_SIG_MD_CREATE, Domain("d"));
  EXPECT_EQ(client.Cache().domains_size(), 1);
  server.process().Kill();
  ASSERT_TRUE(client.WaitForNoServer());
  server.Restart();
  ASSERT_TRUE(client.WaitForServer());
  EXPECT_NE(client.server(), killed);
  EXPECT_EQ(client.Cache().ShortDebugString(), "");
}

TEST(ASecondServer, IsRefusedWithAMessageAndItsOwnStatusAndTheFirstServesOn) {
  ServerProcess server;
  RawClient client(server.directory());
  ASSERT_TRUE(client.WaitForServer());
  client.Send(CFM_MGR_C2S_SIG_MD_CREATE, Domain("d"));
  Process second({CFM_MGR, "--socket-dir", server.directory()});
  EXPECT_EQ(second.Wait(), (End{3, 0}));
  EXPECT_EQ(second.Errors(), "cfm-mgr: another cfm-mgr serves in " + server.directory() + " already\n");
  EXPECT_EQ(client.Cache().domains_size(), 1);
}

TEST(ASecondServer, MayServeInAnotherDirectory) {
  const ServerProcess first;
  const ServerProcess second;
  RawClient client(second.directory());
  ASSERT_TRUE(client.WaitForServer());
  client.Send(CFM_MGR_C2S_SIG_MD_CREATE, Domain("d"));
  EXPECT_EQ(client.Cache().domains_size(), 1);
  RawClient other(first.directory());
  ASSERT_TRUE(other.WaitForServer());
  EXPECT_EQ(other.Cache().domains_size(), 0);
}

TEST(AServerProcess, TakesItsDirectoryFromTheEnvironmentToo) {
  const TempDir directory;
  Process server({CFM_MGR}, {{"VORBUS_DIR", directory.path()}});
  RawClient client(directory.path());
  EXPECT_TRUE(client.WaitForServer());
}

TEST(AServerProcess, SaysWhichDirectoryItCannotUse) {
  const TempDir directory;
  const std::string file = directory / "file";
  std::ofstream(file) << "not a directory";
  Process server({CFM_MGR, "--socket-dir", file + "/sockets"});
  EXPECT_EQ(server.Wait(), (End{4, 0}));
  EXPECT_EQ(server.Errors(), "cfm-mgr: the socket directory " + file + "/sockets cannot be used: Not a directory\n");
}

TEST(AServerProcess, SaysThatADirectorysNameIsTooLong) {
  const TempDir directory;
  Process server({CFM_MGR, "--socket-dir", directory / std::string(120, 'd')});
  EXPECT_EQ(server.Wait(), (End{4, 0}));
  EXPECT_THAT(server.Errors(), HasSubstr("File name too long"));
}

TEST(AServerProcess, SaysThatLoggingCannotBeSetUp) {
  const TempDir directory;
  Process server({CFM_MGR, "--socket-dir", directory.path()}, {{"VORBUS_LOG_CONF", directory / "absent"}});
  EXPECT_EQ(server.Wait(), (End{1, 0}));
  EXPECT_THAT(server.Errors(), HasSubstr("cfm-mgr: logging cannot be set up from " + (directory / "absent") + "\n"));
}

TEST(AServerProcess, RefusesWrongOptions) {
  for (const std::vector<std::string>& wrong :
       {std::vector<std::string>{"--unknown"}, {"--socket-dir"}, {"--log-level", "loud"}, {"operand"}}) {
    std::vector<std::string> command = {CFM_MGR};
    command.insert(command.end(), wrong.begin(), wrong.end());
    Process server(command);
    EXPECT_EQ(server.Wait(), (End{2, 0})) << wrong.front();
    EXPECT_THAT(server.Errors(), Not(testing::IsEmpty())) << wrong.front();
  }
}

TEST(AServerProcess, TellsItsVersionAndOptions) {
  Process version({CFM_MGR, "--version"});
  EXPECT_THAT(version.ReadLine().value_or(""), testing::MatchesRegex("cfm-mgr [0-9]+\\.[0-9]+\\.[0-9]+"));
  EXPECT_EQ(version.Wait(), (End{0, 0}));
  Process help({CFM_MGR, "--help"});
  EXPECT_TRUE(help.ReadUntil("  --socket-dir"));
  EXPECT_TRUE(help.ReadUntil("  --log-level"));
  EXPECT_EQ(help.Wait(), (End{0, 0}));
}

class ALogLevel : public testing::Test {
 protected:
  // What a server of that level writes when it takes one request and refuses another.
  static std::string Written(const std::vector<std::string>& options) {
    ServerProcess server(options);
    RawClient client(server.directory());
    EXPECT_TRUE(client.WaitForServer());
    client.Send(CFM_MGR_C2S_SIG_MD_CREATE, Domain("known"));
    pb::OpDeleteMaintenanceDomain refused;
    refused.set_name("unknown");
    client.Send(CFM_MGR_C2S_SIG_MD_DELETE, refused);
    EXPECT_EQ(client.Cache().domains_size(), 1);
    server.process().Signal(SIGTERM);
    EXPECT_EQ(server.process().Wait(), (End{0, 0}));
    return server.process().Errors();
  }
};

TEST_F(ALogLevel, OfWarnIsTheDefaultAndShowsRefusalsOnly) {
  for (const auto& options : {std::vector<std::string>{}, {"--log-level", "warn"}}) {
    const std::string written = Written(options);
    EXPECT_THAT(written, HasSubstr("WARN"));
    EXPECT_THAT(written, HasSubstr("refused OpDeleteMaintenanceDomain of client "));
    EXPECT_THAT(written, HasSubstr(": there is no domain 'unknown'"));
    EXPECT_EQ(std::count(written.begin(), written.end(), '\n'), 1) << written;
  }
}

TEST_F(ALogLevel, OfErrorShowsNeither) {
  EXPECT_EQ(Written({"--log-level", "error"}), "");
}

TEST_F(ALogLevel, OfInfoShowsStartAndEndToo) {
  const std::string written = Written({"--log-level", "info"});
  EXPECT_THAT(written, HasSubstr("serves in /"));
  EXPECT_THAT(written, HasSubstr("there is no domain 'unknown'"));
  EXPECT_THAT(written, HasSubstr("ends on signal 15"));
  EXPECT_THAT(written, Not(HasSubstr("known\"")));
}

TEST_F(ALogLevel, OfDebugShowsEveryRequest) {
  const std::string written = Written({"--log-level", "debug"});
  EXPECT_THAT(written, HasSubstr("OpCreateMaintenanceDomain {name: \"known\"}"));
  EXPECT_THAT(written, HasSubstr("asks for the cache"));
}

}  // namespace
}  // namespace cfm_test
