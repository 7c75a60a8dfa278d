// The configuration at work, on ports that are simulated: what becomes of each request, of ports that come and go, and
// of the clients' questions.
#include "engine/engine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <utility>

#include "from_text.h"
#include "pdu/ccm.h"
#include "simulation.h"

namespace cfm::engine {
namespace {

namespace pb = client_server;
using cfm_test::From;
using namespace std::chrono_literals;
using protocol::TestError;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

// What `more` names, it says instead.
template <typename Message>
Message With(const std::string& usual, const std::string& more) {
  auto message = From<Message>(usual);
  message.MergeFrom(From<Message>(more));
  return message;
}

auto Domain(const std::string& more = "") {
  return With<pb::OpCreateMaintenanceDomain>("name: 'd' format: 4 level: 5 sender_id: 1 mhf_creation: 1", more);
}
auto Association(const std::string& more = "") {
  return With<pb::OpCreateMaintenanceAssociation>(
      "md_name: 'd' ma_name: 'a' format: 2 ccm_interval: 4 sender_id: 1 mep_ids: [1, 2]", more);
}
auto EndPointOf(int id, int port, const std::string& more = "") {
  return With<pb::OpCreateMaintenanceEndpoint>(
      "md_name: 'd' ma_name: 'a' direction: 1 ccm_priority: 7 admin_state: true tx_ccm_enabled: true "
      "lowest_prio_defect_allowed: 1 fng_alarm_time: 250 fng_reset_time: 1000 mep_id: " +
          std::to_string(id) + " ifindex: " + std::to_string(port),
      more);
}
auto Update(int id, const std::string& more) {
  return With<pb::OpUpdateMaintenanceEndpoint>("md_name: 'd' ma_name: 'a' mep_id: " + std::to_string(id), more);
}

// Two elements with a port each, and a wire between them.
class TwoElements : public testing::Test {
 protected:
  TwoElements() {
    west.SetLink(2, "east0");
    east.SetLink(3, "west0");
    simulation.Join(west, 2, east, 3);
  }

  void Configure() {
    for (Element* element : {&west, &east}) {
      element->Do(Domain());
      element->Do(Association());
    }
    west.Do(EndPointOf(1, 2));
    east.Do(EndPointOf(2, 3));
  }
  void ConfigureAndMeet() {
    Configure();
    simulation.RunFor(5s);
    EXPECT_EQ(StateAt(west), 4U);
    EXPECT_EQ(StateAt(east), 4U);
    west.announcer.Take();
    east.announcer.Take();
  }

  // The state of the remote MEP that was announced last; 0: none was.
  static std::uint32_t StateAt(Element& element) {
    std::uint32_t state = 0;
    for (const std::string& event : element.announcer.events()) {
      if (const auto at = event.find("fsm_state: "); at != std::string::npos) {
        state = static_cast<std::uint32_t>(std::stoul(event.substr(at + 11)));
      }
    }
    return state;
  }
  static pb::LocalMepStats Local(Element& element) { return element.engine.Statistics().local_stats(0); }

  Simulation simulation;
  Element& west = simulation.Add();
  Element& east = simulation.Add();
};

TEST_F(TwoElements, MeetEachOther) {
  Configure();
  simulation.RunFor(5s);
  EXPECT_EQ(StateAt(west), 4U);
  EXPECT_EQ(StateAt(east), 4U);
  EXPECT_THAT(
      west.announcer.Take(),
      Contains("StatusRemoteMaintenanceEndpoint {md_name: \"d\" ma_name: \"a\" mac: \"\\002\\000\\000\\000\\000\\003\" "
               "sender_id: \"\" local_mep_id: 1 remote_mep_id: 2 fsm_state: 4 port_state: 0 intf_status: 1 "
               "rdi: false last_change_uptime: 360050}"));
}

TEST_F(TwoElements, SeeEachOtherFail) {
  ConfigureAndMeet();
  simulation.Cut(west, 2);
  simulation.RunFor(10s);
  EXPECT_EQ(StateAt(west), 3U);
  EXPECT_THAT(
      west.announcer.Take(),
      Contains("StatusLocalMaintenanceEndpoint {md_name: \"d\" ma_name: \"a\" mac: \"\\002\\000\\000\\000\\000\\002\" "
               "local_mep_id: 1 highest_defect: 3 intf_status: 1 port_state: 0 block_state: 0 shutdown_state: 0 "
               "rdi: true defect_mac_status: false defect_remote_ccm: true defect_error_ccm: false "
               "defect_xcon_ccm: false defect_rdi: false defect_ais: false}"));
  simulation.Join(west, 2, east, 3);
  simulation.RunFor(10s);
  EXPECT_EQ(StateAt(west), 4U);
}

TEST_F(TwoElements, AreNotDisturbedByRequestsThatRepeatWhatIsKnown) {
  ConfigureAndMeet();
  const auto sequence = Local(west).ccm_tx_current_seq();
  for (int i = 0; i < 50; ++i) {
    west.Do(Domain());
    west.Do(Association());
    west.Do(EndPointOf(1, 2));
    west.Do(Update(1, "admin_state: true tx_ccm_enabled: true ccm_priority: 7"));
    simulation.RunFor(100ms);
  }
  EXPECT_EQ(Local(west).ccm_tx_current_seq(), sequence + 5);
  EXPECT_THAT(west.announcer.Take(), IsEmpty());
  EXPECT_THAT(east.announcer.Take(), IsEmpty());
  EXPECT_EQ(Local(east).ccm_rx_seq_errors(), 0U);
}

TEST_F(TwoElements, AreNotDisturbedByAnotherPriority) {
  ConfigureAndMeet();
  west.Do(Update(1, "ccm_priority: 3 primary_vid: 0"));
  const std::size_t before = west.ports.sent.at(2).size();
  simulation.RunFor(5s);
  EXPECT_EQ(west.ports.sent.at(2).size(), before + 5);
  EXPECT_THAT(east.announcer.Take(), IsEmpty());
  EXPECT_EQ(Local(east).ccm_rx_seq_errors(), 0U);
}

TEST_F(TwoElements, WatchOnWithANewListOfIds) {
  ConfigureAndMeet();
  west.Do(From<pb::OpUpdateMaintenanceAssociation>("md_name: 'd' ma_name: 'a' ccm_interval: 4 mep_ids: [1, 2, 3]"));
  simulation.RunFor(1s);
  EXPECT_THAT(west.announcer.Take(), Each(HasSubstr("remote_mep_id: 3")));
  west.Do(From<pb::OpUpdateMaintenanceAssociation>("md_name: 'd' ma_name: 'a' ccm_interval: 4 mep_ids: [1, 2]"));
  simulation.RunFor(1s);
  EXPECT_THAT(west.announcer.Take(),
              ElementsAre("RemovedRemoteMaintenanceEndpoint {md_name: \"d\" ma_name: \"a\" local_mep_id: 1 "
                          "remote_mep_id: 3}"));
}

TEST_F(TwoElements, MoveToAnotherVlanTogether) {
  ConfigureAndMeet();
  west.Do(Update(1, "primary_vid: 100"));
  simulation.RunFor(5s);
  EXPECT_EQ(StateAt(west), 3U);
  east.Do(Update(2, "primary_vid: 100"));
  simulation.RunFor(5s);
  EXPECT_EQ(StateAt(west), 4U);
  EXPECT_EQ(west.ports.sent.at(2).back().header.outer->vid, 100);
}

TEST_F(TwoElements, BeginAnewAfterAReplacementWithAnotherLevel) {
  ConfigureAndMeet();
  for (Element* element : {&west, &east}) {
    auto domain = Domain();
    domain.set_level(6);
    element->Do(domain);
  }
  simulation.RunFor(5s);
  EXPECT_EQ(west.ports.sent.at(2).back().pdu.at(0) >> 5, 6);
  EXPECT_EQ(StateAt(west), 4U);
}

TEST_F(TwoElements, TellOfRemovedEndPointsFromBelow) {
  ConfigureAndMeet();
  west.Do(From<pb::OpDeleteMaintenanceDomain>("name: 'd'"));
  EXPECT_THAT(west.announcer.Take(),
              ElementsAre("RemovedRemoteMaintenanceEndpoint {md_name: \"d\" ma_name: \"a\" local_mep_id: 1 "
                          "remote_mep_id: 2}",
                          "RemovedLocalMaintenanceEndpoint {md_name: \"d\" ma_name: \"a\" local_mep_id: 1}"));
  EXPECT_THAT(west.ports.open, IsEmpty());
  const std::size_t sent = west.ports.sent.at(2).size();
  simulation.RunFor(10s);
  EXPECT_EQ(west.ports.sent.at(2).size(), sent);
}

TEST_F(TwoElements, CountWhatTheyCouldNotSendApart) {
  ConfigureAndMeet();
  const auto before = Local(west);
  west.ports.refuses_to_send = true;
  simulation.RunFor(2s);
  EXPECT_EQ(Local(west).ccm_tx_total(), before.ccm_tx_total());
  EXPECT_EQ(Local(west).ccm_tx_current_seq(), before.ccm_tx_current_seq());
  west.ports.refuses_to_send = false;
  simulation.RunFor(2s);
  EXPECT_EQ(Local(west).ccm_tx_total(), before.ccm_tx_total() + 2);
  EXPECT_EQ(Local(east).ccm_rx_seq_errors(), 0U);
}

TEST_F(TwoElements, TakeBackTheCountOfAFrameThatTheKernelRefusedLater) {
  ConfigureAndMeet();
  const auto before = Local(west);
  west.engine.NotSent(0, west.ports.sent.at(2).back().pdu);
  EXPECT_EQ(Local(west).ccm_tx_total(), before.ccm_tx_total() - 1);
  EXPECT_EQ(Local(west).ccm_tx_current_seq(), before.ccm_tx_current_seq() - 1);
  west.engine.NotSent(99, {});  // of an end point that is gone
}

TEST_F(TwoElements, WriteWhatTheyHaveCountedIntoTheLog) {
  ConfigureAndMeet();
  const auto counted = [&] {
    simulation.middleware.Take();
    west.engine.LogCounters();
    std::vector<std::string> lines;
    for (const auto& entry : Only(simulation.middleware.Take(), {recording::Kind::kLog})) {
      lines.push_back(entry.text);
    }
    return lines;
  };
  EXPECT_THAT(counted(), IsEmpty());
  pdu::EthernetHeader header;
  header.destination = {0x02, 0, 0, 0, 0, 2};
  header.source = {0x02, 0, 0, 0, 0, 9};
  west.engine.Received(2, {.header = header, .pdu = std::vector<std::uint8_t>{5U << 5U, 99, 0, 0, 0}, .stamps = {}});
  west.engine.Received(2, {.header = header, .pdu = std::vector<std::uint8_t>{5U << 5U, 1, 0, 0, 0}, .stamps = {}});
  EXPECT_THAT(counted(), ElementsAre(AllOf(HasSubstr("end point 'd'/'a'/1, frames: "), HasSubstr("malformed, "),
                                           HasSubstr("of an unknown opcode: 1"))));
}

TEST_F(TwoElements, AnswerTheStatusOnceForAllWhoAskTogether) {
  ConfigureAndMeet();
  for (int client = 0; client < 10; ++client) {
    west.engine.AnnounceStatus();
    simulation.RunFor(5ms);
  }
  EXPECT_THAT(west.announcer.Take(), IsEmpty());
  simulation.RunFor(1s);
  EXPECT_THAT(west.announcer.Take(),
              ElementsAre(StartsWith("StatusLocalMaintenanceEndpoint"), StartsWith("StatusRemoteMaintenanceEndpoint")));
}

TEST_F(TwoElements, ClearStatisticsWithinTheScopeOnly) {
  ConfigureAndMeet();
  const auto total = Local(west).ccm_tx_total();
  for (const char* other : {"md_name: 'x'", "md_name: 'd' ma_name: 'x'", "md_name: 'd' local_mep_id: 2"}) {
    west.engine.ClearStatistics(From<pb::OpStatsClear>(other));
    EXPECT_EQ(Local(west).ccm_tx_total(), total) << other;
  }
  const auto sequence = Local(west).ccm_tx_current_seq();
  west.engine.ClearStatistics(From<pb::OpStatsClear>("md_name: 'd' ma_name: 'a' local_mep_id: 1"));
  EXPECT_EQ(Local(west).ccm_tx_total(), 0U);
  EXPECT_EQ(Local(west).ccm_tx_current_seq(), sequence);
  simulation.RunFor(1s);
  west.engine.ClearStatistics({});
  EXPECT_EQ(Local(west).ccm_tx_total(), 0U);
}

TEST_F(TwoElements, TellTheWholeStatistics) {
  ConfigureAndMeet();
  const pb::OpReplyAllStats statistics = west.engine.Statistics();
  EXPECT_EQ(statistics.ShortDebugString(),
            "local_stats { md_name: \"d\" ma_name: \"a\" ccm_rx_seq_errors: 0 local_mep_id: 1 ccm_tx_current_seq: 5 "
            "ccm_tx_total: 5 } remote_stats { md_name: \"d\" ma_name: \"a\" local_mep_id: 1 remote_mep_id: 2 "
            "last_ccm_seq: 5 }");
}

TEST_F(TwoElements, RunALoopback) {
  ConfigureAndMeet();
  const auto trigger = From<pb::OpLoopbackTriggerMsg>(
      "md_name: 'd' ma_name: 'a' trigger_id: 7 mep_id: 1 target_mep_id: 2 lb_param_1: 2 lb_param_2: 100");
  EXPECT_EQ(west.engine.Start(trigger), std::nullopt);
  EXPECT_EQ(west.engine.Start(trigger), TestError::kTooManyTests);
  simulation.RunFor(10s);
  EXPECT_THAT(west.announcer.Take(),
              ElementsAre("OpLoopbackStarted {target_mac: \"\\002\\000\\000\\000\\000\\003\" trigger_id: 7}",
                          "OpLoopbackReplyRx {source_mac: \"\\002\\000\\000\\000\\000\\003\" trigger_id: 7 "
                          "transaction_id: 1}",
                          "OpLoopbackReplyRx {source_mac: \"\\002\\000\\000\\000\\000\\003\" trigger_id: 7 "
                          "transaction_id: 2}",
                          "OpLoopbackEnded {expected: 2 in_order: 2 out_of_order: 0 wrong_payload: 0 trigger_id: 7}"));
}

TEST_F(TwoElements, RunALinktrace) {
  ConfigureAndMeet();
  EXPECT_EQ(west.engine.Start(From<pb::OpLinktraceTriggerMsg>(
                "key { md_name: 'd' ma_name: 'a' trigger_id: 7 mep_id: 1 target_mep_id: 2 } ttl: 9")),
            std::nullopt);
  simulation.RunFor(10s);
  EXPECT_THAT(
      west.announcer.Take(),
      ElementsAre(
          "OpLinktraceStarted {md_name: \"d\" ma_name: \"a\" target_mac: \"\\002\\000\\000\\000\\000\\003\" "
          "mep_id: 1 transaction_id: 1 target_mep_id: 2 optional_value: 9}",
          "OpLinktraceReplyRx {md_name: \"d\" ma_name: \"a\" reply { destination_mac: "
          "\"\\002\\000\\000\\000\\000\\002\" source_mac: \"\\002\\000\\000\\000\\000\\003\" flags { terminal_mep: "
          "true forwarded: false use_fdb_only: true } egress_id { last { mac: "
          "\"\\002\\000\\000\\000\\000\\002\" unique_id: \"\\000\\000\" } next { mac: "
          "\"\\000\\000\\000\\000\\000\\000\" unique_id: \"\\000\\000\" } } reply_ingress { mac: "
          "\"\\002\\000\\000\\000\\000\\003\" port_id { value: \"west0\" present: true subtype: 5 } action: 1 } "
          "transaction_id: 1 vlan: 0 priority: 0 level: 5 ttl: 8 relay_action: 1 } mep_id: 1}",
          "OpLinktraceEnded {md_name: \"d\" ma_name: \"a\" mep_id: 1 transaction_id: 1}"));
}

TEST_F(TwoElements, RunADelayMeasurement) {
  ConfigureAndMeet();
  EXPECT_EQ(west.engine.Start(From<pb::OpDelayMeasurementTriggerMsg>(
                "md_name: 'd' ma_name: 'a' trigger_id: 7 mep_id: 1 target_mep_id: 2 dm_param_1: 3 dm_param_2: 10 "
                "dm_param_3: 64 dm_param_4: 6")),
            std::nullopt);
  simulation.RunFor(10s);
  const auto events = west.announcer.Take();
  ASSERT_THAT(events, SizeIs(5));
  EXPECT_EQ(events.front(), "OpDelayMeasurementStarted {target_mac: \"\\002\\000\\000\\000\\000\\003\" trigger_id: 7}");
  EXPECT_EQ(events[1], "OpDelayMeasurementReplyRx {source_mac: \"\\002\\000\\000\\000\\000\\003\" trigger_id: 7}");
  EXPECT_EQ(events.back(),
            "OpDelayMeasurementEnded {rx_count: 3 tx_count: 3 dm_result_1: 200 dm_result_2: 200 dm_result_3: 200 "
            "dm_result_4: 0 dm_result_5: 0 dm_result_6: 0 dm_result_7: 64 trigger_id: 7}");
}

TEST_F(TwoElements, RefuseTestsWithTheirReasons) {
  ConfigureAndMeet();
  const auto loopback = [&](const std::string& more) {
    return west.engine.Start(From<pb::OpLoopbackTriggerMsg>("md_name: 'd' trigger_id: 1 " + more));
  };
  EXPECT_EQ(loopback("ma_name: 'x' mep_id: 1 target_mep_id: 2"), TestError::kNoSuchMep);
  EXPECT_EQ(loopback("ma_name: 'a' mep_id: 2 target_mep_id: 2"), TestError::kNoSuchMep);
  EXPECT_EQ(loopback("ma_name: 'a' mep_id: 65537 target_mep_id: 2"), TestError::kNoSuchMep);
  EXPECT_EQ(loopback("ma_name: 'a' mep_id: 1 target_mep_id: 3"), TestError::kTargetUnknown);
  EXPECT_EQ(loopback("ma_name: 'a' mep_id: 1 target_mep_id: 65538"), TestError::kTargetUnknown);
  EXPECT_EQ(loopback("ma_name: 'a' mep_id: 1 target_mep_id: 2 lb_param_1: 1025"), TestError::kBadParameter);
  EXPECT_EQ(west.engine.Start(From<pb::OpLinktraceTriggerMsg>(
                "key { md_name: 'd' ma_name: 'a' mep_id: 1 target_mep_id: 2 } ttl: 256")),
            TestError::kBadParameter);
  west.Do(Update(1, "admin_state: false"));
  EXPECT_EQ(loopback("ma_name: 'a' mep_id: 1 target_mep_id: 2"), TestError::kMepNotOperational);
}

TEST_F(TwoElements, ReportTheRunsOfAProbeWhateverTheOrderOfItsRequests) {
  west.Do(From<pb::OpCreateDelayMeasurementProbe>(
      "md_name: 'd' ma_name: 'a' probe_id: 4 interval: 60 local_mep_id: 1 remote_mep_id: 2"));
  west.Do(
      From<pb::OpCreateDelayMeasurementSession>("probe_id: 4 session_id: 9 interval: 100 count: 5 size: 32 pcp: 3"));
  Configure();
  simulation.RunFor(15s);
  EXPECT_THAT(
      west.announcer.Take(),
      Contains(AllOf(StartsWith("OpDelayMeasurementSessionEnded {report_u32_1: 4 report_u32_2: 9 report_flag: 1 "
                                "report_u32_3: 1 report_u32_4: 2 report_u32_5: 5 report_u32_6: 5 report_u32_7: 0 "
                                "report_u32_8: 1 report_double_1: 200 report_double_2: 0 report_u32_9: 200 "
                                "report_u32_10: 200 report_u32_11: 200 report_u32_12: 200 report_u32_13: 200 "
                                "report_u32_14: 3153"),
                     HasSubstr(" report_double_3: 0 report_double_4: 0}"))));
}

TEST_F(TwoElements, AbortTheRunOfAProbeThatIsDeletedOrMoved) {
  ConfigureAndMeet();
  const auto probe = [](int local) {
    return From<pb::OpCreateDelayMeasurementProbe>(
        "md_name: 'd' ma_name: 'a' probe_id: 4 interval: 60 remote_mep_id: 2 local_mep_id: " + std::to_string(local));
  };
  west.Do(probe(1));
  west.Do(
      From<pb::OpCreateDelayMeasurementSession>("probe_id: 4 session_id: 9 interval: 1000 count: 100 size: 32 pcp: 3"));
  simulation.RunFor(5s);
  west.Do(From<pb::OpDeleteDelayMeasurementSession>("probe_id: 4 session_id: 9"));
  EXPECT_THAT(west.announcer.Take(), ElementsAre(HasSubstr("report_flag: 0")));
  west.Do(From<pb::OpCreateDelayMeasurementSession>(
      "probe_id: 4 session_id: 10 interval: 1000 count: 100 size: 32 pcp: 3"));
  simulation.RunFor(70s);
  west.Do(probe(8));
  EXPECT_THAT(west.announcer.Take(), ElementsAre(HasSubstr("report_flag: 0")));
  west.Do(probe(1));
  simulation.RunFor(70s);
  west.Do(From<pb::OpDeleteDelayMeasurementProbe>("probe_id: 4"));
  EXPECT_THAT(west.announcer.Take(), ElementsAre(HasSubstr("report_flag: 0")));
}

TEST_F(TwoElements, HandTheFaultActionToThePortAndUndoIt) {
  Configure();
  west.Do(Update(1, "action: 2 admin_state: true tx_ccm_enabled: true ccm_priority: 7 lowest_prio_defect_allowed: 1"));
  simulation.RunFor(5s);
  simulation.Cut(west, 2);
  simulation.RunFor(10s);
  EXPECT_THAT(west.ports.actions, ElementsAre("2 shutdown"));
  simulation.Join(west, 2, east, 3);
  simulation.RunFor(20s);
  EXPECT_THAT(west.ports.actions, ElementsAre("2 shutdown", "2 none"));
}

TEST_F(TwoElements, KeepTheSeverestFaultActionOfAPort) {
  Configure();
  west.Do(
      From<pb::OpCreateMaintenanceAssociation>("md_name: 'd' ma_name: 'b' format: 2 ccm_interval: 4 mep_ids: [1, 2]"));
  auto second = EndPointOf(1, 2, "primary_vid: 7 action: 1");
  second.set_ma_name("b");
  west.Do(second);
  simulation.RunFor(10s);  // nobody is in the other association
  EXPECT_THAT(west.ports.actions, ElementsAre("2 block"));
  west.Do(Update(1, "action: 2"));
  simulation.Cut(west, 2);
  simulation.RunFor(10s);
  EXPECT_THAT(west.ports.actions, ElementsAre("2 block", "2 shutdown"));
  west.Do(From<pb::OpDeleteMaintenanceAssociation>("md_name: 'd' ma_name: 'a'"));
  EXPECT_THAT(west.ports.actions, ElementsAre("2 block", "2 shutdown", "2 block"));
}

// ---- Ports ----

TEST_F(TwoElements, WaitForAPortThatIsNotThereYet) {
  for (Element* element : {&west, &east}) {
    element->Do(Domain());
    element->Do(Association());
  }
  east.Do(EndPointOf(2, 3));
  west.Do(EndPointOf(1, 5));
  EXPECT_THAT(west.announcer.Take(), Contains(HasSubstr("intf_status: 6")));
  EXPECT_EQ(west.engine.Start(
                From<pb::OpLoopbackTriggerMsg>("md_name: 'd' ma_name: 'a' trigger_id: 1 mep_id: 1 target_mep_id: 2")),
            TestError::kMepNotOperational);
  simulation.RunFor(5s);
  west.SetLink(5, "late0");
  simulation.Join(west, 5, east, 3);
  simulation.RunFor(5s);
  EXPECT_EQ(StateAt(west), 4U);
  EXPECT_EQ(StateAt(east), 4U);
}

TEST_F(TwoElements, FindAPortAgainByItsName) {
  ConfigureAndMeet();
  west.RemoveLink(2);
  EXPECT_THAT(west.announcer.Take(), ElementsAre(HasSubstr("intf_status: 6")));
  simulation.RunFor(5s);
  EXPECT_EQ(StateAt(east), 3U);
  west.SetLink(8, "another0");
  EXPECT_THAT(west.ports.open, IsEmpty());
  west.SetLink(9, "east0");
  EXPECT_THAT(west.ports.open, ElementsAre(9));
  simulation.Join(west, 9, east, 3);
  simulation.RunFor(5s);
  EXPECT_EQ(StateAt(west), 4U);
  EXPECT_EQ(StateAt(east), 4U);
  // An index that is used again for another port changes nothing.
  west.SetLink(2, "stranger0");
  EXPECT_THAT(west.ports.open, ElementsAre(9));
}

TEST_F(TwoElements, StayOnAPortThatIsRenamed) {
  ConfigureAndMeet();
  west.ports.links.at(2).name = "renamed0";
  west.LinkChanged(2);
  simulation.RunFor(5s);
  EXPECT_THAT(east.announcer.Take(), IsEmpty());
  west.RemoveLink(2);
  west.SetLink(7, "renamed0");
  EXPECT_THAT(west.ports.open, ElementsAre(7));
}

TEST_F(TwoElements, SendFromANewAddressAtOnce) {
  ConfigureAndMeet();
  west.ports.links.at(2).address[5] = 0x77;
  west.LinkChanged(2);
  simulation.RunFor(1s);
  EXPECT_EQ(west.ports.sent.at(2).back().header.source[5], 0x77);
}

TEST_F(TwoElements, TellThePeerOfAPortThatGoesDown) {
  ConfigureAndMeet();
  west.ports.links.at(2).state.operstate = 2;
  west.LinkChanged(2);
  simulation.RunFor(1s);
  EXPECT_THAT(east.announcer.Take(), Contains(HasSubstr("fsm_state: 4 port_state: 0 intf_status: 2")));
}

TEST_F(TwoElements, DoWithoutAPortThatIsNoEthernetInterface) {
  west.ports.links[1] = {.index = 1, .name = "lo"};
  west.LinkChanged(1);
  west.Do(Domain());
  west.Do(Association());
  west.Do(EndPointOf(1, 1));
  simulation.RunFor(1s);
  EXPECT_THAT(west.ports.open, IsEmpty());
  EXPECT_THAT(west.announcer.Take(), Contains(HasSubstr("intf_status: 6")));
}

TEST_F(TwoElements, DoWithoutAPortThatCannotBeOpened) {
  west.ports.refuses_to_open = true;
  Configure();
  EXPECT_THAT(west.announcer.Take(), Contains(HasSubstr("intf_status: 6")));
  west.ports.refuses_to_open = false;
  west.LinkChanged(2);
  simulation.RunFor(5s);
  EXPECT_EQ(StateAt(west), 4U);
}

// ---- What cannot work ----

class ARefusal : public TwoElements {
 protected:
  // Its one end point is not operational: says so, sends nothing, refuses tests.
  void ExpectRefused() {
    simulation.RunFor(5s);
    EXPECT_THAT(west.announcer.Take(),
                Contains(AllOf(StartsWith("StatusLocalMaintenanceEndpoint"), HasSubstr("intf_status: 6"))));
    EXPECT_THAT(west.ports.sent, IsEmpty());
    EXPECT_THAT(west.ports.open, IsEmpty());
    const auto error = west.engine.Start(
        From<pb::OpLoopbackTriggerMsg>("md_name: 'd' ma_name: 'a' trigger_id: 1 mep_id: 1 target_mep_id: 2"));
    EXPECT_EQ(error, TestError::kMepNotOperational);
  }
};

TEST_F(ARefusal, OfANameThatDoesNotFitItsFormat) {
  west.Do(Domain());
  west.Do(Association("format: 3"));  // a number
  west.Do(EndPointOf(1, 2));
  ExpectRefused();
}

TEST_F(ARefusal, OfALevelThatDoesNotExist) {
  west.Do(Domain("level: 8"));
  west.Do(Association());
  west.Do(EndPointOf(1, 2));
  ExpectRefused();
}

TEST_F(ARefusal, OfAVlanThatDoesNotExist) {
  west.Do(Domain());
  west.Do(Association());
  west.Do(EndPointOf(1, 2, "primary_vid: 4095"));
  ExpectRefused();
}

TEST_F(ARefusal, OfAnInnerVlanWithoutAnOuterOne) {
  west.Do(Domain());
  west.Do(Association());
  west.Do(EndPointOf(1, 2, "inner_vid: 4"));
  ExpectRefused();
}

TEST_F(ARefusal, EndsWhenTheConfigurationIsMended) {
  west.Do(Domain("level: 8"));
  west.Do(Association());
  west.Do(EndPointOf(1, 2));
  ExpectRefused();
  west.Do(Domain());
  east.Do(Domain());
  east.Do(Association());
  east.Do(EndPointOf(2, 3));
  simulation.RunFor(5s);
  EXPECT_EQ(StateAt(west), 4U);
}

TEST_F(ARefusal, OfAMepIdThatDoesNotExist) {
  for (const int id : {0, 8192}) {
    west.Do(Domain());
    west.Do(From<pb::OpCreateMaintenanceAssociation>("md_name: 'd' ma_name: 'a' format: 2 ccm_interval: 4"));
    west.Do(EndPointOf(id, 2));
    simulation.RunFor(2s);
    EXPECT_THAT(west.ports.open, IsEmpty()) << id;
  }
}

TEST_F(ARefusal, OfTheLaterOfTwoAssociationsWithOneIdentifierUntilTheOtherGoes) {
  Configure();
  // The format makes them equal: both encode to the number 7.
  for (Element* element : {&west, &east})
    element->Do(From<pb::OpDeleteMaintenanceAssociation>("md_name: 'd' ma_name: 'a'"));
  west.announcer.Take();
  west.Do(From<pb::OpCreateMaintenanceAssociation>("md_name: 'd' ma_name: '7' format: 3 ccm_interval: 4"));
  west.Do(From<pb::OpCreateMaintenanceAssociation>("md_name: 'd' ma_name: '07' format: 3 ccm_interval: 4"));
  for (const auto& [name, id, vid] : {std::tuple("7", 1, 10), std::tuple("07", 2, 20)}) {
    auto end_point = EndPointOf(id, 2, "primary_vid: " + std::to_string(vid));
    end_point.set_ma_name(name);
    west.Do(end_point);
  }
  simulation.RunFor(2s);
  const auto vids = [&] {
    std::set<int> seen;
    for (const SentFrame& frame : std::exchange(west.ports.sent[2], {})) seen.insert(frame.header.outer->vid);
    return seen;
  };
  vids();
  simulation.RunFor(2s);
  EXPECT_THAT(vids(), ElementsAre(10));
  west.Do(From<pb::OpDeleteMaintenanceAssociation>("md_name: 'd' ma_name: '7'"));
  simulation.RunFor(2s);
  EXPECT_THAT(vids(), ElementsAre(20));
}

TEST_F(ARefusal, OfTheLaterOfTwoEndPointsInOnePlaceUntilTheOtherGoes) {
  Configure();
  west.Do(EndPointOf(2, 2));
  simulation.RunFor(2s);
  const auto ids = [&] {
    std::set<int> seen;
    for (const SentFrame& frame : std::exchange(west.ports.sent[2], {})) {
      seen.insert(pdu::DecodeCcm(frame.pdu)->mep_id);
    }
    return seen;
  };
  ids();
  simulation.RunFor(2s);
  EXPECT_THAT(ids(), ElementsAre(1));
  west.Do(Update(1, "admin_state: false"));
  simulation.RunFor(2s);
  EXPECT_THAT(ids(), ElementsAre(2));
  west.Do(Update(1, "admin_state: true"));
  simulation.RunFor(2s);
  EXPECT_THAT(ids(), ElementsAre(2));
  west.Do(From<pb::OpDeleteMaintenanceEndpoint>("md_name: 'd' ma_name: 'a' mep_id: 2"));
  simulation.RunFor(2s);
  ids();
  simulation.RunFor(2s);
  EXPECT_THAT(ids(), ElementsAre(1));
}

// ---- Bridges ----

// West and east, and a bridge between them: west 2 - 10 middle 11 - 3 east.
class AcrossABridge : public testing::Test {
 protected:
  AcrossABridge() {
    west.SetLink(2, "w0");
    east.SetLink(3, "e0");
    for (const port::Index index : {10U, 11U}) {
      port::Link& link = middle.SetLink(index, "m" + std::to_string(index));
      link.bridge = 99;
      link.port_status = pdu::PortStatus::kUp;
      middle.LinkChanged(index);
    }
    simulation.Join(west, 2, middle, 10);
    simulation.Join(middle, 11, east, 3);
    for (Element* element : {&west, &east}) {
      element->Do(Domain());
      element->Do(Association());
    }
    west.Do(EndPointOf(1, 2));
    east.Do(EndPointOf(2, 3));
  }
  std::vector<std::string> Traced(Element& element, const std::string& target) {
    EXPECT_EQ(element.engine.Start(From<pb::OpLinktraceTriggerMsg>(
                  "key { md_name: 'd' ma_name: 'a' mep_id: 1 trigger_id: 1 target_mep_id: " + target + " } ttl: 64")),
              std::nullopt);
    element.announcer.Take();
    simulation.RunFor(10s);
    std::vector<std::string> replies;
    for (const std::string& event : element.announcer.Take()) {
      if (event.starts_with("OpLinktraceReplyRx")) replies.push_back(event);
    }
    return replies;
  }

  Simulation simulation;
  Element& west = simulation.Add();
  Element& middle = simulation.Add();
  Element& east = simulation.Add();
};

TEST_F(AcrossABridge, EndPointsMeet) {
  simulation.RunFor(5s);
  EXPECT_THAT(west.announcer.Take(), Contains(HasSubstr("fsm_state: 4")));
  EXPECT_THAT(middle.ports.open, IsEmpty());
}

TEST_F(AcrossABridge, TracesNameTheMipsOnTheWay) {
  middle.Do(Domain("mhf_creation: 2"));
  middle.Do(Association("mhf_creation: 4"));
  simulation.RunFor(5s);
  EXPECT_THAT(middle.ports.open, ElementsAre(10, 11));
  const auto replies = Traced(west, "2");
  ASSERT_THAT(replies, SizeIs(2));
  EXPECT_THAT(replies, Contains(AllOf(HasSubstr("ttl: 63"), HasSubstr("relay_action: 2"), HasSubstr("forwarded: true"),
                                      HasSubstr("value: \"m10\""), HasSubstr("value: \"m11\""))));
  EXPECT_THAT(replies, Contains(AllOf(HasSubstr("ttl: 62"), HasSubstr("relay_action: 1"),
                                      HasSubstr("terminal_mep: true"), HasSubstr("value: \"e0\""))));
  middle.Do(From<pb::OpDeleteMaintenanceDomain>("name: 'd'"));
  simulation.RunFor(1s);
  EXPECT_THAT(middle.ports.open, IsEmpty());
  EXPECT_THAT(Traced(west, "2"), SizeIs(1));
}

TEST_F(AcrossABridge, UpMepsMeetThroughTheBridgeAndStopTheirLevel) {
  middle.Do(Domain());
  middle.Do(Association("mep_ids: [3]"));
  west.Do(From<pb::OpUpdateMaintenanceAssociation>("md_name: 'd' ma_name: 'a' ccm_interval: 4 mep_ids: [1, 3]"));
  middle.Do(EndPointOf(3, 11, "direction: 2"));
  simulation.RunFor(10s);
  middle.announcer.Take();
  west.announcer.Take();
  middle.engine.AnnounceStatus();
  west.engine.AnnounceStatus();
  simulation.RunFor(1s);
  EXPECT_THAT(middle.announcer.Take(), Contains(AllOf(HasSubstr("remote_mep_id: 1"), HasSubstr("fsm_state: 4"))));
  EXPECT_THAT(west.announcer.Take(), Contains(AllOf(HasSubstr("remote_mep_id: 3"), HasSubstr("fsm_state: 4"))));
  // Nothing of the level passes the end point, in either direction.
  east.engine.AnnounceStatus();
  east.announcer.Take();
  simulation.RunFor(1s);
  EXPECT_THAT(east.announcer.Take(), Contains(AllOf(HasSubstr("remote_mep_id: 1"), HasSubstr("fsm_state: 3"))));
}

TEST_F(AcrossABridge, ADownMepTellsTheClientsBehindItOfAFault) {
  for (Element* element : {&west, &middle}) {
    auto domain = Domain();
    domain.set_name("link");
    domain.set_level(2);
    element->Do(domain);
    auto association = Association("ais { enabled: true aux_flag: false aux_u8: 5 aux_u32: 1 aux_u16: 6 }");
    association.set_md_name("link");
    element->Do(association);
    auto end_point = element == &west ? EndPointOf(1, 2) : EndPointOf(2, 10);
    end_point.set_md_name("link");
    element->Do(end_point);
  }
  simulation.RunFor(5s);
  EXPECT_THAT(east.announcer.Take(), Not(Contains(HasSubstr("defect_ais: true"))));
  simulation.Cut(west, 2);
  simulation.RunFor(10s);
  EXPECT_THAT(east.announcer.Take(), Contains(AllOf(HasSubstr("local_mep_id: 2"), HasSubstr("defect_ais: true"))));
  simulation.Join(west, 2, middle, 10);
  simulation.RunFor(20s);
  EXPECT_THAT(east.announcer.Take().back(), HasSubstr("defect_ais: false"));
}

TEST_F(AcrossABridge, AnUpMepOutsideOfABridgeDoesNotWork) {
  west.Do(From<pb::OpDeleteMaintenanceEndpoint>("md_name: 'd' ma_name: 'a' mep_id: 1"));
  west.announcer.Take();
  west.Do(EndPointOf(1, 2, "direction: 2"));
  EXPECT_THAT(west.announcer.Take(), Contains(HasSubstr("intf_status: 6")));
  EXPECT_EQ(west.engine.Start(
                From<pb::OpLoopbackTriggerMsg>("md_name: 'd' ma_name: 'a' trigger_id: 1 mep_id: 1 target_mep_id: 2")),
            TestError::kMepNotOperational);
  const std::size_t sent = west.ports.sent[2].size();
  simulation.RunFor(5s);
  EXPECT_EQ(west.ports.sent[2].size(), sent);
}

TEST_F(AcrossABridge, NothingWorksTowardsABridgeThatFiltersByVlan) {
  middle.Do(Domain("mhf_creation: 2"));
  middle.Do(Association("mhf_creation: 4 mep_ids: [3]"));
  middle.Do(EndPointOf(3, 11, "direction: 2 primary_vid: 7"));
  simulation.RunFor(1s);
  EXPECT_THAT(middle.ports.open, ElementsAre(10, 11));
  middle.announcer.Take();
  port::Link& bridge = middle.SetLink(99, "bridge");
  bridge.filters_vlans = true;
  middle.LinkChanged(99);
  simulation.RunFor(1s);
  EXPECT_THAT(middle.announcer.Take(), Contains(AllOf(HasSubstr("local_mep_id: 3"), HasSubstr("intf_status: 6"))));
  EXPECT_THAT(middle.ports.open, ElementsAre(11));
  bridge.filters_vlans = false;
  middle.LinkChanged(99);
  simulation.RunFor(1s);
  EXPECT_THAT(middle.announcer.Take(), Contains(AllOf(HasSubstr("local_mep_id: 3"), HasSubstr("intf_status: 1"))));
  EXPECT_THAT(middle.ports.open, ElementsAre(10, 11));
}

// ---- Sender ID ----

TEST_F(TwoElements, TellWhoTheyAreByTheLowestAddressOfTheirPorts) {
  west.SetLink(1, "first0");
  for (Element* element : {&west, &east}) {
    element->Do(Domain("sender_id: 2"));
    element->Do(Association("sender_id: 5"));
  }
  west.Do(EndPointOf(1, 2));
  east.Do(EndPointOf(2, 3));
  simulation.RunFor(5s);
  EXPECT_THAT(east.announcer.Take(), Contains(HasSubstr("sender_id: \"02:00:00:00:00:01\"")));
}

TEST(AnElement, TellsItsAddressFromTheFirstPortOn) {
  Simulation simulation;
  Element& north = simulation.Add();
  Element& south = simulation.Add();
  for (Element* element : {&north, &south}) {
    element->Do(Domain());
    element->Do(Association("sender_id: 4"));
  }
  north.Do(EndPointOf(1, 2));
  south.Do(EndPointOf(2, 3));
  north.SetLink(2, "a0");
  south.SetLink(3, "b0");
  simulation.Join(north, 2, south, 3);
  simulation.RunFor(5s);
  EXPECT_THAT(south.announcer.Take(), Contains(HasSubstr("sender_id: \"02:00:00:00:00:02\"")));
}

TEST(AnElement, TellsTheNameThatItWasGiven) {
  Simulation simulation;
  protocol::SystemId system;
  system.chassis_subtype = 7;
  system.chassis_id = {'n', 'o', 'r', 't', 'h'};
  Element& north = simulation.Add({.system = system});
  Element& south = simulation.Add();
  north.SetLink(2, "a0");
  south.SetLink(3, "b0");
  simulation.Join(north, 2, south, 3);
  for (Element* element : {&north, &south}) {
    element->Do(Domain());
    element->Do(Association("sender_id: 4"));
  }
  north.Do(EndPointOf(1, 2));
  south.Do(EndPointOf(2, 3));
  simulation.RunFor(5s);
  EXPECT_THAT(south.announcer.Take(), Contains(HasSubstr("sender_id: \"north\"")));
}

TEST(AnElement, OutlivesAnyOrderOfRequestsAndOfPortsThatComeAndGo) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto any = [&](unsigned int below) { return static_cast<unsigned int>(random() % below); };
  Simulation simulation;
  simulation.middleware.record_logs = false;
  Element& element = simulation.Add();
  Element& other = simulation.Add();
  other.SetLink(9, "other0");
  simulation.Join(element, 2, other, 9);
  std::size_t worked = 0;
  for (int i = 0; i < 20'000; ++i) {
    const std::string md = "md_name: 'd" + std::to_string(any(2)) + "' ";
    const std::string ma = md + "ma_name: '" + std::to_string(any(3)) + "' ";
    const std::string mep = ma + "mep_id: " + std::to_string(1 + any(3)) + ' ';
    const std::string probe = "probe_id: " + std::to_string(any(3)) + ' ';
    switch (any(16)) {
      case 0:
        element.Do(From<pb::OpCreateMaintenanceDomain>(
            "name: 'd" + std::to_string(any(2)) + "' format: " + (any(3) == 0 ? "1" : "4") +
            " level: " + std::to_string(any(9)) + " mhf_creation: " + std::to_string(any(5))));
        break;
      case 1:
      case 2:
        element.Do(From<pb::OpCreateMaintenanceAssociation>(
            ma + "format: " + std::to_string(2 + any(2)) + " ccm_interval: " + std::to_string(any(6)) +
            " mep_ids: [1, 2, 3] mhf_creation: " + std::to_string(any(5)) + " sender_id: " + std::to_string(any(6)) +
            (any(2) == 0 ? " vids: 7" : "") + " ais { enabled: true aux_u8: 7 aux_u32: 1 }"));
        break;
      case 3:
      case 4:
      case 5:
      case 6:
        element.Do(From<pb::OpCreateMaintenanceEndpoint>(
            mep + "direction: " + std::to_string(1 + any(2)) + " ifindex: " + std::to_string(1 + any(4)) +
            " admin_state: true tx_ccm_enabled: true ccm_priority: 7 primary_vid: " + (any(2) == 0 ? "7" : "0") +
            " action: " + std::to_string(any(3))));
        break;
      case 7:
        element.Do(From<pb::OpUpdateMaintenanceEndpoint>(mep + "admin_state: " + (any(2) == 0 ? "true" : "false")));
        break;
      case 8:
        element.Do(From<pb::OpDeleteMaintenanceEndpoint>(mep));
        break;
      case 9:
        if (any(4) == 0) element.Do(From<pb::OpDeleteMaintenanceAssociation>(ma));
        break;
      case 10:
        if (any(8) == 0) element.Do(From<pb::OpDeleteMaintenanceDomain>("name: 'd" + std::to_string(any(2)) + "'"));
        break;
      case 11:
        element.Do(From<pb::OpCreateDelayMeasurementProbe>(
            probe + md + "ma_name: '1' interval: 1 local_mep_id: " + std::to_string(1 + any(3)) + " remote_mep_id: 2"));
        break;
      case 12:
        element.Do(From<pb::OpCreateDelayMeasurementSession>(probe + "session_id: " + std::to_string(any(2)) +
                                                             " interval: 10 count: " + std::to_string(any(5))));
        break;
      case 13:
        element.Do(From<pb::OpDeleteDelayMeasurementProbe>(probe));
        break;
      case 14: {
        const port::Index index = 1 + any(4);
        if (element.ports.links.contains(index) && any(2) == 0) {
          element.RemoveLink(index);
        } else {
          port::Link& link = element.SetLink(index, "port" + std::to_string(index));
          link.bridge = any(2) == 0 ? 99 : 0;
          link.port_status = link.bridge == 0 ? pdu::PortStatus::kNone : pdu::PortStatus::kUp;
          element.LinkChanged(index);
        }
        break;
      }
      default:
        simulation.RunFor(std::chrono::milliseconds(any(200)));
    }
    if (i % 100 == 0) {
      for (const auto& [port, frames] : std::exchange(element.ports.sent, {})) worked += frames.size();
      element.announcer.Take();
    }
  }
  for (const char* name : {"d0", "d1"}) {
    pb::OpDeleteMaintenanceDomain request;
    request.set_name(name);
    element.Do(request);
  }
  simulation.RunFor(1s);
  EXPECT_THAT(element.ports.open, IsEmpty());
  EXPECT_THAT(element.engine.Statistics().local_stats(), SizeIs(0));
  EXPECT_GT(worked, 1000U);
}

TEST(AnElement, AnnouncesTheStatusOfManyInPortions) {
  Simulation simulation;
  Element& element = simulation.Add();
  element.SetLink(2, "a0");
  element.Do(Domain());
  element.Do(Association());
  for (int id = 1; id <= 100; ++id)
    element.Do(EndPointOf(id, 2, "tx_ccm_enabled: false primary_vid: " + std::to_string(id)));
  simulation.RunFor(10s);
  element.announcer.Take();
  element.engine.AnnounceStatus();
  simulation.RunFor(100ms);
  const auto first = element.announcer.Take();
  EXPECT_FALSE(first.empty());
  element.engine.AnnounceStatus();  // asked again before the end: answered again from the beginning
  simulation.RunFor(1s);
  const auto rest = element.announcer.Take();
  const auto is_local = [](const std::string& event) { return event.starts_with("StatusLocal"); };
  EXPECT_LT(std::count_if(first.begin(), first.end(), is_local), 100);
  EXPECT_EQ(std::count_if(rest.begin(), rest.end(), is_local), 100);
}

}  // namespace
}  // namespace cfm::engine
