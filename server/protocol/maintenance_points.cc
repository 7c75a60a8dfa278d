#include "protocol/maintenance_points.h"

#include <algorithm>
#include <utility>

namespace cfm::protocol {

/// A linktrace message at one point.
class MaintenancePoints::Trace final : public TraceRelay {
 public:
  Trace(MaintenancePoints& points, const Arrival& arrival, const pdu::EthernetHeader& ethernet,
        const pdu::Header& header, TimePoint now)
      : points_(points), arrival_(arrival), ethernet_(ethernet), header_(header), now_(now) {}

  pdu::ReplyAction OwnAction() const override { return points_.ActionAt(arrival_.at, VlanOf(ethernet_)); }

  std::optional<TracePath> PathTo(const pdu::MacAddress& target, bool use_fdb_only) const override {
    if (points_.Find(arrival_.at)->settings.bridge == 0) return std::nullopt;
    const Vlan vlan = VlanOf(ethernet_);
    const Bridge& bridge = points_.BridgeOf(arrival_.at);
    TracePath path;
    const auto own = points_.PortsWithAddress(bridge, target);
    std::optional<PortIndex> exit;
    if (!own.empty()) {
      exit = own.front();
    } else {
      exit = points_.forwarding_.Find(points_.Find(arrival_.at)->settings.bridge, vlan, target);
    }
    if (!exit && !use_fdb_only) {
      path.found_in = pdu::RelayAction::kMpdb;
      exit = bridge.ccm_database.Find(vlan, target, now_);
    }
    if (!exit || !bridge.members.contains(*exit)) return std::nullopt;
    const bool behind = arrival_.from == Side::kWire ? *exit != arrival_.at : *exit == arrival_.at;
    if (!behind) return std::nullopt;

    const Port& port = *points_.Find(*exit);
    path.index = *exit;
    path.port = {.action = points_.ActionAt(*exit, vlan),
                 .address = port.settings.state.address,
                 .name = port.settings.state.name};
    if (arrival_.from == Side::kRelay) return path;
    path.meets = Meeting(port);
    const bool point_there = path.meets == TracePath::Meets::kMip || path.meets == TracePath::Meets::kMep;
    // An address of the bridge itself where nobody answers at this level.
    if (!own.empty() && !point_there) return std::nullopt;
    return path;
  }

  void Forward(PortIndex port, const OutgoingFrame& ltm) override { points_.output_.SendOut(port, ltm, nullptr); }

 private:
  TracePath::Meets Meeting(const Port& port) const {
    const EndPoints::Encounter encounter = port.points.Meet(ethernet_, header_, Side::kRelay);
    if (encounter.mip != nullptr) return TracePath::Meets::kMip;
    if (encounter.mep == nullptr) return TracePath::Meets::kNothing;
    const bool faces_it = !encounter.behind && encounter.mep->identity().level == header_.level;
    return faces_it ? TracePath::Meets::kMep : TracePath::Meets::kBarrier;
  }

  MaintenancePoints& points_;
  const Arrival& arrival_;
  const pdu::EthernetHeader& ethernet_;
  const pdu::Header& header_;
  TimePoint now_;
};

// ---- Ports and points ----

void MaintenancePoints::SetPort(PortIndex index, const ElementPort& port) {
  Port& known = ports_[index];
  known.present = true;
  const PortIndex old_bridge = std::exchange(known.settings, port).bridge;
  if (old_bridge != port.bridge) LeaveBridge(index, old_bridge);
  if (port.bridge != 0) bridges_[port.bridge].members.insert(index);
  for (auto home = mips_.lower_bound({.port = index}); home != mips_.end() && home->first.port == index; ++home) {
    home->second->mip.SetPort(port.state);
  }
}

void MaintenancePoints::RemovePort(PortIndex index) {
  const auto port = ports_.find(index);
  if (port == ports_.end()) return;
  SetPort(index, {});
  port->second.present = false;
  DropIfUnused(index);
}

void MaintenancePoints::DropIfUnused(PortIndex index) {
  const auto port = ports_.find(index);
  if (!port->second.present && port->second.points.empty()) ports_.erase(port);
}

void MaintenancePoints::LeaveBridge(PortIndex index, PortIndex bridge) {
  const auto left = bridges_.find(bridge);
  if (left == bridges_.end()) return;
  left->second.members.erase(index);
  left->second.ccm_database.Forget(index);
  left->second.sources.Forget(index);
  if (left->second.members.empty()) bridges_.erase(left);
}

void MaintenancePoints::Add(PortIndex port, Mep& mep, std::span<const std::uint16_t> vids) {
  homes_[&mep] = port;
  ports_[port].points.Add(mep, vids);
}

void MaintenancePoints::Remove(Mep& mep) {
  const auto home = homes_.find(&mep);
  if (home == homes_.end()) return;
  ports_.at(home->second).points.Remove(mep);
  DropIfUnused(home->second);
  homes_.erase(home);
}

void MaintenancePoints::SetMips(std::span<const MipSettings> mips) {
  std::set<MipPlace> wanted;
  for (const MipSettings& mip : mips) wanted.insert(mip.place);
  for (auto home = mips_.begin(); home != mips_.end();) {
    if (wanted.contains(home->first)) {
      ++home;
      continue;
    }
    ports_.at(home->first.port).points.Remove(home->second->mip);
    DropIfUnused(home->first.port);
    timers_.Remove(home->second->timer);
    by_timer_.erase(home->second->timer);
    home = mips_.erase(home);
  }
  for (const MipSettings& settings : mips) {
    auto& home = mips_[settings.place];
    if (!home) {
      Port& port = ports_[settings.place.port];
      home = std::make_unique<MipHome>(*this, settings.place);
      by_timer_[home->timer] = home.get();
      home->mip.SetPort(port.settings.state);
      port.points.Add(home->mip);
    }
    home->mip.SetSenderId(settings.sender_id);
  }
}

std::vector<LevelFilter> MaintenancePoints::Filters(PortIndex port) const {
  const Port* known = Find(port);
  if (known == nullptr || known->settings.bridge == 0) return {};
  return known->points.Filters();
}

bool MaintenancePoints::IsNeeded(PortIndex port) const {
  const Port* known = Find(port);
  if (known == nullptr) return false;
  if (!known->points.empty()) return true;
  const std::set<PortIndex>& members = BridgeOf(port).members;
  return std::any_of(members.begin(), members.end(),
                     [this](PortIndex member) { return Find(member)->points.FaceRelay(); });
}

const Mip* MaintenancePoints::FindMip(const MipPlace& place) const {
  const auto home = mips_.find(place);
  return home == mips_.end() ? nullptr : &home->second->mip;
}

const EndPoints* MaintenancePoints::PointsOf(PortIndex port) const {
  const Port* known = Find(port);
  return known == nullptr ? nullptr : &known->points;
}

const MaintenancePoints::Port* MaintenancePoints::Find(PortIndex index) const {
  const auto port = ports_.find(index);
  return port == ports_.end() ? nullptr : &port->second;
}

// ---- Forwarding ----

bool MaintenancePoints::Forwards(PortIndex index, const Vlan& vlan) const {
  return Find(index)->settings.state.port_status == pdu::PortStatus::kUp && forwarding_.Carries(index, vlan);
}

pdu::ReplyAction MaintenancePoints::ActionAt(PortIndex index, const Vlan& vlan) const {
  using Status = pdu::InterfaceStatus;
  const ElementPort& port = Find(index)->settings;
  const Status status = port.state.interface_status;
  if (status == Status::kDown || status == Status::kNotPresent || status == Status::kLowerLayerDown) {
    return pdu::ReplyAction::kDown;
  }
  if (port.bridge == 0) return pdu::ReplyAction::kOk;
  if (port.state.port_status != pdu::PortStatus::kUp) return pdu::ReplyAction::kBlocked;
  return forwarding_.Carries(index, vlan) ? pdu::ReplyAction::kOk : pdu::ReplyAction::kVid;
}

const MaintenancePoints::Bridge& MaintenancePoints::BridgeOf(PortIndex port) const {
  static const Bridge kNone;
  const auto bridge = bridges_.find(Find(port)->settings.bridge);
  return bridge == bridges_.end() ? kNone : bridge->second;
}

std::vector<PortIndex> MaintenancePoints::PortsWithAddress(const Bridge& bridge, const pdu::MacAddress& address) const {
  std::vector<PortIndex> ports;
  for (const PortIndex member : bridge.members) {
    if (Find(member)->settings.state.address == address) ports.push_back(member);
  }
  return ports;
}

template <typename Visit>
void MaintenancePoints::ForEachExit(PortIndex from, const pdu::EthernetHeader& header, Visit visit) const {
  const Bridge& bridge = BridgeOf(from);
  const Vlan vlan = VlanOf(header);
  const auto offer = [&](PortIndex port, bool to_the_wire) {
    // A port that is down or blocked still has points that face the relay, and can tell about it.
    if (port != from && forwarding_.Carries(port, vlan)) visit(port, to_the_wire && Forwards(port, vlan));
  };
  if (!pdu::IsGroup(header.destination)) {
    if (const auto own = PortsWithAddress(bridge, header.destination); !own.empty()) {
      for (const PortIndex port : own) offer(port, false);
      return;
    }
    auto known = forwarding_.Find(Find(from)->settings.bridge, vlan, header.destination);
    if (!known) known = bridge.sources.Find(vlan, header.destination, output_.ReadClocks().monotonic);
    if (known) {
      if (bridge.members.contains(*known)) offer(*known, true);
      return;
    }
  }
  for (const PortIndex port : bridge.members) offer(port, true);
}

// ---- Frames ----

void MaintenancePoints::Receive(PortIndex port, const ReceivedFrame& frame, TimePoint now) {
  const auto header = pdu::DecodeHeader(frame.pdu);
  if (!header) {
    ++malformed_;
    return;
  }
  const Port* arrived = Find(port);
  if (arrived == nullptr || !Pass({.at = port, .from = Side::kWire, .origin = port}, frame, *header, now)) return;
  const Vlan vlan = VlanOf(frame.header);
  const auto bridge = bridges_.find(arrived->settings.bridge);
  if (bridge == bridges_.end() || !Forwards(port, vlan)) return;
  if (!pdu::IsGroup(frame.header.source)) bridge->second.sources.Store(vlan, frame.header.source, port, now);
  ForEachExit(port, frame.header, [&](PortIndex exit, bool) {
    Pass({.at = exit, .from = Side::kRelay, .origin = port}, frame, *header, now);
  });
}

bool MaintenancePoints::Pass(const Arrival& arrival, const ReceivedFrame& frame, const pdu::Header& header,
                             TimePoint now) {
  const Port& port = *Find(arrival.at);
  const EndPoints::Encounter encounter = port.points.Meet(frame.header, header, arrival.from);
  Trace trace(*this, arrival, frame.header, header, now);
  if (encounter.mip != nullptr) {
    encounter.mip->Receive(frame, arrival.from, arrival.origin, bridges_[port.settings.bridge].ccm_database, trace,
                           now);
    Arm(*mips_.at(encounter.mip->place()));
  }
  if (encounter.mep != nullptr && encounter.behind) {
    encounter.mep->StoppedBehind();
  } else if (encounter.mep != nullptr) {
    encounter.mep->Receive(frame, now, &trace);
    output_.Touched(*encounter.mep);
  }
  return encounter.passes;
}

bool MaintenancePoints::Send(const Mep& from, const OutgoingFrame& frame) {
  const auto home = homes_.find(&from);
  return home != homes_.end() && Emit(home->second, frame, &from);
}

bool MaintenancePoints::Emit(PortIndex port, const OutgoingFrame& frame, const Mep* from) {
  const auto header = pdu::DecodeHeader(frame.pdu);
  if (!header) return false;
  // What is sent ahead has only points of lower levels before it; what is sent to the back meets the rest of the port.
  const bool to_the_back = from != nullptr && frame.side != Facing(from->identity().direction);
  if (to_the_back && !Enter({.at = port, .from = Opposite(frame.side), .origin = port}, frame, *header)) return true;
  if (frame.side == Side::kWire) return output_.SendOut(port, frame, from);
  if (Find(port)->settings.bridge == 0) return to_the_back;

  bool tried = false;
  bool sent = false;
  ForEachExit(port, frame.header, [&](PortIndex exit, bool to_the_wire) {
    const bool passes = Enter({.at = exit, .from = Side::kRelay, .origin = port}, frame, *header);
    if (!passes || !to_the_wire) return;
    tried = true;
    sent |= output_.SendOut(exit, frame, from);
  });
  return sent || !tried;
}

bool MaintenancePoints::Enter(const Arrival& arrival, const OutgoingFrame& frame, const pdu::Header& header) {
  const EndPoints::Encounter encounter = Find(arrival.at)->points.Meet(frame.header, header, arrival.from);
  if (encounter.mip != nullptr || encounter.mep != nullptr) {
    in_transit_.push_back({.arrival = arrival, .header = frame.header, .pdu = {frame.pdu.begin(), frame.pdu.end()}});
  }
  return encounter.passes;
}

void MaintenancePoints::Advance(TimePoint now) {
  // What is sent meanwhile has its turn next time.
  for (const InTransit& frame : std::exchange(in_transit_, {})) {
    if (Find(frame.arrival.at) == nullptr) continue;
    const ReceivedFrame received{.header = frame.header, .pdu = frame.pdu, .stamps = {}};
    Pass(frame.arrival, received, *pdu::DecodeHeader(frame.pdu), now);
  }
  while (const auto due = timers_.Due(now)) {
    MipHome& home = *by_timer_.at(*due);
    home.mip.Advance(now);
    Arm(home);
  }
}

}  // namespace cfm::protocol
