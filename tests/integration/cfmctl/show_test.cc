#include <gmock/gmock.h>

#include <csignal>
#include <nlohmann/json.hpp>

#include "element.h"
#include "scripted_server.h"

namespace cfm_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

class Show : public Element {};

TEST_F(Show, WithoutAServerSaysWhereItLookedAndWhatToDo) {
  const Result result = Run({"--timeout", "0.2", "show"});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.out, IsEmpty());
  EXPECT_THAT(result.errors, AllOf(HasSubstr(directory_.path().string()), HasSubstr("200ms"),
                                   HasSubstr("start cfm-mgr"), HasSubstr("--socket-dir"), HasSubstr("--timeout")));
}

TEST_F(Show, TakesTheSocketDirectoryOfItsOption) {
  const TempDir other;
  const Result result = Run({"--timeout", "0.2", "--socket-dir", other.path().string(), "show"});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.errors, HasSubstr(other.path().string()));
}

TEST_F(Show, OfASocketDirectoryThatCannotBeSaysSo) {
  const Result result = Run({"--socket-dir", "/proc/none", "show"});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.errors, HasSubstr("cannot use the socket directory /proc/none"));
}

TEST_F(Show, OfAnEmptyServerSaysThatThereIsNothing) {
  StartServer();
  const Result result = Run({"show"});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.out, "no configuration\n");
}

TEST_F(Show, NeedsNoFileAndChangesNothing) {
  StartServer();
  ASSERT_EQ(Run({"--config", Example("metro-ethernet.yaml"), "apply"}).status, 0);
  const Result first = Run({"--config", Path("none.yaml"), "show"});
  const Result second = Run({"show"});
  EXPECT_EQ(first.status, 0) << first.errors;
  EXPECT_EQ(first.out, second.out);
  EXPECT_EQ(second.out, Run({"check", Example("metro-ethernet.yaml")}).out);
}

TEST_F(Show, PrintsTheSameJsonAsCheck) {
  StartServer();
  ASSERT_EQ(Run({"--config", Example("metro-ethernet.yaml"), "apply"}).status, 0);
  const Result result = Run({"show", "--json"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(nlohmann::json::parse(result.out),
            nlohmann::json::parse(Run({"check", "--json", Example("metro-ethernet.yaml")}).out));
}

TEST_F(Show, OfAServerThatDoesNotAnswerEndsAfterTheTimeout) {
  const ScriptedServer mute(directory_.path().string(), ScriptedServer::Behaviour::kMute);
  const Result result = Run({"--timeout", "1", "show"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.errors, HasSubstr("does not answer"));
  EXPECT_EQ(mute.cache_requests(), 1);
}

TEST_F(Show, IsEndedByASignalWithTheShellsStatus) {
  const ScriptedServer mute(directory_.path().string(), ScriptedServer::Behaviour::kMute);
  Process show = Start({"--timeout", "600", "show"});
  mute.WaitForCacheRequest();
  show.Signal(SIGINT);
  const Result result = Finish(std::move(show));
  EXPECT_EQ(result.status, 128 + SIGINT);
  EXPECT_THAT(result.errors, HasSubstr("Interrupt"));
}

}  // namespace
}  // namespace cfm_test
