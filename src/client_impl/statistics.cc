// Statistics: the request, the clear request and the reply.
#include "client_impl.h"
#include "client_impl/log.h"
#include "client_impl/receive.h"
#include "client_server.pb.h"

namespace cfm {

void ClientImpl::RequestStatistics() const {
  if (server_pid_ == 0) {
    return;
  }
  SendEmpty(CFM_MGR_C2S_SIG_STATS_GET);
  CFM_LOG(log_category_, kLogTrace, "RequestStatistics",
          "Statistics for local and remote MEPs were requested to server");
}

void ClientImpl::ClearStatistics(const char* md, const char* ma, std::uint16_t mep) const {
  client_server::OpStatsClear message;
  if (md != nullptr) {
    message.set_md_name(md);
  }
  if (ma != nullptr) {
    message.set_ma_name(ma);
  }
  if (mep != 0) {
    message.set_local_mep_id(mep);
  }
  Send(CFM_MGR_C2S_SIG_STATS_CLEAR, message);
}

// A handler may be unregistered by its own call, so it is looked at before each.
void ClientImpl::ReqStatsReply(vorbus_t* /*token*/, void* user, const vorbus_pid_t* /*sender*/, void* data,
                               std::size_t size) {
  ClientImpl& client = ClientOf(user);
  if (client.statistics_handler_ == nullptr) {
    return;
  }
  const auto message = Received<client_server::OpReplyAllStats>(data, size);
  for (const auto& local : message.local_stats()) {
    st_local_mep_stats stats{};
    stats.ccm_rx_seq_errors = local.ccm_rx_seq_errors();
    stats.ccm_tx_total = local.ccm_tx_total();
    stats.ccm_tx_current_seq = local.ccm_tx_current_seq();
    if (client.statistics_handler_ != nullptr) {
      client.statistics_handler_->OnLocalMepStatistics(local.md_name(), local.ma_name(), Low16(local.local_mep_id()),
                                                       stats);
    }
    CFM_LOG(client.log_category_, kLogDump, "ReqStatsReply",
            "\nLocal MEP statistics: MD %s MA %s LMEP %d\n"
            "   CCM RX sequence number errors: %lu\n"
            "   CCM TX total count: %lu\n"
            "   CCM TX current sequence number: %d\n",
            local.md_name().c_str(), local.ma_name().c_str(), local.local_mep_id(), local.ccm_rx_seq_errors(),
            local.ccm_tx_total(), local.ccm_tx_current_seq());
  }
  for (const auto& remote : message.remote_stats()) {
    st_remote_mep_stats stats{};
    stats.last_ccm_seq = remote.last_ccm_seq();
    if (client.statistics_handler_ != nullptr) {
      client.statistics_handler_->OnRemoteMepStatistics(
          remote.md_name(), remote.ma_name(), Low16(remote.local_mep_id()), Low16(remote.remote_mep_id()), stats);
    }
    CFM_LOG(client.log_category_, kLogDump, "ReqStatsReply",
            "\nRemote MEP statistics: MD %s MA %s LMEP %d RMEP %d\n"
            "   Last CCM sequence number: %d\n",
            remote.md_name().c_str(), remote.ma_name().c_str(), remote.local_mep_id(), remote.remote_mep_id(),
            remote.last_ccm_seq());
  }
  if (client.statistics_handler_ != nullptr) {
    client.statistics_handler_->OnStatisticsEnd();
  }
}

}  // namespace cfm
