#include <gmock/gmock.h>

#include <csignal>

#include "element.h"

namespace cfm_test::loopback {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kStarted =
    R"(on LB_TRIGGER event LOOPBACK_STARTED trigger_id: $trigger_id target_mac: "\002\000\000\000\000\002")"
    "\n";
constexpr const char* kReply =
    R"(on LB_TRIGGER event LOOPBACK_REPLY_RX trigger_id: $trigger_id transaction_id: 41 source_mac: )"
    R"("\002\000\000\000\000\002")"
    "\n";

class Loopback : public Element {
 protected:
  static std::string Ended(const std::string& counts) {
    return "on LB_TRIGGER event LOOPBACK_ENDED trigger_id: $trigger_id " + counts + "\n";
  }
  Result Run(std::vector<std::string> options = {}) const { return Element::Run(Words(std::move(options))); }
  static std::vector<std::string> Words(std::vector<std::string> options) {
    const std::vector<std::string> words = {"loopback", "operator", "evc", "1", "2"};
    options.insert(options.begin(), words.begin(), words.end());
    return options;
  }
};

TEST_F(Loopback, ShowsRepliesAsTheyComeAndASummary) {
  Play(std::string(kStarted) + kReply + Ended("expected: 1 in_order: 1"));
  const Result result = Run({"--count", "1", "--size", "100"});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.out,
            "loopback operator/evc MEP 1 -> MEP 2 (02:00:00:00:00:02): 1 message with 100 octets of data\n"
            "reply 1 from 02:00:00:00:00:02: transaction 41\n"
            "--- loopback operator/evc MEP 1 -> MEP 2\n"
            "1 sent, 1 received, 0% lost: 1 in order, 0 out of order, 0 with a wrong payload\n");
  EXPECT_THAT(result.errors, IsEmpty());
  EXPECT_THAT(Requests(), ElementsAre("LB_TRIGGER md_name: \"operator\" ma_name: \"evc\" trigger_id: ID mep_id: 1 "
                                      "target_mep_id: 2 lb_param_1: 1 lb_param_2: 100"));
}

TEST_F(Loopback, PrintsAnObjectForEachEvent) {
  Play(std::string(kStarted) + kReply + Ended("expected: 3 in_order: 1 out_of_order: 1"));
  const Result result = Run({"--json"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out,
            R"({"event":"started","target-mac":"02:00:00:00:00:02","messages":3}
{"event":"reply","source-mac":"02:00:00:00:00:02","transaction-id":41}
{"event":"ended","sent":3,"in-order":1,"out-of-order":1,"wrong-payload":0,"lost":1}
)");
}

struct Outcome {
  const char* counts;
  const char* summary;
  int status;
};
// Names the case.
void PrintTo(const Outcome& outcome, std::ostream* stream) {
  *stream << outcome.counts;
}
class LoopbackOutcome : public Loopback, public testing::WithParamInterface<Outcome> {};

TEST_P(LoopbackOutcome, IsTheExitStatus) {
  Play(kStarted + Ended(GetParam().counts));
  const Result result = Run();
  EXPECT_EQ(result.status, GetParam().status);
  EXPECT_EQ(result.out, std::string("loopback operator/evc MEP 1 -> MEP 2 (02:00:00:00:00:02): 3 messages with 0 "
                                    "octets of data\n--- loopback operator/evc MEP 1 -> MEP 2\n") +
                            GetParam().summary);
}

INSTANTIATE_TEST_SUITE_P(
    Each, LoopbackOutcome,
    testing::Values(Outcome{"expected: 3 in_order: 3",
                            "3 sent, 3 received, 0% lost: 3 in order, 0 out of order, 0 with a wrong payload\n", 0},
                    Outcome{"expected: 3 in_order: 2",
                            "3 sent, 2 received, 33.33% lost: 2 in order, 0 out of order, 0 with a wrong payload\n", 1},
                    Outcome{"expected: 3 in_order: 1 out_of_order: 2",
                            "3 sent, 3 received, 0% lost: 1 in order, 2 out of order, 0 with a wrong payload\n", 1},
                    Outcome{"expected: 3 in_order: 2 wrong_payload: 1",
                            "3 sent, 3 received, 0% lost: 2 in order, 0 out of order, 1 with a wrong payload\n", 1},
                    Outcome{"expected: 3",
                            "3 sent, 0 received, 100% lost: 0 in order, 0 out of order, 0 with a wrong payload\n", 1},
                    Outcome{"", "0 sent, 0 received, 0% lost: 0 in order, 0 out of order, 0 with a wrong payload\n",
                            1}));

struct Refusal {
  int error_code;
  const char* reason;
};
constexpr Refusal kRefusals[] = {
    {1, "no such MEP: the server does not hold this end point; 'cfmctl show' prints what it holds"},
    {2,
     "the MEP is not operational: it is disabled, or its port or a part of its configuration cannot be used; the "
     "server's log has the reason"},
    {3, "the target is unknown: the MEP has never heard of it, so its address is not known; see 'cfmctl status'"},
    {4, "a parameter is not one that the server accepts, such as more data than the port's MTU holds"},
    {5, "too many tests: another one runs from this MEP; try again when it has ended"},
    {77, "the server gives reason 77, which this version does not know"}};
void PrintTo(const Refusal& refusal, std::ostream* stream) {
  *stream << refusal.error_code;
}
class RefusedTest : public Element, public testing::WithParamInterface<Refusal> {};

TEST_P(RefusedTest, IsExplainedInWords) {
  const auto& [error_code, reason] = GetParam();
  const std::string answer = "TRIGGER_ERROR trigger_id: $trigger_id error_code: " + std::to_string(error_code) + "\n";
  Play("on LB_TRIGGER reply LB_" + answer + "on DM_TRIGGER reply DM_" + answer);
  for (const char* command : {"loopback", "delay"}) {
    const Result text = Run({command, "operator", "evc", "1", "2"});
    EXPECT_EQ(text.status, 1);
    EXPECT_EQ(text.out, "");
    EXPECT_EQ(text.errors, std::string("cfmctl: refused: ") + reason + "\n");
    const Result json = Run({command, "operator", "evc", "1", "2", "--json"});
    EXPECT_EQ(json.status, 1);
    EXPECT_EQ(json.out, "{\"event\":\"refused\",\"error-code\":" + std::to_string(error_code) + ",\"reason\":\"" +
                            reason + "\"}\n");
  }
}

INSTANTIATE_TEST_SUITE_P(Each, RefusedTest, testing::ValuesIn(kRefusals));

TEST_F(Loopback, PassesOverReportsOfOtherTests) {
  Play(
      "on LB_TRIGGER reply LB_TRIGGER_ERROR trigger_id: 0 error_code: 1\n"
      "on LB_TRIGGER event LOOPBACK_STARTED trigger_id: 0\n"
      "on LB_TRIGGER event LOOPBACK_REPLY_RX trigger_id: 0\n"
      "on LB_TRIGGER event LOOPBACK_ENDED trigger_id: 0 expected: 9 in_order: 9\n" +
      std::string(kStarted) + Ended("expected: 3 in_order: 3"));
  const Result result = Run({"--json"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            "{\"event\":\"started\",\"target-mac\":\"02:00:00:00:00:02\",\"messages\":3}\n"
            "{\"event\":\"ended\",\"sent\":3,\"in-order\":3,\"out-of-order\":0,\"wrong-payload\":0,\"lost\":0}\n");
}

TEST_F(Loopback, OfAServerThatDiesPrintsWhatIsKnown) {
  Play(std::string(kStarted) + kReply);
  Process process = Start(Words({}));
  ASSERT_TRUE(process.ReadUntil("reply 1"));
  server_->Kill();
  const Result result = Finish(std::move(process));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "--- loopback operator/evc MEP 1 -> MEP 2\nnot complete: 1 reply so far\n");
  EXPECT_EQ(result.errors, "cfmctl: the server went away in the middle of it\n");
}

TEST_F(Loopback, InterruptedPrintsWhatIsKnown) {
  Play(std::string(kStarted) + kReply);
  Process process = Start(Words({"--json"}));
  ASSERT_TRUE(process.ReadUntil("{\"event\":\"reply\""));
  process.Signal(SIGINT);
  const Result result = Finish(std::move(process));
  EXPECT_EQ(result.status, 128 + SIGINT);
  EXPECT_EQ(result.out, "{\"event\":\"incomplete\",\"replies\":1}\n");
  EXPECT_EQ(result.errors, "cfmctl: ended by Interrupt\n");
}

TEST_F(Loopback, ThatIsNotStartedSaysSo) {
  Play("");
  const Result result = Run({"--timeout", "0.5"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.errors, "cfmctl: the server does not start the test; its log may have a reason\n");
}

}  // namespace
}  // namespace cfm_test::loopback
