#include "configuration.h"

#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/text_format.h>
#include <net/if.h>

#include <algorithm>
#include <iterator>

#include "limid/limid.h"

namespace cfm_test {
namespace {

using client_server::OpCacheSync;

class NoComplaints : public google::protobuf::io::ErrorCollector {
  void AddError(int /*line*/, int /*column*/, const std::string& /*message*/) override {}
};

void FillAssociation(const cfm::st_maintenance_association_cfg& cfg,
                     client_server::OpCreateMaintenanceAssociation& message) {
  message.set_format(cfg.format);
  message.set_ccm_interval(static_cast<std::uint32_t>(cfg.ccm_interval));
  message.set_sender_id(static_cast<std::uint32_t>(cfg.sender_id));
  message.set_mhf_creation(static_cast<std::uint32_t>(cfg.mhf_creation));
  for (const std::uint16_t vid : cfg.vids) {
    message.add_vids(vid);
  }
  for (const std::uint16_t mep_id : cfg.mep_ids) {
    message.add_mep_ids(mep_id);
  }
  client_server::Ais& ais = *message.mutable_ais();
  ais.set_enabled(cfg.ais.enabled);
  ais.set_aux_flag(cfg.ais.aux_flag);
  ais.set_aux_u8(cfg.ais.aux_u8);
  ais.set_aux_u32(cfg.ais.aux_u32);
  ais.set_aux_u16(cfg.ais.aux_u16);
  for (const std::uint16_t id : cfg.ais.aux_ids) {
    ais.add_aux_ids(id);
  }
}

void FillEndpoint(const cfm::st_maintenance_endpoint_cfg& cfg, client_server::OpCreateMaintenanceEndpoint& message) {
  message.set_mep_id(cfg.mep_id);
  message.set_direction(cfg.direction);
  message.set_ifindex(cfg.port);
  message.set_primary_vid(cfg.primary_vid);
  message.set_inner_vid(cfg.inner_vid);
  message.set_ccm_priority(cfg.ccm_priority);
  message.set_admin_state(cfg.admin_state);
  message.set_tx_ccm_enabled(cfg.tx_ccm_enabled);
  message.set_aux_flag(cfg.aux_flag);
  message.set_lowest_prio_defect_allowed(static_cast<std::uint32_t>(cfg.lowest_prio_defect_allowed));
  message.set_fng_alarm_time(cfg.fng_alarm_time);
  message.set_fng_reset_time(cfg.fng_reset_time);
  message.set_action(static_cast<std::uint32_t>(cfg.action));
}

cfm::st_maintenance_association_cfg AssociationFrom(const client_server::OpCreateMaintenanceAssociation& message) {
  cfm::st_maintenance_association_cfg cfg{};
  cfg.format = message.format();
  cfg.ccm_interval = static_cast<cfm::CcmInterval>(message.ccm_interval());
  cfg.sender_id = static_cast<cfm::SenderIdTlvContent>(message.sender_id());
  cfg.mhf_creation = static_cast<cfm::MhfCreationMode>(message.mhf_creation());
  for (const auto vid : message.vids()) {
    cfg.vids.push_back(static_cast<std::uint16_t>(vid));
  }
  for (const auto mep_id : message.mep_ids()) {
    cfg.mep_ids.insert(static_cast<std::uint16_t>(mep_id));
  }
  cfg.ais.enabled = message.ais().enabled();
  cfg.ais.aux_flag = message.ais().aux_flag();
  cfg.ais.aux_u8 = static_cast<std::uint8_t>(message.ais().aux_u8());
  cfg.ais.aux_u32 = message.ais().aux_u32();
  cfg.ais.aux_u16 = static_cast<std::uint16_t>(message.ais().aux_u16());
  for (const auto id : message.ais().aux_ids()) {
    cfg.ais.aux_ids.insert(static_cast<std::uint16_t>(id));
  }
  return cfg;
}

cfm::st_maintenance_endpoint_cfg EndpointFrom(const client_server::OpCreateMaintenanceEndpoint& message) {
  cfm::st_maintenance_endpoint_cfg cfg{};
  cfg.mep_id = static_cast<std::uint16_t>(message.mep_id());
  cfg.direction = message.direction();
  cfg.port = message.ifindex();
  cfg.primary_vid = static_cast<std::uint16_t>(message.primary_vid());
  cfg.inner_vid = static_cast<std::uint16_t>(message.inner_vid());
  cfg.admin_state = message.admin_state();
  cfg.tx_ccm_enabled = message.tx_ccm_enabled();
  cfg.ccm_priority = static_cast<std::uint8_t>(message.ccm_priority());
  cfg.lowest_prio_defect_allowed = static_cast<cfm::Defects>(message.lowest_prio_defect_allowed());
  cfg.fng_alarm_time = static_cast<std::uint16_t>(message.fng_alarm_time());
  cfg.fng_reset_time = static_cast<std::uint16_t>(message.fng_reset_time());
  cfg.action = static_cast<cfm::FaultAction>(message.action());
  cfg.aux_flag = message.aux_flag();
  return cfg;
}

template <typename Elements>
void AppendLines(const char* kind, const Elements& elements, std::vector<std::string>& lines) {
  for (auto element : elements) {
    if constexpr (requires { element.clear_format(); }) {
      element.clear_format();
    }
    lines.push_back(kind + Text(element));
  }
}

std::vector<std::string> SortedLines(const OpCacheSync& cache) {
  std::vector<std::string> lines;
  AppendLines("domain ", cache.domains(), lines);
  AppendLines("association ", cache.associations(), lines);
  AppendLines("endpoint ", cache.endpoints(), lines);
  AppendLines("probe ", cache.probes(), lines);
  AppendLines("session ", cache.sessions(), lines);
  std::sort(lines.begin(), lines.end());
  return lines;
}

}  // namespace

OpCacheSync ToMessages(const Configuration& configuration) {
  OpCacheSync messages;
  for (const auto& [md_name, md] : configuration.hierarchy.mds) {
    auto& domain = *messages.add_domains();
    domain.set_name(md_name);
    domain.set_format(md.cfg.format);
    domain.set_level(md.cfg.level);
    domain.set_sender_id(static_cast<std::uint32_t>(md.cfg.sender_id));
    domain.set_mhf_creation(static_cast<std::uint32_t>(md.cfg.mhf_creation));
    for (const auto& [ma_name, ma] : md.mas) {
      auto& association = *messages.add_associations();
      association.set_md_name(md_name);
      association.set_ma_name(ma_name);
      FillAssociation(ma.cfg, association);
      for (const auto& [mep_id, mep] : ma.meps) {
        auto& endpoint = *messages.add_endpoints();
        endpoint.set_md_name(md_name);
        endpoint.set_ma_name(ma_name);
        FillEndpoint(mep.cfg, endpoint);
      }
    }
  }
  for (const auto& [probe_id, cfg] : configuration.probe.probes) {
    auto& probe = *messages.add_probes();
    probe.set_ma_name(cfg.ma_name);
    probe.set_md_name(cfg.md_name);
    probe.set_probe_id(probe_id);
    probe.set_interval(cfg.interval);
    probe.set_local_mep_id(cfg.local_mep_id);
    probe.set_remote_mep_id(cfg.remote_mep_id);
    for (const auto& [session_id, session_cfg] : cfg.sessions) {
      auto& session = *messages.add_sessions();
      session.set_probe_id(probe_id);
      session.set_session_id(session_id);
      session.set_interval(session_cfg.interval);
      session.set_count(session_cfg.count);
      session.set_size(session_cfg.size);
      session.set_pcp(session_cfg.pcp);
    }
  }
  return messages;
}

Configuration FromMessages(const OpCacheSync& messages) {
  Configuration configuration;
  auto& mds = configuration.hierarchy.mds;
  for (const auto& domain : messages.domains()) {
    cfm::st_maintenance_domain_cfg& cfg = mds[domain.name()].cfg;
    cfg.format = domain.format();
    cfg.level = static_cast<std::uint8_t>(domain.level());
    cfg.sender_id = static_cast<cfm::SenderIdTlvContent>(domain.sender_id());
    cfg.mhf_creation = static_cast<cfm::MhfCreationMode>(domain.mhf_creation());
  }
  for (const auto& association : messages.associations()) {
    cfm::hierarchy_ma& ma = mds[association.md_name()].mas[association.ma_name()];
    ma.md_name = association.md_name();
    ma.cfg = AssociationFrom(association);
  }
  for (const auto& endpoint : messages.endpoints()) {
    cfm::hierarchy_mep& mep =
        mds[endpoint.md_name()].mas[endpoint.ma_name()].meps[static_cast<std::uint16_t>(endpoint.mep_id())];
    mep.md_name = endpoint.md_name();
    mep.ma_name = endpoint.ma_name();
    mep.cfg = EndpointFrom(endpoint);
  }
  for (const auto& message : messages.probes()) {
    cfm::probe_cfg& probe = configuration.probe.probes[static_cast<std::uint16_t>(message.probe_id())];
    probe.probe_id = static_cast<std::uint16_t>(message.probe_id());
    probe.interval = static_cast<std::uint16_t>(message.interval());
    probe.md_name = message.md_name();
    probe.ma_name = message.ma_name();
    probe.local_mep_id = static_cast<std::uint16_t>(message.local_mep_id());
    probe.remote_mep_id = static_cast<std::uint16_t>(message.remote_mep_id());
  }
  for (const auto& message : messages.sessions()) {
    cfm::session_cfg& session = configuration.probe.probes[static_cast<std::uint16_t>(message.probe_id())]
                                    .sessions[static_cast<std::uint16_t>(message.session_id())];
    session.count = static_cast<std::uint16_t>(message.count());
    session.interval = static_cast<std::uint16_t>(message.interval());
    session.size = static_cast<std::uint16_t>(message.size());
    session.pcp = static_cast<std::uint8_t>(message.pcp());
  }
  return configuration;
}

OpCacheSync CacheOf(const Configuration& configuration) {
  OpCacheSync cache = ToMessages(configuration);
  for (auto& association : *cache.mutable_associations()) {
    client_server::Ais& ais = *association.mutable_ais();
    if (!ais.enabled()) {
      ais.clear_aux_u8();
      ais.clear_aux_u32();
      ais.clear_aux_u16();
      ais.clear_aux_ids();
    }
  }
  for (auto& endpoint : *cache.mutable_endpoints()) {
    std::uint32_t ifindex = 0;
    limid_to_ifindex(endpoint.ifindex(), &ifindex);
    endpoint.set_ifindex(ifindex);
  }
  return cache;
}

std::string Difference(const OpCacheSync& expected, const OpCacheSync& actual) {
  const std::vector<std::string> wanted = SortedLines(expected);
  const std::vector<std::string> held = SortedLines(actual);
  std::vector<std::string> lines;
  const auto append = [&lines](const char* mark, const std::vector<std::string>& in,
                               const std::vector<std::string>& but_not_in) {
    std::vector<std::string> only;
    std::set_difference(in.begin(), in.end(), but_not_in.begin(), but_not_in.end(), std::back_inserter(only));
    for (const std::string& line : only) {
      lines.push_back(mark + line);
    }
  };
  append("missing: ", wanted, held);
  append("surplus: ", held, wanted);
  std::string text;
  for (std::size_t i = 0; i < lines.size() && i < 20; ++i) {
    text += lines[i] + "\n";
  }
  if (lines.size() > 20) {
    text += "and " + std::to_string(lines.size() - 20) + " more\n";
  }
  return text;
}

cfm::hierarchy Grid(unsigned mds, unsigned mas, std::uint16_t meps) {
  std::uint32_t port = 0;
  limid_from_ifindex(if_nametoindex("lo"), &port);
  cfm::hierarchy grid;
  for (unsigned i = 0; i < mds; ++i) {
    const std::string md_name = "domain-" + std::to_string(i);
    cfm::hierarchy_md& md = grid.mds[md_name];
    md.cfg = {4, static_cast<std::uint8_t>(i % 8), cfm::SenderIdTlvContent::kChassis, cfm::MhfCreationMode::kNone};
    for (unsigned j = 0; j < mas; ++j) {
      const std::string ma_name = "association-" + std::to_string(j);
      cfm::hierarchy_ma& ma = md.mas[ma_name];
      ma.md_name = md_name;
      ma.cfg.format = 2;
      ma.cfg.vids = {static_cast<std::uint16_t>(1 + j % 4094)};
      ma.cfg.ccm_interval = cfm::CcmInterval::k10min;
      ma.cfg.sender_id = cfm::SenderIdTlvContent::kDefer;
      ma.cfg.mhf_creation = cfm::MhfCreationMode::kDefer;
      for (std::uint16_t mep_id = 1; mep_id <= meps; ++mep_id) {
        ma.cfg.mep_ids.insert(mep_id);
        cfm::hierarchy_mep& mep = ma.meps[mep_id];
        mep.md_name = md_name;
        mep.ma_name = ma_name;
        mep.cfg.mep_id = mep_id;
        mep.cfg.direction = 1;
        mep.cfg.port = port;
        mep.cfg.primary_vid = ma.cfg.vids.front();
        mep.cfg.ccm_priority = 7;
        mep.cfg.lowest_prio_defect_allowed = cfm::Defects::kMacStatusAndHigher;
        mep.cfg.fng_alarm_time = 250;
        mep.cfg.fng_reset_time = 1000;
      }
    }
  }
  return grid;
}

std::string Text(const google::protobuf::Message& message) {
  google::protobuf::TextFormat::Printer printer;
  printer.SetSingleLineMode(true);
  std::string text;
  printer.PrintToString(message, &text);
  if (text.ends_with(' ')) {
    text.pop_back();
  }
  return text;
}

bool FromText(const std::string& text, google::protobuf::Message& message) {
  NoComplaints quiet;
  google::protobuf::TextFormat::Parser parser;
  parser.RecordErrorsTo(&quiet);
  return parser.ParseFromString(text, &message);
}

}  // namespace cfm_test
