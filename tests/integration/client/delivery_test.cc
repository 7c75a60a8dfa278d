// What a peer in the server's place sends reaches the application through the real bus, well-formed or not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "element.h"

namespace cfm_test {
namespace {

struct Delivery {
  std::string name;
  std::string statement;           // of the peer's script
  std::vector<std::string> lines;  // of the application
};

void PrintTo(const Delivery& delivery, std::ostream* stream) {
  *stream << delivery.statement;
}

class APeer : public testing::Test {
 protected:
  APeer() {
    application_.Run();
    EXPECT_EQ(application_.NextLine(), "found");
    application_.AwaitLine("synchronised");
    // The peer answers whoever it heard last from here on.
    peer_.Tell("wait STATUS_GET_ALL");
  }

  // The application's lines up to the marker that this sends after what was sent before.
  std::vector<std::string> LinesUpToMarker() {
    peer_.Play("event REMOVED_LOCAL_MEP md_name: \"marker\" ma_name: \"-\" local_mep_id: 1");
    std::vector<std::string> lines;
    for (std::string line = application_.NextLine(); line != "local-removed marker - 1" && !line.empty();
         line = application_.NextLine()) {
      lines.push_back(line);
    }
    return lines;
  }

  TempDir directory_;
  Peer peer_{directory_, "on CACHE_GET reply CACHE_REPLY"};
  Application application_{directory_};
};

class EachMessage : public APeer, public testing::WithParamInterface<Delivery> {};

TEST_P(EachMessage, ReachesTheApplication) {
  peer_.Play(GetParam().statement);
  EXPECT_EQ(LinesUpToMarker(), GetParam().lines);
}

const std::string kNoMac = "00:00:00:00:00:00";

INSTANTIATE_TEST_SUITE_P(
    WellFormed, EachMessage,
    testing::Values(
        Delivery{
            "LocalStatus",
            R"(event STATUS_LOCAL_MEP md_name: "d" ma_name: "a" mac: "\002\000\000\000\000\001" local_mep_id: 65537)"
            R"( highest_defect: 5 intf_status: 257 port_state: 2 block_state: 3 shutdown_state: 4 rdi: true)"
            R"( defect_mac_status: true defect_error_ccm: true defect_ais: true)",
            {"local-status d a 1 02:00:00:00:00:01 rdi 1 intf_status 1 port_state 2 block_state 3 shutdown_state 4 "
             "highest_defect 5 defects 0 1 0 1 0 1"}},
        Delivery{
            "RemoteStatus",
            R"(event STATUS_REMOTE_MEP md_name: "d" ma_name: "a" mac: "\377\377\377\377\377\376" sender_id: "west")"
            R"( local_mep_id: 1 remote_mep_id: 8191 fsm_state: 4 port_state: 2 intf_status: 1 rdi: true)"
            R"( last_change_uptime: 18446744073709551615)",
            {"remote-status d a 1 8191 ff:ff:ff:ff:ff:fe fsm_state 4 last_change 18446744073709551615 rdi 1 "
             "port_state 2 intf_status 1 sender_id west"}},
        Delivery{"LocalRemoved",
                 R"(event REMOVED_LOCAL_MEP md_name: "d" ma_name: "a" local_mep_id: 3)",
                 {"local-removed d a 3"}},
        Delivery{"RemoteRemoved",
                 R"(event REMOVED_REMOTE_MEP md_name: "d" ma_name: "a" local_mep_id: 3 remote_mep_id: 4)",
                 {"remote-removed d a 3 4"}},
        Delivery{"LinktraceStarted",
                 R"(event LINKTRACE_STARTED md_name: "d" ma_name: "a" target_mac: "\002\000\000\000\000\001" mep_id: 1)"
                 R"( transaction_id: 99 target_mep_id: 2 optional_value: 64)",
                 {"linktrace-started d a 1 99 02:00:00:00:00:01 2 1 64",
                  "linktrace-started d a 1 99 02:00:00:00:00:01 2 1 64"}},
        Delivery{"LinktraceEnded",
                 R"(event LINKTRACE_ENDED md_name: "d" ma_name: "a" mep_id: 1 transaction_id: 99)",
                 {"linktrace-ended d a 1 99", "linktrace-ended d a 1 99"}},
        Delivery{"LoopbackStarted",
                 R"(event LOOPBACK_STARTED target_mac: "\002\000\000\000\000\001" trigger_id: 7)",
                 {"loopback-started 7 02:00:00:00:00:01"}},
        Delivery{"LoopbackReply",
                 R"(event LOOPBACK_REPLY_RX source_mac: "\002\000\000\000\000\001" trigger_id: 7 transaction_id: 8)",
                 {"loopback-reply 7 8 02:00:00:00:00:01"}},
        Delivery{"LoopbackEnded",
                 "event LOOPBACK_ENDED expected: 10 in_order: 7 out_of_order: 2 wrong_payload: 1 trigger_id: 7",
                 {"loopback-ended 7 10 7 2 1"}},
        Delivery{"DelayMeasurementStarted",
                 R"(event DELAY_MEASUREMENT_STARTED target_mac: "\002\000\000\000\000\001" trigger_id: 7)",
                 {"delay-started 7 02:00:00:00:00:01"}},
        Delivery{"DelayMeasurementReply",
                 R"(event DELAY_MEASUREMENT_REPLY_RX source_mac: "\002\000\000\000\000\001" trigger_id: 7)",
                 {"delay-reply 7 02:00:00:00:00:01"}},
        Delivery{"DelayMeasurementEnded",
                 "event DELAY_MEASUREMENT_ENDED rx_count: 9 tx_count: 10 dm_result_1: 1.5 dm_result_2: 2.5"
                 " dm_result_3: 3.5 dm_result_4: 4.5 dm_result_5: 5.5 dm_result_6: 6.5 dm_result_7: 64 trigger_id: 7",
                 {"delay-ended 7 9 10 1.5 2.5 3.5 4.5 5.5 6.5 64"}},
        Delivery{
            "DelayMeasurementSessionEnded",
            "event DELAY_MEASUREMENT_SESSION_ENDED report_u32_1: 1 report_u32_2: 2 report_flag: 257 report_u32_3: 3"
            " report_u32_4: 4 report_u32_5: 5 report_u32_6: 6 report_u32_7: 7 report_u32_8: 8 report_double_1: 0.5"
            " report_double_2: 1.5 report_u32_9: 9 report_u32_10: 10 report_u32_11: 11 report_u32_12: 12"
            " report_u32_13: 13 report_u32_14: 14 report_double_3: 2.5 report_double_4: 3.5",
            {"session-ended 1 2 1 3 4 5 6 7 8 0.5 1.5 9 10 11 12 13 14 2.5 3.5"}},
        Delivery{"Statistics",
                 R"(reply STATS_REPLY remote_stats { md_name: "d" ma_name: "a" local_mep_id: 1 remote_mep_id: 2)"
                 R"( last_ccm_seq: 3 } local_stats { md_name: "d" ma_name: "a" ccm_rx_seq_errors: 4 local_mep_id: 1)"
                 R"( ccm_tx_current_seq: 5 ccm_tx_total: 6 })",
                 {"local-statistics d a 1 4 6 5", "remote-statistics d a 1 2 3", "statistics-end"}},
        Delivery{"LinktraceTriggerError",
                 R"(reply LT_TRIGGER_ERROR key { md_name: "d" ma_name: "a" trigger_id: 7 mep_id: 1 target_mep_id: 2 })"
                 R"( ttl: 64)",
                 {"linktrace-error 7 d a 1 2 64"}},
        Delivery{"LoopbackTriggerError",
                 R"(reply LB_TRIGGER_ERROR md_name: "d" ma_name: "a" trigger_id: 7 error_code: 2 mep_id: 1)"
                 R"( target_mep_id: 2)",
                 {"loopback-error 7 2 d a 1 2"}},
        Delivery{"DelayMeasurementTriggerError",
                 R"(reply DM_TRIGGER_ERROR md_name: "d" ma_name: "a" trigger_id: 7 error_code: 5 mep_id: 1)"
                 R"( target_mep_id: 2)",
                 {"delay-error 7 5 d a 1 2"}}),
    [](const auto& instance) { return instance.param.name; });

// A lone 0xff opens a field and does not finish it: nothing can be read.
INSTANTIATE_TEST_SUITE_P(
    Malformed, EachMessage,
    testing::Values(
        Delivery{"LocalStatus",
                 "raw-event STATUS_LOCAL_MEP ff",
                 {"local-status   0 " + kNoMac +
                  " rdi 0 intf_status 0 port_state 0 block_state 0 shutdown_state 0 "
                  "highest_defect 0 defects 0 0 0 0 0 0"}},
        Delivery{"RemoteStatus",
                 "raw-event STATUS_REMOTE_MEP ff",
                 {"remote-status   0 0 " + kNoMac +
                  " fsm_state 0 last_change 0 rdi 0 port_state 0 intf_status 0 "
                  "sender_id "}},
        Delivery{"LocalRemoved", "raw-event REMOVED_LOCAL_MEP ff", {"local-removed   0"}},
        Delivery{"RemoteRemoved", "raw-event REMOVED_REMOTE_MEP ff", {"remote-removed   0 0"}},
        Delivery{"LoopbackStarted", "raw-event LOOPBACK_STARTED ff", {"loopback-started 0 " + kNoMac}},
        Delivery{"LoopbackReply", "raw-event LOOPBACK_REPLY_RX ff", {"loopback-reply 0 0 " + kNoMac}},
        Delivery{"LoopbackEnded", "raw-event LOOPBACK_ENDED ff", {"loopback-ended 0 0 0 0 0"}},
        Delivery{"DelayMeasurementStarted", "raw-event DELAY_MEASUREMENT_STARTED ff", {"delay-started 0 " + kNoMac}},
        Delivery{"DelayMeasurementReply", "raw-event DELAY_MEASUREMENT_REPLY_RX ff", {"delay-reply 0 " + kNoMac}},
        Delivery{"DelayMeasurementEnded", "raw-event DELAY_MEASUREMENT_ENDED ff", {"delay-ended 0 0 0 0 0 0 0 0 0 0"}},
        Delivery{"DelayMeasurementSessionEnded",
                 "raw-event DELAY_MEASUREMENT_SESSION_ENDED ff",
                 {"session-ended 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0"}},
        Delivery{"Statistics", "raw-reply STATS_REPLY ff", {"statistics-end"}},
        Delivery{"LinktraceTriggerError", "raw-reply LT_TRIGGER_ERROR ff", {"linktrace-error 0   0 0 0"}},
        Delivery{"LoopbackTriggerError", "raw-reply LB_TRIGGER_ERROR ff", {"loopback-error 0 0   0 0"}},
        Delivery{"DelayMeasurementTriggerError", "raw-reply DM_TRIGGER_ERROR ff", {"delay-error 0 0   0 0"}},
        Delivery{"ShortAddress",
                 R"(event LOOPBACK_STARTED target_mac: "\001\002" trigger_id: 7)",
                 {"loopback-started 7 01:02:00:00:00:00"}}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(APeer, IsToldNothingThatNoHandlerWaitsFor) {
  application_.Tell("handlers off");
  application_.Tell("echo off");
  EXPECT_EQ(application_.AwaitLine("echo"), "echo off");
  peer_.Play("event LOOPBACK_ENDED expected: 1");
  peer_.Play("event STATUS_LOCAL_MEP md_name: \"d\"");
  peer_.Play("reply STATS_REPLY");
  peer_.Play("reply CACHE_REPLY");  // the marker: its line does not come from a handler
  EXPECT_THAT(application_.NextLine(), testing::StartsWith("synchronised"));
}

TEST_F(APeer, HasALinktraceReplyShown) {
  peer_.Play(
      R"(event LINKTRACE_REPLY_RX md_name: "d" ma_name: "a" mep_id: 1 reply { source_mac: "\002\000\000\000\000\001")"
      R"( transaction_id: 99 ttl: 63 relay_action: 1 flags { terminal_mep: true } })");
  const std::vector<std::string> lines = LinesUpToMarker();
  ASSERT_EQ(lines.size(), 2U);  // the status handler and the linktrace handler
  EXPECT_EQ(lines[0], lines[1]);
  EXPECT_THAT(lines[0], testing::StartsWith("linktrace-reply d a 1 "));
  EXPECT_THAT(lines[0], testing::HasSubstr("02:00:00:00:00:01"));
}

TEST_F(APeer, ReceivesEachRequest) {
  application_.Tell("statistics");
  application_.Tell("clear d a 5");
  application_.Tell("clear");
  application_.Tell(R"(linktrace key { md_name: "d" ma_name: "a" trigger_id: 7 mep_id: 1 target_mep_id: 2 } ttl: 64)");
  application_.Tell(
      R"(loopback md_name: "d" ma_name: "a" trigger_id: 8 mep_id: 1 target_mep_id: 2 lb_param_1: 3 lb_param_2: 64)");
  application_.Tell(
      R"(delay md_name: "d" ma_name: "a" trigger_id: 9 mep_id: 1 target_mep_id: 2 dm_param_1: 10 dm_param_2: 100)"
      R"( dm_param_3: 64 dm_param_4: 5)");
  EXPECT_EQ(peer_.LinesBefore("STATUS_GET_ALL"), std::vector<std::string>{"CACHE_GET"});
  EXPECT_EQ(peer_.NextLine(), "STATS_GET");
  EXPECT_EQ(peer_.NextLine(), R"(STATS_CLEAR md_name: "d" ma_name: "a" local_mep_id: 5)");
  EXPECT_EQ(peer_.NextLine(), "STATS_CLEAR");
  EXPECT_EQ(peer_.NextLine(),
            R"(LT_TRIGGER key { md_name: "d" ma_name: "a" trigger_id: 7 mep_id: 1 target_mep_id: 2 } ttl: 64)");
  EXPECT_EQ(peer_.NextLine(),
            R"(LB_TRIGGER md_name: "d" ma_name: "a" trigger_id: 8 mep_id: 1 target_mep_id: 2 lb_param_1: 3)"
            R"( lb_param_2: 64)");
  EXPECT_EQ(peer_.NextLine(),
            R"(DM_TRIGGER md_name: "d" ma_name: "a" trigger_id: 9 mep_id: 1 target_mep_id: 2 dm_param_1: 10)"
            R"( dm_param_2: 100 dm_param_3: 64 dm_param_4: 5)");
}

TEST_F(APeer, IsFollowedThroughItsDeathInAnAnswer) {
  peer_.Play("once STATS_GET die");
  application_.Tell("statistics");
  EXPECT_EQ(application_.NextLine(), "lost");
  EXPECT_EQ(peer_.process().Wait(), (End{-1, SIGKILL}));
  Peer next(directory_, "on CACHE_GET reply CACHE_REPLY");
  EXPECT_EQ(application_.NextLine(), "found");
  application_.AwaitLine("synchronised");
}

TEST_F(APeer, WithAMalformedCacheCountsAsEmpty) {
  Configuration configuration{Grid(1, 1, 1), {}};
  application_.Give(configuration);
  application_.AwaitApplied();
  peer_.LinesBefore(
      R"(MEP_CREATE md_name: "domain-0" ma_name: "association-0" mep_id: 1 direction: 1 ifindex: 1 )"
      R"(primary_vid: 1 inner_vid: 0 ccm_priority: 7 admin_state: false tx_ccm_enabled: false )"
      R"(aux_flag: false lowest_prio_defect_allowed: 2 fng_alarm_time: 250 fng_reset_time: 1000 action: 0)");
  peer_.Play("raw-reply CACHE_REPLY ff");
  application_.AwaitLine("synchronised");
  std::vector<std::string> names;
  for (const std::string& line : peer_.LinesBefore("STATUS_GET_ALL")) {
    names.push_back(line.substr(0, line.find(' ')));
  }
  EXPECT_EQ(names,
            (std::vector<std::string>{"MD_CREATE", "MA_CREATE", "MEP_CREATE", "MD_UPDATE", "MA_UPDATE", "MEP_UPDATE"}));
}

class AMalformedLinktraceEvent : public APeer, public testing::WithParamInterface<const char*> {};

TEST_P(AMalformedLinktraceEvent, EndsTheApplicationAlone) {
  peer_.Play(std::string("raw-event ") + GetParam() + " ff");
  EXPECT_EQ(application_.process().Wait(), (End{1, 0}));
  EXPECT_THAT(application_.process().Errors(), testing::HasSubstr("client_impl"));

  EXPECT_TRUE(peer_.process().Running());
  Application next(directory_);
  next.Run();
  next.AwaitLine("synchronised");
}

INSTANTIATE_TEST_SUITE_P(Each, AMalformedLinktraceEvent,
                         testing::Values("LINKTRACE_STARTED", "LINKTRACE_REPLY_RX", "LINKTRACE_ENDED"),
                         [](const auto& instance) { return std::string(instance.param); });

}  // namespace
}  // namespace cfm_test
