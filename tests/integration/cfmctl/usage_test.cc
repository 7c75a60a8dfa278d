#include <gmock/gmock.h>

#include "element.h"

namespace cfm_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

class AUser : public Element {};

TEST_F(AUser, WithoutACommandIsShownTheCommands) {
  const Result result = Run({});
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.out, IsEmpty());
  EXPECT_THAT(result.errors, AllOf(HasSubstr("check"), HasSubstr("apply"), HasSubstr("run"), HasSubstr("show")));
}

TEST_F(AUser, WhoMistypesACommandIsToldTheNearest) {
  const Result result = Run({"aply"});
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.errors, AllOf(HasSubstr("aply"), HasSubstr("Did you mean 'apply'?")));
}

TEST_F(AUser, WhoMistypesAnythingElseGetsStatus2AndNothingIsDone) {
  const std::vector<std::vector<std::string>> wrong = {
      {"show", "--jsn"},
      {"show", "extra"},
      {"check", "a.yaml", "b.yaml"},
      {"show", "--timeout", "soon"},
      {"--timeout", "0", "show"},
      {"--timeout", "-1", "show"},
      {"show", "--timeout"},
      {"--config"},
  };
  for (const auto& arguments : wrong) {
    const Result result = Run(arguments);
    EXPECT_EQ(result.status, 2) << testing::PrintToString(arguments);
    EXPECT_THAT(result.errors, HasSubstr("--help")) << testing::PrintToString(arguments);
    EXPECT_THAT(result.out, IsEmpty());
  }
}

TEST_F(AUser, WhoAsksForHelpGetsItWithAnExample) {
  EXPECT_THAT(Run({"--help"}).out, AllOf(HasSubstr("Exit status"), HasSubstr("Examples:")));
  for (const char* command : {"check", "apply", "run", "show"}) {
    const Result result = Run({command, "--help"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("Example")) << command;
  }
  EXPECT_EQ(Run({"--version"}).status, 0);
}

}  // namespace
}  // namespace cfm_test
