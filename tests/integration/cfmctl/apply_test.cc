#include <gmock/gmock.h>

#include <csignal>

#include "element.h"
#include "scripted_server.h"
#include "terminal.h"

namespace cfm_test {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Apply : public Element {
 protected:
  Result ApplyFile(const std::string& file, const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments = {"--config", file, "apply"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Run(arguments);
  }
  std::string ShowText() const { return Run({"show"}).out; }
  std::string CheckText(const std::string& file) const { return Run({"check", file}).out; }

  const std::string metro_ = Example("metro-ethernet.yaml");
};

TEST_F(Apply, BringsAnEmptyServerToTheFile) {
  StartServer();
  const Result result = ApplyFile(metro_);
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(
      result.out,
      "created 34, updated 0, replaced 0, deleted 0; the server holds 5 domains, 12 associations, 12 end points, 2 "
      "probes, 3 sessions\n");
  EXPECT_EQ(ShowText(), CheckText(metro_));
}

TEST_F(Apply, ListsEveryChangeWhenAsked) {
  StartServer();
  const Result result = ApplyFile(metro_, {"-v"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("  + created end point provider.example.net/evc-100/21\n"));
  EXPECT_THAT(result.out, HasSubstr("  + created session 2.1\n"));
}

TEST_F(Apply, OfTheSameFileAgainChangesNothing) {
  StartServer();
  ASSERT_EQ(ApplyFile(metro_).status, 0);
  const Result result = ApplyFile(metro_);
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, testing::StartsWith("nothing to change; the server holds 5 domains"));
}

TEST_F(Apply, OfAnEditedFileSaysWhatChanged) {
  StartServer();
  ASSERT_EQ(ApplyFile(metro_).status, 0);
  std::string text = Content(metro_);
  text = Replaced(text, "3: {port: uni3, enabled: false}", "3: {port: uni3}");
  text = Replaced(text, "vlans: [300-303]", "vlans: [300-304]");
  text = Replaced(text, "2: {count: 10,", "3: {count: 10,");
  const std::string file = File(text);
  const Result result = ApplyFile(file);
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(
      result.out,
      "  ~ updated end point link/uni3/3: enabled false -> true\n"
      "  ! replaced association provider.example.net/evc-300: vlans [300-303] -> [300-304]\n"
      "  ! replaced end point provider.example.net/evc-300/23 with its parent\n"
      "  - deleted session 1.2\n"
      "  + created session 1.3\n"
      "created 1, updated 1, replaced 2, deleted 1; the server holds 5 domains, 12 associations, 12 end points, 2 "
      "probes, 3 sessions\n");
  EXPECT_EQ(ShowText(), CheckText(file));
}

TEST_F(Apply, BringsAChangedNameFormatAcross) {
  StartServer();
  ASSERT_EQ(ApplyFile(metro_).status, 0);
  const std::string file = File(Replaced(Content(metro_), "name-format: dns", "name-format: string"));
  const Result result = ApplyFile(file);
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_THAT(result.out, HasSubstr("! replaced domain provider.example.net: name-format dns -> string\n"));
  EXPECT_THAT(result.out, HasSubstr("created 0, updated 0, replaced 7, deleted 0;"));
  EXPECT_EQ(ShowText(), CheckText(file));
}

TEST_F(Apply, OfAFileThatWantsNothingRemovesEverything) {
  StartServer();
  ASSERT_EQ(ApplyFile(metro_).status, 0);
  const Result result = ApplyFile(File("domains: {}\n"));
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_THAT(result.out, HasSubstr("deleted 34;"));
  EXPECT_EQ(ShowText(), "no configuration\n");
}

TEST_F(Apply, SendsNothingOfAFileWithErrors) {
  StartServer();
  ASSERT_EQ(ApplyFile(metro_).status, 0);
  const std::string before = ShowText();
  const Result result = ApplyFile(File("domains: {d: {level: 8}}\n"));
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.errors, HasSubstr("0 to 7"));
  EXPECT_THAT(result.out, IsEmpty());
  EXPECT_EQ(ShowText(), before);
}

TEST_F(Apply, OfAnEmptyFileSendsNothing) {
  StartServer();
  ASSERT_EQ(ApplyFile(metro_).status, 0);
  EXPECT_EQ(ApplyFile(File("")).status, 2);
  EXPECT_EQ(ShowText(), CheckText(metro_));
}

TEST_F(Apply, WithoutAServerEndsAfterTheTimeout) {
  const Result result = ApplyFile(metro_, {"--timeout", "0.2"});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.errors, HasSubstr("no cfm-mgr server in the socket directory " + directory_.path().string()));
}

TEST_F(Apply, WaitsForAServerThatStartsLater) {
  Process apply = Start({"--config", metro_, "--timeout", "60", "apply"});
  StartServer();
  const Result result = Finish(std::move(apply));
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_THAT(result.out, HasSubstr("created 34"));
}

TEST_F(Apply, FailsWhenTheServerDoesNotTakeIt) {
  const ScriptedServer forgetful(directory_.path().string(), ScriptedServer::Behaviour::kForgetful);
  const Result result = ApplyFile(Example("minimal.yaml"));
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, IsEmpty());
  EXPECT_THAT(result.errors,
              AllOf(HasSubstr("did not take everything"), HasSubstr("+ created end point access/uplink/1"),
                    HasSubstr("created 3, updated 0, replaced 0, deleted 0 would be needed")));
}

TEST_F(Apply, FailsWhenTheServerNeverAnswers) {
  const ScriptedServer mute(directory_.path().string(), ScriptedServer::Behaviour::kMute);
  const Result result = ApplyFile(Example("minimal.yaml"), {"--timeout", "0.5"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.errors, HasSubstr("does not answer"));
}

TEST_F(Apply, StartsAgainWhenTheServerDiesInTheMiddleAndComesBack) {
  ScriptedServer mortal(directory_.path().string(), ScriptedServer::Behaviour::kDiesWhenCreating);
  Process apply = Start({"--config", metro_, "--timeout", "60", "apply"});
  mortal.WaitForDeath();
  StartServer();
  const Result result = Finish(std::move(apply));
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_THAT(result.errors, HasSubstr("the server went away; waiting for its return"));
  EXPECT_EQ(ShowText(), CheckText(metro_));
}

TEST_F(Apply, GivesUpWhenTheServerDiesInTheMiddleForGood) {
  ScriptedServer mortal(directory_.path().string(), ScriptedServer::Behaviour::kDiesWhenCreating);
  const Result result = ApplyFile(metro_, {"--timeout", "0.5"});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.errors, AllOf(HasSubstr("the server went away"), HasSubstr("no cfm-mgr server")));
}

TEST_F(Apply, IsEndedByASignalWhileItWaits) {
  const ScriptedServer mute(directory_.path().string(), ScriptedServer::Behaviour::kMute);
  Process apply = Start({"--config", metro_, "--timeout", "600", "apply"});
  mute.WaitForCacheRequest();
  apply.Signal(SIGTERM);
  const Result result = Finish(std::move(apply));
  EXPECT_EQ(result.status, 128 + SIGTERM);
  EXPECT_THAT(result.errors, HasSubstr("Terminated"));
}

TEST_F(Apply, OfManyObjectsDrawsAProgressBarOnATerminal) {
  StartServer();
  const std::string file = File(ManyEndPoints(5000));
  const Screen screen = RunOnTerminal({CFMCTL, "--config", file, "apply"}, Environment());
  EXPECT_EQ(screen.status, 0) << screen.text;
  EXPECT_THAT(screen.text, HasSubstr("\rapplying [........................................]   0% 0 of 5,002"));
  // The bar is gone before the outcome is printed.
  EXPECT_THAT(screen.text,
              EndsWith("\r\x1b[Kcreated 5,002, updated 0, replaced 0, deleted 0; the server holds 1 domain, "
                       "1 association, 5,000 end points, 0 probes, 0 sessions\r\n"));
}

TEST_F(Apply, OfManyObjectsIsPlainWhenPiped) {
  StartServer();
  const Result result = ApplyFile(File(ManyEndPoints(5000)));
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.errors, IsEmpty());
  EXPECT_THAT(result.out, Not(HasSubstr("\r")));
}

TEST_F(Apply, OfFewObjectsDrawsNoBar) {
  StartServer();
  const Screen screen = RunOnTerminal({CFMCTL, "--config", Example("minimal.yaml"), "apply"}, Environment());
  EXPECT_EQ(screen.status, 0);
  EXPECT_THAT(screen.text, AllOf(HasSubstr("\x1b[32m+\x1b[0m created domain access"), Not(HasSubstr("applying"))));
}

}  // namespace
}  // namespace cfm_test
