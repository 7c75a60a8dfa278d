// Elements with bridges, cabled to each other, in time that stands still until somebody lets it run. What the kernel
// does is modelled beside what the maintenance points do: the filters at its ports, learning, forwarding.
#ifndef CFM_TESTS_UNIT_PROTOCOL_BRIDGED_NETWORK_H
#define CFM_TESTS_UNIT_PROTOCOL_BRIDGED_NETWORK_H

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "network.h"
#include "protocol/maintenance_points.h"
#include "recording_output.h"

namespace cfm::protocol {

using Octets = std::vector<std::uint8_t>;

template <typename Record, typename Encode>
Octets Encoded(const Record& record, Encode encode) {
  Octets octets(2000);
  octets.resize(encode(record, octets));
  return octets;
}

pdu::MacAddress Group(std::uint8_t level, pdu::GroupClass group_class = pdu::GroupClass::k1);

class BridgedNetwork;

/// Its ports 1, 2, … have the addresses of the stations 10 × element + port, and belong to bridge 99.
class BridgedElement : public Forwarding, public ElementOutput {
 public:
  static constexpr PortIndex kBridge = 99;

  BridgedElement(BridgedNetwork& network, std::uint8_t number, PortIndex port_count);
  virtual ~BridgedElement() = default;

  /// An end point and what it hands out.
  struct Home final : RecordingOutput {
    explicit Home(BridgedElement& owner) : element(owner) {}
    bool Send(const OutgoingFrame& frame) override { return element.points.Send(*mep, frame); }
    ClockReading ReadClocks() override;

    BridgedElement& element;
    std::unique_ptr<Mep> mep;
  };

  Home& AddMep(PortIndex port, std::uint8_t level, std::uint16_t mep_id, Direction direction,
               const MepSettings& settings);
  void Update(Home& home, const MepSettings& settings);
  /// At this level on every port, for untagged frames.
  void AddMips(std::uint8_t level);

  void Change(PortIndex port, const ElementPort& settings);
  /// As a bridge's port that is up and forwards.
  ElementPort PortSettings(PortIndex port) const;
  pdu::MacAddress AddressOf(PortIndex port) const { return PortSettings(port).state.address; }

  bool Carries(PortIndex port, const Vlan& vlan) const override { return !outside.contains({port, vlan}); }
  std::optional<PortIndex> Find(PortIndex bridge, const Vlan& vlan, const pdu::MacAddress& address) const override;
  bool SendOut(PortIndex port, const OutgoingFrame& frame, const Mep* from) override;
  ClockReading ReadClocks() override;
  void Touched(Mep& mep) override { touched.insert(&mep); }

  /// A frame on the wire of a port.
  void Arrive(PortIndex port, const pdu::EthernetHeader& header, const Octets& octets);

  struct Transmitted {
    PortIndex port;
    pdu::EthernetHeader header;
    Octets pdu;
    bool by_a_point;  ///< otherwise the bridge's own doing

    pdu::Opcode opcode() const { return pdu::DecodeHeader(pdu)->opcode; }
  };
  std::vector<Transmitted> TakeTransmitted() { return std::exchange(transmitted, {}); }

  MaintenancePoints points;
  std::vector<std::unique_ptr<Home>> homes;
  std::map<std::pair<Vlan, pdu::MacAddress>, PortIndex> table;
  std::set<std::pair<PortIndex, Vlan>> outside;  ///< the VLANs that ports take no part in
  std::vector<Transmitted> transmitted;
  std::set<Mep*> touched;

 private:
  void Transmit(const Transmitted& frame);
  bool Filtered(PortIndex port, const pdu::EthernetHeader& header, const Octets& octets) const;
  bool Forwards(PortIndex port, const Vlan& vlan) const;

  BridgedNetwork& network_;
  std::map<PortIndex, ElementPort> ports_;
};

class BridgedNetwork {
 public:
  BridgedElement& Add(PortIndex port_count);
  void Connect(BridgedElement& one, PortIndex port, BridgedElement& other, PortIndex other_port);
  void Disconnect(BridgedElement& one, PortIndex port);

  void RunFor(Duration span);
  TimePoint now() const { return now_; }

 private:
  friend class BridgedElement;
  using End = std::pair<BridgedElement*, PortIndex>;

  struct Flight {
    End to;
    pdu::EthernetHeader header;
    Octets pdu;
  };

  TimePoint EarliestDeadline() const;

  TimePoint now_ = kStart;
  std::vector<std::unique_ptr<BridgedElement>> elements_;
  std::map<End, End> cables_;
  std::multimap<TimePoint, Flight> flights_;
  std::mt19937_64 random_{1};
};

}  // namespace cfm::protocol

#endif
