#include "reconciliation_model.h"

#include <algorithm>
#include <compare>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace model {

namespace {

using Name = std::string;
using Id = std::uint16_t;

using MaKey = std::tuple<Name, Name>;
using MepKey = std::tuple<Name, Name, Id>;

// A tree as three tables. Keys are those of the maps; the inner names stay in the records.
struct Tables {
  std::map<Name, const cfm::hierarchy_md*> mds;
  std::map<MaKey, const cfm::hierarchy_ma*> mas;
  std::map<MepKey, const cfm::hierarchy_mep*> meps;

  explicit Tables(const Mds& tree) {
    for (const auto& [n, md] : tree) {
      mds[n] = &md;
      for (const auto& [m, ma] : md.mas) {
        mas[{n, m}] = &ma;
        for (const auto& [k, mep] : ma.meps) {
          meps[{n, m, k}] = &mep;
        }
      }
    }
  }

  template <typename Table, typename Key>
  static auto Find(const Table& table, const Key& key) {
    const auto row = table.find(key);
    return row == table.end() ? nullptr : row->second;
  }
};

enum Phase { kDelete, kCreate, kUpdate };

// A request and where it belongs. `rank` is 0 for domains, 1 for associations, 2 for end points, and the other way
// round in deletions; `late` puts new end points behind recreated ones.
struct Placed {
  Phase phase;
  int rank;
  bool late;
  MepKey key;
  recording::Entry request;

  auto Order() const { return std::tie(phase, rank, late, key); }
};

recording::Journal InOrder(std::vector<Placed> requests) {
  std::stable_sort(requests.begin(), requests.end(),
                   [](const Placed& left, const Placed& right) { return left.Order() < right.Order(); });
  recording::Journal journal;
  journal.reserve(requests.size());
  for (Placed& placed : requests) {
    journal.push_back(std::move(placed.request));
  }
  return journal;
}

class Rules {
 public:
  Rules(const Mds& applied, const Mds& desired) : a_(applied), d_(desired) {}

  recording::Journal Requests() {
    for (const auto& [n, md] : a_.mds) {
      if (!InDesired(n) || LevelChanged(n)) {
        Place(kDelete, 2, false, {n, "", 0}, expected::DeleteMd(n));
      }
    }
    for (const auto& [n, md] : d_.mds) {
      if (!InApplied(n) || LevelChanged(n)) {
        Place(kCreate, 0, false, {n, "", 0}, expected::CreateMd(n, md->cfg));
      } else {
        Place(kUpdate, 0, false, {n, "", 0}, expected::UpdateMd(n, md->cfg));
      }
    }

    for (const auto& [key, ma] : a_.mas) {
      const auto& [n, m] = key;
      // A domain that goes takes what is in it along.
      if (InDesired(n) && (Tables::Find(d_.mas, key) == nullptr || MaRecreated(key))) {
        Place(kDelete, 1, false, {n, m, 0}, expected::DeleteMa(ma->md_name, m));
      }
    }
    for (const auto& [key, ma] : d_.mas) {
      const auto& [n, m] = key;
      if (Tables::Find(a_.mas, key) != nullptr) {
        Place(MaRecreated(key) ? kCreate : kUpdate, 1, false, {n, m, 0},
              MaRecreated(key) ? expected::CreateMa(ma->md_name, m, ma->cfg)
                               : expected::UpdateMa(ma->md_name, m, ma->cfg));
      } else if (!Known(n, m)) {
        Place(kCreate, 1, false, {n, m, 0}, expected::CreateMa(ma->md_name, m, ma->cfg));
      }
    }

    for (const auto& [key, mep] : a_.meps) {
      const auto& [n, m, k] = key;
      if (Tables::Find(d_.mas, MaKey{n, m}) != nullptr &&
          (Tables::Find(d_.meps, key) == nullptr || MepRecreated(key))) {
        Place(kDelete, 0, false, key, expected::DeleteMep(*mep));
      }
    }
    for (const auto& [key, mep] : d_.meps) {
      const auto& [n, m, k] = key;
      if (Tables::Find(a_.meps, key) != nullptr) {
        Place(MepRecreated(key) ? kCreate : kUpdate, 2, false, key,
              MepRecreated(key) ? expected::CreateMep(*mep) : expected::UpdateMep(*mep));
      }
      // Whether it is new is asked of the association that the record names, not of the one that holds it.
      if (!Known(n, m) || Tables::Find(a_.meps, MepKey{n, mep->ma_name, k}) == nullptr) {
        Place(kCreate, 2, true, key, expected::CreateMep(*mep));
      }
    }
    return InOrder(std::move(requests_));
  }

  int Phantoms() const {
    return static_cast<int>(std::count_if(d_.mas.begin(), d_.mas.end(), [&](const auto& row) {
      const auto& [n, m] = row.first;
      return Tables::Find(a_.mas, row.first) == nullptr && Known(n, m);
    }));
  }

 private:
  bool InApplied(const Name& n) const { return a_.mds.contains(n); }
  bool InDesired(const Name& n) const { return d_.mds.contains(n); }

  bool LevelChanged(const Name& n) const {
    return InApplied(n) && InDesired(n) && a_.mds.at(n)->cfg.level != d_.mds.at(n)->cfg.level;
  }

  // Of an association on both sides.
  bool MaRecreated(const MaKey& key) const {
    return LevelChanged(std::get<0>(key)) || a_.mas.at(key)->cfg.vids != d_.mas.at(key)->cfg.vids;
  }

  // Of an end point on both sides.
  bool MepRecreated(const MepKey& key) const {
    const auto fixed = [](const cfm::st_maintenance_endpoint_cfg& cfg) {
      return std::tuple(cfg.port, cfg.direction, cfg.primary_vid, cfg.inner_vid);
    };
    return MaRecreated({std::get<0>(key), std::get<1>(key)}) ||
           fixed(a_.meps.at(key)->cfg) != fixed(d_.meps.at(key)->cfg);
  }

  // Whether the applied side has the association when its turn comes: it held it from the start, or an end point of an
  // earlier association that was known itself has named it.
  bool Known(const Name& n, const Name& m) const {
    if (!InApplied(n)) {
      return false;
    }
    if (a_.mas.contains({n, m})) {
      return true;
    }
    return std::any_of(d_.meps.begin(), d_.meps.end(), [&](const auto& row) {
      const auto& [domain, holder, id] = row.first;
      return domain == n && holder < m && row.second->ma_name == m && Known(n, holder);
    });
  }

  void Place(Phase phase, int rank, bool late, MepKey key, recording::Entry request) {
    requests_.push_back({phase, rank, late, std::move(key), std::move(request)});
  }

  Tables a_;
  Tables d_;
  std::vector<Placed> requests_;
};

}  // namespace

recording::Journal Hierarchy(const Mds& applied, const Mds& desired) {
  return Rules(applied, desired).Requests();
}

int PhantomAssociations(const Mds& applied, const Mds& desired) {
  return Rules(applied, desired).Phantoms();
}

recording::Journal Recreation(const Mds& applied) {
  // A parent's key is a prefix of its children's, and nothing comes before something.
  std::map<std::tuple<Name, std::optional<Name>, std::optional<Id>>, recording::Entry> rows;
  const Tables tables(applied);
  for (const auto& [key, mep] : tables.meps) {
    rows.insert({{std::get<0>(key), std::get<1>(key), std::get<2>(key)}, expected::CreateMep(*mep)});
  }
  for (const auto& [key, ma] : tables.mas) {
    rows.insert({{std::get<0>(key), std::get<1>(key), std::nullopt},
                 expected::CreateMa(ma->md_name, std::get<1>(key), ma->cfg)});
  }
  for (const auto& [n, md] : tables.mds) {
    rows.insert({{n, std::nullopt, std::nullopt}, expected::CreateMd(n, md->cfg)});
  }
  recording::Journal journal;
  for (auto& [key, request] : rows) {
    journal.push_back(std::move(request));
  }
  return journal;
}

recording::Journal ProbeSet(const Probes& applied, const Probes& desired) {
  const auto compared = [](const cfm::probe_cfg& probe) {
    return std::tie(probe.probe_id, probe.interval, probe.ma_name, probe.md_name, probe.local_mep_id,
                    probe.remote_mep_id);
  };
  const auto values = [](const cfm::session_cfg& session) {
    return std::tuple(session.count, session.interval, session.size, session.pcp);
  };
  using SessionKey = std::pair<Id, Id>;
  const auto sessions_of = [](const Probes& probes) {
    std::map<SessionKey, cfm::session_cfg> sessions;
    for (const auto& [p, probe] : probes) {
      for (const auto& [s, session] : probe.sessions) {
        sessions[{p, s}] = session;
      }
    }
    return sessions;
  };

  // A probe stands before its sessions; other than with hierarchies, creations stand before deletions.
  enum Turn { kFirst, kSecond };
  std::map<std::tuple<Turn, Id, std::optional<Id>>, recording::Entry> rows;
  for (const auto& [p, probe] : desired) {
    if (!applied.contains(p) || compared(applied.at(p)) != compared(probe)) {
      rows.insert({{kFirst, p, std::nullopt}, expected::CreateProbe(p, probe)});
    }
  }
  for (const auto& [p, probe] : applied) {
    if (!desired.contains(p)) {
      rows.insert({{kSecond, p, std::nullopt}, expected::DeleteProbe(p)});
    }
  }
  const auto had = sessions_of(applied);
  const auto wanted = sessions_of(desired);
  for (const auto& [key, session] : wanted) {
    if (!had.contains(key) || values(had.at(key)) != values(session)) {
      rows.insert({{kFirst, key.first, key.second}, expected::CreateSession(key.first, key.second, session)});
    }
  }
  for (const auto& [key, session] : had) {
    if (!wanted.contains(key) && desired.contains(key.first)) {
      rows.insert({{kSecond, key.first, key.second}, expected::DeleteSession(key.first, key.second)});
    }
  }
  recording::Journal journal;
  for (auto& [key, request] : rows) {
    journal.push_back(std::move(request));
  }
  return journal;
}

}  // namespace model
