#include "bridged_network.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace cfm::protocol {

pdu::MacAddress Group(std::uint8_t level, pdu::GroupClass group_class) {
  return pdu::ToAddress({.group_class = group_class, .level = level});
}

BridgedElement::BridgedElement(BridgedNetwork& network, std::uint8_t number, PortIndex port_count)
    : points(*this, *this,
             [&network](Duration below) {
               return Duration(std::uniform_int_distribution<Duration::rep>(0, below.count() - 1)(network.random_));
             }),
      network_(network) {
  for (PortIndex port = 1; port <= port_count; ++port) {
    const auto station = static_cast<std::uint8_t>(10 * number + port);
    ElementPort settings{.bridge = kBridge, .state = PortOf(station)};
    settings.state.port_status = pdu::PortStatus::kUp;
    Change(port, settings);
  }
}

ClockReading BridgedElement::Home::ReadClocks() {
  now = element.network_.now();
  return RecordingOutput::ReadClocks();
}

ClockReading BridgedElement::ReadClocks() {
  return {.system = network_.now().time_since_epoch(), .monotonic = network_.now()};
}

BridgedElement::Home& BridgedElement::AddMep(PortIndex port, std::uint8_t level, std::uint16_t mep_id,
                                             Direction direction, const MepSettings& settings) {
  Home& home = *homes.emplace_back(std::make_unique<Home>(*this));
  home.mep = std::make_unique<Mep>(
      MepIdentity{.level = level, .mep_id = mep_id, .maid = MaidNumber(1), .direction = direction}, settings,
      ports_.at(port).state, home, [](Duration) { return Duration::zero(); }, network_.now());
  points.Add(port, *home.mep, {});
  return home;
}

void BridgedElement::Update(Home& home, const MepSettings& settings) {
  home.mep->Update(settings, network_.now());
}

void BridgedElement::AddMips(std::uint8_t level) {
  std::vector<MipSettings> mips;
  for (const auto& [port, settings] : ports_) {
    mips.push_back({.place = {.port = port, .vlan = {}, .level = level}, .sender_id = std::nullopt});
  }
  points.SetMips(mips);
}

void BridgedElement::Change(PortIndex port, const ElementPort& settings) {
  ports_[port] = settings;
  points.SetPort(port, settings);
}

ElementPort BridgedElement::PortSettings(PortIndex port) const {
  return ports_.at(port);
}

std::optional<PortIndex> BridgedElement::Find(PortIndex bridge, const Vlan& vlan,
                                              const pdu::MacAddress& address) const {
  EXPECT_EQ(bridge, kBridge);
  const auto known = table.find({vlan, address});
  if (known == table.end()) return std::nullopt;
  return known->second;
}

bool BridgedElement::SendOut(PortIndex port, const OutgoingFrame& frame, const Mep* /*from*/) {
  Transmit({.port = port, .header = frame.header, .pdu = {frame.pdu.begin(), frame.pdu.end()}, .by_a_point = true});
  return true;
}

void BridgedElement::Transmit(const Transmitted& frame) {
  transmitted.push_back(frame);
  const auto cable = network_.cables_.find({this, frame.port});
  if (cable == network_.cables_.end()) return;
  network_.flights_.emplace(network_.now() + std::chrono::microseconds(10),
                            BridgedNetwork::Flight{cable->second, frame.header, frame.pdu});
}

bool BridgedElement::Filtered(PortIndex port, const pdu::EthernetHeader& header, const Octets& octets) const {
  const auto pdu = pdu::DecodeHeader(octets);
  if (!pdu) return false;
  const auto filters = points.Filters(port);
  return std::any_of(filters.begin(), filters.end(), [&](const LevelFilter& filter) {
    if (filter.vlan != VlanOf(header)) return false;
    if (filter.up_to_level && pdu->level <= *filter.up_to_level) return true;
    return filter.linktrace_level == pdu->level && pdu->opcode == pdu::Opcode::kLtm;
  });
}

bool BridgedElement::Forwards(PortIndex port, const Vlan& vlan) const {
  const ElementPort& settings = ports_.at(port);
  return settings.bridge != 0 && settings.state.port_status == pdu::PortStatus::kUp && Carries(port, vlan);
}

void BridgedElement::Arrive(PortIndex port, const pdu::EthernetHeader& header, const Octets& octets) {
  points.Receive(port, {.header = header, .pdu = octets, .stamps = {}}, network_.now());

  const Vlan vlan = VlanOf(header);
  if (Filtered(port, header, octets) || !Forwards(port, vlan) || pdu::IsGroup(header.source)) return;
  table[{vlan, header.source}] = port;
  const auto is_own = [&header](const auto& entry) { return entry.second.state.address == header.destination; };
  if (std::any_of(ports_.begin(), ports_.end(), is_own)) return;
  const auto known = pdu::IsGroup(header.destination) ? std::nullopt : Find(kBridge, vlan, header.destination);
  for (const auto& [exit, settings] : ports_) {
    if (exit == port || (known && *known != exit) || !Forwards(exit, vlan) || Filtered(exit, header, octets)) continue;
    Transmit({.port = exit, .header = header, .pdu = octets, .by_a_point = false});
  }
}

BridgedElement& BridgedNetwork::Add(PortIndex port_count) {
  const auto number = static_cast<std::uint8_t>(elements_.size() + 1);
  return *elements_.emplace_back(std::make_unique<BridgedElement>(*this, number, port_count));
}

void BridgedNetwork::Connect(BridgedElement& one, PortIndex port, BridgedElement& other, PortIndex other_port) {
  cables_[{&one, port}] = {&other, other_port};
  cables_[{&other, other_port}] = {&one, port};
}

void BridgedNetwork::Disconnect(BridgedElement& one, PortIndex port) {
  cables_.erase(cables_.at({&one, port}));
  cables_.erase({&one, port});
}

TimePoint BridgedNetwork::EarliestDeadline() const {
  TimePoint earliest = flights_.empty() ? kNever : flights_.begin()->first;
  for (const auto& element : elements_) {
    earliest = std::min(earliest, element->points.deadline());
    for (const auto& home : element->homes) earliest = std::min(earliest, home->mep->deadline());
  }
  return earliest;
}

void BridgedNetwork::RunFor(Duration span) {
  const TimePoint end = now_ + span;
  for (TimePoint next = EarliestDeadline(); next <= end; next = EarliestDeadline()) {
    now_ = std::max(now_, next);
    for (const auto& element : elements_) {
      element->points.Advance(now_);
      for (const auto& home : element->homes) home->mep->Advance(now_);
    }
    while (!flights_.empty() && flights_.begin()->first <= now_) {
      const Flight flight = flights_.extract(flights_.begin()).mapped();
      flight.to.first->Arrive(flight.to.second, flight.header, flight.pdu);
    }
  }
  now_ = end;
}

}  // namespace cfm::protocol
