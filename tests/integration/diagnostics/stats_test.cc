#include <gmock/gmock.h>

#include "element.h"

namespace cfm_test {
namespace {

using testing::ElementsAre;

class Stats : public Element {};

constexpr const char* kReply =
    R"(on STATS_GET reply STATS_REPLY local_stats { md_name: "operator" ma_name: "evc" local_mep_id: 1 )"
    R"(ccm_rx_seq_errors: 2 ccm_tx_current_seq: 4294967295 ccm_tx_total: 18446744073709551615 } )"
    R"(local_stats { md_name: "operator" ma_name: "\033[m" local_mep_id: 5 } )"
    R"(remote_stats { md_name: "operator" ma_name: "evc" local_mep_id: 1 remote_mep_id: 2 last_ccm_seq: 7 } )"
    R"(remote_stats { md_name: "z" ma_name: "evc" local_mep_id: 1 remote_mep_id: 2 last_ccm_seq: 8 })"
    "\n";

TEST_F(Stats, PrintsTheCountersOfEverything) {
  Play(kReply);
  const Result result = Run({"stats"});
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(result.out,
            "operator/\\x1b[m MEP 5: 0 CCMs sent, sequence number 0, 0 sequence errors received\n"
            "operator/evc MEP 1: 18446744073709551615 CCMs sent, sequence number 4294967295, 2 sequence errors "
            "received\n"
            "  remote MEP 2: last sequence number 7\n"
            "z/evc MEP 1\n"
            "  remote MEP 2: last sequence number 8\n"
            "3 local MEPs\n");
  EXPECT_THAT(Requests(), ElementsAre("STATS_GET"));
}

TEST_F(Stats, PrintsOneDocument) {
  Play(kReply);
  const Result result = Run({"stats", "--json"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(
      result.out,
      R"({"meps":[{"domain":"operator","association":"\u001b[m","mep-id":5,"ccm-tx-total":0,"ccm-tx-current-seq":0,)"
      R"("ccm-rx-seq-errors":0,"remote-meps":[]},{"domain":"operator","association":"evc","mep-id":1,)"
      R"("ccm-tx-total":18446744073709551615,"ccm-tx-current-seq":4294967295,"ccm-rx-seq-errors":2,)"
      R"("remote-meps":[{"remote-mep-id":2,"last-ccm-seq":7}]},{"domain":"z","association":"evc","mep-id":1,)"
      R"("remote-meps":[{"remote-mep-id":2,"last-ccm-seq":8}]}]})"
      "\n");
}

TEST_F(Stats, OfOneMepPassesOverTheOthers) {
  Play(kReply);
  const Result result = Run({"stats", "operator", "evc", "1"});
  EXPECT_EQ(result.out,
            "operator/evc MEP 1: 18446744073709551615 CCMs sent, sequence number 4294967295, 2 sequence errors "
            "received\n"
            "  remote MEP 2: last sequence number 7\n"
            "1 local MEP\n");
}

TEST_F(Stats, OfAServerThatDoesNotAnswerEndAfterTheTimeout) {
  Play("");
  for (const char* command : {"stats", "clear-stats"}) {
    const Result result = Run({"--timeout", "0.5", command});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.errors, "cfmctl: the server does not answer; a longer --timeout may help\n");
  }
}

TEST_F(Stats, OfAServerThatDiesSaySo) {
  Play("on STATS_GET exit 0\n");
  const Result result = Run({"stats"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.errors, "cfmctl: the server went away in the middle of it\n");
}

struct Clearing {
  std::vector<std::string> scope;
  const char* request;
  const char* text;
  const char* json;
};
// Names the case.
void PrintTo(const Clearing& clearing, std::ostream* stream) {
  *stream << clearing.request;
}
class ClearedScope : public Stats, public testing::WithParamInterface<Clearing> {};

TEST_P(ClearedScope, IsWhatWasAskedFor) {
  Play(kReply);
  std::vector<std::string> words = GetParam().scope;
  words.insert(words.begin(), "clear-stats");
  const Result text = Run(words);
  EXPECT_EQ(text.status, 0) << text.errors;
  EXPECT_EQ(text.out, GetParam().text);
  words.emplace_back("--json");
  EXPECT_EQ(Run(words).out, GetParam().json);
  EXPECT_THAT(Requests(), ElementsAre(GetParam().request, "STATS_GET"));
}

INSTANTIATE_TEST_SUITE_P(
    Each, ClearedScope,
    testing::Values(Clearing{{}, "STATS_CLEAR", "cleared the statistics of everything\n", "{\"cleared\":true}\n"},
                    Clearing{{"operator"},
                             "STATS_CLEAR md_name: \"operator\"",
                             "cleared the statistics of domain operator\n",
                             "{\"cleared\":true,\"domain\":\"operator\"}\n"},
                    Clearing{{"operator", "evc"},
                             "STATS_CLEAR md_name: \"operator\" ma_name: \"evc\"",
                             "cleared the statistics of association operator/evc\n",
                             "{\"cleared\":true,\"domain\":\"operator\",\"association\":\"evc\"}\n"},
                    Clearing{{"operator", "evc", "1"},
                             "STATS_CLEAR md_name: \"operator\" ma_name: \"evc\" local_mep_id: 1",
                             "cleared the statistics of operator/evc MEP 1\n",
                             "{\"cleared\":true,\"domain\":\"operator\",\"association\":\"evc\",\"mep-id\":1}\n"}));

}  // namespace
}  // namespace cfm_test
