#include "engine/engine.h"

#include <algorithm>
#include <chrono>
#include <string_view>

#include "cfm/identities.h"
#include "engine/counters.h"
#include "engine/messages.h"
#include "protocol/interface_status.h"

namespace cfm::engine {
namespace {

namespace pb = client_server;

protocol::PortState StateOf(const port::Link& link) {
  return {.present = true,
          .name = link.name,
          .address = link.address,
          .mtu = link.mtu,
          .port_status = link.port_status,
          .interface_status = protocol::ToInterfaceStatus(link.state)};
}

protocol::PortState StateOfNoPort(const std::string& name) {
  return {.name = name, .interface_status = pdu::InterfaceStatus::kNotPresent};
}

protocol::DelayParameters ParametersOf(const pb::OpCreateDelayMeasurementSession& session) {
  return {.messages = session.count(),
          .interval_ms = session.interval(),
          .data_octets = session.size(),
          .priority = session.pcp(),
          .proactive = true};
}

bool SameVlans(const EndPointPlan& a, const EndPointPlan& b) {
  return a.settings.primary_vid == b.settings.primary_vid && a.settings.inner_vid == b.settings.inner_vid &&
         a.vids == b.vids;
}

}  // namespace

Engine::Engine(const contract::Cache& cache, contract::Announcer& announcer, port::Ports& ports, zlog_category_t* log,
               protocol::Random random, Clock clock, Options options)
    : cache_(cache),
      ports_(ports),
      surroundings_{.announcer = announcer, .log = log, .random = std::move(random)},
      clock_(std::move(clock)),
      system_(std::move(options.system)),
      points_(relay_, *this, surroundings_.random) {}

Engine::~Engine() {
  for (const auto& [index, wire] : wires_) ports_.Close(index);
}

void Engine::Advance(protocol::TimePoint now) {
  // First of all, so that no frame leaves before its filter is there.
  if (!bridges_settled_) SettleBridges();
  points_.Advance(now);
  while (const auto due = timers_.Due(now)) {
    EndPoint& end_point = *by_id_[*due];
    end_point.mep()->Advance(now);
    SetTimer(end_point);
  }
  if (now < status_due_) return;
  auto next = end_points_.lower_bound(status_from_);
  for (std::size_t i = 0; i < kStatusAtOnce && next != end_points_.end(); ++i, ++next) next->second->AnnounceStatus();
  if (next == end_points_.end()) {
    status_due_ = protocol::kNever;
  } else {
    status_from_ = next->first;
    status_due_ = now + kStatusPause;
  }
}

protocol::TimePoint Engine::deadline() const {
  if (!bridges_settled_) return {};
  return std::min({timers_.earliest(), points_.deadline(), status_due_});
}

void Engine::LogCounters() const {
  for (const auto& [index, wire] : wires_) {
    const port::Link* link = ports_.Find(index);
    const std::string counters = ToText(ports_.CountersOf(index));
    if (link == nullptr || counters.empty()) continue;
    zlog_info(surroundings_.log, "port %s, frames: %s", contract::Quoted(link->name).c_str(), counters.c_str());
  }
  for (const auto& [key, end_point] : end_points_) {
    const std::string counters = end_point->mep() == nullptr ? "" : ToText(*end_point->mep());
    if (counters.empty()) continue;
    zlog_info(surroundings_.log, "%s, frames: %s", contract::ToText(key).c_str(), counters.c_str());
  }
}

// ---- The configuration ----

struct Engine::Apply {
  Engine& engine;

  void operator()(const contract::DomainKey& key) const { engine.ApplyDomain(key.md_name); }
  void operator()(const contract::AssociationKey& key) const { engine.ApplyAssociation(key); }
  void operator()(const contract::EndpointKey& key) const { engine.ApplyEndPoint(key); }
  void operator()(const contract::ProbeKey& key) const { engine.ApplyProbe(key.probe_id); }
  void operator()(const contract::SessionKey& key) const { engine.ApplySession(key.probe_id, key.session_id); }
};

void Engine::ConfigurationChanged(const contract::Change& change) {
  if (change.effect == contract::Effect::kUnchanged) return;
  if (!links_.empty()) bridges_settled_ = false;
  if (change.effect == contract::Effect::kRemoved) {
    Freed freed;
    for (const contract::ObjectKey& key : change.removed) Remove(key, freed);
    // Some of these may have gone by the same request.
    for (const contract::AssociationKey& key : freed.associations) {
      if (associations_.contains(key)) ApplyAssociation(key);
    }
    for (const contract::EndpointKey& key : freed.end_points) {
      if (end_points_.contains(key)) ApplyEndPoint(key);
    }
  } else {
    std::visit(Apply{*this}, change.object);
  }
}

void Engine::ApplyDomain(const std::string& md_name) {
  for (const auto& [ma_name, association] : cache_.domains().at(md_name).associations) {
    ApplyAssociation({.md_name = md_name, .ma_name = ma_name});
  }
}

void Engine::ApplyAssociation(const contract::AssociationKey& key) {
  AssociationState state = Plan(key);
  std::optional<contract::AssociationKey> freed;
  if (const auto* plan = std::get_if<AssociationPlan>(&state)) {
    const contract::AssociationKey& owner = maids_.Claim({plan->level, plan->maid.octets}, key, freed);
    if (owner != key) {
      state = Refusal{contract::ToText(owner) + " has the same identifier at level " + std::to_string(plan->level)};
    }
  } else {
    freed = maids_.Release(key);
  }
  const auto known = associations_.find(key);
  if (const auto* refusal = std::get_if<Refusal>(&state)) {
    const auto* old = known == associations_.end() ? nullptr : std::get_if<Refusal>(&known->second);
    if (old == nullptr || old->reason != refusal->reason) {
      zlog_warn(surroundings_.log, "%s does not work: %s", contract::ToText(key).c_str(), refusal->reason.c_str());
    }
  }
  if (const auto* plan = std::get_if<AssociationPlan>(&state); plan != nullptr && !plan->ais_refusal.empty()) {
    const auto* old = known == associations_.end() ? nullptr : std::get_if<AssociationPlan>(&known->second);
    if (old == nullptr || old->ais_refusal != plan->ais_refusal) {
      zlog_warn(surroundings_.log, "%s sends no AIS: %s", contract::ToText(key).c_str(), plan->ais_refusal.c_str());
    }
  }
  associations_.insert_or_assign(key, std::move(state));
  ApplyEndPoints(key);
  if (freed) ApplyAssociation(*freed);
}

Engine::AssociationState Engine::Plan(const contract::AssociationKey& key) {
  const contract::Domain& domain = cache_.domains().at(key.md_name);
  return PlanAssociation(domain.request, domain.associations.at(key.ma_name).request, System());
}

void Engine::ApplyEndPoints(const contract::AssociationKey& key) {
  for (const auto& [mep_id, request] : cache_.domains().at(key.md_name).associations.at(key.ma_name).endpoints) {
    ApplyEndPoint({.md_name = key.md_name, .ma_name = key.ma_name, .mep_id = mep_id});
  }
}

void Engine::ApplyEndPoint(const contract::EndpointKey& key) {
  auto& end_point = end_points_[key];
  if (!end_point) {
    const EndPoint::Id id = timers_.Add();
    end_point = std::make_unique<EndPoint>(key, id, surroundings_, ports_, points_, *this);
    if (by_id_.size() <= id) by_id_.resize(id + 1);
    by_id_[id] = end_point.get();
  }
  auto plan = Plan(key);
  std::optional<contract::EndpointKey> freed;
  if (auto* refusal = std::get_if<Refusal>(&plan)) {
    freed = places_.Release(key);
    Refuse(*end_point, std::move(*refusal));
  } else {
    const EndPointPlan& wanted = std::get<EndPointPlan>(plan);
    if (const auto owner = ClaimPlace(key, wanted, freed)) {
      Refuse(*end_point, {contract::ToText(*owner) + " is at the same level, VLAN and side of that port"});
    } else {
      Run(*end_point, wanted);
    }
  }
  if (freed) ApplyEndPoint(*freed);
}

std::optional<contract::EndpointKey> Engine::ClaimPlace(const contract::EndpointKey& key, const EndPointPlan& plan,
                                                        std::optional<contract::EndpointKey>& freed) {
  // A disabled end point is as if it were not there.
  if (!plan.settings.enabled) {
    freed = places_.Release(key);
    return std::nullopt;
  }
  const PlaceClaim place(plan.port, plan.settings.primary_vid, plan.settings.inner_vid, plan.identity.level,
                         plan.identity.direction);
  const contract::EndpointKey owner = places_.Claim(place, key, freed);
  return owner == key ? std::nullopt : std::optional(owner);
}

std::variant<EndPointPlan, Refusal> Engine::Plan(const contract::EndpointKey& key) {
  const AssociationState& association = associations_.at({.md_name = key.md_name, .ma_name = key.ma_name});
  if (std::holds_alternative<Refusal>(association)) return Refusal{};  // the association's own line says why
  const auto* request = cache_.FindEndpoint(key.md_name, key.ma_name, key.mep_id);
  return PlanEndPoint(std::get<AssociationPlan>(association), *request);
}

void Engine::Refuse(EndPoint& end_point, Refusal refusal) {
  if (end_point.refusal() && end_point.refusal()->reason == refusal.reason) return;
  if (!refusal.reason.empty()) {
    zlog_warn(surroundings_.log, "%s does not work: %s", contract::ToText(end_point.key()).c_str(),
              refusal.reason.c_str());
  }
  End(end_point);
  end_point.Refuse(std::move(refusal));
}

void Engine::Run(EndPoint& end_point, const EndPointPlan& plan) {
  const protocol::TimePoint now = clock_();
  const bool goes_on =
      end_point.mep() != nullptr && end_point.plan().identity == plan.identity && end_point.plan().port == plan.port;
  if (goes_on) {
    const bool moves = !SameVlans(end_point.plan(), plan) && end_point.link() != 0;
    if (moves) points_.Remove(*end_point.mep());
    end_point.Update(plan, now);
    if (moves) points_.Add(end_point.link(), *end_point.mep(), plan.vids);
  } else {
    End(end_point);
    Port& port = PortOf(plan.port);
    port.end_points.insert(&end_point);
    end_point.Begin(plan, port.link, StateFor(end_point.key(), plan, port), now);
    Listen(end_point);
    BeginProbes(end_point);
  }
  SetTimer(end_point);
}

void Engine::End(EndPoint& end_point) {
  if (end_point.mep() == nullptr) return;
  const port::Index link = end_point.link();
  const auto port = configured_ports_.find(end_point.plan().port);
  points_.Remove(*end_point.mep());
  end_point.End();
  timers_.Set(end_point.id(), protocol::kNever);
  if (link != 0) LeaveWire(end_point, link);
  port->second.end_points.erase(&end_point);
  if (port->second.end_points.empty()) configured_ports_.erase(port);
}

void Engine::SetTimer(EndPoint& end_point) {
  timers_.Set(end_point.id(), end_point.mep()->deadline());
}

void Engine::Remove(const contract::ObjectKey& key, Freed& freed) {
  if (const auto* end_point_key = std::get_if<contract::EndpointKey>(&key)) {
    const auto end_point = end_points_.find(*end_point_key);
    if (end_point == end_points_.end()) return;
    End(*end_point->second);
    timers_.Remove(end_point->second->id());
    by_id_[end_point->second->id()] = nullptr;
    end_points_.erase(end_point);
    surroundings_.announcer.Announce(CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP, Removed(*end_point_key));
    if (const auto next = places_.Release(*end_point_key)) freed.end_points.push_back(*next);
  } else if (const auto* association = std::get_if<contract::AssociationKey>(&key)) {
    associations_.erase(*association);
    if (const auto next = maids_.Release(*association)) freed.associations.push_back(*next);
  } else if (const auto* probe = std::get_if<contract::ProbeKey>(&key)) {
    RemoveProbe(probe->probe_id);
  } else if (const auto* session = std::get_if<contract::SessionKey>(&key)) {
    if (EndPoint* end_point = HomeOf(session->probe_id)) {
      end_point->mep()->RemoveSession(session->probe_id, session->session_id, clock_());
      SetTimer(*end_point);
    }
  }
}

// ---- Probes ----

void Engine::ApplyProbe(std::uint16_t probe_id) {
  const pb::OpCreateDelayMeasurementProbe& probe = cache_.probes().at(probe_id).request;
  const contract::EndpointKey home{
      .md_name = probe.md_name(), .ma_name = probe.ma_name(), .mep_id = Saturated<std::uint16_t>(probe.local_mep_id())};
  if (const auto known = probes_.find(probe_id); known != probes_.end() && known->second != home) RemoveProbe(probe_id);
  probes_.insert_or_assign(probe_id, home);
  probes_of_[home].insert(probe_id);
  if (EndPoint* end_point = HomeOf(probe_id)) {
    BeginProbe(*end_point, probe_id);
    SetTimer(*end_point);
  }
}

void Engine::ApplySession(std::uint16_t probe_id, std::uint16_t session_id) {
  EndPoint* end_point = HomeOf(probe_id);
  if (end_point == nullptr) return;
  end_point->mep()->SetSession(probe_id, session_id,
                               ParametersOf(cache_.probes().at(probe_id).sessions.at(session_id)));
  SetTimer(*end_point);
}

void Engine::BeginProbe(EndPoint& end_point, std::uint16_t probe_id) {
  const contract::Probe& probe = cache_.probes().at(probe_id);
  end_point.mep()->SetProbe(probe_id, Saturated<std::uint16_t>(probe.request.interval()),
                            Saturated<std::uint16_t>(probe.request.remote_mep_id()), clock_());
  for (const auto& [session_id, session] : probe.sessions) {
    end_point.mep()->SetSession(probe_id, session_id, ParametersOf(session));
  }
}

void Engine::BeginProbes(EndPoint& end_point) {
  const auto probes = probes_of_.find(end_point.key());
  if (probes == probes_of_.end()) return;
  for (const std::uint16_t probe_id : probes->second) BeginProbe(end_point, probe_id);
}

void Engine::RemoveProbe(std::uint16_t probe_id) {
  if (EndPoint* end_point = HomeOf(probe_id)) {
    end_point->mep()->RemoveProbe(probe_id);
    SetTimer(*end_point);
  }
  const auto known = probes_.find(probe_id);
  if (known == probes_.end()) return;
  const auto probes = probes_of_.find(known->second);
  probes->second.erase(probe_id);
  if (probes->second.empty()) probes_of_.erase(probes);
  probes_.erase(known);
}

EndPoint* Engine::HomeOf(std::uint16_t probe_id) {
  const auto home = probes_.find(probe_id);
  if (home == probes_.end()) return nullptr;
  EndPoint* end_point = Find(home->second);
  return end_point != nullptr && end_point->mep() != nullptr ? end_point : nullptr;
}

// ---- Ports ----

Engine::Port& Engine::PortOf(port::Index configured) {
  const auto [port, is_new] = configured_ports_.try_emplace(configured);
  if (is_new) {
    const port::Link* link = ports_.Find(configured);
    if (link == nullptr) {
      zlog_warn(surroundings_.log, "there is no interface with index %u: its end points wait for it", configured);
    } else if (!link->is_ethernet) {
      zlog_warn(surroundings_.log, "port %s is no Ethernet interface: its end points do not work",
                contract::Quoted(link->name).c_str());
    }
    Bind(port->second, link);
  }
  return port->second;
}

void Engine::LinkChanged(const port::Link& told) {
  port::Link link = told;
  if (vlan_bridges_.contains(link.bridge)) link.bridge = 0;
  if (link.is_ethernet) {
    const bool was_nameless = !system_ && links_.empty();
    links_.insert_or_assign(link.index, link);
    points_.SetPort(link.index, {.bridge = link.bridge, .state = StateOf(link)});
    bridges_settled_ = false;
    if (was_nameless) {
      for (const auto& [md_name, domain] : cache_.domains()) ApplyDomain(md_name);
    }
  }
  for (auto& [configured, port] : configured_ports_) {
    const bool is_it = port.link != 0      ? port.link == link.index
                       : port.name.empty() ? configured == link.index
                                           : port.name == link.name;
    if (is_it) Bind(port, &link);
  }
  if (link.filters_vlans != vlan_bridges_.contains(link.index)) BridgeChanged(link);
}

void Engine::BridgeChanged(const port::Link& bridge) {
  if (bridge.filters_vlans) {
    zlog_warn(surroundings_.log,
              "bridge %s filters by VLAN, which is not supported: end points that face it, and MIPs, do not work there",
              contract::Quoted(bridge.name).c_str());
    vlan_bridges_.insert(bridge.index);
  } else {
    vlan_bridges_.erase(bridge.index);
  }
  std::vector<port::Link> members;
  for (const auto& [index, link] : links_) {
    const port::Link* member = ports_.Find(index);
    if (member != nullptr && member->bridge == bridge.index) members.push_back(*member);
  }
  for (const port::Link& member : members) LinkChanged(member);
}

void Engine::LinkRemoved(port::Index index) {
  links_.erase(index);
  vlan_bridges_.erase(index);
  for (auto& [configured, port] : configured_ports_) {
    if (port.link == index) Bind(port, nullptr);
  }
  if (const auto wire = wires_.find(index); wire != wires_.end()) {
    wire->second.needed = false;
    CloseIfUnused(index);
  }
  points_.RemovePort(index);
  bridges_settled_ = false;
}

void Engine::Bind(Port& port, const port::Link* link) {
  const bool usable = link != nullptr && link->is_ethernet && OpenWire(link->index);
  if (link != nullptr) port.name = link->name;
  const port::Index index = usable ? link->index : 0;
  if (index != port.link) {
    zlog_info(surroundings_.log, "port %s %s", contract::Quoted(port.name).c_str(), usable ? "is there" : "is gone");
  }
  const port::Index old = std::exchange(port.link, index);
  port.in_bridge = usable && link->bridge != 0;
  port.state = usable ? StateOf(*link) : StateOfNoPort(port.name);
  const protocol::TimePoint now = clock_();
  for (EndPoint* end_point : port.end_points) {
    const bool moves = end_point->link() != index;
    if (moves) points_.Remove(*end_point->mep());
    end_point->SetPort(index, StateFor(end_point->key(), end_point->plan(), port), now);
    if (moves) {
      if (old != 0) LeaveWire(*end_point, old);
      Listen(*end_point);
    }
    SetTimer(*end_point);
  }
}

protocol::PortState Engine::StateFor(const contract::EndpointKey& key, const EndPointPlan& plan,
                                     const Port& port) const {
  if (plan.identity.direction == protocol::Direction::kDown || port.in_bridge || port.link == 0) return port.state;
  zlog_warn(surroundings_.log, "%s does not work: it faces a bridge, and port %s is in none that works",
            contract::ToText(key).c_str(), contract::Quoted(port.name).c_str());
  return StateOfNoPort(port.name);
}

bool Engine::OpenWire(port::Index index) {
  if (wires_.contains(index)) return true;
  if (!ports_.Open(index)) return false;
  wires_.try_emplace(index);
  return true;
}

void Engine::Listen(EndPoint& end_point) {
  if (end_point.link() == 0) return;
  points_.Add(end_point.link(), *end_point.mep(), end_point.plan().vids);
  wires_.at(end_point.link()).end_points.insert(&end_point);
}

void Engine::LeaveWire(EndPoint& end_point, port::Index link) {
  Wire& wire = wires_.at(link);
  wire.actions.erase(&end_point);
  wire.end_points.erase(&end_point);
  SettleAction(link, wire);
  CloseIfUnused(link);
}

void Engine::CloseIfUnused(port::Index link) {
  const auto wire = wires_.find(link);
  if (wire == wires_.end() || wire->second.needed || !wire->second.end_points.empty()) return;
  ports_.Close(link);
  wires_.erase(wire);
}

// ---- Bridges ----

void Engine::SettleBridges() {
  bridges_settled_ = true;
  std::set<port::Index> members;
  for (const auto& [index, link] : links_) {
    if (link.bridge != 0) members.insert(index);
  }
  points_.SetMips(WantedMips(members));
  for (const auto& [index, link] : links_) {
    const bool needed = link.bridge != 0 && points_.IsNeeded(index) && OpenWire(index);
    if (const auto wire = wires_.find(index); wire != wires_.end()) {
      wire->second.needed = needed;
      Filter(index, wire->second);
    }
    CloseIfUnused(index);
  }
}

std::vector<protocol::MipSettings> Engine::WantedMips(const std::set<port::Index>& ports) {
  if (ports.empty()) {
    findings_.clear();
    return {};
  }
  using Place = std::pair<port::Index, protocol::Vlan>;
  std::map<Place, protocol::CoveredVlan> covered;
  std::map<std::uint8_t, std::optional<protocol::SystemId>> sender_ids;
  std::map<contract::AssociationKey, protocol::CheckedMa> mas;
  std::map<port::Index, protocol::CheckedPort> checked;
  for (const auto& [key, state] : associations_) {
    const auto* plan = std::get_if<AssociationPlan>(&state);
    if (plan == nullptr) continue;
    sender_ids.emplace(plan->level, plan->sender_id);
    protocol::CheckedMa& ma = mas[key];
    ma.name = contract::ToText(key);
    ma.level = plan->level;
    for (const std::uint16_t vid : plan->vids) ma.vlans.insert({.vid = vid});
    if (plan->vids.empty()) ma.vlans.insert(protocol::Vlan{});
    for (const port::Index port : ports) {
      checked[port].index = port;
      checked[port].name = links_.at(port).name;
      for (const protocol::Vlan& vlan : ma.vlans) {
        checked[port].vlans.insert(vlan);
        protocol::CoveredVlan& at = covered[{port, vlan}];
        at.port = port;
        at.vlan = vlan;
        at.mas.push_back({.level = plan->level, .creation = plan->mip_creation});
      }
    }
  }
  for (const auto& [port, wire] : wires_) {
    if (!ports.contains(port)) continue;
    for (const EndPoint* end_point : wire.end_points) {
      const EndPointPlan& plan = end_point->plan();
      mas[{.md_name = end_point->key().md_name, .ma_name = end_point->key().ma_name}].meps[port] =
          plan.identity.direction;
      if (!plan.settings.enabled) continue;
      const auto at = covered.find({port, {.vid = plan.settings.primary_vid, .inner_vid = plan.settings.inner_vid}});
      if (at != covered.end()) at->second.mep_levels.insert(plan.identity.level);
    }
  }
  std::vector<protocol::CoveredVlan> vlans;
  vlans.reserve(covered.size());
  for (auto& [place, vlan] : covered) vlans.push_back(std::move(vlan));
  const std::set<protocol::MipPlace> places = protocol::MipsOf(vlans);
  std::vector<protocol::MipSettings> mips;
  mips.reserve(places.size());
  for (const protocol::MipPlace& place : places) {
    mips.push_back({.place = place, .sender_id = sender_ids.at(place.level)});
  }
  std::vector<protocol::CheckedPort> checked_ports;
  checked_ports.reserve(checked.size());
  for (auto& [index, port] : checked) checked_ports.push_back(std::move(port));
  std::vector<protocol::CheckedMa> checked_mas;
  checked_mas.reserve(mas.size());
  for (auto& [key, ma] : mas) checked_mas.push_back(std::move(ma));
  LogFindings(protocol::FindConfigurationErrors(checked_ports, checked_mas, places));
  return mips;
}

void Engine::LogFindings(std::vector<protocol::Finding> findings) {
  for (const protocol::Finding& finding : findings) {
    if (std::find(findings_.begin(), findings_.end(), finding) == findings_.end())
      zlog_warn(surroundings_.log, "%s", finding.text.c_str());
  }
  findings_ = std::move(findings);
}

void Engine::Filter(port::Index index, Wire& wire) {
  std::vector<protocol::LevelFilter> filters = points_.Filters(index);
  if (filters == wire.filters) return;
  if (ports_.SetLevelFilter(index, filters)) wire.filters = std::move(filters);
}

bool Engine::SendOut(protocol::PortIndex port, const protocol::OutgoingFrame& frame, const protocol::Mep* from) {
  const port::Owner owner = from == nullptr ? kNobody : static_cast<const EndPoint&>(from->output()).id();
  return wires_.contains(port) && ports_.Send(port, frame, owner);
}

// ---- Frames ----

void Engine::Received(port::Index index, const protocol::ReceivedFrame& frame) {
  if (wires_.contains(index)) points_.Receive(index, frame, clock_());
}

void Engine::Stamped(port::Owner owner, std::uint32_t stamp_id, const protocol::Stamps& stamps) {
  if (EndPoint* end_point = Owned(owner)) end_point->mep()->Stamped(stamp_id, stamps);
}

void Engine::NotSent(port::Owner owner, pdu::Octets pdu) {
  if (EndPoint* end_point = Owned(owner)) end_point->mep()->NotSent(pdu);
}

EndPoint* Engine::Owned(port::Owner owner) {
  EndPoint* end_point = owner < by_id_.size() ? by_id_[owner] : nullptr;
  return end_point != nullptr && end_point->mep() != nullptr ? end_point : nullptr;
}

void Engine::FaultActionChanged(EndPoint& end_point, protocol::FaultAction action) {
  const auto wire = wires_.find(end_point.link());
  if (wire == wires_.end()) return;
  wire->second.actions[&end_point] = action;
  SettleAction(end_point.link(), wire->second);
}

void Engine::SettleAction(port::Index link, Wire& wire) {
  auto severest = protocol::FaultAction::kNone;
  for (const auto& [end_point, action] : wire.actions) severest = std::max(severest, action);
  if (std::exchange(wire.action, severest) != severest) ports_.SetFaultAction(link, severest);
}

const std::optional<protocol::SystemId>& Engine::System() {
  if (!system_ && !links_.empty()) {
    const auto lowest = std::min_element(
        links_.begin(), links_.end(), [](const auto& a, const auto& b) { return a.second.address < b.second.address; });
    const pdu::MacAddress& address = lowest->second.address;
    system_.emplace();
    system_->chassis_subtype = pdu::kChassisMacAddress;
    system_->chassis_id.assign(address.begin(), address.end());
  }
  return system_;
}

// ---- Requests ----

EndPoint* Engine::Find(const contract::EndpointKey& key) {
  const auto end_point = end_points_.find(key);
  return end_point == end_points_.end() ? nullptr : end_point->second.get();
}

void Engine::AnnounceStatus() {
  // An answer that has begun began before somebody asked again.
  if (status_due_ != protocol::kNever && status_from_ == contract::EndpointKey{}) return;
  status_due_ = clock_() + kStatusDelay;
  status_from_ = {};
}

template <typename Trigger, typename Begin>
std::optional<protocol::TestError> Engine::StartTest(const Trigger& trigger, Begin begin) {
  if (trigger.mep_id() > UINT16_MAX) return protocol::TestError::kNoSuchMep;
  EndPoint* end_point = Find({.md_name = trigger.md_name(),
                              .ma_name = trigger.ma_name(),
                              .mep_id = static_cast<std::uint16_t>(trigger.mep_id())});
  if (end_point == nullptr) return protocol::TestError::kNoSuchMep;
  if (end_point->mep() == nullptr) return protocol::TestError::kMepNotOperational;
  if (trigger.target_mep_id() > UINT16_MAX) return protocol::TestError::kTargetUnknown;
  const auto error = begin(*end_point->mep(), static_cast<std::uint16_t>(trigger.target_mep_id()));
  SetTimer(*end_point);
  return error;
}

std::optional<protocol::TestError> Engine::Start(const pb::OpLinktraceTriggerMsg& trigger) {
  return StartTest(trigger.key(), [&](protocol::Mep& mep, std::uint16_t target) -> std::optional<protocol::TestError> {
    if (trigger.ttl() > UINT8_MAX) return protocol::TestError::kBadParameter;
    return mep.StartLinktrace({.target_mep_id = target, .ttl = static_cast<std::uint8_t>(trigger.ttl())}, clock_());
  });
}

std::optional<protocol::TestError> Engine::Start(const pb::OpLoopbackTriggerMsg& trigger) {
  return StartTest(trigger, [&](protocol::Mep& mep, std::uint16_t target) {
    return mep.StartLoopback({.trigger_id = trigger.trigger_id(),
                              .target_mep_id = target,
                              .messages = trigger.lb_param_1(),
                              .data_octets = trigger.lb_param_2()},
                             clock_());
  });
}

std::optional<protocol::TestError> Engine::Start(const pb::OpDelayMeasurementTriggerMsg& trigger) {
  return StartTest(trigger, [&](protocol::Mep& mep, std::uint16_t target) {
    return mep.StartDelayMeasurement({.trigger_id = trigger.trigger_id(),
                                      .target_mep_id = target,
                                      .parameters = {.messages = trigger.dm_param_1(),
                                                     .interval_ms = trigger.dm_param_2(),
                                                     .data_octets = trigger.dm_param_3(),
                                                     .priority = trigger.dm_param_4()}},
                                     clock_());
  });
}

pb::OpReplyAllStats Engine::Statistics() const {
  pb::OpReplyAllStats statistics;
  for (const auto& [key, end_point] : end_points_) {
    const protocol::Mep* mep = end_point->mep();
    pb::LocalMepStats& local = *statistics.add_local_stats();
    local.set_md_name(key.md_name);
    local.set_ma_name(key.ma_name);
    local.set_local_mep_id(key.mep_id);
    local.set_ccm_rx_seq_errors(mep == nullptr ? 0 : mep->remotes().sequence_errors());
    local.set_ccm_tx_current_seq(mep == nullptr ? 0 : mep->ccm_sender().sequence_number());
    local.set_ccm_tx_total(mep == nullptr ? 0 : mep->ccm_sender().counters().sent);
    if (mep == nullptr) continue;
    mep->remotes().ForEach([&statistics, &key = key](std::uint16_t id, const protocol::RemoteMep& watched) {
      pb::RemoteMepStats& remote = *statistics.add_remote_stats();
      remote.set_md_name(key.md_name);
      remote.set_ma_name(key.ma_name);
      remote.set_local_mep_id(key.mep_id);
      remote.set_remote_mep_id(id);
      remote.set_last_ccm_seq(watched.last_sequence_number());
    });
  }
  return statistics;
}

void Engine::ClearStatistics(const pb::OpStatsClear& scope) {
  for (const auto& [key, end_point] : end_points_) {
    const bool is_meant = (!scope.has_md_name() || scope.md_name() == key.md_name) &&
                          (!scope.has_ma_name() || scope.ma_name() == key.ma_name) &&
                          (!scope.has_local_mep_id() || scope.local_mep_id() == key.mep_id);
    if (is_meant && end_point->mep() != nullptr) end_point->mep()->ClearStatistics();
  }
}

}  // namespace cfm::engine
