// Random requests against a second, simpler cache: five flat maps, each rule written out by hand.
#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <utility>

#include "contract/cache.h"

namespace cfm::contract {
namespace {

namespace pb = client_server;

// What a model says of a request.
enum class Verdict { kCreated, kReplaced, kUpdated, kUnchanged, kRemoved, kRefused };

Verdict VerdictOf(const Outcome& outcome) {
  const auto* change = std::get_if<Change>(&outcome);
  if (change == nullptr) return Verdict::kRefused;
  switch (change->effect) {
    case Effect::kCreated:
      return Verdict::kCreated;
    case Effect::kReplaced:
      return Verdict::kReplaced;
    case Effect::kUpdated:
      return Verdict::kUpdated;
    case Effect::kUnchanged:
      return Verdict::kUnchanged;
    case Effect::kRemoved:
      return Verdict::kRemoved;
  }
  return Verdict::kRefused;
}

struct Model {
  using MaKey = std::pair<std::string, std::string>;
  using MepKey = std::tuple<std::string, std::string, uint32_t>;
  std::map<std::string, pb::OpCreateMaintenanceDomain> domains;
  std::map<MaKey, pb::OpCreateMaintenanceAssociation> associations;
  std::map<MepKey, pb::OpCreateMaintenanceEndpoint> endpoints;
  std::map<uint32_t, pb::OpCreateDelayMeasurementProbe> probes;
  std::map<std::pair<uint32_t, uint32_t>, pb::OpCreateDelayMeasurementSession> sessions;
  size_t removed = 0;  // by the latest delete

  template <typename Map, typename Request>
  static Verdict Put(Map& map, const typename Map::key_type& key, const Request& request) {
    const auto it = map.find(key);
    if (it == map.end()) {
      map[key] = request;
      return Verdict::kCreated;
    }
    if (it->second.DebugString() == request.DebugString()) return Verdict::kUnchanged;
    it->second = request;
    return Verdict::kReplaced;
  }

  template <typename Message>
  static Verdict Finish(const std::string& before, const Message& after) {
    return before == after.DebugString() ? Verdict::kUnchanged : Verdict::kUpdated;
  }

  template <typename Map, typename Belongs>
  void Remove(Map& map, Belongs belongs) {
    removed += std::erase_if(map, [&](const auto& entry) { return belongs(entry.first); });
  }

  Verdict Apply(const pb::OpCreateMaintenanceDomain& r) {
    return r.has_name() ? Put(domains, r.name(), r) : Verdict::kRefused;
  }
  Verdict Apply(const pb::OpUpdateMaintenanceDomain& r) {
    if (!r.has_name() || !domains.contains(r.name())) return Verdict::kRefused;
    auto& d = domains[r.name()];
    const std::string before = d.DebugString();
    if (r.has_sender_id()) d.set_sender_id(r.sender_id());
    if (r.has_mhf_creation()) d.set_mhf_creation(r.mhf_creation());
    return Finish(before, d);
  }
  Verdict Apply(const pb::OpDeleteMaintenanceDomain& r) {
    if (!r.has_name() || !domains.contains(r.name())) return Verdict::kRefused;
    Remove(domains, [&](const auto& key) { return key == r.name(); });
    Remove(associations, [&](const auto& key) { return key.first == r.name(); });
    Remove(endpoints, [&](const auto& key) { return std::get<0>(key) == r.name(); });
    return Verdict::kRemoved;
  }
  Verdict Apply(const pb::OpCreateMaintenanceAssociation& r) {
    if (!r.has_md_name() || !r.has_ma_name() || !domains.contains(r.md_name())) return Verdict::kRefused;
    return Put(associations, {r.md_name(), r.ma_name()}, r);
  }
  Verdict Apply(const pb::OpUpdateMaintenanceAssociation& r) {
    if (!r.has_md_name() || !r.has_ma_name()) return Verdict::kRefused;
    const auto it = associations.find({r.md_name(), r.ma_name()});
    if (it == associations.end()) return Verdict::kRefused;
    auto& a = it->second;
    const std::string before = a.DebugString();
    if (r.has_ccm_interval()) a.set_ccm_interval(r.ccm_interval());
    if (r.has_sender_id()) a.set_sender_id(r.sender_id());
    if (r.has_mhf_creation()) a.set_mhf_creation(r.mhf_creation());
    *a.mutable_mep_ids() = r.mep_ids();
    if (r.has_ais()) *a.mutable_ais() = r.ais();
    return Finish(before, a);
  }
  Verdict Apply(const pb::OpDeleteMaintenanceAssociation& r) {
    const MaKey key{r.md_name(), r.ma_name()};
    if (!r.has_md_name() || !r.has_ma_name() || !associations.contains(key)) return Verdict::kRefused;
    Remove(associations, [&](const auto& k) { return k == key; });
    Remove(endpoints, [&](const auto& k) { return MaKey{std::get<0>(k), std::get<1>(k)} == key; });
    return Verdict::kRemoved;
  }
  template <typename Request>
  static bool EndpointKeyIsGood(const Request& r) {
    return r.has_md_name() && r.has_ma_name() && r.has_mep_id() && r.mep_id() < 65536;
  }
  Verdict Apply(const pb::OpCreateMaintenanceEndpoint& r) {
    if (!EndpointKeyIsGood(r) || !associations.contains({r.md_name(), r.ma_name()})) return Verdict::kRefused;
    return Put(endpoints, {r.md_name(), r.ma_name(), r.mep_id()}, r);
  }
  Verdict Apply(const pb::OpUpdateMaintenanceEndpoint& r) {
    const auto it = endpoints.find({r.md_name(), r.ma_name(), r.mep_id()});
    if (!EndpointKeyIsGood(r) || it == endpoints.end()) return Verdict::kRefused;
    auto& e = it->second;
    const std::string before = e.DebugString();
    if (r.has_primary_vid()) e.set_primary_vid(r.primary_vid());
    if (r.has_inner_vid()) e.set_inner_vid(r.inner_vid());
    if (r.has_ccm_priority()) e.set_ccm_priority(r.ccm_priority());
    if (r.has_admin_state()) e.set_admin_state(r.admin_state());
    if (r.has_tx_ccm_enabled()) e.set_tx_ccm_enabled(r.tx_ccm_enabled());
    if (r.has_aux_flag()) e.set_aux_flag(r.aux_flag());
    if (r.has_lowest_prio_defect_allowed()) e.set_lowest_prio_defect_allowed(r.lowest_prio_defect_allowed());
    if (r.has_fng_alarm_time()) e.set_fng_alarm_time(r.fng_alarm_time());
    if (r.has_fng_reset_time()) e.set_fng_reset_time(r.fng_reset_time());
    if (r.has_action()) e.set_action(r.action());
    return Finish(before, e);
  }
  Verdict Apply(const pb::OpDeleteMaintenanceEndpoint& r) {
    const MepKey key{r.md_name(), r.ma_name(), r.mep_id()};
    if (!EndpointKeyIsGood(r) || !endpoints.contains(key)) return Verdict::kRefused;
    Remove(endpoints, [&](const auto& k) { return k == key; });
    return Verdict::kRemoved;
  }
  Verdict Apply(const pb::OpCreateDelayMeasurementProbe& r) {
    return r.has_probe_id() && r.probe_id() < 65536 ? Put(probes, r.probe_id(), r) : Verdict::kRefused;
  }
  Verdict Apply(const pb::OpDeleteDelayMeasurementProbe& r) {
    if (!r.has_probe_id() || !probes.contains(r.probe_id())) return Verdict::kRefused;
    Remove(probes, [&](const auto& key) { return key == r.probe_id(); });
    Remove(sessions, [&](const auto& key) { return key.first == r.probe_id(); });
    return Verdict::kRemoved;
  }
  Verdict Apply(const pb::OpCreateDelayMeasurementSession& r) {
    if (!r.has_probe_id() || !r.has_session_id() || r.session_id() > 65535 || !probes.contains(r.probe_id())) {
      return Verdict::kRefused;
    }
    return Put(sessions, {r.probe_id(), r.session_id()}, r);
  }
  Verdict Apply(const pb::OpDeleteDelayMeasurementSession& r) {
    const std::pair key{r.probe_id(), r.session_id()};
    if (!r.has_probe_id() || !r.has_session_id() || !sessions.contains(key)) return Verdict::kRefused;
    Remove(sessions, [&](const auto& k) { return k == key; });
    return Verdict::kRemoved;
  }

  pb::OpCacheSync Snapshot() const {
    pb::OpCacheSync all;
    for (const auto& [key, request] : domains) *all.add_domains() = request;
    for (const auto& [key, request] : associations) *all.add_associations() = request;
    for (const auto& [key, request] : endpoints) *all.add_endpoints() = request;
    for (const auto& [key, request] : probes) *all.add_probes() = request;
    for (const auto& [key, request] : sessions) *all.add_sessions() = request;
    return all;
  }
};

// Draws requests over few keys and few values, so that they meet; fields are absent one time in eight.
class Generator {
 public:
  explicit Generator(unsigned int seed) : random_(seed) {}

  unsigned int Below(unsigned int limit) { return static_cast<unsigned int>(random_() % limit); }

  template <typename Request>
  Request Draw() {
    Request request;
    Fill(&request);
    return request;
  }

 private:
  void Fill(google::protobuf::Message* message) {
    const auto* reflection = message->GetReflection();
    for (int i = 0; i < message->GetDescriptor()->field_count(); ++i) {
      const auto* field = message->GetDescriptor()->field(i);
      if (Below(8) == 0) continue;
      if (field->is_repeated()) {
        for (unsigned int n = Below(4); n > 0; --n) reflection->AddUInt32(message, field, Below(3));
        continue;
      }
      switch (field->cpp_type()) {
        case google::protobuf::FieldDescriptor::CPPTYPE_UINT32:
          reflection->SetUInt32(message, field, Below(40) == 0 ? 65536 + Below(3) : Below(3));
          break;
        case google::protobuf::FieldDescriptor::CPPTYPE_BOOL:
          reflection->SetBool(message, field, Below(2) == 0);
          break;
        case google::protobuf::FieldDescriptor::CPPTYPE_STRING:
          reflection->SetString(message, field, names_[Below(4)]);
          break;
        default:
          Fill(reflection->MutableMessage(message, field));
      }
    }
  }

  std::mt19937 random_;
  const std::array<std::string, 4> names_ = {"", "a", "b", "\xff"};
};

class RandomRequests : public testing::Test {
 protected:
  template <typename Request>
  void Apply() {
    const auto request = generator_.Draw<Request>();
    SCOPED_TRACE(Request::descriptor()->name() + " {" + request.ShortDebugString() + "}");
    model_.removed = 0;
    const Verdict expected = model_.Apply(request);
    const Outcome outcome = cache_.Apply(request);
    ASSERT_EQ(VerdictOf(outcome), expected);
    if (const auto* change = std::get_if<Change>(&outcome)) {
      ASSERT_EQ(change->removed.size(), model_.removed);
      if (expected == Verdict::kRemoved) {
        ASSERT_EQ(change->removed.back(), change->object);
      }
    }
    ASSERT_EQ(cache_.Snapshot().SerializeAsString(), model_.Snapshot().SerializeAsString());
    ++verdicts_[expected];
  }

  const google::protobuf::LogSilencer quiet_;  // names are any octets
  const unsigned int seed_ = std::random_device()();
  Generator generator_{seed_};
  Model model_;
  Cache cache_;
  std::map<Verdict, int> verdicts_;
};

#ifdef CFM_SANITIZED
// Wrong use of memory shows in few; that the cache is right is shown without sanitizers.
constexpr int kRequests = 20'000;
#else
constexpr int kRequests = 100'000;
#endif

TEST_F(RandomRequests, LeaveTheCacheAsTheModelHasIt) {
  SCOPED_TRACE("seed " + std::to_string(seed_));
  for (int i = 0; i < kRequests && !HasFatalFailure(); ++i) {
    switch (generator_.Below(20)) {
      case 0:
      case 1:
        Apply<pb::OpCreateMaintenanceDomain>();
        break;
      case 2:
        Apply<pb::OpUpdateMaintenanceDomain>();
        break;
      case 3:
        Apply<pb::OpDeleteMaintenanceDomain>();
        break;
      case 4:
      case 5:
      case 6:
        Apply<pb::OpCreateMaintenanceAssociation>();
        break;
      case 7:
        Apply<pb::OpUpdateMaintenanceAssociation>();
        break;
      case 8:
        Apply<pb::OpDeleteMaintenanceAssociation>();
        break;
      case 9:
      case 10:
      case 11:
      case 12:
        Apply<pb::OpCreateMaintenanceEndpoint>();
        break;
      case 13:
        Apply<pb::OpUpdateMaintenanceEndpoint>();
        break;
      case 14:
        Apply<pb::OpDeleteMaintenanceEndpoint>();
        break;
      case 15:
        Apply<pb::OpCreateDelayMeasurementProbe>();
        break;
      case 16:
        Apply<pb::OpDeleteDelayMeasurementProbe>();
        break;
      case 17:
      case 18:
        Apply<pb::OpCreateDelayMeasurementSession>();
        break;
      default:
        Apply<pb::OpDeleteDelayMeasurementSession>();
    }
  }
  // The draw reaches every verdict often, or the run has shown little.
  for (const Verdict verdict : {Verdict::kCreated, Verdict::kReplaced, Verdict::kUpdated, Verdict::kUnchanged,
                                Verdict::kRemoved, Verdict::kRefused}) {
    EXPECT_GT(verdicts_[verdict], kRequests / 1000) << static_cast<int>(verdict);
  }
}

}  // namespace
}  // namespace cfm::contract
