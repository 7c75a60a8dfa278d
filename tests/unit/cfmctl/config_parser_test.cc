#include "config_parser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fixed_ports.h"
#include "names.h"

namespace cfmctl {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

ParsedConfig Parse(const std::string& text) {
  return ParseConfig(text, FixedPorts());
}

std::vector<std::string> Errors(const std::string& text) {
  std::vector<std::string> lines;
  for (const ConfigError& error : Parse(text).errors) lines.push_back(FormatError("f", error));
  return lines;
}

/// A domain "d" of level 3 with one association "a"; `lines` are the association's settings.
std::string WithAssociation(const std::string& lines) {
  return "domains:\n  d:\n    level: 3\n    associations:\n      a:\n" + lines;
}

/// End point 1 of that association, in flow style: "port: eth0, ...".
std::string WithEndPoint(const std::string& settings) {
  return WithAssociation("        vlans: [10, 20]\n        end-points: {1: {" + settings + "}}\n");
}

/// Probe 1 from end point 1 to MEP 2, in flow style.
std::string WithProbe(const std::string& settings) {
  return WithAssociation("        mep-ids: [2]\n        end-points: {1: {port: eth0}}\n") + "probes: {1: {" + settings +
         "}}\n";
}

TEST(AMinimalFile, GetsTheUsualValues) {
  const ParsedConfig parsed = Parse(WithAssociation("        end-points: {1: {port: eth0}}\n"));
  ASSERT_THAT(parsed.errors, IsEmpty());
  const cfm::hierarchy_md& md = parsed.model.hierarchy.mds.at("d");
  EXPECT_EQ(md.cfg.format, 4u);
  EXPECT_EQ(md.cfg.level, 3);
  EXPECT_EQ(md.cfg.sender_id, cfm::SenderIdTlvContent::kNone);
  EXPECT_EQ(md.cfg.mhf_creation, cfm::MhfCreationMode::kNone);

  const cfm::hierarchy_ma& ma = md.mas.at("a");
  EXPECT_EQ(ma.md_name, "d");
  EXPECT_EQ(ma.cfg.format, 2u);
  EXPECT_THAT(ma.cfg.vids, IsEmpty());
  EXPECT_EQ(ma.cfg.ccm_interval, cfm::CcmInterval::k1s);
  EXPECT_THAT(ma.cfg.mep_ids, ElementsAre(1));
  EXPECT_EQ(ma.cfg.sender_id, cfm::SenderIdTlvContent::kDefer);
  EXPECT_EQ(ma.cfg.mhf_creation, cfm::MhfCreationMode::kDefer);
  EXPECT_FALSE(ma.cfg.ais.enabled);
  EXPECT_FALSE(ma.cfg.ais.aux_flag);

  const cfm::hierarchy_mep& mep = ma.meps.at(1);
  EXPECT_EQ(mep.md_name, "d");
  EXPECT_EQ(mep.ma_name, "a");
  EXPECT_EQ(mep.cfg.mep_id, 1);
  EXPECT_EQ(mep.cfg.direction, 1u);
  EXPECT_EQ(mep.cfg.port, 3u);
  EXPECT_EQ(mep.cfg.primary_vid, 0);
  EXPECT_EQ(mep.cfg.inner_vid, 0);
  EXPECT_TRUE(mep.cfg.admin_state);
  EXPECT_TRUE(mep.cfg.tx_ccm_enabled);
  EXPECT_EQ(mep.cfg.ccm_priority, 7);
  EXPECT_EQ(mep.cfg.lowest_prio_defect_allowed, cfm::Defects::kMacStatusAndHigher);
  EXPECT_EQ(mep.cfg.fng_alarm_time, 250);
  EXPECT_EQ(mep.cfg.fng_reset_time, 1000);
  EXPECT_EQ(mep.cfg.action, cfm::FaultAction::kNone);
  EXPECT_FALSE(mep.cfg.aux_flag);
}

TEST(AFile, SetsEveryValue) {
  const ParsedConfig parsed = Parse(R"(
domains:
  example.net:
    level: 2
    name-format: dns
    sender-id: chassis-manage
    mhf-creation: explicit
    associations:
      "100":
        name-format: vid
        vlans: [20, 10, 30-32]
        ccm-interval: 300hz
        mep-ids: [5-7, 3]
        sender-id: manage
        mhf-creation: default
        ais: {client-level: 4, period: 1min, client-vlans: [10, 20], priority: 5, suppress-alarms: false}
        end-points:
          3:
            port: eth1
            direction: up
            vlan: 10
            inner-vlan: 77
            enabled: false
            send-ccm: false
            ccm-priority: 1
            lowest-alarm: xcon-ccm
            alarm-time: 2.51s
            reset-time: 3000ms
            fault-action: shutdown
            learn-remote: true
probes:
  9: {domain: example.net, association: "100", local-mep: 3, remote-mep: 6, interval: 5min,
      sessions: {2: {count: 4, interval: 2s, size: 1480, priority: 0}}}
)");
  ASSERT_THAT(parsed.errors, IsEmpty());
  const cfm::hierarchy_md& md = parsed.model.hierarchy.mds.at("example.net");
  EXPECT_EQ(md.cfg.format, 2u);
  EXPECT_EQ(md.cfg.level, 2);
  EXPECT_EQ(md.cfg.sender_id, cfm::SenderIdTlvContent::kChassisManage);
  EXPECT_EQ(md.cfg.mhf_creation, cfm::MhfCreationMode::kExplicit);
  const cfm::hierarchy_ma& ma = md.mas.at("100");
  EXPECT_EQ(ma.cfg.format, 1u);
  EXPECT_THAT(ma.cfg.vids, ElementsAre(20, 10, 30, 31, 32));
  EXPECT_EQ(ma.cfg.ccm_interval, cfm::CcmInterval::k300Hz);
  EXPECT_THAT(ma.cfg.mep_ids, ElementsAre(3, 5, 6, 7));
  EXPECT_EQ(ma.cfg.sender_id, cfm::SenderIdTlvContent::kManage);
  EXPECT_EQ(ma.cfg.mhf_creation, cfm::MhfCreationMode::kDefault);
  EXPECT_TRUE(ma.cfg.ais.enabled);
  EXPECT_EQ(ma.cfg.ais.aux_u8, 4);
  EXPECT_EQ(ma.cfg.ais.aux_u32, 60u);
  EXPECT_THAT(ma.cfg.ais.aux_ids, ElementsAre(10, 20));
  EXPECT_EQ(ma.cfg.ais.aux_u16, 5);
  EXPECT_FALSE(ma.cfg.ais.aux_flag);
  const cfm::st_maintenance_endpoint_cfg& mep = ma.meps.at(3).cfg;
  EXPECT_EQ(mep.direction, 2u);
  EXPECT_EQ(mep.port, 4u);
  EXPECT_EQ(mep.primary_vid, 10);
  EXPECT_EQ(mep.inner_vid, 77);
  EXPECT_FALSE(mep.admin_state);
  EXPECT_FALSE(mep.tx_ccm_enabled);
  EXPECT_EQ(mep.ccm_priority, 1);
  EXPECT_EQ(mep.lowest_prio_defect_allowed, cfm::Defects::kXconCcmOnly);
  EXPECT_EQ(mep.fng_alarm_time, 251);
  EXPECT_EQ(mep.fng_reset_time, 300);
  EXPECT_EQ(mep.action, cfm::FaultAction::kShutdown);
  EXPECT_TRUE(mep.aux_flag);
  const cfm::probe_cfg& probe = parsed.model.probes.probes.at(9);
  EXPECT_EQ(probe.probe_id, 9);
  EXPECT_EQ(probe.interval, 300);
  EXPECT_EQ(probe.md_name, "example.net");
  EXPECT_EQ(probe.ma_name, "100");
  EXPECT_EQ(probe.local_mep_id, 3);
  EXPECT_EQ(probe.remote_mep_id, 6);
  EXPECT_EQ(probe.sessions.at(2).count, 4);
  EXPECT_EQ(probe.sessions.at(2).interval, 2000);
  EXPECT_EQ(probe.sessions.at(2).size, 1480);
  EXPECT_EQ(probe.sessions.at(2).pcp, 0);
}

TEST(AFile, MayWantNothingWhenItSaysSo) {
  const ParsedConfig parsed = Parse("domains: {}\n");
  EXPECT_THAT(parsed.errors, IsEmpty());
  EXPECT_THAT(parsed.model.hierarchy.mds, IsEmpty());
}

TEST(AFile, IsNotAllowedToBeEmpty) {
  for (const char* text : {"", "\n", "# comment\n", "---\n", "~\n"}) {
    EXPECT_THAT(Errors(text), ElementsAre(AllOf(StartsWith("f:1:1: "), HasSubstr("empty")))) << text;
  }
}

TEST(AFile, HasAMappingAtItsTop) {
  EXPECT_THAT(Errors("- domains\n"), ElementsAre(AllOf(StartsWith("f:1:1: has a list"), HasSubstr("domains, probes"))));
  EXPECT_THAT(Errors("hello\n"), ElementsAre(HasSubstr("has 'hello'")));
}

TEST(AFile, MustNameItsDomains) {
  EXPECT_THAT(Errors("probes: {}\n"), ElementsAre(HasSubstr("lacks the key 'domains'")));
  EXPECT_THAT(Errors("domains:\n"), ElementsAre(AllOf(HasSubstr("domains: has no value"), HasSubstr("{}"))));
}

TEST(AFile, WithWrongSyntaxIsReportedWithItsPlace) {
  EXPECT_THAT(Errors("domains:\n  d: [\n"), ElementsAre(AllOf(StartsWith("f:"), HasSubstr("not valid YAML"))));
}

TEST(AnUnknownKey, IsReportedWithItsPlaceTheAllowedOnesAndTheNearest) {
  EXPECT_THAT(Errors("domains:\n  d:\n    level: 3\n    lvel: 3\n"),
              ElementsAre(AllOf(StartsWith("f:4:5: domains.d.lvel: is an unknown key (did you mean 'level'?)"),
                                HasSubstr("allowed: level, name-format"))));
  EXPECT_THAT(Errors(WithEndPoint("port: eth0, fault_action: none")), ElementsAre(HasSubstr("'fault-action'")));
  EXPECT_THAT(Errors("domain: {}\n"), ElementsAre(HasSubstr("(did you mean 'domains'?)"), HasSubstr("lacks")));
}

TEST(ADuplicateKey, IsReportedAtEveryDepth) {
  EXPECT_THAT(Errors("domains: {}\ndomains: {}\n"),
              ElementsAre(AllOf(StartsWith("f:2:1: domains: "), HasSubstr("second time, first in line 1"))));
  EXPECT_THAT(Errors("domains:\n  d: {level: 1}\n  d: {level: 2}\n"), ElementsAre(StartsWith("f:3:3: domains.d: is")));
  EXPECT_THAT(Errors(WithAssociation("        ccm-interval: 1s\n        ccm-interval: 1s\n")),
              ElementsAre(HasSubstr("ccm-interval: is here for the second time, first in line 6")));
  EXPECT_THAT(Errors(WithAssociation("        {}\n      a: {}\n")), ElementsAre(HasSubstr("second time")));
}

TEST(ADuplicateKey, IsOneNumberInTwoSpellings) {
  EXPECT_THAT(Errors(WithAssociation("        end-points: {1: {port: eth0}, 01: {port: eth1}}\n")),
              ElementsAre(HasSubstr("end-points.01: is here for the second time")));
}

TEST(EveryError, OfAFileIsReportedInTheOrderOfTheFile) {
  const std::vector<std::string> errors = Errors(R"(
domains:
  d:
    level: 8
    sender-id: nobody
    associations:
      a:
        ccm-interval: 2s
        end-points:
          1: {port: nope, ccm-priority: 9}
          9000: {port: eth0}
probes: {0: {}}
)");
  EXPECT_THAT(errors, ElementsAre(StartsWith("f:4:12: domains.d.level: '8' is out of range; allowed: 0 to 7"),
                                  StartsWith("f:5:16: domains.d.sender-id: 'nobody' is unknown"),
                                  StartsWith("f:8:23: domains.d.associations.a.ccm-interval: '2s' is unknown"),
                                  StartsWith("f:10:21: domains.d.associations.a.end-points.1.port: there is no"),
                                  StartsWith("f:10:41: domains.d.associations.a.end-points.1.ccm-priority: '9'"),
                                  StartsWith("f:11:11: domains.d.associations.a.end-points.9000: '9000' is out of"),
                                  StartsWith("f:12:10: probes.0: '0' is out of range; allowed: 1 to 65535")));
}

TEST(ALevel, IsRequiredAndZeroToSeven) {
  EXPECT_THAT(Errors("domains: {d: {}}\n"), ElementsAre(HasSubstr("lacks the key 'level'; allowed: 0 to 7")));
  EXPECT_THAT(Errors("domains: {d: {level: 0}, e: {level: 7}}\n"), IsEmpty());
  for (const char* level : {"8", "-1", "256", "4294967296", "high", "3.0", "[3]", "{}", "~", "''"}) {
    EXPECT_THAT(Errors(std::string("domains: {d: {level: ") + level + "}}\n"), SizeIs(1)) << level;
  }
}

TEST(ADomainName, MustFitItsFormat) {
  EXPECT_THAT(Errors("domains: {'': {level: 1}}\n"), ElementsAre(HasSubstr("empty name")));
  EXPECT_THAT(Errors("domains: {" + std::string(44, 'x') + ": {level: 1}}\n"), ElementsAre(HasSubstr("44 octets")));
  EXPECT_THAT(Errors("domains: {\"a\\tb\": {level: 1}}\n"), ElementsAre(HasSubstr("a\\x09b")));
  EXPECT_THAT(Errors("domains: {abc: {level: 1, name-format: mac}}\n"),
              ElementsAre(HasSubstr("name of format mac: 'abc' is not")));
}

TEST(AnAssociationName, MustFitItsFormat) {
  EXPECT_THAT(Errors(WithAssociation("        name-format: uint16\n")),
              ElementsAre(AllOf(StartsWith("f:5:7: "), HasSubstr("name of format uint16: 'a' is not an integer"))));
  EXPECT_THAT(Errors(WithAssociation("        name-format: 802.1q\n")),
              ElementsAre(HasSubstr("allowed: vid, string, uint16, vpn-id, icc")));
}

std::string TwoNames(std::size_t md, std::size_t ma, const std::string& md_format) {
  return "domains: {" + std::string(md, 'm') + ": {level: 1, name-format: " + md_format + ", associations: {" +
         std::string(ma, 'a') + ": {}}}}\n";
}

TEST(TheTwoNames, AreAtMost44OctetsTogether) {
  EXPECT_THAT(Errors(TwoNames(43, 1, "string")), IsEmpty());
  EXPECT_THAT(Errors(TwoNames(43, 2, "string")), ElementsAre(HasSubstr("43 and 2 octets long; allowed: 44 together")));
  EXPECT_THAT(Errors(TwoNames(1, 43, "string")), IsEmpty());
  EXPECT_THAT(Errors(TwoNames(1, 44, "string")), SizeIs(1));
}

TEST(TheTwoNames, WithoutADomainNameLeave45OctetsToTheAssociation) {
  EXPECT_THAT(Errors(TwoNames(43, 45, "none")), IsEmpty());
  EXPECT_THAT(Errors(TwoNames(43, 46, "none")), SizeIs(1));
}

TEST(AnIccName, NeedsADomainWithoutAName) {
  EXPECT_THAT(Errors(WithAssociation("        name-format: icc\n")), ElementsAre(HasSubstr("only in domains of")));
  EXPECT_THAT(Errors("domains: {d: {level: 1, name-format: none, associations: {A: {name-format: icc}}}}\n"),
              IsEmpty());
}

TEST(TwoAssociations, OfOneLevelMustDifferInTheirCcms) {
  const std::string both = "associations: {'7': {name-format: uint16}}";
  EXPECT_THAT(Errors("domains: {d: {level: 1, name-format: none, " + both + "}, e: {level: 1, name-format: none, " +
                     both + "}}\n"),
              ElementsAre(AllOf(HasSubstr("domains.e.associations.7: has the same identifier (MAID)"),
                                HasSubstr("domains.d.associations.7"))));
  EXPECT_THAT(Errors("domains: {d: {level: 1, name-format: none, " + both + "}, e: {level: 2, name-format: none, " +
                     both + "}}\n"),
              IsEmpty());
  EXPECT_THAT(Errors("domains: {d: {level: 1, " + both + "}, e: {level: 1, " + both + "}}\n"), IsEmpty());
  EXPECT_THAT(Errors("domains: {d: {level: 1, associations: {'7': {name-format: uint16}, '07': {name-format: "
                     "uint16}}}}\n"),
              ElementsAre(HasSubstr("same identifier")));
}

TEST(AVlanList, HoldsNumbersAndRangesFrom1To4094) {
  const auto vlans = [](const std::string& list) { return Errors(WithAssociation("        vlans: " + list + "\n")); };
  EXPECT_THAT(vlans("[1, 4094]"), IsEmpty());
  EXPECT_THAT(vlans("100"), IsEmpty());
  EXPECT_THAT(vlans("[]"), IsEmpty());
  EXPECT_THAT(vlans("100-200"), IsEmpty());
  EXPECT_THAT(vlans("[0]"), ElementsAre(HasSubstr("'0' is out of range; allowed: a list of 1 to 4094")));
  EXPECT_THAT(vlans("[4095, 5000]"), SizeIs(2));
  EXPECT_THAT(vlans("[20-10]"), SizeIs(1));
  EXPECT_THAT(vlans("[1-4095]"), SizeIs(1));
  EXPECT_THAT(vlans("[1-18446744073709551615]"), SizeIs(1));
  EXPECT_THAT(vlans("[10, 5-15]"), ElementsAre(HasSubstr("10 is listed twice")));
  EXPECT_THAT(vlans("[ten]"), ElementsAre(HasSubstr("'ten' is not a number or range")));
  EXPECT_THAT(vlans("{1: 2}"), SizeIs(1));
  EXPECT_THAT(vlans("[[1]]"), SizeIs(1));
  EXPECT_THAT(vlans(""), ElementsAre(HasSubstr("has no value")));
}

TEST(AMepId, IsOneTo8191) {
  EXPECT_THAT(Errors(WithAssociation("        end-points: {1: {port: eth0}, 8191: {port: eth0}}\n")), IsEmpty());
  EXPECT_THAT(Errors(WithAssociation("        end-points: {0: {port: eth0}, 8192: {port: eth0}, x: {port: eth0}}\n")),
              ElementsAre(HasSubstr("1 to 8191"), HasSubstr("1 to 8191"), HasSubstr("1 to 8191")));
  EXPECT_THAT(Errors(WithAssociation("        mep-ids: [0, 8192]\n")), SizeIs(2));
}

TEST(ThePort, IsAnInterfaceOfThisHost) {
  EXPECT_THAT(Errors(WithEndPoint("direction: up")), ElementsAre(HasSubstr("lacks the key 'port'")));
  EXPECT_THAT(Errors(WithEndPoint("port: eth9")),
              ElementsAre(AllOf(HasSubstr("there is no interface 'eth9'"), HasSubstr("did you mean 'eth0'"))));
  EXPECT_THAT(Errors(WithEndPoint("port: [eth0]")), SizeIs(1));
}

TEST(TheVlanOfAnEndPoint, IsTheFirstOfItsAssociationUnlessGiven) {
  const auto vid = [](const std::string& settings) {
    return Parse(WithEndPoint(settings)).model.hierarchy.mds.at("d").mas.at("a").meps.at(1).cfg.primary_vid;
  };
  EXPECT_EQ(vid("port: eth0"), 10);
  EXPECT_EQ(vid("port: eth0, vlan: 20"), 20);
}

TEST(TheVlanOfAnEndPoint, IsOneOfItsAssociation) {
  EXPECT_THAT(Errors(WithEndPoint("port: eth0, vlan: 30")), ElementsAre(HasSubstr("allowed: 10, 20")));
  EXPECT_THAT(Errors(WithEndPoint("port: eth0, vlan: untagged")), SizeIs(1));
  EXPECT_THAT(Errors(WithEndPoint("port: eth0, vlan: 4095")), SizeIs(1));
  EXPECT_THAT(Errors(WithAssociation("        end-points: {1: {port: eth0, vlan: 10}}\n")),
              ElementsAre(HasSubstr("untagged")));
  EXPECT_THAT(Errors(WithAssociation("        end-points: {1: {port: eth0, vlan: untagged}}\n")), IsEmpty());
}

TEST(AnInnerVlan, NeedsAnOuterOne) {
  EXPECT_THAT(Errors(WithEndPoint("port: eth0, inner-vlan: 5")), IsEmpty());
  EXPECT_THAT(Errors(WithEndPoint("port: eth0, inner-vlan: none")), IsEmpty());
  EXPECT_THAT(Errors(WithEndPoint("port: eth0, inner-vlan: 0")), SizeIs(1));
  EXPECT_THAT(Errors(WithAssociation("        end-points: {1: {port: eth0, inner-vlan: 5}}\n")),
              ElementsAre(HasSubstr("without an outer one")));
}

TEST(AnEndPoint, HasValuesOfTheRightKind) {
  for (const char* wrong : {"enabled: yes", "enabled: 1", "send-ccm: [true]", "ccm-priority: 8", "ccm-priority: high",
                            "lowest-alarm: rdi", "fault-action: explode", "direction: left", "learn-remote: ~"}) {
    EXPECT_THAT(Errors(WithEndPoint(std::string("port: eth0, ") + wrong)),
                ElementsAre(AllOf(StartsWith("f:7:"), HasSubstr("; allowed: "))))
        << wrong;
  }
}

TEST(TheFaultNotificationTimes, AreTwoAndAHalfToTenSecondsInStepsOfTenMilliseconds) {
  EXPECT_THAT(Errors(WithEndPoint("port: eth0, alarm-time: 2.5s, reset-time: 10s")), IsEmpty());
  for (const char* time : {"2.49s", "10.01s", "2.505s", "1min", "10ms"}) {
    EXPECT_THAT(Errors(WithEndPoint(std::string("port: eth0, alarm-time: ") + time)),
                ElementsAre(HasSubstr("allowed: 2.5s to 10s in steps of 10ms")))
        << time;
  }
  EXPECT_THAT(Errors(WithEndPoint("port: eth0, alarm-time: 3")), ElementsAre(HasSubstr("not a time with a unit")));
}

std::string WithAis(const std::string& settings) {
  return WithAssociation("        ais: {" + settings + "}\n");
}

TEST(Ais, GoesToTheNextLevelUnlessGiven) {
  const auto ais = [](const std::string& settings) {
    return Parse(WithAis(settings)).model.hierarchy.mds.at("d").mas.at("a").cfg.ais;
  };
  EXPECT_TRUE(ais("").enabled);
  EXPECT_EQ(ais("").aux_u8, 4);
  EXPECT_EQ(ais("").aux_u32, 1u);
  EXPECT_EQ(ais("").aux_u16, 7);
  EXPECT_TRUE(ais("").aux_flag);
  EXPECT_EQ(ais("client-level: 7").aux_u8, 7);
}

TEST(Ais, MustGoToAHigherLevel) {
  EXPECT_THAT(Errors(WithAis("client-level: 3")), ElementsAre(HasSubstr("3 is not above the level 3 of the domain; "
                                                                        "allowed: 4 to 7")));
  EXPECT_THAT(Errors("domains: {d: {level: 7, associations: {a: {ais: {}}}}}\n"), ElementsAre(HasSubstr("level 7")));
  EXPECT_THAT(Errors("domains: {d: {level: 7, associations: {a: {ais: {client-level: 7}}}}}\n"), SizeIs(1));
}

TEST(Ais, HasAPeriodOfOneSecondOrOneMinute) {
  EXPECT_THAT(Errors(WithAis("period: 60s")), IsEmpty());
  EXPECT_THAT(Errors(WithAis("period: 2s")), ElementsAre(HasSubstr("allowed: 1s, 1min")));
}

TEST(Ais, ThatIsDisabledIsEqualWhateverElseItSays) {
  const cfm::st_ais_cfg ais = Parse(WithAis("enabled: false, client-level: 5, client-vlans: [7], priority: 3"))
                                  .model.hierarchy.mds.at("d")
                                  .mas.at("a")
                                  .cfg.ais;
  EXPECT_FALSE(ais.enabled);
  EXPECT_EQ(ais.aux_u8, 0);
  EXPECT_EQ(ais.aux_u32, 0u);
  EXPECT_EQ(ais.aux_u16, 0);
  EXPECT_THAT(ais.aux_ids, IsEmpty());
  EXPECT_TRUE(ais.aux_flag);
}

constexpr const char* kGoodProbe = "domain: d, association: a, local-mep: 1, remote-mep: 2, sessions: {1: {}}";

TEST(AProbe, GetsTheUsualValues) {
  const ParsedConfig parsed = Parse(WithProbe(kGoodProbe));
  ASSERT_THAT(parsed.errors, IsEmpty());
  const cfm::probe_cfg& probe = parsed.model.probes.probes.at(1);
  EXPECT_EQ(probe.interval, 60);
  EXPECT_EQ(probe.sessions.at(1).count, 10);
  EXPECT_EQ(probe.sessions.at(1).interval, 100);
  EXPECT_EQ(probe.sessions.at(1).size, 64);
  EXPECT_EQ(probe.sessions.at(1).pcp, 7);
}

TEST(AProbe, MustNameAConfiguredEndPointAndAMepOfItsAssociation) {
  const auto probe = [](const std::string& settings) { return Errors(WithProbe(settings + ", sessions: {1: {}}")); };
  EXPECT_THAT(probe("domain: x, association: a, local-mep: 1, remote-mep: 2"),
              ElementsAre(HasSubstr("probes.1.domain: there is no domain 'x'")));
  EXPECT_THAT(probe("domain: d, association: x, local-mep: 1, remote-mep: 2"),
              ElementsAre(HasSubstr("there is no association 'x' in domain 'd'")));
  EXPECT_THAT(probe("domain: d, association: a, local-mep: 2, remote-mep: 2"),
              ElementsAre(HasSubstr("MEP 2 is no end point"), HasSubstr("towards itself")));
  EXPECT_THAT(probe("domain: d, association: a, local-mep: 1, remote-mep: 3"),
              ElementsAre(HasSubstr("MEP 3 is not in the MEP list")));
  EXPECT_THAT(probe("domain: d, association: a, local-mep: 1, remote-mep: 1"), ElementsAre(HasSubstr("itself")));
  EXPECT_THAT(probe("domain: d, association: a, local-mep: 1"), ElementsAre(HasSubstr("lacks the key 'remote-mep'")));
}

TEST(AProbe, MayStandBeforeTheDomainsInTheFile) {
  EXPECT_THAT(Errors(std::string("probes: {1: {") + kGoodProbe + "}}\n" +
                     WithAssociation("        end-points: {1: {port: eth0}, 2: {port: eth1}}\n")),
              IsEmpty());
}

TEST(AProbe, NeedsSessions) {
  EXPECT_THAT(Errors(WithProbe("domain: d, association: a, local-mep: 1, remote-mep: 2")),
              ElementsAre(HasSubstr("lacks the key 'sessions'")));
}

TEST(AProbe, RunsEvery1To65535Seconds) {
  for (const char* interval : {"1s", "65535s", "18h"}) {
    EXPECT_THAT(Errors(WithProbe(std::string(kGoodProbe) + ", interval: " + interval)), IsEmpty()) << interval;
  }
  for (const char* interval : {"0s", "65536s", "1.5s", "60"}) {
    EXPECT_THAT(Errors(WithProbe(std::string(kGoodProbe) + ", interval: " + interval)), SizeIs(1)) << interval;
  }
}

TEST(ASession, HasBounds) {
  const auto session = [](const std::string& settings) {
    return Errors(
        WithProbe("domain: d, association: a, local-mep: 1, remote-mep: 2, sessions: {1: {" + settings + "}}"));
  };
  EXPECT_THAT(session("count: 1, interval: 10ms, size: 0, priority: 0"), IsEmpty());
  EXPECT_THAT(session("count: 1024, interval: 1min, size: 1480, priority: 7"), IsEmpty());
  EXPECT_THAT(session("count: 0, interval: 9ms, size: 1481, priority: 8"), SizeIs(4));
  EXPECT_THAT(session("count: 1025, interval: 60001ms"), SizeIs(2));
}

TEST(Anchors, SaveWriting) {
  const ParsedConfig parsed = Parse(
      "domains:\n  d:\n    level: 1\n    associations:\n      a: {end-points: {1: &ep {port: eth0, ccm-priority: 3}}}\n"
      "      b: {end-points: {2: *ep}}\n");
  ASSERT_THAT(parsed.errors, IsEmpty());
  EXPECT_EQ(parsed.model.hierarchy.mds.at("d").mas.at("b").meps.at(2).cfg.ccm_priority, 3);
}

TEST(HostileText, InAKeyIsEscapedInItsError) {
  EXPECT_THAT(Errors("\"\\e[2J\": 1\ndomains: {}\n"), ElementsAre(HasSubstr("\\x1b[2J: is an unknown key")));
}

TEST(AliasesOfAliases, CostNoMoreThanTheirText) {
  std::string text = "domains: {}\na0: &a0 [x, x]\n";
  for (int i = 1; i < 60; ++i) {
    const std::string before = "*a" + std::to_string(i - 1);
    text += "a" + std::to_string(i) + ": &a" + std::to_string(i) + " [" + before + ", " + before + "]\n";
  }
  EXPECT_THAT(Errors(text), SizeIs(60));
}

}  // namespace
}  // namespace cfmctl
