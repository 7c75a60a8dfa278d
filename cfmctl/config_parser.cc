#include "config_parser.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <utility>

#include "config_values.h"
#include "maid.h"
#include "names.h"
#include "text.h"

namespace cfmctl {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::uint32_t kHighestLevel = 7;
constexpr std::uint32_t kHighestPriority = 7;
constexpr std::uint32_t kHighestVid = 4094;
constexpr std::uint32_t kHighestMepId = 8191;
constexpr std::uint32_t kHighestProbeId = 65535;

// IEEE 802.1Q clauses 20.35.3 and 20.35.4: 2.5 s to 10 s; the records count steps of 10 ms.
constexpr milliseconds kFngStep(10);
constexpr milliseconds kFngShortest(2500);
constexpr milliseconds kFngLongest(10000);

// What the server takes for one run of a session.
constexpr std::uint32_t kMostMessages = 1024;
constexpr std::uint32_t kLargestDataTlv = 1480;
constexpr milliseconds kShortestMessageInterval(10);
constexpr milliseconds kLongestMessageInterval(60000);

/// What an association needs to know of its domain.
struct DomainFacts {
  std::string name;
  std::uint32_t format = 0;
  std::optional<std::string> octets;   ///< nothing when the name is wrong
  std::optional<std::uint32_t> level;  ///< nothing when it is missing or wrong
};

/// What an end point needs to know of its association.
struct AssociationFacts {
  std::string md_name;
  std::string ma_name;
  std::optional<std::vector<std::uint16_t>> vlans;  ///< nothing when they are wrong
};

class ConfigParser {
 public:
  explicit ConfigParser(const Ports& ports) : ports_(ports) {}

  ParsedConfig Parse(const std::string& text);

 private:
  void ParseRoot(const YamlNode& root);
  void ParseDomain(const std::string& name, const YamlNode& key, const Value& value);
  void ParseAssociation(const DomainFacts& domain, const std::string& name, const YamlNode& key, const Value& value,
                        cfm::hierarchy_md& md);
  void CheckMaid(const DomainFacts& domain, std::uint32_t format, const std::string& name, const YamlNode& key,
                 const Value& value);
  std::optional<std::vector<std::uint16_t>> ParseVlans(const Settings& settings);
  cfm::st_ais_cfg ParseAis(const DomainFacts& domain, const Value& value);
  void ParseEndPoint(const AssociationFacts& association, std::uint16_t mep_id, const Value& value,
                     cfm::hierarchy_ma& ma);
  void ParseVlanOfEndPoint(const AssociationFacts& association, Settings& settings,
                           cfm::st_maintenance_endpoint_cfg& cfg);
  std::uint32_t ParsePort(const Value& value);
  void ParseProbe(std::uint16_t probe_id, const Value& value);
  void CheckProbe(const Settings& settings, const cfm::probe_cfg& probe);
  cfm::session_cfg ParseSession(const Value& value);

  /// Calls `each(id, value)` for every entry of a mapping whose keys are numbers.
  template <class Each>
  void ForEachNumbered(const Value& mapping, std::string_view what, std::uint32_t highest, Each each);

  const Ports& ports_;
  ErrorList errors_;
  Model model_;
  std::map<std::string, std::uint32_t> known_ports_;
  std::map<std::pair<std::uint32_t, std::string>, std::string> maids_;  // level and MAID to the way to the association
};

template <class Each>
void ConfigParser::ForEachNumbered(const Value& mapping, std::string_view what, std::uint32_t highest, Each each) {
  std::map<std::uint32_t, Place> seen;
  ForEachNamed(errors_, mapping, what, [&](const std::string&, const YamlNode& key, const Value& value) {
    const auto id = ReadNumber(errors_, Value{.node = &key, .path = value.path}, 1, highest);
    if (!id) return;
    // "1" and "01" are different keys to YAML.
    const auto [first, added] = seen.try_emplace(*id, key.place);
    if (!added) {
      errors_.Add(key.place, *value.path, AlreadyAt(first->second));
      return;
    }
    each(static_cast<std::uint16_t>(*id), value);
  });
}

ParsedConfig ConfigParser::Parse(const std::string& text) {
  const YamlDocument document(text);
  if (document.error()) {
    errors_.Add(document.error()->place, Path{}, document.error()->what);
  } else if (document.root() == nullptr || document.root()->kind == YamlNode::Kind::kNull) {
    errors_.Add(Place{}, Path{},
                "the file is empty; allowed: a mapping of domains, probes ('domains: {}' wants nothing)");
  } else {
    ParseRoot(*document.root());
  }
  return {.model = std::move(model_), .errors = errors_.TakeSorted()};
}

void ConfigParser::ParseRoot(const YamlNode& root) {
  const Path top;
  Settings settings(errors_, {.node = &root, .path = &top}, {"domains", "probes"});
  if (const auto domains = settings.Require("domains", "a mapping of domains by name, {} for none")) {
    ForEachNamed(
        errors_, *domains, "a mapping of domains by name",
        [this](const std::string& name, const YamlNode& key, const Value& value) { ParseDomain(name, key, value); });
  }
  if (const auto probes = settings.Find("probes")) {
    ForEachNumbered(*probes, "a mapping of probes by number", kHighestProbeId,
                    [this](std::uint16_t id, const Value& value) { ParseProbe(id, value); });
  }
}

void ConfigParser::ParseDomain(const std::string& name, const YamlNode& key, const Value& value) {
  Settings settings(errors_, value, {"level", "name-format", "sender-id", "mhf-creation", "associations"});
  cfm::hierarchy_md& md = model_.hierarchy.mds[name];
  md.cfg = {.format = kMdFormatString,
            .level = 0,
            .sender_id = cfm::SenderIdTlvContent::kNone,
            .mhf_creation = cfm::MhfCreationMode::kNone};
  DomainFacts facts;
  facts.name = name;

  if (const auto level = settings.Require("level", "0 to 7")) {
    facts.level = ReadNumber(errors_, *level, 0, kHighestLevel);
    md.cfg.level = static_cast<std::uint8_t>(facts.level.value_or(0));
  }
  settings.Code("name-format", kMdFormatNames, md.cfg.format);
  settings.Code("sender-id", kSenderIdNames, md.cfg.sender_id);
  settings.Code("mhf-creation", kMhfCreationNames, md.cfg.mhf_creation);

  facts.format = md.cfg.format;
  EncodedName encoded = EncodeMdName(md.cfg.format, name);
  if (encoded.problem.empty()) {
    facts.octets = std::move(encoded.octets);
  } else {
    errors_.Add(key.place, *value.path,
                fmt::format("name of format {}: {}", NameOf(kMdFormatNames, md.cfg.format), encoded.problem));
  }

  if (const auto associations = settings.Find("associations")) {
    ForEachNamed(errors_, *associations, "a mapping of associations by name",
                 [&](const std::string& ma_name, const YamlNode& ma_key, const Value& ma_value) {
                   ParseAssociation(facts, ma_name, ma_key, ma_value, md);
                 });
  }
}

void ConfigParser::ParseAssociation(const DomainFacts& domain, const std::string& name, const YamlNode& key,
                                    const Value& value, cfm::hierarchy_md& md) {
  Settings settings(
      errors_, value,
      {"name-format", "vlans", "ccm-interval", "mep-ids", "sender-id", "mhf-creation", "ais", "end-points"});
  cfm::hierarchy_ma& ma = md.mas[name];
  ma.md_name = domain.name;
  ma.cfg = {.format = kMaFormatString,
            .vids = {},
            .ccm_interval = cfm::CcmInterval::k1s,
            .mep_ids = {},
            .sender_id = cfm::SenderIdTlvContent::kDefer,
            .mhf_creation = cfm::MhfCreationMode::kDefer,
            .ais = {}};

  settings.Code("name-format", kMaFormatNames, ma.cfg.format);
  settings.Code("ccm-interval", kCcmIntervalNames, ma.cfg.ccm_interval);
  settings.Code("sender-id", kSenderIdNames, ma.cfg.sender_id);
  settings.Code("mhf-creation", kMhfCreationNames, ma.cfg.mhf_creation);
  CheckMaid(domain, ma.cfg.format, name, key, value);

  AssociationFacts facts{.md_name = domain.name, .ma_name = name, .vlans = ParseVlans(settings)};
  ma.cfg.vids = facts.vlans.value_or(std::vector<std::uint16_t>());
  if (const auto mep_ids = settings.Find("mep-ids")) {
    const auto ids = ReadNumbers(errors_, *mep_ids, 1, kHighestMepId);
    if (ids) ma.cfg.mep_ids.insert(ids->begin(), ids->end());
  }
  if (const auto ais = settings.Find("ais")) ma.cfg.ais = ParseAis(domain, *ais);

  if (const auto end_points = settings.Find("end-points")) {
    ForEachNumbered(*end_points, "a mapping of end points by MEP id", kHighestMepId,
                    [&](std::uint16_t mep_id, const Value& end_point) { ParseEndPoint(facts, mep_id, end_point, ma); });
  }
}

void ConfigParser::CheckMaid(const DomainFacts& domain, std::uint32_t format, const std::string& name,
                             const YamlNode& key, const Value& value) {
  const EncodedName encoded = EncodeMaName(format, name);
  if (!encoded.problem.empty()) {
    errors_.Add(key.place, *value.path,
                fmt::format("name of format {}: {}", NameOf(kMaFormatNames, format), encoded.problem));
    return;
  }
  if (format == kMaFormatIcc && domain.format != kMdFormatNone) {
    errors_.Add(key.place, *value.path,
                "an ICC-based name in a domain that has a name; allowed: only in domains of name-format none");
    return;
  }
  if (!domain.octets) return;
  const std::size_t octets = domain.octets->size() + encoded.octets.size();
  if (domain.format != kMdFormatNone && octets > kLongestNamePair) {
    errors_.Add(key.place, *value.path,
                fmt::format("the names of domain and association are {} and {} octets long; allowed: {} together",
                            domain.octets->size(), encoded.octets.size(), kLongestNamePair));
    return;
  }
  if (!domain.level) return;
  const auto [first, added] = maids_.try_emplace(
      {*domain.level, EncodeMaid(domain.format, *domain.octets, format, encoded.octets)}, value.path->ToString());
  if (!added) {
    errors_.Add(key.place, *value.path,
                fmt::format("has the same identifier (MAID) in its CCMs as {}; allowed: one association with it at "
                            "level {}",
                            first->second, *domain.level));
  }
}

std::optional<std::vector<std::uint16_t>> ConfigParser::ParseVlans(const Settings& settings) {
  const auto vlans = settings.Find("vlans");
  if (!vlans) return std::vector<std::uint16_t>();
  return ReadNumbers(errors_, *vlans, 1, kHighestVid);
}

cfm::st_ais_cfg ConfigParser::ParseAis(const DomainFacts& domain, const Value& value) {
  Settings settings(errors_, value,
                    {"enabled", "client-level", "period", "client-vlans", "priority", "suppress-alarms"});
  static constexpr std::array kPeriods = {CodeName{1, "1s"}, CodeName{60, "1min"}, CodeName{60, "60s"}};

  cfm::st_ais_cfg ais = {
      .enabled = true, .aux_u8 = 0, .aux_u32 = 1, .aux_ids = {}, .aux_u16 = kHighestPriority, .aux_flag = true};
  settings.Bool("enabled", ais.enabled);
  settings.Bool("suppress-alarms", ais.aux_flag);
  settings.Code("period", kPeriods, ais.aux_u32);
  settings.Number("priority", 0, kHighestPriority, ais.aux_u16);
  if (const auto vlans = settings.Find("client-vlans")) {
    const auto ids = ReadNumbers(errors_, *vlans, 1, kHighestVid);
    if (ids) ais.aux_ids.insert(ids->begin(), ids->end());
  }

  if (const auto client_level = settings.Find("client-level")) {
    const auto level = ReadNumber(errors_, *client_level, 0, kHighestLevel);
    if (level && domain.level && *level <= *domain.level) {
      errors_.Add(
          *client_level,
          fmt::format("{} is not above the level {} of the domain; allowed: {}", *level, *domain.level,
                      *domain.level == kHighestLevel ? "no AIS at level 7"
                                                     : fmt::format("{} to {}", *domain.level + 1, kHighestLevel)));
    }
    ais.aux_u8 = static_cast<std::uint8_t>(level.value_or(0));
  } else if (ais.enabled && domain.level) {
    if (*domain.level == kHighestLevel) {
      errors_.Add(value, "there is no client level above level 7; allowed: no AIS at level 7");
    }
    ais.aux_u8 = static_cast<std::uint8_t>(*domain.level + 1);
  }

  // Without AIS the rest of it does not reach the server: two configurations that differ only there are the same.
  if (!ais.enabled)
    ais = {.enabled = false, .aux_u8 = 0, .aux_u32 = 0, .aux_ids = {}, .aux_u16 = 0, .aux_flag = ais.aux_flag};
  return ais;
}

void ConfigParser::ParseEndPoint(const AssociationFacts& association, std::uint16_t mep_id, const Value& value,
                                 cfm::hierarchy_ma& ma) {
  Settings settings(errors_, value,
                    {"port", "direction", "vlan", "inner-vlan", "enabled", "send-ccm", "ccm-priority", "lowest-alarm",
                     "alarm-time", "reset-time", "fault-action", "learn-remote"});
  cfm::hierarchy_mep& mep = ma.meps[mep_id];
  mep = {.md_name = association.md_name, .ma_name = association.ma_name, .cfg = {}};
  ma.cfg.mep_ids.insert(mep_id);

  cfm::st_maintenance_endpoint_cfg& cfg = mep.cfg;
  cfg = {.mep_id = mep_id,
         .direction = kDirectionDown,
         .port = 0,
         .primary_vid = 0,
         .inner_vid = 0,
         .admin_state = true,
         .tx_ccm_enabled = true,
         .ccm_priority = kHighestPriority,
         .lowest_prio_defect_allowed = cfm::Defects::kMacStatusAndHigher,
         .fng_alarm_time = static_cast<std::uint16_t>(kFngShortest / kFngStep),
         .fng_reset_time = static_cast<std::uint16_t>(kFngLongest / kFngStep),
         .action = cfm::FaultAction::kNone,
         .aux_flag = false};
  if (const auto port = settings.Require("port", "the name of an interface")) cfg.port = ParsePort(*port);
  settings.Code("direction", kDirectionNames, cfg.direction);
  ParseVlanOfEndPoint(association, settings, cfg);
  settings.Bool("enabled", cfg.admin_state);
  settings.Bool("send-ccm", cfg.tx_ccm_enabled);
  settings.Number("ccm-priority", 0, kHighestPriority, cfg.ccm_priority);
  settings.Code("lowest-alarm", kLowestAlarmNames, cfg.lowest_prio_defect_allowed);
  settings.Duration("alarm-time", kFngStep, kFngShortest, kFngLongest, cfg.fng_alarm_time);
  settings.Duration("reset-time", kFngStep, kFngShortest, kFngLongest, cfg.fng_reset_time);
  settings.Code("fault-action", kFaultActionNames, cfg.action);
  settings.Bool("learn-remote", cfg.aux_flag);
}

void ConfigParser::ParseVlanOfEndPoint(const AssociationFacts& association, Settings& settings,
                                       cfm::st_maintenance_endpoint_cfg& cfg) {
  const auto is_word = [](const std::optional<Value>& value, std::string_view word) {
    return value && value->node->kind == YamlNode::Kind::kScalar && value->node->scalar == word;
  };
  if (association.vlans && !association.vlans->empty()) cfg.primary_vid = association.vlans->front();

  const auto vlan = settings.Find("vlan");
  bool wrong = false;
  if (is_word(vlan, "untagged")) {
    cfg.primary_vid = 0;
  } else if (vlan) {
    const auto vid = ReadNumber(errors_, *vlan, 1, kHighestVid);
    wrong = !vid;
    cfg.primary_vid = static_cast<std::uint16_t>(vid.value_or(0));
  }
  if (vlan && !wrong && association.vlans) {
    const auto& vlans = *association.vlans;
    const bool fits =
        vlans.empty() ? cfg.primary_vid == 0 : std::find(vlans.begin(), vlans.end(), cfg.primary_vid) != vlans.end();
    if (!fits) {
      errors_.Add(*vlan, fmt::format("'{}' is not a VLAN of the association; allowed: {}", Escape(vlan->node->scalar),
                                     vlans.empty() ? "untagged (the association has no vlans)"
                                                   : fmt::format("{}", fmt::join(vlans, ", "))));
    }
  }

  const auto inner = settings.Find("inner-vlan");
  if (!inner || is_word(inner, "none")) return;
  const auto vid = ReadNumber(errors_, *inner, 1, kHighestVid);
  cfg.inner_vid = static_cast<std::uint16_t>(vid.value_or(0));
  if (vid && cfg.primary_vid == 0 && !wrong && association.vlans) {
    errors_.Add(*inner, "an inner VLAN without an outer one; allowed: only beside a vlan");
  }
}

std::uint32_t ConfigParser::ParsePort(const Value& value) {
  const auto name = ReadScalar(errors_, value, "the name of an interface");
  if (!name) return 0;
  const auto [known, added] = known_ports_.try_emplace(*name, 0);
  if (added) known->second = ports_.IndexOf(*name);
  if (known->second == 0) {
    std::string what = fmt::format("there is no interface '{}' on this host", Escape(*name));
    const std::vector<std::string> names = ports_.Names();
    const std::vector<std::string_view> candidates(names.begin(), names.end());
    if (const auto nearest = Nearest(*name, candidates); !nearest.empty()) {
      what += fmt::format(" (did you mean '{}'?)", Escape(nearest));
    }
    errors_.Add(value, what + "; allowed: the name of an existing interface ('ip link' lists them)");
  }
  return known->second;
}

void ConfigParser::ParseProbe(std::uint16_t probe_id, const Value& value) {
  Settings settings(errors_, value, {"domain", "association", "local-mep", "remote-mep", "interval", "sessions"});
  cfm::probe_cfg& probe = model_.probes.probes[probe_id];
  probe = {.probe_id = probe_id,
           .interval = 60,
           .md_name = {},
           .ma_name = {},
           .local_mep_id = 0,
           .remote_mep_id = 0,
           .sessions = {}};
  const auto name = [&](std::string_view key, std::string_view allowed, std::string& out) {
    const auto setting = settings.Require(key, allowed);
    if (setting) out = ReadScalar(errors_, *setting, allowed).value_or("");
  };
  name("domain", "the name of a domain of this file", probe.md_name);
  name("association", "the name of an association of that domain", probe.ma_name);
  if (settings.Require("local-mep", "the MEP id of an end point of the association")) {
    settings.Number("local-mep", 1, kHighestMepId, probe.local_mep_id);
  }
  if (settings.Require("remote-mep", "a MEP id of the association's list")) {
    settings.Number("remote-mep", 1, kHighestMepId, probe.remote_mep_id);
  }
  settings.Duration("interval", seconds(1), seconds(1), seconds(65535), probe.interval);
  CheckProbe(settings, probe);

  if (const auto sessions = settings.Require("sessions", "a mapping of sessions by number")) {
    ForEachNumbered(*sessions, "a mapping of sessions by number", kHighestProbeId,
                    [&](std::uint16_t id, const Value& session) { probe.sessions[id] = ParseSession(session); });
  }
}

// What is empty or zero here is missing or wrong, and reported.
void ConfigParser::CheckProbe(const Settings& settings, const cfm::probe_cfg& probe) {
  const auto report = [&](std::string_view key, const std::string& what) { errors_.Add(*settings.Find(key), what); };

  const auto& mds = model_.hierarchy.mds;
  const auto md = mds.find(probe.md_name);
  if (md == mds.end()) {
    if (!probe.md_name.empty()) {
      report("domain", fmt::format("there is no domain '{}' in this file; allowed: the name of one of its domains",
                                   Escape(probe.md_name)));
    }
    return;
  }
  const auto ma = md->second.mas.find(probe.ma_name);
  if (ma == md->second.mas.end()) {
    if (!probe.ma_name.empty()) {
      report("association", fmt::format("there is no association '{}' in domain '{}'; allowed: the name of one of its "
                                        "associations",
                                        Escape(probe.ma_name), Escape(probe.md_name)));
    }
    return;
  }
  if (probe.local_mep_id != 0 && !ma->second.meps.contains(probe.local_mep_id)) {
    report("local-mep", fmt::format("MEP {} is no end point of association '{}'; allowed: {}", probe.local_mep_id,
                                    Escape(probe.ma_name),
                                    ma->second.meps.empty() ? "the id of an end point, and it has none"
                                                            : "the id of one of its end-points"));
  }
  if (probe.remote_mep_id == 0) return;
  if (probe.remote_mep_id == probe.local_mep_id) {
    report("remote-mep", fmt::format("MEP {} cannot measure towards itself; allowed: another MEP of the association",
                                     probe.remote_mep_id));
  } else if (!ma->second.cfg.mep_ids.contains(probe.remote_mep_id)) {
    report("remote-mep", fmt::format("MEP {} is not in the MEP list of association '{}'; allowed: one of its mep-ids",
                                     probe.remote_mep_id, Escape(probe.ma_name)));
  }
}

cfm::session_cfg ConfigParser::ParseSession(const Value& value) {
  Settings settings(errors_, value, {"count", "interval", "size", "priority"});
  cfm::session_cfg session = {.count = 10, .interval = 100, .size = 64, .pcp = kHighestPriority};
  settings.Number("count", 1, kMostMessages, session.count);
  settings.Duration("interval", milliseconds(1), kShortestMessageInterval, kLongestMessageInterval, session.interval);
  settings.Number("size", 0, kLargestDataTlv, session.size);
  settings.Number("priority", 0, kHighestPriority, session.pcp);
  return session;
}

}  // namespace

ParsedConfig ParseConfig(const std::string& text, const Ports& ports) {
  return ConfigParser(ports).Parse(text);
}

std::string FormatError(const std::string& file_name, const ConfigError& error) {
  const std::string where = fmt::format("{}:{}:{}", file_name, error.place.line, error.place.column);
  return error.key.empty() ? fmt::format("{}: {}", where, error.what)
                           : fmt::format("{}: {}: {}", where, error.key, error.what);
}

}  // namespace cfmctl
