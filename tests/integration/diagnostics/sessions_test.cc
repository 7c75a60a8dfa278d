#include <gmock/gmock.h>

#include <csignal>

#include "element.h"

namespace cfm_test {
namespace {

class Sessions : public Element {
 protected:
  static std::string Report(const std::string& more, int probe = 7, int session = 4) {
    return "on STATUS_GET_ALL event DELAY_MEASUREMENT_SESSION_ENDED report_u32_1: " + std::to_string(probe) +
           " report_u32_2: " + std::to_string(session) + " report_u32_3: 1 report_u32_4: 2 " + more + "\n";
  }
};

constexpr const char* kComplete =
    "report_flag: 1 report_u32_5: 10 report_u32_6: 8 report_u32_7: 2 report_u32_8: 42 report_double_1: 12.25 "
    "report_double_2: 1.5 report_u32_9: 10 report_u32_10: 20 report_u32_11: 12 report_u32_12: 19 report_u32_13: 20 "
    "report_u32_14: 1000000000 report_double_3: 0.75 report_double_4: 0.25";
constexpr const char* kAborted = "report_u32_5: 3 report_u32_7: 3 report_u32_8: 43 report_u32_14: 1000000060";

TEST_F(Sessions, AreReportedAsTheirRunsEnd) {
  Play(Report(kComplete) + Report(kAborted));
  const Result result = Run({"sessions", "--count", "2"});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.out,
            "2001-09-09T01:46:40+0000 probe 7 session 4 run 42, MEP 1 -> MEP 2: 10 sent, 8 received, 20% lost; delay "
            "min/mean/max/stddev 10/12.2/20/1.5 us, median 12, p95 19, p99 20; variation mean/stddev 0.8/0.2 us\n"
            "2001-09-09T01:47:40+0000 probe 7 session 4 run 43, MEP 1 -> MEP 2: aborted, 3 sent, 0 received, 100% "
            "lost\n");
  EXPECT_THAT(Requests(), testing::IsEmpty());
}

TEST_F(Sessions, PrintAnObjectForEachReport) {
  Play(Report(kComplete));
  const Result result = Run({"sessions", "-n", "1", "--json"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, R"({"event":"session-ended","probe-id":7,"session-id":4,"complete":true,"local-mep-id":1,)"
                        R"("remote-mep-id":2,"sent":10,"received":8,"lost":2,"run":42,"start":1000000000,)"
                        R"("delay-us":{"min":10,"mean":12.25,"max":20,"median":12,"p95":19,"p99":20,"stddev":1.5},)"
                        R"("delay-variation-us":{"mean":0.75,"stddev":0.25}})"
                        "\n");
}

TEST_F(Sessions, ThatTheFileDoesNotHaveArePassedOver) {
  Play(Report(kAborted, 8) + Report(kAborted, 7, 5) + Report(kAborted, 65543) + Report(kComplete));
  const Result result = Run({"sessions", "-n", "1"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, testing::HasSubstr("run 42,"));
}

TEST_F(Sessions, AreFollowedThroughARestartUntilInterrupted) {
  Play(Report(kComplete));
  Process sessions = Start({"sessions"});
  ASSERT_TRUE(sessions.ReadUntil("2001-09-09T01:46:40+0000"));
  server_->Kill();
  Play(Report(kAborted));
  ASSERT_TRUE(sessions.ReadUntil("2001-09-09T01:47:40+0000"));
  sessions.Signal(SIGINT);
  const Result result = Finish(std::move(sessions));
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.errors, "cfmctl: the server went away; waiting for its return\n");
}

TEST_F(Sessions, InterruptedBeforeTheirCountAreNotDone) {
  Play(Report(kComplete));
  Process sessions = Start({"sessions", "-n", "2"});
  ASSERT_TRUE(sessions.ReadUntil("2001-09-09T01:46:40+0000"));
  sessions.Signal(SIGINT);
  EXPECT_EQ(Finish(std::move(sessions)).status, 128 + SIGINT);
}

TEST_F(Sessions, NeedAProbeInTheFile) {
  WriteConfiguration("domains: {operator: {level: 2}}\n");
  Play("");
  const Result result = Run({"sessions"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.errors, "cfmctl: the configuration file has no probes, so no session will ever report\n");
  EXPECT_THAT(Requests(), testing::IsEmpty());
}

}  // namespace
}  // namespace cfm_test
