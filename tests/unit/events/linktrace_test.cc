#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "client_server.pb.h"
#include "expected_events.h"
#include "noting_handlers.h"

namespace linktrace {
namespace {

using recording::Called;
using recording::Journal;
using recording::Kind;
using recording::kMac;
using recording::kMacRecord;
using recording::LevelQueried;
using recording::Logged;
using recording::Sent;
namespace pb = client_server;

cfm::linktrace_trigger Trigger() {
  cfm::linktrace_trigger trigger{};
  trigger.trigger_id = 4294967295U;
  trigger.md_name = "MD1";
  trigger.ma_name = "MA1";
  trigger.mep_id = 65535;
  trigger.target_mep_id = 32768;
  trigger.ttl = 255;
  return trigger;
}

Journal Request(vorbus_pid_t to, const pb::OpLinktraceTriggerMsg& message) {
  return {
      Logged(10, "LinktraceTrigger", "LinktraceTrigger implementation. Lets prepare the protobuf msg."),
      Logged(10, "LinktraceTrigger", "Serializing to string."),
      Logged(10, "LinktraceTrigger", "Sending signal to server."),
      Sent(CFM_MGR_C2S_SIG_LT_TRIGGER, to, message),
      Logged(10, "LinktraceTrigger", "Signal sent."),
  };
}

pb::OpLinktraceStarted Started() {
  pb::OpLinktraceStarted message;
  message.set_md_name("MD1");
  message.set_ma_name("MA1");
  message.set_target_mac(kMac);
  message.set_mep_id(101);
  message.set_transaction_id(4000000001U);
  message.set_target_mep_id(202);
  message.set_optional_value(64);
  return message;
}

pb::OpLinktraceEnded Ended() {
  pb::OpLinktraceEnded message;
  message.set_md_name("MD1");
  message.set_ma_name("MA1");
  message.set_mep_id(101);
  message.set_transaction_id(4000000001U);
  return message;
}

pb::OpLinktraceReplyRx ReplyRx() {
  pb::OpLinktraceReplyRx message;
  message.set_md_name("MD1");
  message.set_ma_name("MA1");
  message.set_mep_id(101);
  message.mutable_reply()->set_source_mac(kMac);
  message.mutable_reply()->set_transaction_id(4000000001U);
  return message;
}

pb::OpLinktraceTriggerError Refusal() {
  pb::OpLinktraceTriggerError message;
  message.mutable_key()->set_md_name("MD1");
  message.mutable_key()->set_ma_name("MA1");
  message.mutable_key()->set_trigger_id(11);
  message.mutable_key()->set_mep_id(101);
  message.mutable_key()->set_target_mep_id(202);
  message.set_ttl(64);
  return message;
}

class Linktrace : public testing::Test, protected recording::ClientUnderTest {
 protected:
  Linktrace() { RegisterAll(); }

  Journal CallsAfterAllThreeEvents() {
    Journal calls;
    for (const Journal& journal :
         {After(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, Started()), After(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, ReplyRx()),
          After(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED, Ended())}) {
      const Journal notes = Only(journal, {Kind::kNote});
      calls.insert(calls.end(), notes.begin(), notes.end());
    }
    return calls;
  }
};

// ---- The request ----

TEST_F(Linktrace, TriggerSendsEveryFieldAfterItsTraceLines) {
  middleware.Find(42);
  middleware.Take();
  client.LinktraceTrigger(Trigger());
  pb::OpLinktraceTriggerMsg message;
  message.mutable_key()->set_md_name("MD1");
  message.mutable_key()->set_ma_name("MA1");
  message.mutable_key()->set_trigger_id(4294967295U);
  message.mutable_key()->set_mep_id(65535);
  message.mutable_key()->set_target_mep_id(32768);
  message.set_ttl(255);
  EXPECT_TRUE(Same(middleware.Take(), Request(42, message)));
}

TEST_F(Linktrace, TriggerSetsTheKeyAndFieldsThatAreZeroOrEmptyToo) {
  middleware.Find(42);
  middleware.Take();
  client.LinktraceTrigger(cfm::linktrace_trigger{});
  pb::OpLinktraceTriggerMsg message;
  message.mutable_key()->set_md_name("");
  message.mutable_key()->set_ma_name("");
  message.mutable_key()->set_trigger_id(0);
  message.mutable_key()->set_mep_id(0);
  message.mutable_key()->set_target_mep_id(0);
  message.set_ttl(0);
  EXPECT_TRUE(Same(middleware.Take(), Request(42, message)));
}

TEST_F(Linktrace, TriggerSendsItsSignalEvenWhileTheServerIsUnknown) {
  client.LinktraceTrigger(Trigger());
  const Journal without = middleware.Take();
  EXPECT_EQ(without.size(), 5U);
  const Journal sends = Only(without, {Kind::kSend});
  ASSERT_EQ(sends.size(), 1U);
  EXPECT_EQ(sends[0].text, "send CFM_MGR_C2S_SIG_LT_TRIGGER to 0");
  middleware.Find(42);  // and is not repeated when the server comes
  EXPECT_TRUE(Same(Only(middleware.Take(), {Kind::kSend}), {Sent(CFM_MGR_C2S_SIG_CACHE_GET, 42)}));
}

TEST_F(Linktrace, TriggerIgnoresAFailedSend) {
  middleware.Find(42);
  middleware.Take();
  middleware.send_result = -3;
  client.LinktraceTrigger(Trigger());
  EXPECT_EQ(middleware.Take().back(), Logged(10, "LinktraceTrigger", "Signal sent."));
}

// ---- Events ----

TEST_F(Linktrace, StartIsLoggedAndThenReachesTheStatusAndTheLinktraceHandler) {
  EXPECT_TRUE(
      Same(After(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, Started()),
           {Logged(11, "HandleMepLinktraceStarted",
                   "\nStarted linktrace transaction 4000000001: MD MD1 MA MA1 LMEP 101 Remote MAC 00:1b:21:ab:cd:ef "
                   "RMEP 202"),
            Called("status.OnLinktraceStarted", "MD1", "MA1", 101, 4000000001U, kMacRecord, 202, true, 64),
            Called("linktrace.OnLinktraceStarted", "MD1", "MA1", 101, 4000000001U, kMacRecord, 202, true, 64)}));
}

TEST_F(Linktrace, EndIsLoggedAndThenReachesTheStatusAndTheLinktraceHandler) {
  EXPECT_TRUE(
      Same(After(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED, Ended()),
           {Logged(11, "HandleMepLinktraceEnded", "\nEnded linktrace transaction 4000000001: MD MD1 MA MA1 LMEP 101"),
            Called("status.OnLinktraceEnded", "MD1", "MA1", 101, 4000000001U),
            Called("linktrace.OnLinktraceEnded", "MD1", "MA1", 101, 4000000001U)}));
}

TEST_F(Linktrace, ReplyIsLoggedAndThenReachesTheStatusAndTheLinktraceHandler) {
  cfm::LinktraceReplyEntry entry{};
  entry.source_mac = kMacRecord;
  entry.transaction_id = 4000000001U;
  entry.egress_id = std::make_unique<cfm::LtrEgressIdEntry>();
  EXPECT_TRUE(Same(
      After(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, ReplyRx()),
      {LevelQueried(11),
       Logged(11, "HandleMepLinktraceReplyRx",
              "\nLinktrace reply for MD MD1 MA MA1 LMEP 101: "
              "Transaction ID: 4000000001; Destination MAC: 00:00:00:00:00:00; Source MAC: 00:1b:21:ab:cd:ef; VLAN: 0; "
              "Priority: 0; Level: 0; Flags: Terminal MEP: false, Forwarded: false, Use FDB only: false; TTL: 0; "
              "Relay action:0; LTR Egress ID: Last: 00:00:00:00:00:00, Next: 00:00:00:00:00:00; "),
       Called("status.OnLinktraceReply", "MD1", "MA1", 101, entry),
       Called("linktrace.OnLinktraceReply", "MD1", "MA1", 101, entry)}));
}

TEST_F(Linktrace, ReplyIsNotLoggedWhenLevel11IsOffButStillDelivered) {
  middleware.level_enabled = [](int level) { return level != 11; };
  const Journal journal = After(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, ReplyRx());
  Journal expected = recording::Expected(ReplyRx());
  std::erase_if(expected, [](const recording::Entry& entry) { return entry.kind == Kind::kLog; });
  EXPECT_TRUE(Same(journal, expected));
  EXPECT_EQ(journal.size(), 3U);
}

TEST_F(Linktrace, ReplyIsLoggedWhenOnlyLevel11IsOn) {
  middleware.level_enabled = [](int level) { return level == 11; };
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, ReplyRx()), recording::Expected(ReplyRx())));
}

TEST_F(Linktrace, StartEndAndRefusalAreLoggedAlsoWhenNoLevelIsEnabledAndWithoutAsking) {
  middleware.level_enabled = [](int) { return false; };
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, Started()), recording::Expected(Started())));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED, Ended()), recording::Expected(Ended())));
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR, Refusal()), recording::Expected(Refusal())));
}

TEST_F(Linktrace, EventsWithNoHandlerAreStillParsedAndLoggedAndNothingIsCalled) {
  UnregisterAll();
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, Started()),
                   {Logged(11, "HandleMepLinktraceStarted",
                           "\nStarted linktrace transaction 4000000001: MD MD1 MA MA1 LMEP 101 Remote MAC "
                           "00:1b:21:ab:cd:ef RMEP 202")}));
  EXPECT_TRUE(Same(
      After(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED, Ended()),
      {Logged(11, "HandleMepLinktraceEnded", "\nEnded linktrace transaction 4000000001: MD MD1 MA MA1 LMEP 101")}));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, ReplyRx()),
                   Only(recording::Expected(ReplyRx()), {Kind::kLevelQuery, Kind::kLog})));
}

TEST_F(Linktrace, EventsReachTheStatusHandlerAloneWhenOnlyItIsRegistered) {
  UnregisterAll();
  client.RegisterStatusHandler(&status);
  const Journal calls = CallsAfterAllThreeEvents();
  ASSERT_EQ(calls.size(), 3U);
  EXPECT_THAT(calls[0].text, testing::StartsWith("note: status.OnLinktraceStarted("));
  EXPECT_THAT(calls[1].text, testing::StartsWith("note: status.OnLinktraceReply("));
  EXPECT_THAT(calls[2].text, testing::StartsWith("note: status.OnLinktraceEnded("));
}

TEST_F(Linktrace, EventsReachTheLinktraceHandlerAloneWhenOnlyItIsRegistered) {
  UnregisterAll();
  client.RegisterLinktraceHandler(&linktrace);
  const Journal calls = CallsAfterAllThreeEvents();
  ASSERT_EQ(calls.size(), 3U);
  EXPECT_THAT(calls[0].text, testing::StartsWith("note: linktrace.OnLinktraceStarted("));
  EXPECT_THAT(calls[1].text, testing::StartsWith("note: linktrace.OnLinktraceReply("));
  EXPECT_THAT(calls[2].text, testing::StartsWith("note: linktrace.OnLinktraceEnded("));
}

TEST_F(Linktrace, StartWithoutAnOptionalValueHandsOnFalseAndZero) {
  pb::OpLinktraceStarted message = Started();
  message.clear_optional_value();
  const Journal calls = Only(After(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, message), {Kind::kNote});
  EXPECT_TRUE(
      Same(calls, {Called("status.OnLinktraceStarted", "MD1", "MA1", 101, 4000000001U, kMacRecord, 202, false, 0),
                   Called("linktrace.OnLinktraceStarted", "MD1", "MA1", 101, 4000000001U, kMacRecord, 202, false, 0)}));
}

TEST_F(Linktrace, StartWithAnOptionalValueOfZeroHandsOnTrueAndZero) {
  pb::OpLinktraceStarted message = Started();
  message.set_optional_value(0);
  const Journal calls = Only(After(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, message), {Kind::kNote});
  EXPECT_TRUE(
      Same(calls, {Called("status.OnLinktraceStarted", "MD1", "MA1", 101, 4000000001U, kMacRecord, 202, true, 0),
                   Called("linktrace.OnLinktraceStarted", "MD1", "MA1", 101, 4000000001U, kMacRecord, 202, true, 0)}));
}

TEST_F(Linktrace, StartHandsOnTheWholeOptionalValue) {
  pb::OpLinktraceStarted message = Started();
  message.set_optional_value(4294967295U);
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, message), recording::Expected(message)));
}

TEST_F(Linktrace, MepIdsAbove65535AreHandedOnCutToTheirLow16BitsWhileTheLogLineShowsThemWhole) {
  pb::OpLinktraceStarted started = Started();
  started.set_mep_id(65536 + 7);
  started.set_target_mep_id(3 * 65536 + 9);
  EXPECT_TRUE(
      Same(After(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, started),
           {Logged(11, "HandleMepLinktraceStarted",
                   "\nStarted linktrace transaction 4000000001: MD MD1 MA MA1 LMEP 65543 Remote MAC 00:1b:21:ab:cd:ef "
                   "RMEP 196617"),
            Called("status.OnLinktraceStarted", "MD1", "MA1", 7, 4000000001U, kMacRecord, 9, true, 64),
            Called("linktrace.OnLinktraceStarted", "MD1", "MA1", 7, 4000000001U, kMacRecord, 9, true, 64)}));

  pb::OpLinktraceEnded ended = Ended();
  ended.set_mep_id(65536 + 7);
  EXPECT_TRUE(
      Same(After(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED, ended),
           {Logged(11, "HandleMepLinktraceEnded", "\nEnded linktrace transaction 4000000001: MD MD1 MA MA1 LMEP 65543"),
            Called("status.OnLinktraceEnded", "MD1", "MA1", 7, 4000000001U),
            Called("linktrace.OnLinktraceEnded", "MD1", "MA1", 7, 4000000001U)}));

  pb::OpLinktraceReplyRx reply = ReplyRx();
  reply.set_mep_id(65536 + 7);
  const Journal journal = After(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, reply);
  ASSERT_EQ(journal.size(), 4U);
  EXPECT_THAT(journal[1].text, testing::HasSubstr("\nLinktrace reply for MD MD1 MA MA1 LMEP 65543: Transaction ID: "));
  EXPECT_THAT(journal[2].text, testing::StartsWith("note: status.OnLinktraceReply(\"MD1\", \"MA1\", 7, "));
  EXPECT_THAT(journal[3].text, testing::StartsWith("note: linktrace.OnLinktraceReply(\"MD1\", \"MA1\", 7, "));
}

TEST_F(Linktrace, EventsWithAnEmptyPayloadAreAllZeroAndNotFatal) {
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, ""),
                   {Logged(11, "HandleMepLinktraceStarted",
                           "\nStarted linktrace transaction 0: MD  MA  LMEP 0 Remote MAC 00:00:00:00:00:00 RMEP 0"),
                    Called("status.OnLinktraceStarted", "", "", 0, 0, cfm::st_mac{}, 0, false, 0),
                    Called("linktrace.OnLinktraceStarted", "", "", 0, 0, cfm::st_mac{}, 0, false, 0)}));
  EXPECT_TRUE(
      Same(After(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED, ""),
           {Logged(11, "HandleMepLinktraceEnded", "\nEnded linktrace transaction 0: MD  MA  LMEP 0"),
            Called("status.OnLinktraceEnded", "", "", 0, 0), Called("linktrace.OnLinktraceEnded", "", "", 0, 0)}));
  EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, ""), recording::Expected(pb::OpLinktraceReplyRx())));
}

TEST_F(Linktrace, StartTakesTheFirstSixOctetsOfAMacOfAnyLength) {
  const std::string octets = "\x11\x22\x33\x44\x55\x66\x77\x88 and more than a short string holds";
  pb::OpLinktraceStarted whole_message;
  whole_message.set_target_mac(octets);
  for (std::size_t length = 0; length <= octets.size(); ++length) {
    pb::OpLinktraceStarted message;
    message.set_target_mac(octets.substr(0, length));
    EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, message), recording::Expected(message))) << length;
    EXPECT_TRUE(Same(AfterOverwriting(whole_message, CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, message),
                     recording::Expected(message)))
        << length;
  }
}

// ---- The refusal ----

TEST_F(Linktrace, TriggerErrorIsLoggedFirstAndReachesTheLinktraceHandlerAlone) {
  cfm::linktrace_trigger trigger{};
  trigger.trigger_id = 11;
  trigger.md_name = "MD1";
  trigger.ma_name = "MA1";
  trigger.mep_id = 101;
  trigger.target_mep_id = 202;
  trigger.ttl = 64;
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR, Refusal()),
                   {Logged(10, "HandleLinktraceTriggerError", "Linktrace trigger error received"),
                    Called("linktrace.OnLinktraceTriggerError", trigger)}));
}

TEST_F(Linktrace, TriggerErrorWithNoLinktraceHandlerIsLoggedAndNothingMore) {
  client.RegisterLinktraceHandler(nullptr);
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR, Refusal()),
                   {Logged(10, "HandleLinktraceTriggerError", "Linktrace trigger error received")}));
}

TEST_F(Linktrace, TriggerErrorWithoutAKeyYieldsEmptyNamesAndZeroNumbers) {
  pb::OpLinktraceTriggerError message;
  message.set_ttl(9);
  cfm::linktrace_trigger trigger{};
  trigger.ttl = 9;
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR, message),
                   {Logged(10, "HandleLinktraceTriggerError", "Linktrace trigger error received"),
                    Called("linktrace.OnLinktraceTriggerError", trigger)}));
}

TEST_F(Linktrace, TriggerErrorCutsItsMepIdsTo16BitsAndItsTtlTo8) {
  pb::OpLinktraceTriggerError message = Refusal();
  message.mutable_key()->set_mep_id(65536 + 7);
  message.mutable_key()->set_target_mep_id(3 * 65536 + 9);
  message.set_ttl(256 + 5);
  cfm::linktrace_trigger trigger{};
  trigger.trigger_id = 11;
  trigger.md_name = "MD1";
  trigger.ma_name = "MA1";
  trigger.mep_id = 7;
  trigger.target_mep_id = 9;
  trigger.ttl = 5;
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR, message),
                   {Logged(10, "HandleLinktraceTriggerError", "Linktrace trigger error received"),
                    Called("linktrace.OnLinktraceTriggerError", trigger)}));
}

TEST_F(Linktrace, TriggerErrorThatDoesNotParseIsDeliveredAsFarAsItWasRead) {
  const std::string cut = Refusal().SerializeAsString() + "\x7a";
  ASSERT_FALSE(pb::OpLinktraceTriggerError().ParseFromString(cut));
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR, cut), recording::Expected(Refusal())));
}

// ---- Events that do not parse ----

using LinktraceDeathTest = Linktrace;

// The whole journal from the delivery on: no log line, no handler call.
testing::Matcher<const std::string&> DiedWith(const std::string& function, const std::string& text) {
  return testing::HasSubstr(
      recording::Middleware::Dump({recording::Backtraced(), recording::Faulted(1, function, "client_impl", text)}));
}

TEST_F(LinktraceDeathTest, AFaultRecordHas350Octets) {
  const recording::Entry fault = recording::Faulted(1, "f", "client_impl", "text");
  ASSERT_TRUE(fault.octets.has_value());
  EXPECT_EQ(fault.octets->size(), 350U);
  EXPECT_THAT(recording::Describe(fault), testing::EndsWith(": \"text\" and 346 zeros"));
}

TEST_F(LinktraceDeathTest, AStartThatDoesNotParseEndsTheProcess) {
  const std::string cut = Started().SerializeAsString() + "\x7a";
  ASSERT_FALSE(pb::OpLinktraceStarted().ParseFromString(cut));
  EXPECT_EXIT(
      {
        recording::Middleware::DumpAtExit();
        middleware.Take();
        middleware.Deliver(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, cut);
      },
      testing::ExitedWithCode(1),
      DiedWith("HandleMepLinktraceStarted", "Can't deserialize OpLinktraceStarted message"));
}

TEST_F(LinktraceDeathTest, AnEndThatDoesNotParseEndsTheProcess) {
  const std::string cut = Ended().SerializeAsString() + "\x7a";
  ASSERT_FALSE(pb::OpLinktraceEnded().ParseFromString(cut));
  EXPECT_EXIT(
      {
        recording::Middleware::DumpAtExit();
        middleware.Take();
        middleware.Deliver(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED, cut);
      },
      testing::ExitedWithCode(1), DiedWith("HandleMepLinktraceEnded", "Can't deserialize OpLinktraceEnded message"));
}

TEST_F(LinktraceDeathTest, AReplyThatDoesNotParseEndsTheProcess) {
  const std::string cut = ReplyRx().SerializeAsString() + "\x7a";
  ASSERT_FALSE(pb::OpLinktraceReplyRx().ParseFromString(cut));
  EXPECT_EXIT(
      {
        recording::Middleware::DumpAtExit();
        middleware.Take();
        middleware.Deliver(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, cut);
      },
      testing::ExitedWithCode(1),
      DiedWith("HandleMepLinktraceReplyRx", "Can't deserialize OpLinktraceReplyRx message"));
}

TEST_F(LinktraceDeathTest, AnEventThatDoesNotParseEndsTheProcessAlsoWithNoHandler) {
  UnregisterAll();
  EXPECT_EXIT(
      {
        recording::Middleware::DumpAtExit();
        middleware.Take();
        middleware.Deliver(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, "\x7a");
      },
      testing::ExitedWithCode(1),
      DiedWith("HandleMepLinktraceStarted", "Can't deserialize OpLinktraceStarted message"));
  EXPECT_EXIT(
      {
        recording::Middleware::DumpAtExit();
        middleware.Take();
        middleware.Deliver(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED, "\x7a");
      },
      testing::ExitedWithCode(1), DiedWith("HandleMepLinktraceEnded", "Can't deserialize OpLinktraceEnded message"));
  EXPECT_EXIT(
      {
        recording::Middleware::DumpAtExit();
        middleware.Take();
        middleware.Deliver(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, "\x7a");
      },
      testing::ExitedWithCode(1),
      DiedWith("HandleMepLinktraceReplyRx", "Can't deserialize OpLinktraceReplyRx message"));
}

}  // namespace
}  // namespace linktrace
