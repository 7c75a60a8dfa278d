#include "network.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>

namespace cfm::protocol {

pdu::Maid MaidNumber(std::uint8_t number) {
  pdu::Maid maid;
  maid.octets = {1, 2, 1, number};
  return maid;
}

MepSettings Watching(std::uint8_t interval, const std::set<std::uint16_t>& mep_ids) {
  MepSettings settings;
  settings.enabled = true;
  settings.send_ccms = true;
  settings.interval = interval;
  settings.mep_ids.assign(mep_ids.begin(), mep_ids.end());
  settings.priority = 7;
  settings.lowest_alarm = 1;
  return settings;
}

PortState PortOf(std::uint8_t station) {
  return {.present = true,
          .name = "port" + std::to_string(station),
          .address = Station(station),
          .interface_status = pdu::InterfaceStatus::kUp};
}

Mep* Deliver(const EndPoints& points, const ReceivedFrame& frame, TimePoint now) {
  const EndPoints::Encounter encounter = points.Meet(frame.header, *pdu::DecodeHeader(frame.pdu), Side::kWire);
  if (encounter.mep == nullptr || encounter.behind) return nullptr;
  encounter.mep->Receive(frame, now);
  return encounter.mep;
}

Element::Element(Network& network, const MepIdentity& identity, const MepSettings& settings)
    : network_(network), timer_(network.timers_.Add()) {
  const auto random = [&network](Duration below) {
    return Duration(std::uniform_int_distribution<Duration::rep>(0, below.count() - 1)(network.random_));
  };
  mep = std::make_unique<Mep>(identity, settings, PortOf(static_cast<std::uint8_t>(identity.mep_id)), *this, random,
                              network.now());
  end_points.Add(*mep, {});
}

bool Element::Send(const OutgoingFrame& frame) {
  ++sent;
  network_.Carry(*this, frame);
  return true;
}

ClockReading Element::ReadClocks() {
  now = network_.now();
  return RecordingOutput::ReadClocks();
}

void Element::Update(const MepSettings& settings) {
  mep->Update(settings, network_.now());
  network_.Arm(*this);
}

void Element::SetPort(const PortState& port) {
  mep->SetPort(port, network_.now());
  network_.Arm(*this);
}

Element& Network::Add(std::uint16_t mep_id, const MepSettings& settings, std::uint8_t level, std::uint8_t maid) {
  Element& element = *elements_.emplace_back(std::make_unique<Element>(
      *this, MepIdentity{.level = level, .mep_id = mep_id, .maid = MaidNumber(maid)}, settings));
  by_timer_[element.timer_] = &element;
  Arm(element);
  return element;
}

void Network::CutOff(const Element& element) {
  for (const auto& other : elements_) {
    Cut(element, *other);
    Cut(*other, element);
  }
}

void Network::RunFor(Duration span) {
  const TimePoint end = now_ + span;
  for (;;) {
    const TimePoint landing = flights_.empty() ? kNever : flights_.begin()->first;
    const TimePoint next = std::min(timers_.earliest(), landing);
    if (next > end) break;
    now_ = std::max(now_, next);
    if (const auto due = timers_.Due(now_)) {
      ++wakeups_;
      Element& element = *by_timer_.at(*due);
      element.mep->Advance(now_);
      ASSERT_GT(element.mep->deadline(), now_);
      Arm(element);
    } else {
      Land(flights_.extract(flights_.begin()).mapped());
    }
  }
  now_ = end;
}

void Network::Carry(const Element& from, const OutgoingFrame& frame) {
  for (const auto& to : elements_) {
    if (to.get() == &from || cuts_.contains({&from, to.get()}) || (lose && lose(from, *to))) continue;
    flights_.emplace(now_ + delay, Flight{to.get(), frame.header, {frame.pdu.begin(), frame.pdu.end()}});
  }
}

void Network::Arm(const Element& element) {
  timers_.Set(element.timer_, element.mep->deadline());
}

void Network::Land(const Flight& flight) {
  Deliver(flight.to->end_points, {.header = flight.header, .pdu = flight.pdu, .stamps = {}}, now_);
  Arm(*flight.to);
}

}  // namespace cfm::protocol
