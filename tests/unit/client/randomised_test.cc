// Generated pairs of configurations against the model, request by request and octet by octet.
//
// CFM_SEED repeats a run; CFM_RANDOM_PAIRS makes it shorter or longer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <map>
#include <random>
#include <string>

#include "expected_requests.h"
#include "reconciliation_model.h"

namespace {

using expected::kServer;
using model::Mds;
using model::Probes;
using recording::Journal;
using recording::Same;
using recording::Sent;

unsigned long FromEnvironment(const char* name, unsigned long otherwise) {
  const char* text = std::getenv(name);
  return text != nullptr ? std::strtoul(text, nullptr, 0) : otherwise;
}

// Small pools, so that both sides of a pair share many keys and inner names hit other keys.
class Generator {
 public:
  Generator(unsigned long seed, unsigned long pair) {
    std::seed_seq sequence{seed & 0xffffffffU, seed >> 32U, pair};
    engine_.seed(sequence);
  }

  bool OneIn(unsigned int n) { return Below(n) == 0; }
  unsigned int Below(unsigned int n) { return std::uniform_int_distribution<unsigned int>(0, n - 1)(engine_); }

  template <typename Value>
  Value Small() {
    return static_cast<Value>(Below(3));
  }

  std::string MdName() { return Pick({"", "md", "md1", "md\xc3\xa9"}); }
  std::string MaName() { return Pick({"a", "ab", "b", "c", std::string("a\0", 2)}); }
  std::uint16_t MepId() { return static_cast<std::uint16_t>(Pick({1, 2, 300, 65535})); }

  cfm::st_maintenance_endpoint_cfg MepCfg() {
    cfm::st_maintenance_endpoint_cfg cfg{};
    cfg.direction = Small<std::uint32_t>();
    cfg.port = 1 + Below(3);
    cfg.primary_vid = Small<std::uint16_t>();
    cfg.inner_vid = Small<std::uint16_t>();
    cfg.admin_state = OneIn(2);
    cfg.tx_ccm_enabled = OneIn(2);
    cfg.ccm_priority = static_cast<std::uint8_t>(Below(256));
    cfg.lowest_prio_defect_allowed = static_cast<cfm::Defects>(Below(256));
    cfg.fng_alarm_time = static_cast<std::uint16_t>(Below(65536));
    cfg.fng_reset_time = static_cast<std::uint16_t>(Below(65536));
    cfg.action = Small<cfm::FaultAction>();
    cfg.aux_flag = OneIn(2);
    return cfg;
  }

  cfm::st_maintenance_association_cfg MaCfg() {
    cfm::st_maintenance_association_cfg cfg{};
    cfg.format = Small<std::uint32_t>();
    for (unsigned int i = Below(3); i > 0; --i) {
      cfg.vids.push_back(Small<std::uint16_t>());
    }
    cfg.ccm_interval = Small<cfm::CcmInterval>();
    for (unsigned int i = Below(4); i > 0; --i) {
      cfg.mep_ids.insert(MepId());
    }
    cfg.sender_id = Small<cfm::SenderIdTlvContent>();
    cfg.mhf_creation = Small<cfm::MhfCreationMode>();
    cfg.ais.enabled = OneIn(2);
    cfg.ais.aux_u8 = static_cast<std::uint8_t>(Below(256));
    cfg.ais.aux_u32 = Below(100);
    cfg.ais.aux_ids = {MepId(), MepId()};
    cfg.ais.aux_u16 = static_cast<std::uint16_t>(Below(65536));
    cfg.ais.aux_flag = OneIn(2);
    return cfg;
  }

  cfm::st_maintenance_domain_cfg MdCfg() {
    return {.format = Small<std::uint32_t>(),
            .level = static_cast<std::uint8_t>(Below(2)),
            .sender_id = Small<cfm::SenderIdTlvContent>(),
            .mhf_creation = Small<cfm::MhfCreationMode>()};
  }

  // A tree grown from another one: whatever is taken over may be changed a little or dropped. `true_names` makes inner
  // names agree with the keys, as a server's cache has them.
  Mds Tree(const Mds& from, bool true_names) {
    Mds mds = from;
    std::erase_if(mds, [&](const auto&) { return OneIn(6); });
    for (unsigned int i = Below(3); i > 0; --i) {
      mds.try_emplace(MdName());
    }
    for (auto& [md_name, md] : mds) {
      Change(md.cfg, MdCfg(), !from.contains(md_name), 4);
      std::erase_if(md.mas, [&](const auto&) { return OneIn(6); });
      for (unsigned int i = Below(3); i > 0; --i) {
        md.mas.try_emplace(MaName());
      }
      for (auto& [ma_name, ma] : md.mas) {
        ma.md_name = true_names || !OneIn(8) ? md_name : MdName();
        Change(ma.cfg, MaCfg(), !from.contains(md_name) || !from.at(md_name).mas.contains(ma_name), 4);
        std::erase_if(ma.meps, [&](const auto&) { return OneIn(6); });
        for (unsigned int i = Below(3); i > 0; --i) {
          ma.meps.try_emplace(MepId());
        }
        for (auto& [mep_id, mep] : ma.meps) {
          mep.md_name = true_names || !OneIn(8) ? md_name : MdName();
          mep.ma_name = true_names || !OneIn(4) ? ma_name : MaName();
          Change(mep.cfg, MepCfg(), mep.cfg.port == 0, 3);
          mep.cfg.mep_id = true_names || !OneIn(8) ? mep_id : MepId();
          if (OneIn(4)) {
            mep.cfg.admin_state = !mep.cfg.admin_state;
          }
        }
      }
    }
    return mds;
  }

  Probes ProbeSet(const Probes& from, bool true_ids) {
    Probes probes = from;
    std::erase_if(probes, [&](const auto&) { return OneIn(5); });
    for (unsigned int i = Below(3); i > 0; --i) {
      probes.try_emplace(MepId());
    }
    for (auto& [id, probe] : probes) {
      if (!from.contains(id) || OneIn(3)) {
        probe.interval = Small<std::uint16_t>();
        probe.md_name = MdName();
        probe.ma_name = MaName();
        probe.local_mep_id = Small<std::uint16_t>();
        probe.remote_mep_id = Small<std::uint16_t>();
      }
      probe.probe_id = true_ids || !OneIn(6) ? id : MepId();
      std::erase_if(probe.sessions, [&](const auto&) { return OneIn(4); });
      for (unsigned int i = Below(3); i > 0; --i) {
        probe.sessions[MepId()] = {.count = Small<std::uint16_t>(),
                                   .interval = Small<std::uint16_t>(),
                                   .size = Small<std::uint16_t>(),
                                   .pcp = static_cast<std::uint8_t>(Below(256))};
      }
    }
    return probes;
  }

  // The cache of a server that holds this, its lists in any order.
  client_server::OpCacheSync Cache(const Mds& mds, const Probes& probes) {
    client_server::OpCacheSync cache;
    expected::AddToCache(cfm::hierarchy{.mds = mds}, &cache);
    expected::AddToCache(cfm::probe{.probes = probes}, &cache);
    Shuffle(cache.mutable_domains());
    Shuffle(cache.mutable_associations());
    Shuffle(cache.mutable_endpoints());
    Shuffle(cache.mutable_probes());
    Shuffle(cache.mutable_sessions());
    return cache;
  }

 private:
  template <typename Value>
  Value Pick(std::initializer_list<Value> values) {
    return values.begin()[Below(static_cast<unsigned int>(values.size()))];
  }
  std::string Pick(std::initializer_list<std::string> values) { return Pick<std::string>(values); }

  template <typename Cfg>
  void Change(Cfg& cfg, const Cfg& other, bool fresh, unsigned int one_in) {
    if (fresh || OneIn(one_in)) {
      cfg = other;
    }
  }

  template <typename List>
  void Shuffle(List* list) {
    for (int i = list->size() - 1; i > 0; --i) {
      list->SwapElements(i, static_cast<int>(Below(static_cast<unsigned int>(i) + 1)));
    }
  }

  std::mt19937_64 engine_;
};

void Append(Journal& journal, const Journal& more) {
  journal.insert(journal.end(), more.begin(), more.end());
}

// What only some of the associations of a cache's tree keep: with AIS disabled, its other settings do not travel.
Mds AsImported(Mds mds) {
  for (auto& [md_name, md] : mds) {
    for (auto& [ma_name, ma] : md.mas) {
      if (!ma.cfg.ais.enabled) {
        ma.cfg.ais = {
            .enabled = false, .aux_u8 = 0, .aux_u32 = 0, .aux_ids = {}, .aux_u16 = 0, .aux_flag = ma.cfg.ais.aux_flag};
      }
    }
  }
  return mds;
}

#ifdef CFM_SANITIZED
// Wrong use of memory shows in few pairs; that the requests are right is shown without sanitizers, ten times faster.
constexpr unsigned long kPairs = 2000;
#else
constexpr unsigned long kPairs = 20000;
#endif

class GeneratedPair : public expected::Fixture {
 protected:
  const unsigned long seed = FromEnvironment("CFM_SEED", std::random_device{}());
  const unsigned long pairs = FromEnvironment("CFM_RANDOM_PAIRS", kPairs);
  std::map<std::string, unsigned long> seen;  // requests by signal

  GeneratedPair() {
    std::cout << "CFM_SEED=" << seed << " CFM_RANDOM_PAIRS=" << pairs << '\n';
    RecordProperty("CFM_SEED", std::to_string(seed));
    middleware.record_logs = false;
  }

  void SetState(vorbus_pid_t pid, bool synced, const Mds& applied, const Probes& applied_probes) {
    client.server_pid_ = pid;
    client.cache_synced_ = synced;
    client.applied_hierarchy_ = applied;
    client.applied_probes_ = applied_probes;
    middleware.Take();
  }

  Journal Sends() {
    Journal requests = expected::Requests(middleware.Take());
    for (const recording::Entry& request : requests) {
      ++seen[request.text];
    }
    return requests;
  }

  void ExpectApplied(const Mds& desired, const Probes& desired_probes) const {
    EXPECT_EQ(expected::Difference(client.applied_hierarchy_, desired), "");
    EXPECT_EQ(expected::Difference(client.applied_probes_, desired_probes), "");
  }

  // A generator that never makes some kind of request would prove nothing about it.
  void ExpectSeen(std::initializer_list<const vorbus_sig_t*> signals) {
    for (const vorbus_sig_t* signal : signals) {
      EXPECT_GT(seen[Sent(signal, kServer).text], pairs / 10) << recording::NameOf(*signal);
    }
  }
};

TEST_F(GeneratedPair, OfHierarchiesAndProbesSendsWhatTheModelSays) {
  unsigned long phantoms = 0;
  for (unsigned long pair = 0; pair < pairs; ++pair) {
    Generator generate(seed, pair);
    const Mds applied = generate.Tree(generate.Tree({}, false), false);
    const Mds desired = generate.Tree(applied, false);
    const Probes applied_probes = generate.ProbeSet(generate.ProbeSet({}, false), false);
    const Probes desired_probes = generate.ProbeSet(applied_probes, false);
    phantoms += static_cast<unsigned long>(model::PhantomAssociations(applied, desired));

    SetState(kServer, true, applied, applied_probes);
    client.UpdateConfig({.mds = desired});
    ASSERT_TRUE(Same(Sends(), model::Hierarchy(applied, desired))) << "CFM_SEED=" << seed << ", pair " << pair;
    client.UpdateConfigProbe({.probes = desired_probes});
    ASSERT_TRUE(Same(Sends(), model::ProbeSet(applied_probes, desired_probes)))
        << "CFM_SEED=" << seed << ", pair " << pair;
    ASSERT_NO_FATAL_FAILURE(ExpectApplied(desired, desired_probes));
  }
  ExpectSeen({CFM_MGR_C2S_SIG_MD_CREATE, CFM_MGR_C2S_SIG_MD_UPDATE, CFM_MGR_C2S_SIG_MD_DELETE,
              CFM_MGR_C2S_SIG_MA_CREATE, CFM_MGR_C2S_SIG_MA_UPDATE, CFM_MGR_C2S_SIG_MA_DELETE,
              CFM_MGR_C2S_SIG_MEP_CREATE, CFM_MGR_C2S_SIG_MEP_UPDATE, CFM_MGR_C2S_SIG_MEP_DELETE,
              CFM_MGR_C2S_SIG_DM_PROBE_CREATE, CFM_MGR_C2S_SIG_DM_PROBE_DELETE, CFM_MGR_C2S_SIG_DM_SESSION_CREATE,
              CFM_MGR_C2S_SIG_DM_SESSION_DELETE});
  EXPECT_GT(phantoms, pairs / 100);
}

TEST_F(GeneratedPair, AfterAServerThatLostItsCacheIsRecreatedAndThenReconciled) {
  for (unsigned long pair = 0; pair < pairs; ++pair) {
    Generator generate(seed, pair);
    const Mds applied = generate.Tree({}, false);
    const Mds desired = generate.Tree(applied, false);
    const Probes applied_probes = generate.ProbeSet({}, false);
    const Probes desired_probes = generate.ProbeSet(applied_probes, false);

    SetState(0, false, applied, applied_probes);
    client.UpdateConfig({.mds = desired});
    client.UpdateConfigProbe({.probes = desired_probes});
    ASSERT_TRUE(Same(Sends(), {}));
    middleware.Find(kServer);
    middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, "");

    Journal all = {Sent(CFM_MGR_C2S_SIG_CACHE_GET, kServer)};
    Append(all, model::Recreation(applied));
    Append(all, model::Hierarchy(applied, desired));
    Append(all, model::ProbeSet({}, desired_probes));
    all.push_back(Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer));
    ASSERT_TRUE(Same(Sends(), all)) << "CFM_SEED=" << seed << ", pair " << pair;
    ASSERT_NO_FATAL_FAILURE(ExpectApplied(desired, desired_probes));
  }
}

TEST_F(GeneratedPair, WithAServerThatHoldsAConfigurationIsReconciledAgainstThat) {
  for (unsigned long pair = 0; pair < pairs; ++pair) {
    Generator generate(seed, pair);
    const Mds held = generate.Tree(generate.Tree({}, true), true);
    const Mds desired = generate.Tree(held, false);
    const Probes held_probes = generate.ProbeSet({}, true);
    const Probes desired_probes = generate.ProbeSet(held_probes, false);
    const bool app_died = generate.OneIn(2);
    const Mds applied = app_died ? Mds{} : generate.Tree({}, false);
    const Probes applied_probes = app_died ? Probes{} : generate.ProbeSet({}, false);

    SetState(0, false, applied, applied_probes);
    client.UpdateConfig({.mds = desired});
    client.UpdateConfigProbe({.probes = desired_probes});
    middleware.Find(kServer);
    middleware.Take();
    middleware.Deliver(CFM_MGR_S2C_SIG_CACHE_REPLY, generate.Cache(held, held_probes));

    // An empty server makes the client create what it has.
    Journal all = held.empty() ? model::Recreation(applied) : Journal{};
    Append(all, model::Hierarchy(held.empty() ? applied : AsImported(held), desired));
    Append(all, model::ProbeSet(held_probes, desired_probes));
    all.push_back(Sent(CFM_MGR_C2S_SIG_STATUS_GET_ALL, kServer));
    ASSERT_TRUE(Same(Sends(), all)) << "CFM_SEED=" << seed << ", pair " << pair;
    ASSERT_NO_FATAL_FAILURE(ExpectApplied(desired, desired_probes));
  }
}

}  // namespace
