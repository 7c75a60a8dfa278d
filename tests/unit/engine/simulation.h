// Elements whose ports are joined by wires, in time that stands still until somebody lets it run.
#ifndef CFM_TESTS_UNIT_ENGINE_SIMULATION_H
#define CFM_TESTS_UNIT_ENGINE_SIMULATION_H

#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "contract/announcer.h"
#include "contract/cache.h"
#include "engine/engine.h"
#include "port/ports.h"
#include "recording_middleware.h"

namespace cfm::engine {

class Element;

struct SentFrame {
  pdu::EthernetHeader header;
  std::vector<std::uint8_t> pdu;
};

/// One interface after another, each on a wire of its own to at most one other interface.
class SimulatedPorts final : public port::Ports {
 public:
  explicit SimulatedPorts(Element& element) : element_(element) {}

  const port::Link* Find(port::Index index) const override;
  bool Open(port::Index index) override;
  void Close(port::Index index) override;
  bool Send(port::Index index, const protocol::OutgoingFrame& frame, port::Owner owner) override;
  protocol::ClockReading ReadClocks() override;
  void SetFaultAction(port::Index index, protocol::FaultAction action) override;
  bool SetLevelFilter(port::Index index, std::vector<protocol::LevelFilter> filters) override;
  std::optional<port::Index> FindStation(port::Index bridge, const pdu::MacAddress& address) const override;
  port::Counters CountersOf(port::Index /*index*/) const override { return {}; }

  std::map<port::Index, port::Link> links;
  std::set<port::Index> open;
  bool refuses_to_open = false;
  bool refuses_to_send = false;
  std::vector<std::string> actions;  ///< "2 block"
  std::map<port::Index, std::vector<SentFrame>> sent;
  std::map<port::Index, std::vector<protocol::LevelFilter>> filters;

  /// What the kernel's bridge does with a frame that arrives at one of its ports.
  void Relay(port::Index arrived, const SentFrame& frame);

 private:
  bool Drops(port::Index index, const SentFrame& frame) const;

  Element& element_;
  std::map<pdu::MacAddress, port::Index> stations_;
};

class RecordingAnnouncer final : public contract::Announcer {
 public:
  void Announce(const vorbus_event_t* event, const google::protobuf::Message& message) override;

  /// "RemovedLocalMaintenanceEndpoint {md_name: ...}", in the order in which they came.
  const std::vector<std::string>& events() const { return events_; }
  std::vector<std::string> Take() { return std::exchange(events_, {}); }

 private:
  std::vector<std::string> events_;
};

class Simulation;

class Element {
 public:
  Element(Simulation& simulation, Engine::Options options);

  /// The request of a client.
  template <typename Request>
  void Do(const Request& request) {
    const contract::Outcome outcome = cache.Apply(request);
    if (const auto* change = std::get_if<contract::Change>(&outcome)) {
      engine.ConfigurationChanged(*change);
    } else {
      refused.push_back(std::get<contract::Refusal>(outcome).text);
    }
  }

  /// An interface comes, or changes.
  port::Link& SetLink(port::Index index, const std::string& name);
  void LinkChanged(port::Index index) { engine.LinkChanged(ports.links.at(index)); }
  void RemoveLink(port::Index index);

  Simulation& simulation;
  SimulatedPorts ports;
  RecordingAnnouncer announcer;
  contract::Cache cache;
  Engine engine;
  std::vector<std::string> refused;
};

class Simulation {
 public:
  recording::Middleware middleware;  ///< keeps the log

  Element& Add(Engine::Options options = {});
  void Join(Element& a, port::Index a_port, Element& b, port::Index b_port);
  void Cut(Element& a, port::Index a_port);

  void RunFor(protocol::Duration span);
  protocol::TimePoint now() const { return now_; }

  void Carry(Element& from, port::Index port, const protocol::OutgoingFrame& frame);

 private:
  using End = std::pair<Element*, port::Index>;
  struct Flight {
    End to;
    SentFrame frame;
    protocol::TimePoint at;
  };

  protocol::TimePoint now_{std::chrono::hours(1)};
  std::vector<std::unique_ptr<Element>> elements_;
  std::map<End, End> wires_;
  std::deque<Flight> flights_;
};

}  // namespace cfm::engine

#endif
