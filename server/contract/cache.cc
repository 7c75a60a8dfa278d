#include "contract/cache.h"

#include <limits>
#include <optional>
#include <type_traits>
#include <utility>

#include "contract/merge.h"

namespace cfm::contract {
namespace {

using client_server::OpCreateMaintenanceEndpoint;

constexpr uint32_t kMaxId = std::numeric_limits<uint16_t>::max();

// A request whose key is complete and in range, or why it is refused.
struct KeyCheck {
  std::optional<Refusal> refusal;

  KeyCheck& Name(const char* field, bool present) {
    if (!refusal && !present) refusal = {Reason::kKeyIncomplete, std::string(field) + " is missing"};
    return *this;
  }
  KeyCheck& Id(const char* field, bool present, uint32_t value) {
    Name(field, present);
    if (!refusal && value > kMaxId) {
      refusal = {Reason::kKeyOutOfRange, std::string(field) + ' ' + std::to_string(value) + " is above 65535"};
    }
    return *this;
  }
};

template <typename Request>
std::optional<Refusal> CheckDomainKey(const Request& request) {
  return KeyCheck().Name("name", request.has_name()).refusal;
}

template <typename Request>
std::optional<Refusal> CheckAssociationKey(const Request& request) {
  return KeyCheck().Name("md_name", request.has_md_name()).Name("ma_name", request.has_ma_name()).refusal;
}

template <typename Request>
std::optional<Refusal> CheckEndpointKey(const Request& request) {
  return KeyCheck{CheckAssociationKey(request)}.Id("mep_id", request.has_mep_id(), request.mep_id()).refusal;
}

template <typename Request>
std::optional<Refusal> CheckProbeKey(const Request& request) {
  return KeyCheck().Id("probe_id", request.has_probe_id(), request.probe_id()).refusal;
}

template <typename Request>
std::optional<Refusal> CheckSessionKey(const Request& request) {
  return KeyCheck{CheckProbeKey(request)}.Id("session_id", request.has_session_id(), request.session_id()).refusal;
}

template <typename Request>
DomainKey DomainKeyOf(const Request& request) {
  return {request.name()};
}

template <typename Request>
AssociationKey AssociationKeyOf(const Request& request) {
  return {request.md_name(), request.ma_name()};
}

template <typename Request>
EndpointKey EndpointKeyOf(const Request& request) {
  return {request.md_name(), request.ma_name(), static_cast<uint16_t>(request.mep_id())};
}

template <typename Request>
ProbeKey ProbeKeyOf(const Request& request) {
  return {static_cast<uint16_t>(request.probe_id())};
}

template <typename Request>
SessionKey SessionKeyOf(const Request& request) {
  return {static_cast<uint16_t>(request.probe_id()), static_cast<uint16_t>(request.session_id())};
}

Refusal NoParent(const ObjectKey& parent) {
  return {Reason::kNoParent, "there is no " + ToText(parent)};
}
Refusal NoObject(const ObjectKey& object) {
  return {Reason::kNoObject, "there is no " + ToText(object)};
}

template <typename Map, typename Key>
auto* Find(Map& map, const Key& key) {
  const auto it = map.find(key);
  return it == map.end() ? nullptr : &it->second;
}

// The road of the tree: the object that a key's parent part names, null when there is none.
template <typename DomainMap>
auto* FindAssociation(DomainMap& domains, std::string_view md_name, std::string_view ma_name) {
  auto* domain = Find(domains, md_name);
  return domain == nullptr ? nullptr : Find(domain->associations, ma_name);
}

template <typename Request>
bool Same(const Request& a, const Request& b) {
  return a.SerializeAsString() == b.SerializeAsString();
}

// What is stored of a request: all of it, but an end point's names.
template <typename Request>
Request Stored(const Request& request) {
  if constexpr (std::is_same_v<Request, OpCreateMaintenanceEndpoint>) {
    Request bare = request;
    bare.clear_md_name();
    bare.clear_ma_name();
    // A cleared text keeps its memory until the message goes; a copy has never had it.
    return Request(std::as_const(bare));
  } else {
    return request;
  }
}

// Puts a request into its place. If the place was made for it, the object is new.
template <typename Request>
Change Put(const Request& request, Request* place, ObjectKey key, bool is_new, Effect effect_on_existing) {
  Request stored = Stored(request);
  if (!is_new && Same(stored, *place)) return {Effect::kUnchanged, std::move(key)};
  *place = std::move(stored);
  return {is_new ? Effect::kCreated : effect_on_existing, std::move(key)};
}

template <typename Update, typename Request>
Change PutUpdate(const Update& update, Request* place, ObjectKey key) {
  Request merged = *place;
  MergeUpdate(update, &merged);
  return Put(merged, place, std::move(key), false, Effect::kUpdated);
}

void AppendEndpoints(const AssociationKey& key, const Association& association, std::vector<ObjectKey>* removed) {
  for (const auto& [mep_id, endpoint] : association.endpoints) {
    removed->emplace_back(EndpointKey{key.md_name, key.ma_name, mep_id});
  }
}

}  // namespace

Outcome Cache::Apply(const client_server::OpCreateMaintenanceDomain& request) {
  if (auto refusal = CheckDomainKey(request)) return *std::move(refusal);
  const auto [place, is_new] = domains_.try_emplace(request.name());
  return Put(request, &place->second.request, DomainKeyOf(request), is_new, Effect::kReplaced);
}

Outcome Cache::Apply(const client_server::OpUpdateMaintenanceDomain& request) {
  if (auto refusal = CheckDomainKey(request)) return *std::move(refusal);
  Domain* domain = Find(domains_, request.name());
  if (domain == nullptr) return NoObject(DomainKeyOf(request));
  return PutUpdate(request, &domain->request, DomainKeyOf(request));
}

Outcome Cache::Apply(const client_server::OpDeleteMaintenanceDomain& request) {
  if (auto refusal = CheckDomainKey(request)) return *std::move(refusal);
  const auto domain = domains_.find(request.name());
  if (domain == domains_.end()) return NoObject(DomainKeyOf(request));
  Change change{Effect::kRemoved, DomainKeyOf(request)};
  for (const auto& [ma_name, association] : domain->second.associations) {
    const AssociationKey key{request.name(), ma_name};
    AppendEndpoints(key, association, &change.removed);
    change.removed.emplace_back(key);
  }
  change.removed.push_back(change.object);
  domains_.erase(domain);
  return change;
}

Outcome Cache::Apply(const client_server::OpCreateMaintenanceAssociation& request) {
  if (auto refusal = CheckAssociationKey(request)) return *std::move(refusal);
  Domain* domain = Find(domains_, request.md_name());
  if (domain == nullptr) return NoParent(DomainKey{request.md_name()});
  const auto [place, is_new] = domain->associations.try_emplace(request.ma_name());
  return Put(request, &place->second.request, AssociationKeyOf(request), is_new, Effect::kReplaced);
}

Outcome Cache::Apply(const client_server::OpUpdateMaintenanceAssociation& request) {
  if (auto refusal = CheckAssociationKey(request)) return *std::move(refusal);
  Association* association = FindAssociation(domains_, request.md_name(), request.ma_name());
  if (association == nullptr) return NoObject(AssociationKeyOf(request));
  return PutUpdate(request, &association->request, AssociationKeyOf(request));
}

Outcome Cache::Apply(const client_server::OpDeleteMaintenanceAssociation& request) {
  if (auto refusal = CheckAssociationKey(request)) return *std::move(refusal);
  const AssociationKey key = AssociationKeyOf(request);
  const Association* association = FindAssociation(domains_, key.md_name, key.ma_name);
  if (association == nullptr) return NoObject(key);
  Change change{Effect::kRemoved, key};
  AppendEndpoints(key, *association, &change.removed);
  change.removed.emplace_back(key);
  domains_.find(key.md_name)->second.associations.erase(key.ma_name);
  return change;
}

Outcome Cache::Apply(const client_server::OpCreateMaintenanceEndpoint& request) {
  if (auto refusal = CheckEndpointKey(request)) return *std::move(refusal);
  EndpointKey key = EndpointKeyOf(request);
  Association* association = FindAssociation(domains_, key.md_name, key.ma_name);
  if (association == nullptr) return NoParent(AssociationKeyOf(request));
  const auto [place, is_new] = association->endpoints.try_emplace(key.mep_id);
  return Put(request, &place->second, std::move(key), is_new, Effect::kReplaced);
}

Outcome Cache::Apply(const client_server::OpUpdateMaintenanceEndpoint& request) {
  if (auto refusal = CheckEndpointKey(request)) return *std::move(refusal);
  EndpointKey key = EndpointKeyOf(request);
  Association* association = FindAssociation(domains_, key.md_name, key.ma_name);
  OpCreateMaintenanceEndpoint* endpoint = association == nullptr ? nullptr : Find(association->endpoints, key.mep_id);
  if (endpoint == nullptr) return NoObject(std::move(key));
  return PutUpdate(request, endpoint, std::move(key));
}

Outcome Cache::Apply(const client_server::OpDeleteMaintenanceEndpoint& request) {
  if (auto refusal = CheckEndpointKey(request)) return *std::move(refusal);
  EndpointKey key = EndpointKeyOf(request);
  Association* association = FindAssociation(domains_, key.md_name, key.ma_name);
  if (association == nullptr || association->endpoints.erase(key.mep_id) == 0) return NoObject(std::move(key));
  return Change{Effect::kRemoved, key, {key}};
}

Outcome Cache::Apply(const client_server::OpCreateDelayMeasurementProbe& request) {
  if (auto refusal = CheckProbeKey(request)) return *std::move(refusal);
  const ProbeKey key = ProbeKeyOf(request);
  const auto [place, is_new] = probes_.try_emplace(key.probe_id);
  return Put(request, &place->second.request, key, is_new, Effect::kReplaced);
}

Outcome Cache::Apply(const client_server::OpDeleteDelayMeasurementProbe& request) {
  if (auto refusal = CheckProbeKey(request)) return *std::move(refusal);
  const ProbeKey key = ProbeKeyOf(request);
  const auto probe = probes_.find(key.probe_id);
  if (probe == probes_.end()) return NoObject(key);
  Change change{Effect::kRemoved, key};
  for (const auto& [session_id, session] : probe->second.sessions) {
    change.removed.emplace_back(SessionKey{key.probe_id, session_id});
  }
  change.removed.emplace_back(key);
  probes_.erase(probe);
  return change;
}

Outcome Cache::Apply(const client_server::OpCreateDelayMeasurementSession& request) {
  if (auto refusal = CheckSessionKey(request)) return *std::move(refusal);
  const SessionKey key = SessionKeyOf(request);
  Probe* probe = Find(probes_, key.probe_id);
  if (probe == nullptr) return NoParent(ProbeKey{key.probe_id});
  const auto [place, is_new] = probe->sessions.try_emplace(key.session_id);
  return Put(request, &place->second, key, is_new, Effect::kReplaced);
}

Outcome Cache::Apply(const client_server::OpDeleteDelayMeasurementSession& request) {
  if (auto refusal = CheckSessionKey(request)) return *std::move(refusal);
  const SessionKey key = SessionKeyOf(request);
  Probe* probe = Find(probes_, key.probe_id);
  if (probe == nullptr || probe->sessions.erase(key.session_id) == 0) return NoObject(key);
  return Change{Effect::kRemoved, key, {key}};
}

const OpCreateMaintenanceEndpoint* Cache::FindEndpoint(std::string_view md_name, std::string_view ma_name,
                                                       uint32_t mep_id) const {
  const Association* association = FindAssociation(domains_, md_name, ma_name);
  if (association == nullptr || mep_id > kMaxId) return nullptr;
  return Find(association->endpoints, static_cast<uint16_t>(mep_id));
}

client_server::OpCacheSync Cache::Snapshot() const {
  client_server::OpCacheSync snapshot;
  for (const auto& [md_name, domain] : domains_) {
    *snapshot.add_domains() = domain.request;
    for (const auto& [ma_name, association] : domain.associations) {
      *snapshot.add_associations() = association.request;
      for (const auto& [mep_id, endpoint] : association.endpoints) {
        auto& request = *snapshot.add_endpoints();
        request = endpoint;
        request.set_md_name(md_name);
        request.set_ma_name(ma_name);
      }
    }
  }
  for (const auto& [probe_id, probe] : probes_) {
    *snapshot.add_probes() = probe.request;
    for (const auto& [session_id, session] : probe.sessions) *snapshot.add_sessions() = session;
  }
  return snapshot;
}

}  // namespace cfm::contract
