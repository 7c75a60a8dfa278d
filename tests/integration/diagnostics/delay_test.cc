#include <gmock/gmock.h>

#include <csignal>

#include "element.h"

namespace cfm_test::delay {
namespace {

using testing::ElementsAre;

constexpr const char* kStarted =
    R"(on DM_TRIGGER event DELAY_MEASUREMENT_STARTED trigger_id: $trigger_id target_mac: "\002\000\000\000\000\002")"
    "\n";
constexpr const char* kReply =
    R"(on DM_TRIGGER event DELAY_MEASUREMENT_REPLY_RX trigger_id: $trigger_id source_mac: "\002\000\000\000\000\002")"
    "\n";

class Delay : public Element {
 protected:
  static std::string Ended(const std::string& results) {
    return "on DM_TRIGGER event DELAY_MEASUREMENT_ENDED trigger_id: $trigger_id " + results + "\n";
  }
  static std::vector<std::string> Words(std::vector<std::string> options = {}) {
    const std::vector<std::string> words = {"delay", "operator", "evc", "1", "2"};
    options.insert(options.begin(), words.begin(), words.end());
    return options;
  }
};

constexpr const char* kResults =
    "dm_result_1: 10.25 dm_result_2: 20.5 dm_result_3: 30 dm_result_4: 1 dm_result_5: 2.04 dm_result_6: 3.06 "
    "dm_result_7: 64";

TEST_F(Delay, ShowsRepliesAsTheyComeAndASummary) {
  Play(std::string(kStarted) + kReply + Ended("rx_count: 2 tx_count: 2 " + std::string(kResults)));
  const Result result = Run(Words({"-n", "2", "--interval", "50ms", "--size", "64", "--priority", "5"}));
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.out,
            "delay operator/evc MEP 1 -> MEP 2 (02:00:00:00:00:02): 2 messages, one every 50ms, 64 octets of data, "
            "priority 5\n"
            "reply 1 from 02:00:00:00:00:02\n"
            "--- delay operator/evc MEP 1 -> MEP 2\n"
            "2 sent, 2 received, 0% lost, 64 octets of data\n"
            "two-way delay min/mean/max = 10.2/20.5/30.0 us\n"
            "delay variation min/mean/max = 1.0/2.0/3.1 us\n");
  EXPECT_THAT(Requests(),
              ElementsAre("DM_TRIGGER md_name: \"operator\" ma_name: \"evc\" trigger_id: ID mep_id: 1 target_mep_id: 2 "
                          "dm_param_1: 2 dm_param_2: 50 dm_param_3: 64 dm_param_4: 5"));
}

TEST_F(Delay, PrintsAnObjectForEachEvent) {
  Play(std::string(kStarted) + kReply + Ended("rx_count: 9 tx_count: 10 " + std::string(kResults)));
  const Result result = Run(Words({"--json"}));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out,
            R"({"event":"started","target-mac":"02:00:00:00:00:02","messages":10}
{"event":"reply","source-mac":"02:00:00:00:00:02"}
{"event":"ended","sent":10,"received":9,"lost":1,"octets-of-data":64,"delay-us":{"min":10.25,"mean":20.5,"max":30.0},)"
            R"("delay-variation-us":{"min":1.0,"mean":2.04,"max":3.06}}
)");
}

TEST_F(Delay, WithoutAnyReplyHasNoDelays) {
  Play(kStarted + Ended("tx_count: 10"));
  const Result result = Run(Words());
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out,
            "delay operator/evc MEP 1 -> MEP 2 (02:00:00:00:00:02): 10 messages, one every 100ms, 0 octets of data, "
            "priority 7\n"
            "--- delay operator/evc MEP 1 -> MEP 2\n"
            "10 sent, 0 received, 100% lost, 0 octets of data\n");
}

TEST_F(Delay, MeasuresMessageByMessageForAHistogram) {
  Play(std::string(kStarted) + kReply + Ended("rx_count: 1 tx_count: 1 dm_result_2: 20.5 dm_result_7: 64"));
  const Result result = Run(Words({"--count", "3", "--interval", "10ms", "--size", "64", "--histogram"}));
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.out,
            "delay operator/evc MEP 1 -> MEP 2 (02:00:00:00:00:02): 3 messages, one every 10ms, 64 octets of data, "
            "priority 7\n"
            "--- delay operator/evc MEP 1 -> MEP 2\n"
            "3 sent, 3 received, 0% lost, 64 octets of data\n"
            "two-way delay min/mean/max = 20.5/20.5/20.5 us\n"
            "delay variation min/mean/max = 0.0/0.0/0.0 us\n"
            "  20.5 - 20.6 us  3  ########################################\n");
  const std::string request =
      "DM_TRIGGER md_name: \"operator\" ma_name: \"evc\" trigger_id: ID mep_id: 1 target_mep_id: 2 dm_param_1: 1 "
      "dm_param_2: 10 dm_param_3: 64 dm_param_4: 7";
  EXPECT_THAT(Requests(), ElementsAre(request, request, request));
}

TEST_F(Delay, EndsTheHistogramWhenAMessageIsRefused) {
  Play("on DM_TRIGGER reply DM_TRIGGER_ERROR trigger_id: $trigger_id error_code: 2\n");
  const Result result = Run(Words({"--histogram"}));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(Requests().size(), 1U);
}

TEST_F(Delay, ShowsTheHistogramOfLostMessagesAsFarAsItIsKnown) {
  Play(kStarted + Ended("tx_count: 1"));
  const Result result = Run(Words({"--count", "2", "--interval", "10ms", "--histogram"}));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out,
            "delay operator/evc MEP 1 -> MEP 2 (02:00:00:00:00:02): 2 messages, one every 10ms, 0 octets of data, "
            "priority 7\n"
            "--- delay operator/evc MEP 1 -> MEP 2\n"
            "2 sent, 0 received, 100% lost, 0 octets of data\n");
}

TEST_F(Delay, PassesOverReportsOfOtherTests) {
  Play(
      "on DM_TRIGGER reply DM_TRIGGER_ERROR trigger_id: 0 error_code: 1\n"
      "on DM_TRIGGER event DELAY_MEASUREMENT_STARTED trigger_id: 0\n"
      "on DM_TRIGGER event DELAY_MEASUREMENT_REPLY_RX trigger_id: 0\n"
      "on DM_TRIGGER event DELAY_MEASUREMENT_ENDED trigger_id: 0 rx_count: 1 tx_count: 1\n" +
      std::string(kStarted) + Ended("tx_count: 10"));
  const Result result = Run(Words());
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, testing::HasSubstr("\n10 sent, 0 received"));
  EXPECT_THAT(result.out, testing::Not(testing::HasSubstr("reply")));
}

TEST_F(Delay, OfAServerThatDiesPrintsWhatIsKnown) {
  Play(std::string(kStarted) + kReply);
  Process process = Start(Words({"--json"}));
  ASSERT_TRUE(process.ReadUntil("{\"event\":\"reply\""));
  server_->Kill();
  const Result result = Finish(std::move(process));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "{\"event\":\"incomplete\",\"replies\":1}\n");
  EXPECT_EQ(result.errors, "cfmctl: the server went away in the middle of it\n");
}

TEST_F(Delay, InterruptedPrintsWhatIsKnown) {
  Play(std::string(kStarted) + kReply);
  Process process = Start(Words());
  ASSERT_TRUE(process.ReadUntil("reply 1"));
  process.Signal(SIGINT);
  const Result result = Finish(std::move(process));
  EXPECT_EQ(result.status, 128 + SIGINT);
  EXPECT_EQ(result.out, "--- delay operator/evc MEP 1 -> MEP 2\nnot complete: 1 reply so far\n");
}

TEST_F(Delay, ThatIsNotStartedSaysSo) {
  Play("");
  const Result result = Run(Words({"--timeout", "0.5"}));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors, "cfmctl: the server does not start the test; its log may have a reason\n");
}

}  // namespace
}  // namespace cfm_test::delay
