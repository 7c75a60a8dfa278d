// End points on one Ethernet segment, in time that stands still until somebody lets it run.
#ifndef CFM_TESTS_UNIT_PROTOCOL_NETWORK_H
#define CFM_TESTS_UNIT_PROTOCOL_NETWORK_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "protocol/deadline_queue.h"
#include "protocol/end_points.h"
#include "protocol/mep.h"
#include "recording_output.h"

namespace cfm::protocol {

/// An MA's identifier; another number, another MA.
pdu::Maid MaidNumber(std::uint8_t number);

/// Enabled, sending, with these ids in the MA; all defects are alarms.
MepSettings Watching(std::uint8_t interval, const std::set<std::uint16_t>& mep_ids);

/// Present and up, with the address of that station.
PortState PortOf(std::uint8_t station);

/// Hands a frame from the wire to the end point of the port that faces it and stops it; null: there is none.
Mep* Deliver(const EndPoints& points, const ReceivedFrame& frame, TimePoint now);

class Network;

/// A system with one port and one end point, whose station number is its MEP id. Frames that it sends go to all others
/// on the segment.
class Element final : public RecordingOutput {
 public:
  Element(Network& network, const MepIdentity& identity, const MepSettings& settings);

  bool Send(const OutgoingFrame& frame) override;
  ClockReading ReadClocks() override;

  /// As it would call the end point, at the present time, with the timers in order afterwards.
  void Update(const MepSettings& settings);
  void SetPort(const PortState& port);
  template <typename Call>
  auto Do(Call call);

  std::uint16_t id() const { return mep->identity().mep_id; }
  RemoteState Sees(std::uint16_t remote) const { return mep->remotes().Find(remote)->status().state; }

  std::unique_ptr<Mep> mep;
  EndPoints end_points;
  std::uint64_t sent = 0;  ///< instead of the frames, which would fill the memory

 private:
  friend class Network;

  Network& network_;
  DeadlineQueue::Id timer_;
};

class Network {
 public:
  Element& Add(std::uint16_t mep_id, const MepSettings& settings, std::uint8_t level = 5, std::uint8_t maid = 1);

  /// Frames of the one do not reach the other any more, until it is mended.
  void Cut(const Element& from, const Element& to) { cuts_.emplace(&from, &to); }
  void Mend(const Element& from, const Element& to) { cuts_.erase({&from, &to}); }
  /// From everybody and to everybody.
  void CutOff(const Element& element);
  void MendAll() { cuts_.clear(); }

  /// Whether a frame between two is lost on its way; false by default.
  std::function<bool(const Element& from, const Element& to)> lose;
  Duration delay = std::chrono::microseconds(100);

  void RunFor(Duration span);
  TimePoint now() const { return now_; }
  /// Times that an end point was woken by its own deadline.
  std::uint64_t wakeups() const { return wakeups_; }

 private:
  friend class Element;

  struct Flight {
    Element* to;
    pdu::EthernetHeader header;
    std::vector<std::uint8_t> pdu;
  };

  void Carry(const Element& from, const OutgoingFrame& frame);
  void Arm(const Element& element);
  void Land(const Flight& flight);

  TimePoint now_ = kStart;
  std::vector<std::unique_ptr<Element>> elements_;
  std::map<DeadlineQueue::Id, Element*> by_timer_;
  DeadlineQueue timers_;
  std::multimap<TimePoint, Flight> flights_;
  std::set<std::pair<const Element*, const Element*>> cuts_;
  std::uint64_t wakeups_ = 0;
  std::mt19937_64 random_{1};
};

template <typename Call>
auto Element::Do(Call call) {
  auto result = call(*mep, network_.now());
  network_.Arm(*this);
  return result;
}

}  // namespace cfm::protocol

#endif
