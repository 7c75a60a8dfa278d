#include <gtest/gtest.h>

#include <string>

#include "client_server.pb.h"
#include "expected_events.h"
#include "noting_handlers.h"

namespace loopback {
namespace {

using recording::Called;
using recording::Journal;
using recording::kMac;
using recording::kMacRecord;
using recording::Logged;
using recording::Sent;
namespace pb = client_server;

cfm::loopback_trigger Trigger() {
  cfm::loopback_trigger trigger{};
  trigger.trigger_id = 4294967295U;
  trigger.md_name = "MD1";
  trigger.ma_name = "MA1";
  trigger.mep_id = 65535;
  trigger.target_mep_id = 32768;
  trigger.lb_param_1 = 2147483648U;
  trigger.lb_param_2 = 65534;
  return trigger;
}

Journal Request(vorbus_pid_t to, const pb::OpLoopbackTriggerMsg& message) {
  return {Logged(10, "LoopbackTrigger", "Serializing to string."),
          Logged(10, "LoopbackTrigger", "Sending signal to server."), Sent(CFM_MGR_C2S_SIG_LB_TRIGGER, to, message),
          Logged(10, "LoopbackTrigger", "Signal sent.")};
}

pb::OpLoopbackTriggerError Refusal() {
  pb::OpLoopbackTriggerError message;
  message.set_md_name("MD1");
  message.set_ma_name("MA1");
  message.set_trigger_id(11);
  message.set_error_code(4000000003U);
  message.set_mep_id(101);
  message.set_target_mep_id(202);
  return message;
}

pb::OpLoopbackStarted Started() {
  pb::OpLoopbackStarted message;
  message.set_target_mac(kMac);
  message.set_trigger_id(11);
  return message;
}

pb::OpLoopbackReplyRx Reply() {
  pb::OpLoopbackReplyRx message;
  message.set_source_mac(kMac);
  message.set_trigger_id(11);
  message.set_transaction_id(4294967290U);
  return message;
}

pb::OpLoopbackEnded Ended() {
  pb::OpLoopbackEnded message;
  message.set_expected(18446744073709551615U);
  message.set_in_order(2);
  message.set_out_of_order(3);
  message.set_wrong_payload(4);
  message.set_trigger_id(11);
  return message;
}

class Loopback : public testing::Test, protected recording::ClientUnderTest {
 protected:
  Loopback() { RegisterAll(); }
};

TEST_F(Loopback, TriggerSendsEveryFieldBetweenItsTraceLines) {
  middleware.Find(42);
  middleware.Take();
  client.LoopbackTrigger(Trigger());
  pb::OpLoopbackTriggerMsg message;
  message.set_md_name("MD1");
  message.set_ma_name("MA1");
  message.set_trigger_id(4294967295U);
  message.set_mep_id(65535);
  message.set_target_mep_id(32768);
  message.set_lb_param_1(2147483648U);
  message.set_lb_param_2(65534);
  EXPECT_TRUE(Same(middleware.Take(), Request(42, message)));
}

TEST_F(Loopback, TriggerSetsFieldsThatAreZeroOrEmptyToo) {
  middleware.Find(42);
  middleware.Take();
  client.LoopbackTrigger(cfm::loopback_trigger{});
  pb::OpLoopbackTriggerMsg message;
  message.set_md_name("");
  message.set_ma_name("");
  message.set_trigger_id(0);
  message.set_mep_id(0);
  message.set_target_mep_id(0);
  message.set_lb_param_1(0);
  message.set_lb_param_2(0);
  EXPECT_TRUE(Same(middleware.Take(), Request(42, message)));
}

TEST_F(Loopback, TriggerSendsItsSignalEvenWhileTheServerIsUnknown) {
  client.LoopbackTrigger(Trigger());
  const Journal without = Only(middleware.Take(), {recording::Kind::kSend});
  ASSERT_EQ(without.size(), 1U);
  EXPECT_EQ(without[0].text, "send CFM_MGR_C2S_SIG_LB_TRIGGER to 0");
  middleware.Find(42);  // and is not repeated when the server comes
  EXPECT_TRUE(Same(Only(middleware.Take(), {recording::Kind::kSend}), {Sent(CFM_MGR_C2S_SIG_CACHE_GET, 42)}));
}

TEST_F(Loopback, TriggerErrorIsLoggedWithItsCodeAndDelivered) {
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR, Refusal()),
                   {Logged(10, "HandleLoopbackTriggerError", "Loopback trigger error received: 4000000003"),
                    Called("loopback.OnLoopbackTriggerError", 11, 4000000003U, "MD1", "MA1", 101, 202)}));
}

TEST_F(Loopback, StartIsLoggedWithItsMacAndDelivered) {
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LOOPBACK_STARTED, Started()),
                   {Logged(10, "HandleLoopbackStarted", "Loopback started: target MAC is 00:1b:21:ab:cd:ef."),
                    Called("loopback.OnLoopbackStarted", 11, kMacRecord)}));
}

TEST_F(Loopback, ReplyIsLoggedWithItsTransactionAndDelivered) {
  EXPECT_TRUE(Same(
      After(CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX, Reply()),
      {Logged(10, "HandleLoopbackReplyRx", "Loopback reply received: transaction 4294967290, MAC 00:1b:21:ab:cd:ef"),
       Called("loopback.OnLoopbackReply", 11, 4294967290U, kMacRecord)}));
}

TEST_F(Loopback, EndIsLoggedWithItsCountsAndDelivered) {
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LOOPBACK_ENDED, Ended()),
                   {Logged(10, "HandleLoopbackEnded",
                           "Loopback ended received: expected 18446744073709551615 replies. Received: 2 in-order, "
                           "3 out-of-order, 4 with wrong payload."),
                    Called("loopback.OnLoopbackEnded", 11, 18446744073709551615U, 2, 3, 4)}));
}

TEST_F(Loopback, TriggerErrorWithoutAHandlerStillLogsItsLineWithTheCode) {
  client.RegisterLoopbackHandler(nullptr);
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR, Refusal()),
                   {Logged(10, "HandleLoopbackTriggerError", "Loopback trigger error received: 4000000003")}));
}

TEST_F(Loopback, ReportsWithoutAHandlerAreStillLogged) {
  client.RegisterLoopbackHandler(nullptr);
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LOOPBACK_STARTED, Started()),
                   {Logged(10, "HandleLoopbackStarted", "Loopback started: target MAC is 00:1b:21:ab:cd:ef.")}));
  EXPECT_TRUE(Same(
      After(CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX, Reply()),
      {Logged(10, "HandleLoopbackReplyRx", "Loopback reply received: transaction 4294967290, MAC 00:1b:21:ab:cd:ef")}));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LOOPBACK_ENDED, Ended()),
                   {Logged(10, "HandleLoopbackEnded",
                           "Loopback ended received: expected 18446744073709551615 replies. Received: 2 in-order, "
                           "3 out-of-order, 4 with wrong payload.")}));
}

TEST_F(Loopback, EndWithAllCountsZeroLogsFourZeros) {
  pb::OpLoopbackEnded message;
  message.set_expected(0);
  message.set_in_order(0);
  message.set_out_of_order(0);
  message.set_wrong_payload(0);
  message.set_trigger_id(11);
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LOOPBACK_ENDED, message),
                   {Logged(10, "HandleLoopbackEnded",
                           "Loopback ended received: expected 0 replies. Received: 0 in-order, 0 out-of-order, "
                           "0 with wrong payload."),
                    Called("loopback.OnLoopbackEnded", 11, 0, 0, 0, 0)}));
}

TEST_F(Loopback, TriggerErrorHandsOnMepIdsAbove65535CutTo16Bits) {
  pb::OpLoopbackTriggerError message = Refusal();
  message.set_mep_id(65536 + 7);
  message.set_target_mep_id(4294901761U);
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR, message),
                   {Logged(10, "HandleLoopbackTriggerError", "Loopback trigger error received: 4000000003"),
                    Called("loopback.OnLoopbackTriggerError", 11, 4000000003U, "MD1", "MA1", 7, 1)}));
}

TEST_F(Loopback, ReportsWithAnEmptyPayloadAreAllZero) {
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR, ""),
                   {Logged(10, "HandleLoopbackTriggerError", "Loopback trigger error received: 0"),
                    Called("loopback.OnLoopbackTriggerError", 0, 0, "", "", 0, 0)}));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LOOPBACK_STARTED, ""),
                   {Logged(10, "HandleLoopbackStarted", "Loopback started: target MAC is 00:00:00:00:00:00."),
                    Called("loopback.OnLoopbackStarted", 0, cfm::st_mac{})}));
  EXPECT_TRUE(
      Same(After(CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX, ""),
           {Logged(10, "HandleLoopbackReplyRx", "Loopback reply received: transaction 0, MAC 00:00:00:00:00:00"),
            Called("loopback.OnLoopbackReply", 0, 0, cfm::st_mac{})}));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LOOPBACK_ENDED, ""),
                   {Logged(10, "HandleLoopbackEnded",
                           "Loopback ended received: expected 0 replies. Received: 0 in-order, 0 out-of-order, "
                           "0 with wrong payload."),
                    Called("loopback.OnLoopbackEnded", 0, 0, 0, 0, 0)}));
}

TEST_F(Loopback, ReportsThatDoNotParseAreDeliveredAsFarAsTheyWereRead) {
  const std::string cut = Refusal().SerializeAsString() + "\x7a";
  ASSERT_FALSE(pb::OpLoopbackTriggerError().ParseFromString(cut));
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR, cut), recording::Expected(Refusal())));
}

TEST_F(Loopback, ReportsTakeTheFirstSixOctetsOfAMacOfAnyLength) {
  const std::string octets = "\x11\x22\x33\x44\x55\x66\x77\x88 and more than a short string holds";
  pb::OpLoopbackStarted whole_started;
  whole_started.set_target_mac(octets);
  pb::OpLoopbackReplyRx whole_reply;
  whole_reply.set_source_mac(octets);
  for (std::size_t length = 0; length <= octets.size(); ++length) {
    pb::OpLoopbackStarted started;
    started.set_target_mac(octets.substr(0, length));
    EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LOOPBACK_STARTED, started), recording::Expected(started))) << length;
    EXPECT_TRUE(Same(AfterOverwriting(whole_started, CFM_MGR_SRV_EVENT_LOOPBACK_STARTED, started),
                     recording::Expected(started)))
        << length;
    pb::OpLoopbackReplyRx reply;
    reply.set_source_mac(octets.substr(0, length));
    EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX, reply), recording::Expected(reply))) << length;
    EXPECT_TRUE(
        Same(AfterOverwriting(whole_reply, CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX, reply), recording::Expected(reply)))
        << length;
  }
}

TEST_F(Loopback, LinesAreWrittenAlsoWhenNoLevelIsEnabledAndWithoutAsking) {
  middleware.level_enabled = [](int) { return false; };
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR, Refusal()), recording::Expected(Refusal())));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LOOPBACK_STARTED, Started()), recording::Expected(Started())));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX, Reply()), recording::Expected(Reply())));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LOOPBACK_ENDED, Ended()), recording::Expected(Ended())));
}

}  // namespace
}  // namespace loopback
