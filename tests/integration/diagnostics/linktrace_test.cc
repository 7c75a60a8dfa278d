#include <gmock/gmock.h>

#include <csignal>

#include "element.h"

namespace cfm_test::linktrace {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class Linktrace : public Element {
 protected:
  static std::string Sender(const std::string& event, int mep_id = 1) {
    return "on LT_TRIGGER event LINKTRACE_" + event +
           " md_name: \"operator\" ma_name: \"evc\" mep_id: " + std::to_string(mep_id) + " ";
  }
  static std::string Started(int transaction_id, int mep_id = 1, int target = 2) {
    return Sender("STARTED", mep_id) + "transaction_id: " + std::to_string(transaction_id) +
           " target_mep_id: " + std::to_string(target) +
           R"( target_mac: "\002\000\000\000\000\002" optional_value: 10)" + "\n";
  }
  static std::string Reply(int transaction_id, const std::string& more, int mep_id = 1) {
    return Sender("REPLY_RX", mep_id) + "reply { transaction_id: " + std::to_string(transaction_id) + " " + more +
           " }\n";
  }
  static std::string Ended(int transaction_id, int mep_id = 1) {
    return Sender("ENDED", mep_id) + "transaction_id: " + std::to_string(transaction_id) + "\n";
  }
  static std::vector<std::string> Words(std::vector<std::string> options = {}) {
    const std::vector<std::string> words = {"linktrace", "operator", "evc", "1", "2"};
    options.insert(options.begin(), words.begin(), words.end());
    return options;
  }
};

constexpr const char* kTarget =
    R"(source_mac: "\002\000\000\000\000\002" ttl: 8 relay_action: 1 flags { terminal_mep: true } )"
    R"(reply_ingress { mac: "\002\000\000\000\000\003" action: 1 port_id { present: true value: "eth\0331" } })";
constexpr const char* kMiddle =
    R"(source_mac: "\002\000\000\000\000\005" ttl: 9 relay_action: 2 flags { forwarded: true } )"
    R"(reply_ingress { mac: "\002\000\000\000\000\006" action: 1 } )"
    R"(reply_egress { mac: "\002\000\000\000\000\007" action: 3 port_id { present: true value: "uplink" } })";

TEST_F(Linktrace, ShowsRepliesAsTheyComeAndTheHopsInOrder) {
  Play(Started(5) + Reply(5, kTarget) + Reply(5, kMiddle) + Ended(5));
  const Result result = Run(Words({"--ttl", "10"}));
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.out,
            "linktrace operator/evc MEP 1 -> MEP 2 (02:00:00:00:00:02), TTL 10\n"
            "reply from 02:00:00:00:00:02: TTL 8\n"
            "reply from 02:00:00:00:00:05: TTL 9\n"
            "--- linktrace operator/evc MEP 1 -> MEP 2\n"
            "  1  02:00:00:00:00:05  fdb, ingress ok 02:00:00:00:00:06, egress blocked 02:00:00:00:00:07 (uplink), "
            "forwarded\n"
            "  2  02:00:00:00:00:02  hit, ingress ok 02:00:00:00:00:03 (eth\\x1b1), terminal MEP\n"
            "2 replies, target reached\n");
  EXPECT_THAT(Requests(), ElementsAre("LT_TRIGGER key { md_name: \"operator\" ma_name: \"evc\" trigger_id: ID "
                                      "mep_id: 1 target_mep_id: 2 } ttl: 10"));
}

TEST_F(Linktrace, PrintsAnObjectForEachEvent) {
  Play(Started(5) + Reply(5, kMiddle) + Reply(5, kTarget) + Ended(5));
  const Result result = Run(Words({"--json"}));
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.out,
            R"({"event":"started","transaction-id":5,"target-mac":"02:00:00:00:00:02","ttl":10}
{"event":"reply","hop":1,"source-mac":"02:00:00:00:00:05","ttl":9,"relay-action":"fdb","forwarded":true,)"
            R"("terminal-mep":false,"ingress":{"action":"ok","mac":"02:00:00:00:00:06"},)"
            R"("egress":{"action":"blocked","mac":"02:00:00:00:00:07","port":"uplink"}}
{"event":"reply","hop":2,"source-mac":"02:00:00:00:00:02","ttl":8,"relay-action":"hit","forwarded":false,)"
            R"("terminal-mep":true,"ingress":{"action":"ok","mac":"02:00:00:00:00:03","port":"eth\\x1b1"}}
{"event":"ended","replies":2,"target-reached":true}
)");
}

TEST_F(Linktrace, WhoseTargetDoesNotAnswerFails) {
  Play(Started(5) + Reply(5, kMiddle) + Ended(5));
  const Result result = Run(Words());
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("1 reply, target not reached\n"));
}

TEST_F(Linktrace, PassesOverReportsOfOtherTraces) {
  Play("on LT_TRIGGER reply LT_TRIGGER_ERROR key { trigger_id: 0 }\n" + Started(1, 3) + Started(2, 1, 3) + Started(5) +
       Started(6) + Reply(5, kTarget, 3) + Reply(6, kTarget) + Ended(5, 3) + Ended(6) + Reply(5, kMiddle) + Ended(5));
  const Result result = Run(Words({"--json"}));
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("{\"event\":\"started\",\"transaction-id\":5,"));
  EXPECT_THAT(result.out, HasSubstr("{\"event\":\"ended\",\"replies\":1,\"target-reached\":false}\n"));
}

// It starts before the request is sent.
TEST_F(Linktrace, DoesNotTakeAnEarlierTraceForItsOwn) {
  std::string earlier = Started(4);
  earlier.replace(earlier.find("LT_TRIGGER"), std::string("LT_TRIGGER").size(), "CACHE_GET");
  PlayAlone(earlier + "on CACHE_GET reply CACHE_REPLY\n" + Started(5) + Reply(5, kTarget) + Ended(5));
  const Result result = Run(Words());
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_THAT(result.out, HasSubstr("1 reply, target reached\n"));
}

TEST_F(Linktrace, RefusedSaysWhatToLookAt) {
  Play("on LT_TRIGGER reply LT_TRIGGER_ERROR key { trigger_id: $trigger_id }\n");
  const std::string reason =
      "the server gives no reason for a linktrace: the MEP is not there or not operational, or it has never heard of "
      "the target; see 'cfmctl status' and the server's log";
  const Result text = Run(Words());
  EXPECT_EQ(text.status, 1);
  EXPECT_EQ(text.out, "");
  EXPECT_EQ(text.errors, "cfmctl: refused: " + reason + "\n");
  const Result json = Run(Words({"--json"}));
  EXPECT_EQ(json.status, 1);
  EXPECT_EQ(json.out, "{\"event\":\"refused\",\"reason\":\"" + reason + "\"}\n");
}

TEST_F(Linktrace, OfAServerThatDiesPrintsWhatIsKnown) {
  Play(Started(5) + Reply(5, kMiddle));
  Process process = Start(Words());
  ASSERT_TRUE(process.ReadUntil("reply from"));
  server_->Kill();
  const Result result = Finish(std::move(process));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out,
            "--- linktrace operator/evc MEP 1 -> MEP 2\n"
            "  1  02:00:00:00:00:05  fdb, ingress ok 02:00:00:00:00:06, egress blocked 02:00:00:00:00:07 (uplink), "
            "forwarded\n"
            "not complete: 1 reply, target not reached\n");
  EXPECT_EQ(result.errors, "cfmctl: the server went away in the middle of it\n");
}

TEST_F(Linktrace, InterruptedPrintsWhatIsKnown) {
  Play(Started(5) + Reply(5, kTarget));
  Process process = Start(Words({"--json"}));
  ASSERT_TRUE(process.ReadUntil("{\"event\":\"reply\""));
  process.Signal(SIGINT);
  const Result result = Finish(std::move(process));
  EXPECT_EQ(result.status, 128 + SIGINT);
  EXPECT_EQ(result.out, "{\"event\":\"incomplete\",\"replies\":1,\"target-reached\":true}\n");
}

TEST_F(Linktrace, ThatIsNotStartedSaysSo) {
  Play("");
  const Result result = Run(Words({"--timeout", "0.5"}));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors, "cfmctl: the server does not start the test; its log may have a reason\n");
}

}  // namespace
}  // namespace cfm_test::linktrace
