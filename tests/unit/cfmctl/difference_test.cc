#include "difference.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "config_parser.h"
#include "fixed_ports.h"
#include "render.h"

namespace cfmctl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kBase = R"(
domains:
  d1:
    level: 3
    associations:
      a1: {vlans: [10], end-points: {1: {port: eth0}, 2: {port: eth1}}}
      a2: {vlans: [20], end-points: {3: {port: eth0}}}
  d2: {level: 4}
probes:
  7: {domain: d1, association: a1, local-mep: 1, remote-mep: 2, sessions: {1: {}, 2: {}}}
)";

Model ModelOf(const std::string& text) {
  ParsedConfig parsed = ParseConfig(text, FixedPorts());
  for (const ConfigError& error : parsed.errors) ADD_FAILURE() << FormatError("test", error);
  return std::move(parsed.model);
}

std::string Replaced(std::string text, const std::string& what, const std::string& with) {
  const std::size_t at = text.find(what);
  EXPECT_NE(at, std::string::npos) << what;
  return text.replace(at, what.size(), with);
}

std::vector<std::string> Lines(const Model& from, const Model& to) {
  std::ostringstream out;
  RenderChanges(Compare(from, to, FixedPorts()), 1000, Style(false), out);
  std::vector<std::string> lines;
  std::istringstream in(out.str());
  for (std::string line; std::getline(in, line);) lines.push_back(line.substr(2));
  return lines;
}

std::vector<std::string> Change(const std::string& what, const std::string& with) {
  return Lines(ModelOf(kBase), ModelOf(Replaced(kBase, what, with)));
}

TEST(TheDifference, OfEqualModelsIsEmpty) {
  EXPECT_THAT(Lines(ModelOf(kBase), ModelOf(kBase)), IsEmpty());
}

TEST(TheDifference, FromNothingIsEverythingCreatedParentsFirst) {
  EXPECT_THAT(
      Lines(Model{}, ModelOf(kBase)),
      ElementsAre("+ created domain d1", "+ created association d1/a1", "+ created end point d1/a1/1",
                  "+ created end point d1/a1/2", "+ created association d1/a2", "+ created end point d1/a2/3",
                  "+ created domain d2", "+ created probe 7", "+ created session 7.1", "+ created session 7.2"));
}

TEST(TheDifference, ToNothingIsEverythingDeleted) {
  const Difference difference = Compare(ModelOf(kBase), Model{}, FixedPorts());
  EXPECT_EQ(difference.CountOf(Action::kDeleted), 10u);
  EXPECT_EQ(CountsText(difference), "created 0, updated 0, replaced 0, deleted 10");
}

TEST(TheDifference, CountsAnObjectAsUpdatedOnlyWhenASettingDiffers) {
  EXPECT_THAT(Change("{port: eth1}", "{port: eth1, enabled: false, alarm-time: 3s}"),
              ElementsAre("~ updated end point d1/a1/2: enabled true -> false, alarm-time 2.5s -> 3s"));
  EXPECT_THAT(Change("vlans: [20],", "vlans: [20], mep-ids: [4], ccm-interval: 10ms,"),
              ElementsAre("~ updated association d1/a2: ccm-interval 1s -> 10ms, mep-ids [3] -> [3,4]"));
  EXPECT_THAT(Change("{level: 4}", "{level: 4, sender-id: chassis}"),
              ElementsAre("~ updated domain d2: sender-id none -> chassis"));
}

TEST(TheDifference, ShowsAisThatComesAndGoes) {
  const std::string with = Replaced(kBase, "vlans: [20],", "vlans: [20], ais: {client-vlans: [9]},");
  EXPECT_THAT(Lines(ModelOf(kBase), ModelOf(with)),
              ElementsAre("~ updated association d1/a2: ais.enabled false -> true, ais.suppress-alarms false -> true, "
                          "ais.client-level none -> 4, ais.period none -> 1s, ais.client-vlans none -> [9], "
                          "ais.priority none -> 7"));
  EXPECT_THAT(Lines(ModelOf(with), ModelOf(kBase)).size(), 1u);
}

TEST(TheDifference, ReplacesEverythingBelowADomainThatChangesItsLevel) {
  EXPECT_THAT(
      Change("level: 3", "level: 2"),
      ElementsAre("! replaced domain d1: level 3 -> 2", "! replaced association d1/a1 with its parent",
                  "! replaced end point d1/a1/1 with its parent", "! replaced end point d1/a1/2 with its parent",
                  "! replaced association d1/a2 with its parent", "! replaced end point d1/a2/3 with its parent"));
}

TEST(TheDifference, ReplacesEverythingBelowAnAssociationThatChangesItsVlans) {
  EXPECT_THAT(Change("vlans: [20]", "vlans: [20, 21]"),
              ElementsAre("! replaced association d1/a2: vlans [20] -> [20,21]",
                          "! replaced end point d1/a2/3 with its parent"));
}

TEST(TheDifference, TakesTheOrderOfVlansSeriously) {
  const std::string ordered = Replaced(kBase, "vlans: [20],", "vlans: [20, 30],");
  EXPECT_THAT(Lines(ModelOf(ordered), ModelOf(Replaced(ordered, "3: {port: eth0}", "3: {port: eth0, vlan: 20}"))),
              IsEmpty());
  EXPECT_EQ(Lines(ModelOf(ordered), ModelOf(Replaced(ordered, "[20, 30]", "[30, 20]"))).size(), 2u);
}

TEST(TheDifference, ReplacesAnEndPointThatMoves) {
  EXPECT_THAT(Change("3: {port: eth0}", "3: {port: eth1}"),
              ElementsAre("! replaced end point d1/a2/3: port eth0 -> eth1, ifindex 3 -> 4"));
  EXPECT_THAT(Change("3: {port: eth0}", "3: {port: eth0, direction: up}"),
              ElementsAre("! replaced end point d1/a2/3: direction down -> up"));
  EXPECT_THAT(Change("3: {port: eth0}", "3: {port: eth0, inner-vlan: 5}"),
              ElementsAre("! replaced end point d1/a2/3: inner-vlan none -> 5"));
}

TEST(TheDifference, TellsProbesAndSessionsApart) {
  EXPECT_THAT(Change("{1: {}, 2: {}}", "{1: {count: 11}, 3: {}}"),
              ElementsAre("~ updated session 7.1: count 10 -> 11", "- deleted session 7.2", "+ created session 7.3"));
  EXPECT_THAT(Change("remote-mep: 2", "remote-mep: 2, interval: 61s"),
              ElementsAre("~ updated probe 7: interval 1min -> 61s"));
}

TEST(TheDifference, EscapesNamesThatCameFromTheServer) {
  Model server;
  server.hierarchy.mds["\x1b[2J"];
  EXPECT_THAT(Lines(server, Model{}), ElementsAre("- deleted domain \\x1b[2J"));
}

TEST(TheDifference, IsListedUpToALimit) {
  std::ostringstream out;
  RenderChanges(Compare(Model{}, ModelOf(kBase), FixedPorts()), 2, Style(false), out);
  EXPECT_EQ(out.str(), "  + created domain d1\n  + created association d1/a1\n  ... and 8 more\n");
}

TEST(AStepBefore, IsNeededOnlyForNameFormats) {
  EXPECT_FALSE(StepBefore(ModelOf(kBase), ModelOf(kBase)));
  EXPECT_FALSE(StepBefore(Model{}, ModelOf(kBase)));
  EXPECT_FALSE(StepBefore(ModelOf(kBase), ModelOf(Replaced(kBase, "level: 3", "level: 2\n    name-format: dns"))));
  const std::string named = Replaced(kBase, "a2: {vlans: [20]", "'42': {vlans: [20]");
  EXPECT_FALSE(StepBefore(ModelOf(named),
                          ModelOf(Replaced(named, "'42': {vlans: [20]", "'42': {name-format: uint16, vlans: [21]"))));
}

TEST(AStepBefore, LeavesOutADomainWhoseFormatChangesAndTheProbesInIt) {
  const auto step = StepBefore(ModelOf(kBase), ModelOf(Replaced(kBase, "level: 3", "level: 3\n    name-format: dns")));
  ASSERT_TRUE(step);
  EXPECT_FALSE(step->hierarchy.mds.contains("d1"));
  EXPECT_TRUE(step->hierarchy.mds.contains("d2"));
  EXPECT_THAT(step->probes.probes, IsEmpty());
}

TEST(AStepBefore, LeavesOutAnAssociationWhoseFormatChanges) {
  const std::string named = Replaced(kBase, "a2: {", "'42': {");
  const std::string number = Replaced(named, "'42': {", "'42': {name-format: uint16, ");
  const auto step = StepBefore(ModelOf(named), ModelOf(number));
  ASSERT_TRUE(step);
  EXPECT_FALSE(step->hierarchy.mds.at("d1").mas.contains("42"));
  EXPECT_TRUE(step->hierarchy.mds.at("d1").mas.contains("a1"));
  EXPECT_EQ(step->probes.probes.size(), 1u);
  EXPECT_THAT(Lines(ModelOf(named), ModelOf(number)),
              ElementsAre("! replaced association d1/42: name-format string -> uint16",
                          "! replaced end point d1/42/3 with its parent"));
}

}  // namespace
}  // namespace cfmctl
