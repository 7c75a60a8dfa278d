#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "client_server.pb.h"
#include "expected_events.h"
#include "noting_handlers.h"

namespace {

using recording::Called;
using recording::Journal;
using recording::kMac;
using recording::kMacRecord;
using recording::Logged;
using recording::Sent;
namespace pb = client_server;

pb::StatusLocalMaintenanceEndpoint LocalStatus() {
  pb::StatusLocalMaintenanceEndpoint message;
  message.set_md_name("MD1");
  message.set_ma_name("MA1");
  message.set_mac(kMac);
  message.set_local_mep_id(101);
  message.set_highest_defect(5);
  message.set_intf_status(6);
  message.set_port_state(2);
  message.set_block_state(3);
  message.set_shutdown_state(4);
  message.set_rdi(true);
  message.set_defect_mac_status(true);
  message.set_defect_remote_ccm(false);
  message.set_defect_error_ccm(true);
  message.set_defect_xcon_ccm(false);
  message.set_defect_rdi(false);
  message.set_defect_ais(true);
  return message;
}

pb::StatusRemoteMaintenanceEndpoint RemoteStatus() {
  pb::StatusRemoteMaintenanceEndpoint message;
  message.set_md_name("MD1");
  message.set_ma_name("MA1");
  message.set_mac(kMac);
  message.set_sender_id("a switch far away, with a name longer than a short string");
  message.set_local_mep_id(101);
  message.set_remote_mep_id(202);
  message.set_fsm_state(4);
  message.set_port_state(2);
  message.set_intf_status(1);
  message.set_rdi(true);
  message.set_last_change_uptime(18446744073709551615U);
  return message;
}

pb::RemovedLocalMaintenanceEndpoint LocalRemoved() {
  pb::RemovedLocalMaintenanceEndpoint message;
  message.set_md_name("MD1");
  message.set_ma_name("MA1");
  message.set_local_mep_id(101);
  return message;
}

pb::RemovedRemoteMaintenanceEndpoint RemoteRemoved() {
  pb::RemovedRemoteMaintenanceEndpoint message;
  message.set_md_name("MD1");
  message.set_ma_name("MA1");
  message.set_local_mep_id(101);
  message.set_remote_mep_id(202);
  return message;
}

pb::OpDelayMeasurementSessionEnded SessionEnded() {
  pb::OpDelayMeasurementSessionEnded message;
  message.set_report_u32_1(4294967295U);
  message.set_report_u32_2(2);
  message.set_report_flag(1);
  message.set_report_u32_3(3);
  message.set_report_u32_4(4);
  message.set_report_u32_5(5);
  message.set_report_u32_6(6);
  message.set_report_u32_7(7);
  message.set_report_u32_8(8);
  message.set_report_double_1(0.1);
  message.set_report_double_2(-2.5);
  message.set_report_u32_9(9);
  message.set_report_u32_10(10);
  message.set_report_u32_11(11);
  message.set_report_u32_12(12);
  message.set_report_u32_13(13);
  message.set_report_u32_14(14);
  message.set_report_double_3(3.5);
  message.set_report_double_4(4.75);
  return message;
}

class StatusEvents : public testing::Test, protected recording::ClientUnderTest {
 protected:
  StatusEvents() { client.RegisterStatusHandler(&status); }
};

TEST_F(StatusEvents, LogALocalMepsStatusAndThenDeliverIt) {
  cfm::st_local_mep_status expected{};
  expected.mac = kMacRecord;
  expected.rdi = true;
  expected.intf_status = 6;
  expected.port_state = 2;
  expected.block_state = 3;
  expected.shutdown_state = 4;
  expected.highest_defect = 5;
  expected.defect_mac_status = true;
  expected.defect_error_ccm = true;
  expected.defect_ais = true;
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP, LocalStatus()),
                   {Logged(11, "HandleStatusLocalMep",
                           "\nLOCAL MEP status:\n"
                           "   MD MD1 MA MA1 LMEP 101\n"
                           "   MAC 00:1B:21:AB:CD:EF\n"
                           "   Local RDI 1 Local PortState 2 Local IntfStatus 6\n"
                           "   Local BlockState 3 Local ShutdownState 4\n"
                           "   Highest defect prio present: 5\n"
                           "   Defects:\n"
                           "     MAC status:       1\n"
                           "     Missing CCMs:     0\n"
                           "     CCM with errors:  1\n"
                           "     Cross-connection: 0\n"
                           "     RDI:              0\n"
                           "     AIS:              1\n"),
                    Called("status.OnLocalMepStatus", "MD1", "MA1", 101, expected)}));
}

TEST_F(StatusEvents, CarryEachFlagOfALocalMepByItself) {
  using Message = pb::StatusLocalMaintenanceEndpoint;
  using Status = cfm::st_local_mep_status;
  struct Flag {
    void (Message::*set)(bool);
    bool Status::*member;
    std::string line;
  };
  const std::vector<Flag> flags = {
      {&Message::set_rdi, &Status::rdi, "Local RDI 1"},
      {&Message::set_defect_mac_status, &Status::defect_mac_status, "MAC status:       1\n"},
      {&Message::set_defect_remote_ccm, &Status::defect_remote_ccm, "Missing CCMs:     1\n"},
      {&Message::set_defect_error_ccm, &Status::defect_error_ccm, "CCM with errors:  1\n"},
      {&Message::set_defect_xcon_ccm, &Status::defect_xcon_ccm, "Cross-connection: 1\n"},
      {&Message::set_defect_rdi, &Status::defect_rdi, "  RDI:              1\n"},
      {&Message::set_defect_ais, &Status::defect_ais, "AIS:              1\n"},
  };
  for (const Flag& flag : flags) {
    Message message;
    (message.*flag.set)(true);
    cfm::st_local_mep_status expected{};
    expected.*flag.member = true;
    const Journal journal = After(CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP, message);
    ASSERT_EQ(journal.size(), 2U);
    EXPECT_NE(journal[0].text.find(flag.line), std::string::npos) << journal[0].text;
    EXPECT_EQ(journal[1], Called("status.OnLocalMepStatus", "", "", 0, expected)) << flag.line;
  }
}

TEST_F(StatusEvents, LogARemoteMepsStatusAndThenDeliverIt) {
  cfm::st_remote_mep_status expected{};
  expected.fsm_state = 4;
  expected.last_change_uptime = 18446744073709551615U;
  expected.mac = kMacRecord;
  expected.rdi = true;
  expected.port_state = 2;
  expected.intf_status = 1;
  expected.sender_id = "a switch far away, with a name longer than a short string";
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP, RemoteStatus()),
                   {Logged(11, "HandleStatusRemoteMep",
                           "\nRemote MEP status:\n"
                           "   MD MD1 MA MA1 LMEP 101 RMEP 202\n"
                           "   MAC 00:1B:21:AB:CD:EF\n"
                           "   FSM state 4\n"
                           "   RDI 1 PortState 2\n"
                           "   IntfStatus 1 Sender ID a switch far away, with a name longer than a short string "
                           "Last Change Uptime: 18446744073709551615\n"),
                    Called("status.OnRemoteMepStatus", "MD1", "MA1", 101, 202, expected)}));
}

TEST_F(StatusEvents, LogARemovedLocalMepAndThenDeliverIt) {
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP, LocalRemoved()),
                   {Logged(11, "HandleRemovedLocalMep", "\nLocal MEP removed: MD MD1 MA MA1 LMEP 101\n"),
                    Called("status.OnLocalMepRemoved", "MD1", "MA1", 101)}));
}

TEST_F(StatusEvents, LogARemovedRemoteMepAndThenDeliverIt) {
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_REMOVED_REMOTE_MEP, RemoteRemoved()),
                   {Logged(11, "HandleRemovedRemoteMep", "\nRemote MEP removed: MD MD1 MA MA1 LMEP 101 RMEP 202\n"),
                    Called("status.OnRemoteMepRemoved", "MD1", "MA1", 101, 202)}));
}

TEST_F(StatusEvents, DeliverTheEndOfASessionWithoutALogLine) {
  cfm::delay_measurement_session_report expected{};
  expected.report_u32_1 = 4294967295U;
  expected.report_u32_2 = 2;
  expected.report_flag = 1;
  expected.report_u32_3 = 3;
  expected.report_u32_4 = 4;
  expected.report_u32_5 = 5;
  expected.report_u32_6 = 6;
  expected.report_u32_7 = 7;
  expected.report_u32_8 = 8;
  expected.report_double_1 = 0.1;
  expected.report_double_2 = -2.5;
  expected.report_u32_9 = 9;
  expected.report_u32_10 = 10;
  expected.report_u32_11 = 11;
  expected.report_u32_12 = 12;
  expected.report_u32_13 = 13;
  expected.report_u32_14 = 14;
  expected.report_double_3 = 3.5;
  expected.report_double_4 = 4.75;
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED, SessionEnded()),
                   {Called("status.OnDelayMeasurementSessionEnded", expected)}));
}

TEST_F(StatusEvents, DeliverTheLowByteOfASessionsFlag) {
  pb::OpDelayMeasurementSessionEnded message;
  message.set_report_flag(0xabcd01ffU);
  cfm::delay_measurement_session_report expected{};
  expected.report_flag = 0xff;
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED, message),
                   {Called("status.OnDelayMeasurementSessionEnded", expected)}));
}

TEST_F(StatusEvents, ReachTheStatusHandlerForASessionsEndWhetherOrNotADelayMeasurementHandlerIsRegistered) {
  const Journal alone = After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED, SessionEnded());
  RegisterAll();
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED, SessionEnded()), alone));
  EXPECT_TRUE(Same(alone, recording::Expected(SessionEnded())));
}

TEST_F(StatusEvents, DoNothingVisibleForASessionsEndWithoutAStatusHandler) {
  RegisterAll();
  client.RegisterStatusHandler(nullptr);
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED, SessionEnded()), {}));
}

TEST_F(StatusEvents, AreNeitherLoggedNorDeliveredWithoutAStatusHandler) {
  RegisterAll();
  client.RegisterStatusHandler(nullptr);
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP, LocalStatus()), {}));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP, RemoteStatus()), {}));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP, LocalRemoved()), {}));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_REMOVED_REMOTE_MEP, RemoteRemoved()), {}));
}

TEST_F(StatusEvents, AreLoggedAlsoWhenNoLevelIsEnabledAndWithoutAsking) {
  middleware.level_enabled = [](int) { return false; };
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP, LocalStatus()), recording::Expected(LocalStatus())));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP, RemoteStatus()), recording::Expected(RemoteStatus())));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP, LocalRemoved()), recording::Expected(LocalRemoved())));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_REMOVED_REMOTE_MEP, RemoteRemoved()), recording::Expected(RemoteRemoved())));
}

TEST_F(StatusEvents, WithAnEmptyPayloadCallTheHandlerWithEmptyNamesAndZeros) {
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP, ""),
                   {Logged(11, "HandleStatusLocalMep",
                           "\nLOCAL MEP status:\n   MD  MA  LMEP 0\n   MAC 00:00:00:00:00:00\n"
                           "   Local RDI 0 Local PortState 0 Local IntfStatus 0\n"
                           "   Local BlockState 0 Local ShutdownState 0\n   Highest defect prio present: 0\n"
                           "   Defects:\n     MAC status:       0\n     Missing CCMs:     0\n"
                           "     CCM with errors:  0\n     Cross-connection: 0\n     RDI:              0\n"
                           "     AIS:              0\n"),
                    Called("status.OnLocalMepStatus", "", "", 0, cfm::st_local_mep_status{})}));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP, ""),
                   {Logged(11, "HandleStatusRemoteMep",
                           "\nRemote MEP status:\n   MD  MA  LMEP 0 RMEP 0\n   MAC 00:00:00:00:00:00\n"
                           "   FSM state 0\n   RDI 0 PortState 0\n   IntfStatus 0 Sender ID  Last Change Uptime: 0\n"),
                    Called("status.OnRemoteMepStatus", "", "", 0, 0, cfm::st_remote_mep_status{})}));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP, ""),
                   {Logged(11, "HandleRemovedLocalMep", "\nLocal MEP removed: MD  MA  LMEP 0\n"),
                    Called("status.OnLocalMepRemoved", "", "", 0)}));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_REMOVED_REMOTE_MEP, ""),
                   {Logged(11, "HandleRemovedRemoteMep", "\nRemote MEP removed: MD  MA  LMEP 0 RMEP 0\n"),
                    Called("status.OnRemoteMepRemoved", "", "", 0, 0)}));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED, ""),
                   {Called("status.OnDelayMeasurementSessionEnded", cfm::delay_measurement_session_report{})}));
}

TEST_F(StatusEvents, CopyAShortMacAsFarAsItGoesAndAreZeroBeyond) {
  pb::StatusLocalMaintenanceEndpoint message;
  message.set_mac("\x0a\xff");
  cfm::st_local_mep_status expected{};
  expected.mac = {{0x0a, 0xff, 0, 0, 0, 0}};
  const Journal journal = After(CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP, message);
  ASSERT_EQ(journal.size(), 2U);
  EXPECT_NE(journal[0].text.find("\n   MAC 0A:FF:00:00:00:00\n"), std::string::npos) << journal[0].text;
  EXPECT_EQ(journal[1], Called("status.OnLocalMepStatus", "", "", 0, expected));
}

TEST_F(StatusEvents, TakeTheFirstSixOctetsOfAMacOfAnyLength) {
  const std::string octets = "\x11\x22\x33\x44\x55\x66\x77\x88 and more than a short string holds";
  pb::StatusLocalMaintenanceEndpoint whole_local;
  whole_local.set_mac(octets);
  pb::StatusRemoteMaintenanceEndpoint whole_remote;
  whole_remote.set_mac(octets);
  for (std::size_t length = 0; length <= octets.size(); ++length) {
    pb::StatusLocalMaintenanceEndpoint local;
    local.set_mac(octets.substr(0, length));
    EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP, local), recording::Expected(local))) << length;
    EXPECT_TRUE(
        Same(AfterOverwriting(whole_local, CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP, local), recording::Expected(local)))
        << length;
    pb::StatusRemoteMaintenanceEndpoint remote;
    remote.set_mac(octets.substr(0, length));
    EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP, remote), recording::Expected(remote))) << length;
    EXPECT_TRUE(
        Same(AfterOverwriting(whole_remote, CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP, remote), recording::Expected(remote)))
        << length;
  }
}

TEST_F(StatusEvents, LogAMepIdAbove65535WholeAndDeliverItModulo65536) {
  pb::StatusLocalMaintenanceEndpoint local;
  local.set_local_mep_id(65536 + 7);
  Journal journal = After(CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP, local);
  ASSERT_EQ(journal.size(), 2U);
  EXPECT_NE(journal[0].text.find(" LMEP 65543\n"), std::string::npos) << journal[0].text;
  EXPECT_EQ(journal[1], Called("status.OnLocalMepStatus", "", "", 7, cfm::st_local_mep_status{}));

  pb::StatusRemoteMaintenanceEndpoint remote;
  remote.set_local_mep_id(65536 + 8);
  remote.set_remote_mep_id(2 * 65536 + 9);
  journal = After(CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP, remote);
  ASSERT_EQ(journal.size(), 2U);
  EXPECT_NE(journal[0].text.find(" LMEP 65544 RMEP 131081\n"), std::string::npos) << journal[0].text;
  EXPECT_EQ(journal[1], Called("status.OnRemoteMepStatus", "", "", 8, 9, cfm::st_remote_mep_status{}));

  pb::RemovedLocalMaintenanceEndpoint removed;
  removed.set_local_mep_id(65536);
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP, removed),
                   {Logged(11, "HandleRemovedLocalMep", "\nLocal MEP removed: MD  MA  LMEP 65536\n"),
                    Called("status.OnLocalMepRemoved", "", "", 0)}));

  pb::RemovedRemoteMaintenanceEndpoint gone;
  gone.set_local_mep_id(4294967295U);
  gone.set_remote_mep_id(65535);
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_REMOVED_REMOTE_MEP, gone),
                   {Logged(11, "HandleRemovedRemoteMep", "\nRemote MEP removed: MD  MA  LMEP -1 RMEP 65535\n"),
                    Called("status.OnRemoteMepRemoved", "", "", 65535, 65535)}));
}

TEST_F(StatusEvents, LogAnInterfaceStatusAbove255WholeAndDeliverItsLowByte) {
  pb::StatusLocalMaintenanceEndpoint local;
  local.set_intf_status(0x107);
  cfm::st_local_mep_status expected_local{};
  expected_local.intf_status = 7;
  Journal journal = After(CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP, local);
  ASSERT_EQ(journal.size(), 2U);
  EXPECT_NE(journal[0].text.find(" Local IntfStatus 263\n"), std::string::npos) << journal[0].text;
  EXPECT_EQ(journal[1], Called("status.OnLocalMepStatus", "", "", 0, expected_local));

  pb::StatusRemoteMaintenanceEndpoint remote;
  remote.set_intf_status(0xfe05);
  cfm::st_remote_mep_status expected_remote{};
  expected_remote.intf_status = 5;
  journal = After(CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP, remote);
  ASSERT_EQ(journal.size(), 2U);
  EXPECT_NE(journal[0].text.find("\n   IntfStatus 65029 "), std::string::npos) << journal[0].text;
  EXPECT_EQ(journal[1], Called("status.OnRemoteMepStatus", "", "", 0, 0, expected_remote));
}

// Keeps a copy of the record, as an application may.
class KeepingHandler final : public cfm::ReceivedStatusHandlerIntf {
 public:
  void OnLocalMepStatus(const std::string& /*md*/, const std::string& /*ma*/, std::uint16_t /*mep_id*/,
                        const cfm::st_local_mep_status& /*status*/) override {}
  void OnRemoteMepStatus(const std::string& /*md*/, const std::string& /*ma*/, std::uint16_t /*local_mep_id*/,
                         std::uint16_t /*remote_mep_id*/, const cfm::st_remote_mep_status& status) override {
    kept = status;
  }
  void OnLocalMepRemoved(const std::string& /*md*/, const std::string& /*ma*/, std::uint16_t /*mep_id*/) override {}
  void OnRemoteMepRemoved(const std::string& /*md*/, const std::string& /*ma*/, std::uint16_t /*local_mep_id*/,
                          std::uint16_t /*remote_mep_id*/) override {}
  void OnLinktraceStarted(const std::string& /*md_name*/, const std::string& /*ma_name*/, std::uint16_t /*mep_id*/,
                          std::uint32_t /*transaction_id*/, cfm::st_mac /*target_mac*/, std::uint16_t /*target_mep_id*/,
                          bool /*has_optional_value*/, std::uint32_t /*optional_value*/) override {}
  void OnLinktraceEnded(const std::string& /*md_name*/, const std::string& /*ma_name*/, std::uint16_t /*mep_id*/,
                        std::uint32_t /*transaction_id*/) override {}
  void OnLinktraceReply(const std::string& /*md_name*/, const std::string& /*ma_name*/, std::uint16_t /*mep_id*/,
                        const cfm::LinktraceReplyEntry& /*reply*/) override {}
  void OnDelayMeasurementSessionEnded(const cfm::delay_measurement_session_report& /*report*/) override {}
  void OnServerFound() override {}

  std::optional<cfm::st_remote_mep_status> kept;
};

TEST_F(StatusEvents, CopyTheSenderIdIntoTheRecordSoThatACopyOfTheRecordOutlivesTheCall) {
  KeepingHandler keeping;
  client.RegisterStatusHandler(&keeping);
  ASSERT_EQ(middleware.Deliver(CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP, RemoteStatus()), 1);
  ASSERT_TRUE(keeping.kept.has_value());
  EXPECT_EQ(keeping.kept->sender_id, RemoteStatus().sender_id());
  client.RegisterStatusHandler(nullptr);
}

TEST_F(StatusEvents, ThatDoNotParseAreDeliveredAsFarAsTheyWereRead) {
  const std::string cut = LocalRemoved().SerializeAsString() + "\x7a";  // a field's tag, and no more
  pb::RemovedLocalMaintenanceEndpoint message;
  ASSERT_FALSE(message.ParseFromString(cut));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP, cut),
                   {Logged(11, "HandleRemovedLocalMep", "\nLocal MEP removed: MD MD1 MA MA1 LMEP 101\n"),
                    Called("status.OnLocalMepRemoved", "MD1", "MA1", 101)}));
}

TEST_F(StatusEvents, GoOnlyToTheHandlerRegisteredLast) {
  recording::StatusNotes second(middleware, "second");
  client.RegisterStatusHandler(&second);
  EXPECT_TRUE(Same(Only(After(CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP, LocalRemoved()), {recording::Kind::kNote}),
                   {Called("second.OnLocalMepRemoved", "MD1", "MA1", 101)}));
  client.RegisterStatusHandler(nullptr);
}

TEST_F(StatusEvents, TellThatTheServerWasFoundAfterItsCacheWasAskedFor) {
  middleware.Find(9);
  EXPECT_TRUE(Same(middleware.Take(), {Logged(10, "ServerFound", "CFM manager server found"),
                                       Sent(CFM_MGR_C2S_SIG_CACHE_GET, 9), Called("status.OnServerFound")}));
}

}  // namespace
