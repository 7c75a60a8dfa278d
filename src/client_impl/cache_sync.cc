// Agreeing with a server that came up on one configuration, before any of it is sent.
#include "client_impl.h"
#include "client_impl/hierarchy_messages.h"
#include "client_impl/log.h"
#include "client_impl/probe_messages.h"
#include "client_impl/receive.h"

namespace cfm {

void ClientImpl::ReqCacheReply(vorbus_t* /*token*/, void* user, const vorbus_pid_t* /*sender*/, void* data,
                               std::size_t size) {
  ClientImpl& client = ClientOf(user);
  CFM_LOG(client.log_category_, kLogTrace, "ReqCacheReply", "Cache reply received");
  {
    const auto cache = Received<client_server::OpCacheSync>(data, size);
    client.ReqCacheReplyHierarchy(cache);
    client.ReqCacheReplyProbe(cache);
  }
  CFM_LOG(client.log_category_, kLogTrace, "ReqCacheReply",
          "Cache sync apply: pending requests will be processed, if any");
  client.cache_synced_ = true;
  client.Apply();
  client.ApplyDelayMeasurementProbe();
  client.SendEmpty(CFM_MGR_C2S_SIG_STATUS_GET_ALL);
}

void ClientImpl::ReqCacheReplyHierarchy(const client_server::OpCacheSync& cache) {
  MdMap server = HierarchyFromCache(cache);
  if (applied_hierarchy_.empty() && server.empty()) {
    CFM_LOG(log_category_, kLogTrace, "ReqCacheReplyHierarchy", "Client and server caches are empty, nothing to do");
  } else if (server.empty()) {
    CFM_LOG(log_category_, kLogTrace, "ReqCacheReplyHierarchy",
            "Server died, will re-apply using last cached status of client");
    CreateAll(applied_hierarchy_);
  } else if (applied_hierarchy_.empty()) {
    CFM_LOG(log_category_, kLogTrace, "ReqCacheReplyHierarchy", "App died, will use last cached status from server");
    applied_hierarchy_ = std::move(server);
  } else {
    CFM_LOG(log_category_, kLogTrace, "ReqCacheReplyHierarchy",
            "App and server have an existing configuration, assume that from the server");
    applied_hierarchy_ = std::move(server);
  }
}

// No "server died" here: the desired probes are created anew by the reconciliation that follows, because none of them
// is in the then empty applied set.
void ClientImpl::ReqCacheReplyProbe(const client_server::OpCacheSync& cache) {
  ProbeMap server = ProbesFromCache(cache);
  if (!applied_probes_.empty()) {
    CFM_LOG(log_category_, kLogTrace, "ReqCacheReplyProbe",
            "App and server have an existing configuration, assume that from the server");
    applied_probes_ = std::move(server);
  } else if (!server.empty()) {
    CFM_LOG(log_category_, kLogTrace, "ReqCacheReplyProbe", "App died, will use last cached status from server");
    applied_probes_ = std::move(server);
  } else {
    CFM_LOG(log_category_, kLogTrace, "ReqCacheReplyProbe", "Client and server caches are empty, nothing to do");
  }
}

void ClientImpl::CreateAll(const MdMap& mds) {
  for (const auto& [md_name, md] : mds) {
    CreateMd(md_name, md.cfg);
    for (const auto& [ma_name, ma] : md.mas) {
      CreateMa(ma.md_name, ma_name, ma.cfg);
      for (const auto& [mep_id, mep] : ma.meps) {
        CreateMep(mep.md_name, mep.ma_name, mep.cfg);
      }
    }
  }
}

}  // namespace cfm
