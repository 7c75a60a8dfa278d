#include <gtest/gtest.h>

#include <string>

#include "client_server.pb.h"
#include "expected_events.h"
#include "noting_handlers.h"

namespace {

using recording::Called;
using recording::Journal;
using recording::Logged;
using recording::Sent;
namespace pb = client_server;

pb::LocalMepStats* AddLocal(pb::OpReplyAllStats& reply, const std::string& md, std::uint32_t mep_id) {
  pb::LocalMepStats* stats = reply.add_local_stats();
  stats->set_md_name(md);
  stats->set_ma_name("MA1");
  stats->set_local_mep_id(mep_id);
  return stats;
}

pb::RemoteMepStats* AddRemote(pb::OpReplyAllStats& reply, const std::string& md, std::uint32_t remote_mep_id) {
  pb::RemoteMepStats* stats = reply.add_remote_stats();
  stats->set_md_name(md);
  stats->set_ma_name("MA1");
  stats->set_local_mep_id(101);
  stats->set_remote_mep_id(remote_mep_id);
  return stats;
}

class Statistics : public testing::Test, protected recording::ClientUnderTest {
 protected:
  Statistics() { client.RegisterStatisticsHandler(&statistics); }
};

// ---- Requests ----

TEST_F(Statistics, AreNotRequestedAndNothingIsLoggedWithoutAServer) {
  client.RequestStatistics();
  EXPECT_TRUE(Same(middleware.Take(), {}));
}

TEST_F(Statistics, AreRequestedWithoutPayloadAndLoggedAfterTheSend) {
  middleware.Find(42);
  middleware.Take();
  client.RequestStatistics();  // no cache reply was seen: synchronisation does not matter
  EXPECT_TRUE(Same(middleware.Take(),
                   {Sent(CFM_MGR_C2S_SIG_STATS_GET, 42),
                    Logged(10, "RequestStatistics", "Statistics for local and remote MEPs were requested to server")}));
}

TEST_F(Statistics, AreNoLongerRequestedOnceTheServerIsLost) {
  middleware.Find(42);
  middleware.Lose();
  middleware.Take();
  client.RequestStatistics();
  EXPECT_TRUE(Same(middleware.Take(), {}));
}

TEST_F(Statistics, AreLoggedAsRequestedAlsoWhenTheSendFails) {
  middleware.Find(42);
  middleware.Take();
  middleware.send_result = -1;
  client.RequestStatistics();
  EXPECT_TRUE(Same(middleware.Take(),
                   {Sent(CFM_MGR_C2S_SIG_STATS_GET, 42),
                    Logged(10, "RequestStatistics", "Statistics for local and remote MEPs were requested to server")}));
}

TEST_F(Statistics, ClearedWithoutAnyScopeSendAMessageWithNoFieldSet) {
  middleware.Find(42);
  middleware.Take();
  client.ClearStatistics(nullptr, nullptr, 0);
  const Journal journal = middleware.Take();
  EXPECT_TRUE(Same(journal, {Sent(CFM_MGR_C2S_SIG_STATS_CLEAR, 42, pb::OpStatsClear())}));
  ASSERT_EQ(journal.size(), 1U);
  EXPECT_EQ(journal[0].octets, "");
}

TEST_F(Statistics, ClearedWithADomainNoAssociationAndMep5SetDomainAndMepOnly) {
  middleware.Find(42);
  middleware.Take();
  client.ClearStatistics("MD1", nullptr, 5);
  pb::OpStatsClear message;
  message.set_md_name("MD1");
  message.set_local_mep_id(5);
  EXPECT_TRUE(Same(middleware.Take(), {Sent(CFM_MGR_C2S_SIG_STATS_CLEAR, 42, message)}));
}

TEST_F(Statistics, ClearedSetEachFieldForItselfInEveryCombination) {
  for (const vorbus_pid_t pid : {0U, 42U}) {
    if (pid != 0) {
      middleware.Find(pid);
    }
    for (const char* md : {static_cast<const char*>(nullptr), "", "MD1"}) {
      for (const char* ma : {static_cast<const char*>(nullptr), "", "MA1"}) {
        for (const std::uint16_t mep : {std::uint16_t{0}, std::uint16_t{1}, std::uint16_t{65535}}) {
          middleware.Take();
          client.ClearStatistics(md, ma, mep);
          pb::OpStatsClear message;
          if (md != nullptr) {
            message.set_md_name(md);
          }
          if (ma != nullptr) {
            message.set_ma_name(ma);
          }
          if (mep != 0) {
            message.set_local_mep_id(mep);
          }
          EXPECT_TRUE(Same(middleware.Take(), {Sent(CFM_MGR_C2S_SIG_STATS_CLEAR, pid, message)}));
        }
      }
    }
  }
}

// ---- The reply ----

TEST_F(Statistics, OfALocalMepAreDeliveredAndThenLogged) {
  pb::OpReplyAllStats reply;
  pb::LocalMepStats* message = AddLocal(reply, "MD1", 101);
  message->set_ccm_rx_seq_errors(18446744073709551615U);
  message->set_ccm_tx_total(10000000000U);
  message->set_ccm_tx_current_seq(4294967294U);
  cfm::st_local_mep_stats expected{};
  expected.ccm_rx_seq_errors = 18446744073709551615U;
  expected.ccm_tx_total = 10000000000U;
  expected.ccm_tx_current_seq = 4294967294U;
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_STATS_REPLY, reply),
                   {Called("statistics.OnLocalMepStatistics", "MD1", "MA1", 101, expected),
                    Logged(11, "ReqStatsReply",
                           "\nLocal MEP statistics: MD MD1 MA MA1 LMEP 101\n"
                           "   CCM RX sequence number errors: 18446744073709551615\n"
                           "   CCM TX total count: 10000000000\n"
                           "   CCM TX current sequence number: -2\n"),
                    Called("statistics.OnStatisticsEnd")}));
}

TEST_F(Statistics, OfARemoteMepAreDeliveredAndThenLogged) {
  pb::OpReplyAllStats reply;
  AddRemote(reply, "MD1", 202)->set_last_ccm_seq(77);
  cfm::st_remote_mep_stats expected{};
  expected.last_ccm_seq = 77;
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_STATS_REPLY, reply),
                   {Called("statistics.OnRemoteMepStatistics", "MD1", "MA1", 101, 202, expected),
                    Logged(11, "ReqStatsReply",
                           "\nRemote MEP statistics: MD MD1 MA MA1 LMEP 101 RMEP 202\n"
                           "   Last CCM sequence number: 77\n"),
                    Called("statistics.OnStatisticsEnd")}));
}

TEST_F(Statistics, OfNoLocalAndTwoRemoteMepsYieldTwoCallsAndOneEnd) {
  pb::OpReplyAllStats reply;
  AddRemote(reply, "MD1", 202)->set_last_ccm_seq(1);
  AddRemote(reply, "MD1", 203)->set_last_ccm_seq(2);
  cfm::st_remote_mep_stats first{};
  first.last_ccm_seq = 1;
  cfm::st_remote_mep_stats second{};
  second.last_ccm_seq = 2;
  EXPECT_TRUE(Same(Only(After(CFM_MGR_S2C_SIG_STATS_REPLY, reply), {recording::Kind::kNote}),
                   {Called("statistics.OnRemoteMepStatistics", "MD1", "MA1", 101, 202, first),
                    Called("statistics.OnRemoteMepStatistics", "MD1", "MA1", 101, 203, second),
                    Called("statistics.OnStatisticsEnd")}));
}

TEST_F(Statistics, OfAllLocalMepsComeBeforeAnyRemoteOneInMessageOrder) {
  pb::OpReplyAllStats reply;
  AddRemote(reply, "MD2", 203);
  AddRemote(reply, "MD1", 202);
  AddLocal(reply, "MD2", 9);
  AddLocal(reply, "MD1", 101);
  AddLocal(reply, "MD2", 1);
  EXPECT_TRUE(Same(Only(After(CFM_MGR_S2C_SIG_STATS_REPLY, reply), {recording::Kind::kNote}),
                   {Called("statistics.OnLocalMepStatistics", "MD2", "MA1", 9, cfm::st_local_mep_stats{}),
                    Called("statistics.OnLocalMepStatistics", "MD1", "MA1", 101, cfm::st_local_mep_stats{}),
                    Called("statistics.OnLocalMepStatistics", "MD2", "MA1", 1, cfm::st_local_mep_stats{}),
                    Called("statistics.OnRemoteMepStatistics", "MD2", "MA1", 101, 203, cfm::st_remote_mep_stats{}),
                    Called("statistics.OnRemoteMepStatistics", "MD1", "MA1", 101, 202, cfm::st_remote_mep_stats{}),
                    Called("statistics.OnStatisticsEnd")}));
}

TEST_F(Statistics, OfAMepIdAbove65535AreLoggedWithItWholeAndDeliveredModulo65536) {
  pb::OpReplyAllStats reply;
  AddLocal(reply, "MD1", 65536 + 7);
  AddRemote(reply, "MD1", 2 * 65536 + 9)->set_local_mep_id(65536 + 8);
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_STATS_REPLY, reply),
                   {Called("statistics.OnLocalMepStatistics", "MD1", "MA1", 7, cfm::st_local_mep_stats{}),
                    Logged(11, "ReqStatsReply",
                           "\nLocal MEP statistics: MD MD1 MA MA1 LMEP 65543\n"
                           "   CCM RX sequence number errors: 0\n   CCM TX total count: 0\n"
                           "   CCM TX current sequence number: 0\n"),
                    Called("statistics.OnRemoteMepStatistics", "MD1", "MA1", 8, 9, cfm::st_remote_mep_stats{}),
                    Logged(11, "ReqStatsReply",
                           "\nRemote MEP statistics: MD MD1 MA MA1 LMEP 65544 RMEP 131081\n"
                           "   Last CCM sequence number: 0\n"),
                    Called("statistics.OnStatisticsEnd")}));
}

TEST_F(Statistics, InAnEmptyReplyAreOnlyTheEndMark) {
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_STATS_REPLY, ""), {Called("statistics.OnStatisticsEnd")}));
}

TEST_F(Statistics, WithoutAHandlerAreNeitherDeliveredNorLogged) {
  RegisterAll();
  client.RegisterStatisticsHandler(nullptr);
  pb::OpReplyAllStats reply;
  AddLocal(reply, "MD1", 101);
  AddRemote(reply, "MD1", 202);
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_STATS_REPLY, reply), {}));
}

TEST_F(Statistics, AreLoggedAlsoWhenNoLevelIsEnabledAndWithoutAsking) {
  middleware.level_enabled = [](int) { return false; };
  pb::OpReplyAllStats reply;
  AddLocal(reply, "MD1", 101);
  AddRemote(reply, "MD1", 202);
  const Journal journal = After(CFM_MGR_S2C_SIG_STATS_REPLY, reply);
  EXPECT_TRUE(Same(journal, recording::Expected(reply)));
  EXPECT_EQ(Only(journal, {recording::Kind::kLog}).size(), 2U);
}

TEST_F(Statistics, ThatDoNotParseAreDeliveredAsFarAsTheyWereRead) {
  pb::OpReplyAllStats reply;
  AddLocal(reply, "MD1", 101);
  const std::string cut = reply.SerializeAsString() + "\x0a\x05";  // five octets promised, none there
  pb::OpReplyAllStats read;
  ASSERT_FALSE(read.ParseFromString(cut));
  ASSERT_GE(read.local_stats_size(), 1);
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_STATS_REPLY, cut), recording::Expected(read)));
}

TEST_F(Statistics, ThatNobodyAskedForAreDeliveredAndEveryReplyIsClosedByItsOwnEnd) {
  pb::OpReplyAllStats reply;
  AddLocal(reply, "MD1", 101);
  const Journal first = After(CFM_MGR_S2C_SIG_STATS_REPLY, reply);
  EXPECT_TRUE(Same(first, recording::Expected(reply)));
  EXPECT_TRUE(Same(After(CFM_MGR_S2C_SIG_STATS_REPLY, reply), first));
}

}  // namespace
