#include "difference.h"

#include <fmt/format.h>

#include <algorithm>

#include "settings_list.h"
#include "text.h"

namespace cfmctl {
namespace {

/// Walks two ordered maps side by side. `each` gets the key and the two values, null where there is none.
template <class Map, class Each>
void WalkBoth(const Map& a, const Map& b, Each each) {
  using Value = const typename Map::mapped_type*;
  auto i = a.begin();
  auto j = b.begin();
  while (i != a.end() || j != b.end()) {
    if (j == b.end() || (i != a.end() && i->first < j->first)) {
      each(i->first, Value(&i->second), Value(nullptr));
      ++i;
    } else if (i == a.end() || j->first < i->first) {
      each(j->first, Value(nullptr), Value(&j->second));
      ++j;
    } else {
      each(i->first, Value(&i->second), Value(&j->second));
      ++i;
      ++j;
    }
  }
}

/// The map of children of a parent that may be absent.
template <class Parent, class Map>
const Map& ChildrenOf(const Parent* parent, Map Parent::*children) {
  static const Map kNone;
  return parent != nullptr ? parent->*children : kNone;
}

class Comparison {
 public:
  explicit Comparison(const Ports& ports) : ports_(ports) {}

  Difference Run(const Model& from, const Model& to) {
    WalkBoth(from.hierarchy.mds, to.hierarchy.mds, [this](const std::string& name, auto a, auto b) {
      const bool replaced = Object("domain " + Escape(name), a, b, false);
      WalkBoth(ChildrenOf(a, &cfm::hierarchy_md::mas), ChildrenOf(b, &cfm::hierarchy_md::mas),
               [&](const std::string& ma_name, auto ma_a, auto ma_b) {
                 Association(Escape(name) + "/" + Escape(ma_name), ma_a, ma_b, replaced);
               });
    });
    WalkBoth(from.probes.probes, to.probes.probes, [this](std::uint16_t id, auto a, auto b) {
      Object(fmt::format("probe {}", id), a, b, false);
      WalkBoth(ChildrenOf(a, &cfm::probe_cfg::sessions), ChildrenOf(b, &cfm::probe_cfg::sessions),
               [&](std::uint16_t session, auto session_a, auto session_b) {
                 Object(fmt::format("session {}.{}", id, session), session_a, session_b, false);
               });
    });
    return std::move(difference_);
  }

 private:
  void Association(const std::string& path, const cfm::hierarchy_ma* a, const cfm::hierarchy_ma* b,
                   bool parent_replaced) {
    const bool replaced = Object("association " + path, a, b, parent_replaced);
    WalkBoth(ChildrenOf(a, &cfm::hierarchy_ma::meps), ChildrenOf(b, &cfm::hierarchy_ma::meps),
             [&](std::uint16_t id, auto mep_a, auto mep_b) {
               Object(fmt::format("end point {}/{}", path, id), mep_a, mep_b, replaced);
             });
  }

  /// Returns whether the object is replaced.
  template <class Record>
  bool Object(const std::string& name, const Record* a, const Record* b, bool parent_replaced) {
    if (a == nullptr || b == nullptr) {
      difference_.changes.push_back({a == nullptr ? Action::kCreated : Action::kDeleted, name, {}});
      return false;
    }
    const SettingsList from = Settings(*a);
    const SettingsList to = Settings(*b);
    bool replaced = parent_replaced;
    std::vector<SettingChange> settings;
    const auto add = [&](const Setting& setting, std::string before, std::string after) {
      settings.push_back({setting.name, std::move(before), std::move(after)});
      replaced = replaced || setting.change != Change::kUpdate;
    };
    // The lists have the same settings in the same order, but for those at the end that depend on others.
    const std::size_t both = std::min(from.size(), to.size());
    for (std::size_t i = 0; i < both; ++i) {
      if (from[i].value != to[i].value) add(from[i], from[i].Text(), to[i].Text());
    }
    for (std::size_t i = both; i < from.size(); ++i) add(from[i], from[i].Text(), "none");
    for (std::size_t i = both; i < to.size(); ++i) add(to[i], "none", to[i].Text());

    if (replaced || !settings.empty()) {
      difference_.changes.push_back({replaced ? Action::kReplaced : Action::kUpdated, name, std::move(settings)});
    }
    return replaced;
  }

  static SettingsList Settings(const cfm::hierarchy_md& md) { return SettingsOf(md.cfg); }
  static SettingsList Settings(const cfm::hierarchy_ma& ma) { return SettingsOf(ma.cfg); }
  SettingsList Settings(const cfm::hierarchy_mep& mep) const { return SettingsOf(mep.cfg, ports_); }
  static SettingsList Settings(const cfm::probe_cfg& probe) { return SettingsOf(probe); }
  static SettingsList Settings(const cfm::session_cfg& session) { return SettingsOf(session); }

  const Ports& ports_;
  Difference difference_;
};

}  // namespace

std::string_view NameOf(Action action) {
  switch (action) {
    case Action::kCreated:
      return "created";
    case Action::kUpdated:
      return "updated";
    case Action::kReplaced:
      return "replaced";
    case Action::kDeleted:
      return "deleted";
  }
  return {};
}

std::size_t Difference::CountOf(Action action) const {
  return static_cast<std::size_t>(std::count_if(
      changes.begin(), changes.end(), [action](const ObjectChange& change) { return change.action == action; }));
}

Difference Compare(const Model& from, const Model& to, const Ports& ports) {
  return Comparison(ports).Run(from, to);
}

std::optional<Model> StepBefore(const Model& from, const Model& to) {
  std::vector<std::string> domains;
  std::vector<std::pair<std::string, std::string>> associations;
  WalkBoth(from.hierarchy.mds, to.hierarchy.mds, [&](const std::string& name, auto a, auto b) {
    // A changed level has the library replace the domain with everything below it.
    if (a == nullptr || b == nullptr || a->cfg.level != b->cfg.level) return;
    if (a->cfg.format != b->cfg.format) {
      domains.push_back(name);
      return;
    }
    WalkBoth(a->mas, b->mas, [&](const std::string& ma_name, auto ma_a, auto ma_b) {
      if (ma_a == nullptr || ma_b == nullptr || ma_a->cfg.vids != ma_b->cfg.vids) return;
      if (ma_a->cfg.format != ma_b->cfg.format) associations.emplace_back(name, ma_name);
    });
  });
  if (domains.empty() && associations.empty()) return std::nullopt;

  Model step = to;
  for (const std::string& name : domains) step.hierarchy.mds.erase(name);
  for (const auto& [md_name, ma_name] : associations) step.hierarchy.mds.at(md_name).mas.erase(ma_name);
  std::erase_if(step.probes.probes, [&step](const auto& entry) {
    const auto md = step.hierarchy.mds.find(entry.second.md_name);
    return md == step.hierarchy.mds.end() || !md->second.mas.contains(entry.second.ma_name);
  });
  return step;
}

}  // namespace cfmctl
