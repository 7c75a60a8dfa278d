// The implementation behind cfm::Client: all state of the library and every operation on it. Its members are defined by
// subject under client_impl/.
#ifndef CFM_SRC_CLIENT_IMPL_H
#define CFM_SRC_CLIENT_IMPL_H

#include <zlog.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cfm/client.h"

namespace google::protobuf {
class MessageLite;
}
namespace client_server {
class OpCacheSync;
}

namespace cfm {

class ClientImpl {
 public:
  // The shapes in which a reconciliation collects its work. The records in them stand for themselves alone: nobody
  // reads the children of a domain or association there.
  using MdMap = std::map<std::string, hierarchy_md>;
  using MaMap = std::map<std::pair<std::string, std::string>, hierarchy_ma>;  // by (MD name, MA name)
  using MepList = std::list<hierarchy_mep>;
  using ProbeMap = std::map<std::uint16_t, probe_cfg>;

  explicit ClientImpl(vorbus_t* token);
  ~ClientImpl();
  ClientImpl(const ClientImpl&) = delete;
  ClientImpl& operator=(const ClientImpl&) = delete;

  void RegisterStatusHandler(ReceivedStatusHandlerIntf* handler);
  void RegisterStatisticsHandler(ReceivedStatisticsHandlerIntf* handler);
  void RegisterLinktraceHandler(ReceivedLinktraceHandlerIntf* handler);
  void RegisterLoopbackHandler(ReceivedLoopbackHandlerIntf* handler);
  void RegisterDelayMeasurementHandler(ReceivedDelayMeasurementHandlerIntf* handler);

  // Hierarchy: single requests, then the reconciliation.
  void CreateMd(const std::string& md_name, const st_maintenance_domain_cfg& cfg);
  void UpdateMd(const std::string& md_name, SenderIdTlvContent sender_id, MhfCreationMode mhf_creation);
  void DeleteMd(const std::string& md_name);
  void CreateMa(const std::string& md_name, const std::string& ma_name, const st_maintenance_association_cfg& cfg);
  void UpdateMa(const std::string& md_name, const std::string& ma_name, CcmInterval ccm_interval,
                SenderIdTlvContent sender_id, MhfCreationMode mhf_creation, const std::set<std::uint16_t>& mep_ids,
                st_ais_cfg ais);
  void DeleteMa(const std::string& md_name, const std::string& ma_name);
  void CreateMep(const std::string& md_name, const std::string& ma_name, const st_maintenance_endpoint_cfg& cfg);
  void UpdateMep(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                 std::uint16_t primary_vid, std::uint16_t inner_vid, bool admin_state, bool tx_ccm_enabled,
                 std::uint8_t ccm_priority, Defects lowest_prio_defect_allowed, std::uint16_t fng_alarm_time,
                 std::uint16_t fng_reset_time, FaultAction action, bool aux_flag);
  void DeleteMep(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id);

  void UpdateConfig(const hierarchy& desired);
  void Apply();
  void ApplyDelete(const MdMap& mds, const MaMap& mas, const MepList& meps);
  void ApplyCreate(const MdMap& mds, const MaMap& mas, const MepList& meps);
  void ApplyUpdate(const MdMap& mds, const MaMap& mas, const MepList& meps);

  // Probes, likewise.
  void CreateDelayMeasurementProbe(std::uint16_t probe_id, const probe_cfg& cfg);
  void DeleteDelayMeasurementProbe(std::uint16_t probe_id);
  void CreateDelayMeasurementSession(std::uint16_t probe_id, std::uint16_t session_id, const session_cfg& cfg);
  void DeleteDelayMeasurementSession(std::uint16_t probe_id, std::uint16_t session_id);

  void UpdateConfigProbe(const probe& desired);
  void ApplyDelayMeasurementProbe();

  // Cache synchronisation: which side's state becomes the applied one.
  void ReqCacheReplyHierarchy(const client_server::OpCacheSync& cache);
  void ReqCacheReplyProbe(const client_server::OpCacheSync& cache);

  void RequestStatistics() const;
  void ClearStatistics(const char* md, const char* ma, std::uint16_t mep) const;
  void LinktraceTrigger(const linktrace_trigger& trigger);
  void LoopbackTrigger(const loopback_trigger& trigger) const;
  void DelayMeasurementTrigger(const delay_measurement_trigger& trigger) const;

  // Called by the middleware, with the ClientImpl as user pointer.
  static void ServerFound(vorbus_t* token, const vorbus_pid_t* pid, void* user);
  static void ServerLost(vorbus_t* token, void* user);

  static void ReqCacheReply(vorbus_t* token, void* user, const vorbus_pid_t* sender, void* data, std::size_t size);
  static void ReqStatsReply(vorbus_t* token, void* user, const vorbus_pid_t* sender, void* data, std::size_t size);
  static void HandleLinktraceTriggerError(vorbus_t* token, void* user, const vorbus_pid_t* sender, void* data,
                                          std::size_t size);
  static void HandleLoopbackTriggerError(vorbus_t* token, void* user, const vorbus_pid_t* sender, void* data,
                                         std::size_t size);
  static void HandleDelayMeasurementTriggerError(vorbus_t* token, void* user, const vorbus_pid_t* sender, void* data,
                                                 std::size_t size);

  static void HandleStatusLocalMep(vorbus_t* token, void* user, void* data, std::size_t size);
  static void HandleStatusRemoteMep(vorbus_t* token, void* user, void* data, std::size_t size);
  static void HandleRemovedLocalMep(vorbus_t* token, void* user, void* data, std::size_t size);
  static void HandleRemovedRemoteMep(vorbus_t* token, void* user, void* data, std::size_t size);
  static void HandleMepLinktraceStarted(vorbus_t* token, void* user, void* data, std::size_t size);
  static void HandleMepLinktraceEnded(vorbus_t* token, void* user, void* data, std::size_t size);
  static void HandleMepLinktraceReplyRx(vorbus_t* token, void* user, void* data, std::size_t size);
  static void HandleLoopbackStarted(vorbus_t* token, void* user, void* data, std::size_t size);
  static void HandleLoopbackReplyRx(vorbus_t* token, void* user, void* data, std::size_t size);
  static void HandleLoopbackEnded(vorbus_t* token, void* user, void* data, std::size_t size);
  static void HandleDelayMeasurementStarted(vorbus_t* token, void* user, void* data, std::size_t size);
  static void HandleDelayMeasurementReplyRx(vorbus_t* token, void* user, void* data, std::size_t size);
  static void HandleDelayMeasurementEnded(vorbus_t* token, void* user, void* data, std::size_t size);
  static void HandleDelayMeasurementSessionEnded(vorbus_t* token, void* user, void* data, std::size_t size);

  vorbus_t* token_;  // never owned, like the five handlers
  ReceivedStatusHandlerIntf* status_handler_ = nullptr;
  ReceivedStatisticsHandlerIntf* statistics_handler_ = nullptr;
  ReceivedLinktraceHandlerIntf* linktrace_handler_ = nullptr;
  ReceivedLoopbackHandlerIntf* loopback_handler_ = nullptr;
  ReceivedDelayMeasurementHandlerIntf* delay_measurement_handler_ = nullptr;
  zlog_category_t* log_category_ = nullptr;
  vorbus_subscription_t* server_subscription_ = nullptr;
  vorbus_pid_t server_pid_ = 0;  // 0: no server is known
  MdMap desired_hierarchy_;      // as last handed to UpdateConfig
  MdMap applied_hierarchy_;      // what the server is believed to hold
  std::vector<vorbus_registration_t*> signal_registrations_;
  std::vector<vorbus_eventreg_t*> event_registrations_;
  bool cache_synced_ = false;  // the cache of the present server instance has been imported
  ProbeMap desired_probes_;
  ProbeMap applied_probes_;

 private:
  void RegisterSignalHandlers();

  // True when configuration may be sent now.
  bool Synchronised() const { return server_pid_ != 0 && cache_synced_; }
  // Logs that the stored configuration waits for the next synchronisation.
  void LogDeferred(std::string_view function) const;

  // The send road. A failed send is the middleware's business: nothing is queued or repeated here.
  void Send(const vorbus_sig_t* signal, const google::protobuf::MessageLite& message) const;
  void SendEmpty(const vorbus_sig_t* signal) const;
  // The same with the trace lines that the on-demand triggers write, under their own name.
  void SendTraced(std::string_view function, const vorbus_sig_t* signal,
                  const google::protobuf::MessageLite& message) const;

  // Sends the create requests of a whole hierarchy, depth first.
  void CreateAll(const MdMap& mds);
};

}  // namespace cfm

#endif
