#include <gtest/gtest.h>

#include <string>

#include "client_server.pb.h"
#include "expected_events.h"
#include "noting_handlers.h"

namespace delay_measurement {
namespace {

using recording::Called;
using recording::Journal;
using recording::kMac;
using recording::kMacRecord;
using recording::Logged;
using recording::Sent;
namespace pb = client_server;

cfm::delay_measurement_trigger Trigger() {
  cfm::delay_measurement_trigger trigger{};
  trigger.trigger_id = 4294967295U;
  trigger.md_name = "MD1";
  trigger.ma_name = "MA1";
  trigger.mep_id = 65535;
  trigger.target_mep_id = 32768;
  trigger.dm_param_1 = 2147483648U;
  trigger.dm_param_2 = 4294967294U;
  trigger.dm_param_3 = 65534;
  trigger.dm_param_4 = 255;
  return trigger;
}

Journal Request(vorbus_pid_t to, const pb::OpDelayMeasurementTriggerMsg& message) {
  return {Logged(10, "DelayMeasurementTrigger", "Serializing to string."),
          Logged(10, "DelayMeasurementTrigger", "Sending signal to server."),
          Sent(CFM_MGR_C2S_SIG_DM_TRIGGER, to, message), Logged(10, "DelayMeasurementTrigger", "Signal sent.")};
}

pb::OpDelayMeasurementTriggerError Refusal() {
  pb::OpDelayMeasurementTriggerError message;
  message.set_md_name("MD1");
  message.set_ma_name("MA1");
  message.set_trigger_id(11);
  message.set_error_code(4000000003U);
  message.set_mep_id(101);
  message.set_target_mep_id(202);
  return message;
}

pb::OpDelayMeasurementStarted Started() {
  pb::OpDelayMeasurementStarted message;
  message.set_target_mac(kMac);
  message.set_trigger_id(11);
  return message;
}

pb::OpDelayMeasurementReplyRx Reply() {
  pb::OpDelayMeasurementReplyRx message;
  message.set_source_mac(kMac);
  message.set_trigger_id(11);
  return message;
}

pb::OpDelayMeasurementEnded Ended() {
  pb::OpDelayMeasurementEnded message;
  message.set_rx_count(18446744073709551615U);
  message.set_tx_count(2);
  message.set_dm_result_1(0.1);
  message.set_dm_result_2(-2.25);
  message.set_dm_result_3(3e300);
  message.set_dm_result_4(4.5);
  message.set_dm_result_5(5.5);
  message.set_dm_result_6(6.5);
  message.set_dm_result_7(18446744073709551614U);
  message.set_trigger_id(11);
  return message;
}

class DelayMeasurement : public testing::Test, protected recording::ClientUnderTest {
 protected:
  DelayMeasurement() { RegisterAll(); }
};

TEST_F(DelayMeasurement, TriggerSendsEveryFieldBetweenItsTraceLines) {
  middleware.Find(42);
  middleware.Take();
  client.DelayMeasurementTrigger(Trigger());
  pb::OpDelayMeasurementTriggerMsg message;
  message.set_md_name("MD1");
  message.set_ma_name("MA1");
  message.set_trigger_id(4294967295U);
  message.set_mep_id(65535);
  message.set_target_mep_id(32768);
  message.set_dm_param_1(2147483648U);
  message.set_dm_param_2(4294967294U);
  message.set_dm_param_3(65534);
  message.set_dm_param_4(255);
  EXPECT_TRUE(Same(middleware.Take(), Request(42, message)));
}

TEST_F(DelayMeasurement, TriggerSetsFieldsThatAreZeroOrEmptyToo) {
  middleware.Find(42);
  middleware.Take();
  client.DelayMeasurementTrigger(cfm::delay_measurement_trigger{});
  pb::OpDelayMeasurementTriggerMsg message;
  message.set_md_name("");
  message.set_ma_name("");
  message.set_trigger_id(0);
  message.set_mep_id(0);
  message.set_target_mep_id(0);
  message.set_dm_param_1(0);
  message.set_dm_param_2(0);
  message.set_dm_param_3(0);
  message.set_dm_param_4(0);
  EXPECT_TRUE(Same(middleware.Take(), Request(42, message)));
}

TEST_F(DelayMeasurement, TriggerSendsItsSignalEvenWhileTheServerIsUnknown) {
  client.DelayMeasurementTrigger(Trigger());
  const Journal without = Only(middleware.Take(), {recording::Kind::kSend});
  ASSERT_EQ(without.size(), 1U);
  EXPECT_EQ(without[0].text, "send CFM_MGR_C2S_SIG_DM_TRIGGER to 0");
  middleware.Find(42);  // and is not repeated when the server comes
  EXPECT_TRUE(Same(Only(middleware.Take(), {recording::Kind::kSend}), {Sent(CFM_MGR_C2S_SIG_CACHE_GET, 42)}));
}

TEST_F(DelayMeasurement, TriggerErrorIsLoggedWithItsCodeAndDelivered) {
  EXPECT_TRUE(
      Same(After(CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR, Refusal()),
           {Logged(10, "HandleDelayMeasurementTriggerError", "Delay Measurement trigger error received: 4000000003"),
            Called("delay.OnDelayMeasurementTriggerError", 11, 4000000003U, "MD1", "MA1", 101, 202)}));
}

TEST_F(DelayMeasurement, StartIsLoggedWithItsMacAndDelivered) {
  EXPECT_TRUE(
      Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED, Started()),
           {Logged(10, "HandleDelayMeasurementStarted", "Delay Measurement started: target MAC is 00:1b:21:ab:cd:ef."),
            Called("delay.OnDelayMeasurementStarted", 11, kMacRecord)}));
}

TEST_F(DelayMeasurement, ReplyIsLoggedWithItsMacAndDelivered) {
  EXPECT_TRUE(
      Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX, Reply()),
           {Logged(10, "HandleDelayMeasurementReplyRx", "Delay Measurement reply received: MAC 00:1b:21:ab:cd:ef"),
            Called("delay.OnDelayMeasurementReply", 11, kMacRecord)}));
}

TEST_F(DelayMeasurement, EndIsLoggedWithItsCountsAndDeliveredWithItsResultsInOrder) {
  EXPECT_TRUE(
      Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_ENDED, Ended()),
           {Logged(10, "HandleDelayMeasurementEnded", "Delay Measurement ended: rx: 18446744073709551615, tx: 2."),
            Called("delay.OnDelayMeasurementEnded", 11, 18446744073709551615U, 2, 0.1, -2.25, 3e300, 4.5, 5.5, 6.5,
                   18446744073709551614U)}));
}

TEST_F(DelayMeasurement, TriggerErrorWithoutAHandlerStillLogsItsLine) {
  client.RegisterDelayMeasurementHandler(nullptr);
  EXPECT_TRUE(
      Same(After(CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR, Refusal()),
           {Logged(10, "HandleDelayMeasurementTriggerError", "Delay Measurement trigger error received: 4000000003")}));
}

TEST_F(DelayMeasurement, ReportsWithoutAHandlerAreStillLogged) {
  client.RegisterDelayMeasurementHandler(nullptr);
  EXPECT_TRUE(Same(
      After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED, Started()),
      {Logged(10, "HandleDelayMeasurementStarted", "Delay Measurement started: target MAC is 00:1b:21:ab:cd:ef.")}));
  EXPECT_TRUE(
      Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX, Reply()),
           {Logged(10, "HandleDelayMeasurementReplyRx", "Delay Measurement reply received: MAC 00:1b:21:ab:cd:ef")}));
  EXPECT_TRUE(
      Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_ENDED, Ended()),
           {Logged(10, "HandleDelayMeasurementEnded", "Delay Measurement ended: rx: 18446744073709551615, tx: 2.")}));
}

TEST_F(DelayMeasurement, TriggerErrorHandsOnMepIdsAbove65535CutTo16Bits) {
  pb::OpDelayMeasurementTriggerError message = Refusal();
  message.set_mep_id(65536 + 7);
  message.set_target_mep_id(4294901761U);
  EXPECT_TRUE(
      Same(After(CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR, message),
           {Logged(10, "HandleDelayMeasurementTriggerError", "Delay Measurement trigger error received: 4000000003"),
            Called("delay.OnDelayMeasurementTriggerError", 11, 4000000003U, "MD1", "MA1", 7, 1)}));
}

TEST_F(DelayMeasurement, ReportsWithAnEmptyPayloadAreAllZero) {
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR, ""),
                   {Logged(10, "HandleDelayMeasurementTriggerError", "Delay Measurement trigger error received: 0"),
                    Called("delay.OnDelayMeasurementTriggerError", 0, 0, "", "", 0, 0)}));
  EXPECT_TRUE(
      Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED, ""),
           {Logged(10, "HandleDelayMeasurementStarted", "Delay Measurement started: target MAC is 00:00:00:00:00:00."),
            Called("delay.OnDelayMeasurementStarted", 0, cfm::st_mac{})}));
  EXPECT_TRUE(
      Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX, ""),
           {Logged(10, "HandleDelayMeasurementReplyRx", "Delay Measurement reply received: MAC 00:00:00:00:00:00"),
            Called("delay.OnDelayMeasurementReply", 0, cfm::st_mac{})}));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_ENDED, ""),
                   {Logged(10, "HandleDelayMeasurementEnded", "Delay Measurement ended: rx: 0, tx: 0."),
                    Called("delay.OnDelayMeasurementEnded", 0, 0, 0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0)}));
}

TEST_F(DelayMeasurement, ReportsThatDoNotParseAreDeliveredAsFarAsTheyWereRead) {
  const std::string cut = Refusal().SerializeAsString() + "\x7a";
  ASSERT_FALSE(pb::OpDelayMeasurementTriggerError().ParseFromString(cut));
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR, cut), recording::Expected(Refusal())));
}

TEST_F(DelayMeasurement, ReportsTakeTheFirstSixOctetsOfAMacOfAnyLength) {
  const std::string octets = "\x11\x22\x33\x44\x55\x66\x77\x88 and more than a short string holds";
  pb::OpDelayMeasurementStarted whole_started;
  whole_started.set_target_mac(octets);
  pb::OpDelayMeasurementReplyRx whole_reply;
  whole_reply.set_source_mac(octets);
  for (std::size_t length = 0; length <= octets.size(); ++length) {
    pb::OpDelayMeasurementStarted started;
    started.set_target_mac(octets.substr(0, length));
    EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED, started), recording::Expected(started)))
        << length;
    EXPECT_TRUE(Same(AfterOverwriting(whole_started, CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED, started),
                     recording::Expected(started)))
        << length;
    pb::OpDelayMeasurementReplyRx reply;
    reply.set_source_mac(octets.substr(0, length));
    EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX, reply), recording::Expected(reply))) << length;
    EXPECT_TRUE(Same(AfterOverwriting(whole_reply, CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX, reply),
                     recording::Expected(reply)))
        << length;
  }
}

TEST_F(DelayMeasurement, LinesAreWrittenAlsoWhenNoLevelIsEnabledAndWithoutAsking) {
  middleware.level_enabled = [](int) { return false; };
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR, Refusal()), recording::Expected(Refusal())));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED, Started()), recording::Expected(Started())));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX, Reply()), recording::Expected(Reply())));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_ENDED, Ended()), recording::Expected(Ended())));
}

}  // namespace
}  // namespace delay_measurement
