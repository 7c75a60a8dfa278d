#include "render.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "config_parser.h"
#include "fixed_ports.h"
#include "settings_list.h"
#include "terminal.h"

namespace cfmctl {
namespace {

constexpr const char* kFile = R"(
domains:
  provider:
    level: 4
    sender-id: chassis
    mhf-creation: default
    associations:
      evc:
        vlans: [100, 101, 102, 200]
        ccm-interval: 3.3ms
        mep-ids: [1, 2]
        ais: {client-vlans: 100}
        end-points:
          1: {port: eth0, inner-vlan: 7, enabled: false, send-ccm: false, fault-action: block, learn-remote: true}
  quiet: {level: 0, name-format: none}
probes:
  1: {domain: provider, association: evc, local-mep: 1, remote-mep: 2, sessions: {1: {count: 1}}}
)";

Model Parse() {
  ParsedConfig parsed = ParseConfig(kFile, FixedPorts());
  EXPECT_TRUE(parsed.errors.empty());
  return std::move(parsed.model);
}

std::string Tree(const Model& model, bool coloured = false) {
  std::ostringstream out;
  RenderTree(model, FixedPorts(), Style(coloured), out);
  return out.str();
}

std::string JsonText(const Model& model) {
  std::ostringstream out;
  RenderJson(model, FixedPorts(), out);
  return out.str();
}

TEST(TheTree, SaysEverythingInWords) {
  EXPECT_EQ(Tree(Parse()),
            "domain provider level 4, name format string, Sender ID chassis, MIPs default\n"
            "  association evc VLANs 100-102,200, CCMs every 3.3 ms, name format string, MEPs 1,2\n"
            "    AIS to level 5 every 1s, VLAN 100, priority 7, received AIS suppresses loss alarms\n"
            "    end point 1 down on eth0 (ifindex 3), VLAN 100, inner VLAN 7, disabled, sends no CCMs, priority 7, "
            "alarms from mac-status up after 2.5s, reset after 10s, on a fault: block, learns remote MEPs\n"
            "domain quiet level 0, name not sent, no Sender ID, no MIPs\n"
            "probe 1 in provider/evc from MEP 1 to MEP 2 every 1min\n"
            "  session 1 1 message, one every 100ms, 64 octets of data, priority 7\n"
            "2 domains, 1 association, 1 end point, 1 probe, 1 session\n");
}

TEST(TheTree, OfNothingSaysSo) {
  EXPECT_EQ(Tree(Model{}), "no configuration\n");
}

TEST(TheTree, ShowsCodesAndPortsThatItDoesNotKnow) {
  Model model;
  auto& ma = model.hierarchy.mds["d"].mas["a"];
  ma.meps[1].cfg.port = 99;
  const std::string tree = Tree(model);
  EXPECT_THAT(tree, testing::HasSubstr("Sender ID code 0"));
  EXPECT_THAT(tree, testing::HasSubstr("CCM interval of unknown code 0"));
  EXPECT_THAT(tree, testing::HasSubstr("code 0 on ifindex 99 (not on this host)"));
}

TEST(TheTree, CannotBeDrivenByNames) {
  Model model;
  model.hierarchy.mds["\x1b[2Jd"].mas["\r\n"];
  model.probes.probes[1].md_name = "\a";
  const std::string tree = Tree(model);
  for (const char control : {'\x1b', '\r', '\a'}) EXPECT_EQ(tree.find(control), std::string::npos);
}

TEST(TheTree, HasColoursOnlyWhenAsked) {
  EXPECT_EQ(Tree(Parse()).find('\x1b'), std::string::npos);
  EXPECT_NE(Tree(Parse(), true).find("\x1b[1mdomain provider\x1b[0m"), std::string::npos);
}

TEST(TheJson, HasTheKeysOfTheConfigurationFile) {
  const auto json = nlohmann::json::parse(JsonText(Parse()));
  const auto& domain = json["domains"][0];
  EXPECT_EQ(domain["name"], "provider");
  EXPECT_EQ(domain["level"], 4);
  EXPECT_EQ(domain["sender-id"], "chassis");
  const auto& association = domain["associations"][0];
  EXPECT_EQ(association["name"], "evc");
  EXPECT_EQ(association["vlans"], nlohmann::json({100, 101, 102, 200}));
  EXPECT_EQ(association["ccm-interval"], "3.3ms");
  EXPECT_EQ(association["ais"]["client-level"], 5);
  EXPECT_EQ(association["ais"]["enabled"], true);
  const auto& end_point = association["end-points"][0];
  EXPECT_EQ(end_point["mep-id"], 1);
  EXPECT_EQ(end_point["port"], "eth0");
  EXPECT_EQ(end_point["ifindex"], 3);
  EXPECT_EQ(end_point["enabled"], false);
  EXPECT_EQ(json["domains"][1]["associations"], nlohmann::json::array());
  EXPECT_EQ(json["probes"][0]["id"], 1);
  EXPECT_EQ(json["probes"][0]["sessions"][0]["count"], 1);
}

TEST(TheJson, OfNothingHasEmptyLists) {
  EXPECT_EQ(JsonText(Model{}), "{\"domains\":[],\"probes\":[]}\n");
}

TEST(TheJson, IsValidWhateverTheNamesHold) {
  Model model;
  model.hierarchy.mds["\xff\x01\"\\"];
  EXPECT_TRUE(nlohmann::json::accept(JsonText(model)));
}

TEST(Ranges, AreWrittenShort) {
  EXPECT_EQ(RangesText({}), "");
  EXPECT_EQ(RangesText({5}), "5");
  EXPECT_EQ(RangesText({5, 6}), "5,6");
  EXPECT_EQ(RangesText({5, 6, 7, 9, 8}), "5-7,9,8");
}

TEST(TheProgressBar, FillsUp) {
  EXPECT_EQ(ProgressText(0, 2000, 10), "[..........]   0% 0 of 2,000");
  EXPECT_EQ(ProgressText(1000, 2000, 10), "[#####.....]  50% 1,000 of 2,000");
  EXPECT_EQ(ProgressText(2000, 2000, 10), "[##########] 100% 2,000 of 2,000");
  EXPECT_EQ(ProgressText(2001, 2000, 10), "[##########] 100% 2,000 of 2,000");
  EXPECT_EQ(ProgressText(0, 0, 4), "[####] 100% 0 of 0");
}

}  // namespace
}  // namespace cfmctl
