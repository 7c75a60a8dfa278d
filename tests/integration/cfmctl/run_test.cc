#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "element.h"
#include "scripted_server.h"

namespace cfm_test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

class Running : public Element {
 protected:
  Running() : file_(File(Content(Example("metro-ethernet.yaml")))) {}

  Process StartRun(const std::string& timeout = "60") const {
    return Start({"--config", file_, "--timeout", timeout, "run"});
  }

  void ExpectInStep() const { EXPECT_EQ(Run({"show"}).out, Run({"check", file_}).out); }

  /// As an editor does it: a new file, renamed over the old.
  void Edit(std::string_view what, std::string_view with) const {
    File(Replaced(Content(file_), what, with), "new.yaml");
    std::filesystem::rename(Path("new.yaml"), file_);
  }

  static void Ip(const std::string& arguments) {
    ASSERT_EQ(std::system(("ip link " + arguments).c_str()), 0);  // NOLINT(cert-env33-c): fixed commands
  }
  /// A port that comes back has another index.
  static void MakePort(const std::string& port) { Ip("add name " + port + " type veth peer name far-" + port); }
  static void DeletePort(const std::string& port) { Ip("del " + port); }

  static void ExpectCleanEnd(Process run, int signal) {
    run.Signal(signal);
    const Result result = Finish(std::move(run));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_THAT(result.out, HasSubstr("ending; the server keeps its configuration"));
  }

  const std::string file_;
};

TEST_F(Running, AppliesTheFileAndKeepsItThroughARestartOfTheServer) {
  Process run = StartRun();
  Expect(run, "waiting for the server in " + directory_.path().string());
  StartServer();
  Expect(run, "server found");
  Expect(run, "applied: created 34, updated 0, replaced 0, deleted 0");
  ExpectInStep();
  for (int i = 0; i < 3; ++i) {
    KillServer();
    Expect(run, "server lost");
    StartServer();
    Expect(run, "server found");
    Expect(run, "restored: created 34, updated 0, replaced 0, deleted 0");
    ExpectInStep();
  }
  ExpectCleanEnd(std::move(run), SIGTERM);
}

TEST_F(Running, LeavesTheServerAsItIsWhenItIsRestartedItself) {
  StartServer();
  Process first = StartRun();
  Expect(first, "applied: created 34");
  first.Kill();
  Process second = StartRun();
  Expect(second, "in step, nothing to change");
  ExpectInStep();
  ExpectCleanEnd(std::move(second), SIGINT);
}

TEST_F(Running, StampsEveryLineWithTheTime) {
  Process run = StartRun();
  const auto line = run.ReadLine();
  ASSERT_TRUE(line);
  EXPECT_THAT(*line, MatchesRegex("20[0-9][0-9]-[01][0-9]-[0-3][0-9]T[0-9:]+[+-][0-9]+ waiting for .*"));
}

TEST_F(Running, AppliesAFileThatIsRenamedOverTheOld) {
  StartServer();
  Process run = StartRun();
  Expect(run, "applied: created 34");
  Edit("{port: uni3, enabled: false}", "{port: uni3}");
  Expect(run, "applied: created 0, updated 1, replaced 0, deleted 0");
  ExpectInStep();
  Edit("level: 4", "level: 3");
  Expect(run, "applied: created 0, updated 0, replaced 7, deleted 0");
  ExpectInStep();
}

TEST_F(Running, AppliesAFileThatIsWrittenInPlace) {
  StartServer();
  Process run = StartRun();
  Expect(run, "applied: created 34");
  WriteTo(file_, Replaced(Content(file_), "count: 100,", "count: 99,"));
  Expect(run, "applied: created 0, updated 1, replaced 0, deleted 0");
  ExpectInStep();
}

TEST_F(Running, BringsAChangedNameFormatAcross) {
  StartServer();
  Process run = StartRun();
  Expect(run, "applied: created 34");
  Edit("name-format: dns", "name-format: string");
  Expect(run, "applied: created 0, updated 0, replaced 7, deleted 0");
  ExpectInStep();
}

TEST_F(Running, KeepsTheOldConfigurationWhenTheNewFileIsWrong) {
  StartServer();
  Process run = StartRun();
  Expect(run, "applied: created 34");
  const std::string good = Content(file_);
  const std::string before = Run({"show"}).out;
  Edit("level: 4", "level: 40");
  Expect(run, "file not applied; the configuration before it stays");
  EXPECT_THAT(run.Errors(), HasSubstr("'40' is out of range; allowed: 0 to 7"));
  EXPECT_EQ(Run({"show"}).out, before);
  KillServer();
  StartServer();
  Expect(run, "restored: created 34");
  EXPECT_EQ(Run({"show"}).out, before);
  WriteTo(file_, good);
  Expect(run, "file is as it was applied, nothing to change");
}

TEST_F(Running, ReadsTheFileAgainOnSighup) {
  StartServer();
  Process run = StartRun();
  Expect(run, "applied: created 34");
  run.Signal(SIGHUP);
  Expect(run, "file read, nothing to change");
  std::filesystem::remove(file_);
  run.Signal(SIGHUP);
  Expect(run, "file not applied");
  EXPECT_THAT(run.Errors(), HasSubstr("No such file or directory"));
}

TEST_F(Running, AppliesWhatChangedWhileTheServerWasAway) {
  StartServer();
  Process run = StartRun();
  Expect(run, "applied: created 34");
  KillServer();
  Expect(run, "server lost");
  Edit("{port: uni3, enabled: false}", "{port: uni3}");
  Expect(run, "file read; it is applied when the server is there");
  StartServer();
  Expect(run, "restored: created 34");
  ExpectInStep();
}

TEST_F(Running, FollowsAPortThatIsDeletedAndMadeAgain) {
  StartServer();
  Process run = StartRun();
  Expect(run, "applied: created 34");
  for (int i = 0; i < 3; ++i) {
    DeletePort("uni3");
    MakePort("uni3");
    Expect(run, "new index of uni3; applied: created 0, updated 0, replaced 1, deleted 0");
    ExpectInStep();
  }
}

TEST_F(Running, FollowsAPortWhoseLogicalIdStays) {
  Process::Environment environment = Environment();
  environment["LIMID_MAP"] = File("103 uni3\n", "ports");
  StartServer();
  Process run({CFMCTL, "--config", file_, "run"}, environment);
  Expect(run, "applied: created 34");
  DeletePort("uni3");
  MakePort("uni3");
  Expect(run, "new index of uni3; applied: created 0, updated 0, replaced 1, deleted 0");
  ExpectInStep();
}

TEST_F(Running, FollowsPortsOnceAllOfThemAreThere) {
  StartServer();
  Process run = StartRun();
  Expect(run, "applied: created 34");
  DeletePort("uni1");
  DeletePort("uni3");
  MakePort("uni1");
  run.Signal(SIGHUP);
  const auto next = run.ReadLine();
  ASSERT_TRUE(next);
  EXPECT_THAT(*next, HasSubstr("file not applied; the configuration before it stays"));
  MakePort("uni3");
  Expect(run, "new index of uni1, uni3; applied: created 0, updated 0, replaced");
  ExpectInStep();
}

TEST_F(Running, FollowsAPortWhileTheServerIsAway) {
  StartServer();
  Process run = StartRun();
  Expect(run, "applied: created 34");
  KillServer();
  Expect(run, "server lost");
  DeletePort("uni3");
  MakePort("uni3");
  Expect(run, "new index of uni3; it is applied when the server is there");
  StartServer();
  Expect(run, "restored: created 34");
  ExpectInStep();
}

TEST_F(Running, SaysWhenTheServerDoesNotConfirm) {
  const ScriptedServer forgetful(directory_.path().string(), ScriptedServer::Behaviour::kForgetful);
  Process run = StartRun("0.2");
  Expect(run, "the server does not confirm its configuration");
  Expect(run, "created domain");
  ExpectCleanEnd(std::move(run), SIGTERM);
}

TEST_F(Running, RefusesToStartWithoutAGoodFile) {
  StartServer();
  WriteTo(file_, "domains: {d: {}}\n");
  const Result result = Run({"--config", file_, "run"});
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.out, IsEmpty());
  EXPECT_THAT(result.errors, HasSubstr("lacks the key 'level'"));
}

}  // namespace
}  // namespace cfm_test
