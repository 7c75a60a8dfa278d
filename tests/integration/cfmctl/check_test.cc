#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "element.h"
#include "terminal.h"

namespace cfm_test {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class Check : public Element {};

TEST_F(Check, AcceptsTheExamples) {
  const Result metro = Run({"check", Example("metro-ethernet.yaml")});
  EXPECT_EQ(metro.status, 0) << metro.errors;
  EXPECT_THAT(metro.errors, IsEmpty());
  EXPECT_THAT(metro.out, EndsWith("\n5 domains, 12 associations, 12 end points, 2 probes, 3 sessions\n"));
  const Result minimal = Run({"check", Example("minimal.yaml")});
  EXPECT_EQ(minimal.status, 0) << minimal.errors;
  EXPECT_THAT(minimal.out, EndsWith("\n1 domain, 1 association, 1 end point, 0 probes, 0 sessions\n"));
  for (const char* element : {"west", "middle", "east"}) {
    const Result result = Run({"check", Example("three-elements/" + std::string(element) + ".yaml")});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_THAT(result.out, StartsWith("domain customer level 5"));
  }
}

TEST_F(Check, TakesTheFileOfTheConfigOptionWhenNoneIsNamed) {
  EXPECT_EQ(Run({"--config", Example("minimal.yaml"), "check"}).status, 0);
  EXPECT_EQ(Run({"check", "--config", Example("minimal.yaml")}).status, 0);
}

TEST_F(Check, ReportsEveryErrorWithFileLineAndKeyAndPrintsNothingElse) {
  const std::string file = File("domains:\n  d:\n    level: 9\n    colour: red\n");
  const Result result = Run({"check", file});
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.out, IsEmpty());
  EXPECT_EQ(result.errors,
            "cfmctl: 2 errors in the configuration file:\n" + file +
                ":3:12: domains.d.level: '9' is out of range; allowed: 0 to 7\n" + file +
                ":4:5: domains.d.colour: is an unknown key; allowed: level, name-format, sender-id, mhf-creation, "
                "associations\n");
}

TEST_F(Check, SaysWhyAFileCannotBeRead) {
  const Result missing = Run({"check", Path("none.yaml")});
  EXPECT_EQ(missing.status, 2);
  EXPECT_THAT(missing.errors, AllOf(HasSubstr(Path("none.yaml")), HasSubstr("No such file or directory")));
  const Result directory = Run({"check", directory_.path().string()});
  EXPECT_EQ(directory.status, 2);
  EXPECT_THAT(directory.errors, HasSubstr("Is a directory"));
}

TEST_F(Check, RefusesAPortThatDoesNotExist) {
  const Result result = Run({"check", File(Replaced(Content(Example("minimal.yaml")), "port: eth0", "port: eth7"))});
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.errors, HasSubstr("there is no interface 'eth7' on this host (did you mean 'eth0'?)"));
}

TEST_F(Check, PrintsJson) {
  const Result result = Run({"check", "--json", Example("metro-ethernet.yaml")});
  EXPECT_EQ(result.status, 0);
  const auto json = nlohmann::json::parse(result.out);
  EXPECT_EQ(json["domains"].size(), 5u);
  EXPECT_EQ(json["probes"].size(), 2u);
}

TEST_F(Check, HasColoursOnATerminalUnlessTheyAreRefused) {
  const std::vector<std::string> command = {CFMCTL, "check", Example("minimal.yaml")};
  const Screen coloured = RunOnTerminal(command, Environment());
  EXPECT_EQ(coloured.status, 0);
  EXPECT_THAT(coloured.text, HasSubstr("\x1b[1mdomain access\x1b[0m"));
  Process::Environment environment = Environment();
  environment["NO_COLOR"] = "1";
  EXPECT_THAT(RunOnTerminal(command, environment).text, AllOf(HasSubstr("domain access"), Not(HasSubstr("\x1b"))));
  EXPECT_THAT(Run({"check", Example("minimal.yaml")}).out, AllOf(StartsWith("domain access"), Not(HasSubstr("\x1b"))));
}

}  // namespace
}  // namespace cfm_test
