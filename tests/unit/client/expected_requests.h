// The requests that records stand for, as the journal entries that tests expect, and records to make them from.
#ifndef TESTS_UNIT_CLIENT_EXPECTED_REQUESTS_H
#define TESTS_UNIT_CLIENT_EXPECTED_REQUESTS_H

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "cfm/client.h"
#include "client_impl.h"
#include "client_server.pb.h"
#include "recording_middleware.h"

namespace expected {

using recording::Entry;
using recording::Journal;

/// The server's pid, unless a test says otherwise.
inline constexpr vorbus_pid_t kServer = 7;

// ---- Messages from records, by the tables of the wire contract ----

client_server::Ais AisOf(const cfm::st_ais_cfg& cfg);
client_server::OpCreateMaintenanceDomain CreateMdMessage(const std::string& name,
                                                         const cfm::st_maintenance_domain_cfg& cfg);
client_server::OpCreateMaintenanceAssociation CreateMaMessage(const std::string& md_name, const std::string& ma_name,
                                                              const cfm::st_maintenance_association_cfg& cfg);
/// The interface index of port n is 1000 + n for the ports 1 to 64, and 0 for others.
client_server::OpCreateMaintenanceEndpoint CreateMepMessage(const std::string& md_name, const std::string& ma_name,
                                                            const cfm::st_maintenance_endpoint_cfg& cfg);
client_server::OpCreateDelayMeasurementProbe CreateProbeMessage(std::uint16_t probe_id, const cfm::probe_cfg& cfg);
client_server::OpCreateDelayMeasurementSession CreateSessionMessage(std::uint16_t probe_id, std::uint16_t session_id,
                                                                    const cfm::session_cfg& cfg);

// ---- Requests ----

Entry CreateMd(const std::string& name, const cfm::st_maintenance_domain_cfg& cfg, vorbus_pid_t to = kServer);
Entry UpdateMd(const std::string& name, const cfm::st_maintenance_domain_cfg& cfg, vorbus_pid_t to = kServer);
Entry DeleteMd(const std::string& name, vorbus_pid_t to = kServer);
Entry CreateMa(const std::string& md_name, const std::string& ma_name, const cfm::st_maintenance_association_cfg& cfg,
               vorbus_pid_t to = kServer);
Entry UpdateMa(const std::string& md_name, const std::string& ma_name, const cfm::st_maintenance_association_cfg& cfg,
               vorbus_pid_t to = kServer);
Entry DeleteMa(const std::string& md_name, const std::string& ma_name, vorbus_pid_t to = kServer);
Entry CreateMep(const cfm::hierarchy_mep& mep, vorbus_pid_t to = kServer);
Entry UpdateMep(const cfm::hierarchy_mep& mep, vorbus_pid_t to = kServer);
Entry DeleteMep(const cfm::hierarchy_mep& mep, vorbus_pid_t to = kServer);
Entry CreateProbe(std::uint16_t probe_id, const cfm::probe_cfg& cfg, vorbus_pid_t to = kServer);
Entry DeleteProbe(std::uint16_t probe_id, vorbus_pid_t to = kServer);
Entry CreateSession(std::uint16_t probe_id, std::uint16_t session_id, const cfm::session_cfg& cfg,
                    vorbus_pid_t to = kServer);
Entry DeleteSession(std::uint16_t probe_id, std::uint16_t session_id, vorbus_pid_t to = kServer);

/// The sends of a journal.
Journal Requests(const Journal& journal);
/// The log lines of a journal.
Journal Lines(const Journal& journal);

// ---- Records in which every member has a value of its own ----

cfm::hierarchy_md Md(std::uint8_t level = 3);
cfm::hierarchy_ma Ma(const std::string& md_name, const std::vector<std::uint16_t>& vids = {10, 20});
cfm::hierarchy_mep Mep(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id);
/// Puts an association with these end points into a domain of the tree, which is made when it is missing; names agree.
cfm::hierarchy_ma& AddMa(cfm::hierarchy& tree, const std::string& md_name, const std::string& ma_name,
                         std::initializer_list<std::uint16_t> mep_ids = {});
cfm::probe_cfg Probe(std::uint16_t probe_id, std::initializer_list<std::uint16_t> session_ids = {});
cfm::session_cfg Session(std::uint16_t number);

/// What a server that holds exactly this has in its cache.
void AddToCache(const cfm::hierarchy& tree, client_server::OpCacheSync* cache);
void AddToCache(const cfm::probe& probes, client_server::OpCacheSync* cache);

// ---- Comparison of whole records; gives the first difference in words, or nothing ----

std::string Difference(const cfm::ClientImpl::MdMap& left, const cfm::ClientImpl::MdMap& right);
std::string Difference(const cfm::ClientImpl::ProbeMap& left, const cfm::ClientImpl::ProbeMap& right);

/// A client on a middleware of its own; the journal is empty once it has been built.
struct Fixture : testing::Test {
  recording::Middleware middleware;
  cfm::ClientImpl client{middleware.token()};

  Fixture() { middleware.Take(); }

  /// Lets the server come up with this cache, and forgets what that did.
  void Synchronise(const client_server::OpCacheSync& cache = {});
  /// Brings the client, synchronised with an empty server, to have this applied.
  void Hold(const cfm::hierarchy& tree);
  void Hold(const cfm::probe& probes);
  /// What the call of one operation did.
  Journal Update(const cfm::hierarchy& tree);
  Journal Update(const cfm::probe& probes);
};

}  // namespace expected

#endif
