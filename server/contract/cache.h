// The configuration that the server was asked to hold, as the create requests that would make it anew. Pure data:
// nothing is sent or logged from here, and nothing here says whether an object works.
//
// Rules
//  1. An update is merged into the create request that it belongs to: what is present in the update is taken over; the
//     list of MEP ids, which has no presence of its own, always is; an AIS part is taken over as a whole.
//  2. A create request for an object that exists replaces it and keeps its children.
//  3. Deleting an object deletes its children.
//  4. A request is refused, and changes nothing, when its key is incomplete or names an id above 65535 (clients know
//  ids
//     of 16 bits), when its parent does not exist, or when it updates or deletes what does not exist. Any octets are a
//     name, the empty name too. A probe names its end points without needing them.
#ifndef CFM_SERVER_CONTRACT_CACHE_H
#define CFM_SERVER_CONTRACT_CACHE_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "client_server.pb.h"
#include "contract/key.h"

namespace cfm::contract {

enum class Effect {
  kCreated,
  kReplaced,   // by another create request that differs
  kUpdated,    // by an update that changed something
  kUnchanged,  // a create or update that repeats what is known
  kRemoved,
};

struct Change {
  Effect effect;
  ObjectKey object;
  std::vector<ObjectKey> removed = {};  // with kRemoved: all that went, children before parents, the object itself last
};

enum class Reason { kKeyIncomplete, kKeyOutOfRange, kNoParent, kNoObject };

struct Refusal {
  Reason reason;
  std::string text;  // for people; printable
};

using Outcome = std::variant<Change, Refusal>;

struct Association {
  client_server::OpCreateMaintenanceAssociation request;
  // Their requests are kept without md_name and ma_name, which are the tree's: end points come in great numbers.
  std::map<uint16_t, client_server::OpCreateMaintenanceEndpoint> endpoints;
};

struct Domain {
  client_server::OpCreateMaintenanceDomain request;
  std::map<std::string, Association, std::less<>> associations;
};

struct Probe {
  client_server::OpCreateDelayMeasurementProbe request;
  std::map<uint16_t, client_server::OpCreateDelayMeasurementSession> sessions;
};

class Cache {
 public:
  using Domains = std::map<std::string, Domain, std::less<>>;
  using Probes = std::map<uint16_t, Probe>;

  Outcome Apply(const client_server::OpCreateMaintenanceDomain& request);
  Outcome Apply(const client_server::OpUpdateMaintenanceDomain& request);
  Outcome Apply(const client_server::OpDeleteMaintenanceDomain& request);
  Outcome Apply(const client_server::OpCreateMaintenanceAssociation& request);
  Outcome Apply(const client_server::OpUpdateMaintenanceAssociation& request);
  Outcome Apply(const client_server::OpDeleteMaintenanceAssociation& request);
  Outcome Apply(const client_server::OpCreateMaintenanceEndpoint& request);
  Outcome Apply(const client_server::OpUpdateMaintenanceEndpoint& request);
  Outcome Apply(const client_server::OpDeleteMaintenanceEndpoint& request);
  Outcome Apply(const client_server::OpCreateDelayMeasurementProbe& request);
  Outcome Apply(const client_server::OpDeleteDelayMeasurementProbe& request);
  Outcome Apply(const client_server::OpCreateDelayMeasurementSession& request);
  Outcome Apply(const client_server::OpDeleteDelayMeasurementSession& request);

  // In ascending order of their keys, names by octets.
  const Domains& domains() const { return domains_; }
  const Probes& probes() const { return probes_; }

  // Null when there is no such end point. The request lacks md_name and ma_name.
  const client_server::OpCreateMaintenanceEndpoint* FindEndpoint(std::string_view md_name, std::string_view ma_name,
                                                                 uint32_t mep_id) const;

  // All of it, each list in ascending order of its keys.
  client_server::OpCacheSync Snapshot() const;

 private:
  Domains domains_;
  Probes probes_;
};

}  // namespace cfm::contract

#endif
