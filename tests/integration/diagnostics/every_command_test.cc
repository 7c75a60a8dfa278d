// What holds for every command that asks the server.
#include <gmock/gmock.h>

#include <filesystem>

#include "element.h"

namespace cfm_test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

struct Words {
  std::vector<std::string> words;
};

std::string NameOfWords(const testing::TestParamInfo<Words>& info) {
  std::string name;
  for (const char character : info.param.words.front()) name += character == '-' ? '_' : character;
  return name + "_" + std::to_string(info.index);
}

std::vector<std::string> Plus(std::vector<std::string> words, const std::vector<std::string>& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

class EveryCommand : public Element, public testing::WithParamInterface<Words> {};

TEST_P(EveryCommand, WithoutAServerSaysWhereItLooked) {
  const Result result = Run(Plus(GetParam().words, {"--timeout", "0.2"}));
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.out, IsEmpty());
  EXPECT_THAT(result.errors, AllOf(HasSubstr(directory_.path().string()), HasSubstr("start cfm-mgr")));
}

TEST_P(EveryCommand, EndsWhenTheServerNeverAnswers) {
  PlayAlone("");
  const Result result = Run(Plus(GetParam().words, {"--timeout", "0.5"}));
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.errors, HasSubstr("the server is there but does not answer"));
}

TEST_P(EveryCommand, WithoutAConfigurationFileSendsNothing) {
  Play("");
  std::filesystem::remove(directory_ / "cfm.yaml");
  const Result result = Run(GetParam().words);
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.out, IsEmpty());
  EXPECT_THAT(result.errors, HasSubstr("cfm.yaml"));
  EXPECT_THAT(Requests(), IsEmpty());
}

TEST_P(EveryCommand, WithAWrongConfigurationFileSendsNothing) {
  Play("");
  WriteConfiguration("domains: {operator: {level: 9}}\n");
  const Result result = Run(GetParam().words);
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.out, IsEmpty());
  EXPECT_THAT(result.errors, HasSubstr("cfm.yaml:1:"));
  EXPECT_THAT(Requests(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Diagnostics, EveryCommand,
                         testing::Values(Words{{"status"}}, Words{{"watch"}}, Words{{"stats"}}, Words{{"clear-stats"}},
                                         Words{{"linktrace", "operator", "evc", "1", "2"}},
                                         Words{{"loopback", "operator", "evc", "1", "2"}},
                                         Words{{"delay", "operator", "evc", "1", "2"}}, Words{{"sessions"}}),
                         NameOfWords);

class AWrongCommandLine : public Element, public testing::WithParamInterface<Words> {};

TEST_P(AWrongCommandLine, SendsNothing) {
  Play("");
  const Result result = Run(GetParam().words);
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.out, IsEmpty());
  EXPECT_FALSE(result.errors.empty());
  EXPECT_THAT(Requests(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Diagnostics, AWrongCommandLine,
    testing::Values(Words{{"stats", "operators"}}, Words{{"stats", "operator", "evd"}},
                    Words{{"stats", "operator", "evc", "2"}}, Words{{"stats", "operator", "evc", "8192"}},
                    Words{{"clear-stats", "other"}}, Words{{"clear-stats", "operator", "evd"}},
                    Words{{"clear-stats", "operator", "evc", "3"}}, Words{{"linktrace", "operators", "evc", "1", "2"}},
                    Words{{"linktrace", "operator", "evc", "1"}}, Words{{"linktrace", "operator", "evc", "1", "4"}},
                    Words{{"linktrace", "operator", "evc", "1", "2", "--ttl", "256"}},
                    Words{{"loopback", "operator", "evd", "1", "2"}}, Words{{"loopback", "operator", "evc", "2", "1"}},
                    Words{{"loopback", "operator", "evc", "1", "1"}}, Words{{"loopback", "operator", "evc", "1", "4"}},
                    Words{{"loopback", "operator", "evc", "1", "2", "--count", "0"}},
                    Words{{"loopback", "operator", "evc", "1", "2", "--size", "1481"}},
                    Words{{"delay", "operator", "evc", "3", "1"}}, Words{{"delay", "operator", "evc", "1", "4"}},
                    Words{{"delay", "operator", "evc", "1", "2", "--interval", "9ms"}},
                    Words{{"delay", "operator", "evc", "1", "2", "--interval", "10.5ms"}},
                    Words{{"delay", "operator", "evc", "1", "2", "--priority", "8"}},
                    Words{{"sessions", "--count", "0"}}),
    NameOfWords);

TEST_F(Element, SuggestsTheNameThatWasMeant) {
  EXPECT_EQ(Run({"stats", "operatr"}).errors,
            "cfmctl: the configuration file has no domain operatr; did you mean operator?\n");
  EXPECT_EQ(Run({"loopback", "operator", "evc", "2", "1"}).errors,
            "cfmctl: association operator/evc has no end point 2 on this element; it has 1\n");
  EXPECT_EQ(Run({"delay", "operator", "evc", "1", "9"}).errors,
            "cfmctl: MEP 9 is not in the MEP list of association operator/evc: 1-3\n");
}

}  // namespace
}  // namespace cfm_test
