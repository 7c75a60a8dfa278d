#include "simulation.h"

#include <vorbus/vorbus.h>

#include <algorithm>

namespace cfm::engine {
namespace {

constexpr protocol::Duration kWireDelay = std::chrono::microseconds(100);

}  // namespace

const port::Link* SimulatedPorts::Find(port::Index index) const {
  const auto link = links.find(index);
  return link == links.end() ? nullptr : &link->second;
}

bool SimulatedPorts::Open(port::Index index) {
  if (refuses_to_open || !links.contains(index)) return false;
  open.insert(index);
  return true;
}

void SimulatedPorts::Close(port::Index index) {
  open.erase(index);
  filters.erase(index);
}

bool SimulatedPorts::Send(port::Index index, const protocol::OutgoingFrame& frame, port::Owner /*owner*/) {
  if (refuses_to_send || !open.contains(index)) return false;
  sent[index].push_back({frame.header, {frame.pdu.begin(), frame.pdu.end()}});
  element_.simulation.Carry(element_, index, frame);
  return true;
}

protocol::ClockReading SimulatedPorts::ReadClocks() {
  const protocol::TimePoint now = element_.simulation.now();
  return {.system = now.time_since_epoch() + std::chrono::hours(24 * 365), .monotonic = now};
}

void SimulatedPorts::SetFaultAction(port::Index index, protocol::FaultAction action) {
  static constexpr const char* kNames[] = {"none", "block", "shutdown"};
  actions.push_back(std::to_string(index) + ' ' + kNames[static_cast<int>(action)]);
}

bool SimulatedPorts::SetLevelFilter(port::Index index, std::vector<protocol::LevelFilter> wanted) {
  filters[index] = std::move(wanted);
  return true;
}

std::optional<port::Index> SimulatedPorts::FindStation(port::Index /*bridge*/, const pdu::MacAddress& address) const {
  const auto station = stations_.find(address);
  return station == stations_.end() ? std::nullopt : std::optional(station->second);
}

bool SimulatedPorts::Drops(port::Index index, const SentFrame& frame) const {
  const auto known = filters.find(index);
  if (known == filters.end()) return false;
  const auto header = pdu::DecodeHeader(frame.pdu);
  return std::any_of(known->second.begin(), known->second.end(), [&](const protocol::LevelFilter& filter) {
    if (!header || filter.vlan != protocol::VlanOf(frame.header)) return false;
    const bool is_trace = header->opcode == pdu::Opcode::kLtm && filter.linktrace_level == header->level;
    return is_trace || (filter.up_to_level && header->level <= *filter.up_to_level);
  });
}

void SimulatedPorts::Relay(port::Index arrived, const SentFrame& frame) {
  const port::Link* link = Find(arrived);
  if (link == nullptr || link->bridge == 0 || Drops(arrived, frame)) return;
  stations_[frame.header.source] = arrived;
  const auto known = stations_.find(frame.header.destination);
  for (const auto& [index, other] : links) {
    if (other.bridge != link->bridge || index == arrived || Drops(index, frame)) continue;
    if (known != stations_.end() && known->second != index) continue;
    element_.simulation.Carry(element_, index, {.header = frame.header, .pdu = frame.pdu, .stamp_id = {}});
  }
}

void RecordingAnnouncer::Announce(const vorbus_event_t* /*event*/, const google::protobuf::Message& message) {
  std::string text = message.GetDescriptor()->name() + " {" + message.ShortDebugString() + '}';
  events_.push_back(std::move(text));
}

Element::Element(Simulation& in, Engine::Options options)
    : simulation(in),
      ports(*this),
      engine(
          cache, announcer, ports, vorbus_trace_init(in.middleware.token(), "cfm-mgr"),
          [](protocol::Duration below) { return below / 2; }, [this] { return simulation.now(); }, std::move(options)) {
}

port::Link& Element::SetLink(port::Index index, const std::string& name) {
  port::Link& link = ports.links[index];
  link.index = index;
  link.name = name;
  link.is_ethernet = true;
  link.mtu = 1500;
  link.address = {0x02, 0, 0, 0, 0, static_cast<std::uint8_t>(index)};
  link.state = {.operstate = 6, .lower_up = true};
  engine.LinkChanged(link);
  return link;
}

void Element::RemoveLink(port::Index index) {
  ports.links.erase(index);
  ports.open.erase(index);
  engine.LinkRemoved(index);
}

Element& Simulation::Add(Engine::Options options) {
  elements_.push_back(std::make_unique<Element>(*this, std::move(options)));
  return *elements_.back();
}

void Simulation::Join(Element& a, port::Index a_port, Element& b, port::Index b_port) {
  wires_[{&a, a_port}] = {&b, b_port};
  wires_[{&b, b_port}] = {&a, a_port};
}

void Simulation::Cut(Element& a, port::Index a_port) {
  const auto wire = wires_.find({&a, a_port});
  const End other = wire->second;
  wires_.erase(wire);
  wires_.erase(other);
}

void Simulation::Carry(Element& from, port::Index port, const protocol::OutgoingFrame& frame) {
  const auto wire = wires_.find({&from, port});
  if (wire == wires_.end()) return;
  flights_.push_back({wire->second, {frame.header, {frame.pdu.begin(), frame.pdu.end()}}, now_ + kWireDelay});
}

void Simulation::RunFor(protocol::Duration span) {
  const protocol::TimePoint end = now_ + span;
  while (true) {
    protocol::TimePoint next = flights_.empty() ? protocol::kNever : flights_.front().at;
    for (const auto& element : elements_) next = std::min(next, element->engine.deadline());
    if (next > end) break;
    now_ = std::max(now_, next);
    while (!flights_.empty() && flights_.front().at <= now_) {
      const Flight flight = std::move(flights_.front());
      flights_.pop_front();
      const auto& [element, port] = flight.to;
      element->ports.Relay(port, flight.frame);
      if (!element->ports.open.contains(port)) continue;
      element->engine.Received(port, {.header = flight.frame.header, .pdu = flight.frame.pdu, .stamps = {}});
    }
    for (const auto& element : elements_) element->engine.Advance(now_);
  }
  now_ = end;
}

}  // namespace cfm::engine
