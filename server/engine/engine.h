// Runs the configuration that the cache holds on the ports of this element.
#ifndef CFM_SERVER_ENGINE_ENGINE_H
#define CFM_SERVER_ENGINE_ENGINE_H

#include <zlog.h>

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "contract/announcer.h"
#include "contract/cache.h"
#include "contract/machinery.h"
#include "engine/claims.h"
#include "engine/end_point.h"
#include "engine/plan.h"
#include "port/ports.h"
#include "protocol/configuration_errors.h"
#include "protocol/deadline_queue.h"
#include "protocol/maintenance_points.h"
#include "protocol/time.h"

namespace cfm::engine {

/// One thread. What refers to objects of the configuration is told from the cache, which has changed already.
class Engine final : public contract::Machinery,
                     public port::Listener,
                     public FaultActions,
                     public protocol::ElementOutput {
 public:
  using Clock = std::function<protocol::TimePoint()>;

  struct Options {
    /// Who this element says that it is; none: the lowest address of its ports when the first association needs it.
    std::optional<protocol::SystemId> system;
  };

  /// All outlive the engine.
  Engine(const contract::Cache& cache, contract::Announcer& announcer, port::Ports& ports, zlog_category_t* log,
         protocol::Random random, Clock clock, Options options = {});
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;
  /// Ends every end point, without telling anybody.
  ~Engine();

  /// Does what is due, and nothing else that takes long.
  void Advance(protocol::TimePoint now);
  protocol::TimePoint deadline() const;

  /// Writes what ports and end points have counted into the log, at level info: of each that has counted something.
  void LogCounters() const;

  void ConfigurationChanged(const contract::Change& change) override;
  void AnnounceStatus() override;
  client_server::OpReplyAllStats Statistics() const override;
  void ClearStatistics(const client_server::OpStatsClear& scope) override;
  std::optional<protocol::TestError> Start(const client_server::OpLinktraceTriggerMsg& trigger) override;
  std::optional<protocol::TestError> Start(const client_server::OpLoopbackTriggerMsg& trigger) override;
  std::optional<protocol::TestError> Start(const client_server::OpDelayMeasurementTriggerMsg& trigger) override;

  void LinkChanged(const port::Link& link) override;
  void LinkRemoved(port::Index index) override;
  void Received(port::Index index, const protocol::ReceivedFrame& frame) override;
  void Stamped(port::Owner owner, std::uint32_t stamp_id, const protocol::Stamps& stamps) override;
  void NotSent(port::Owner owner, pdu::Octets pdu) override;

 private:
  /// Requests for the status that come within this time share one answer.
  static constexpr protocol::Duration kStatusDelay = std::chrono::milliseconds(100);
  /// End points that are announced at a time, and the pause behind them.
  static constexpr std::size_t kStatusAtOnce = 32;
  static constexpr protocol::Duration kStatusPause = std::chrono::milliseconds(1);
  /// Owner of the frames of MIPs.
  static constexpr port::Owner kNobody = ~port::Owner{0};

  /// An interface that is listened on.
  struct Wire {
    std::set<EndPoint*> end_points;
    bool needed = false;  ///< by points on other ports of the bridge
    std::vector<protocol::LevelFilter> filters;
    std::map<EndPoint*, protocol::FaultAction> actions;
    protocol::FaultAction action = protocol::FaultAction::kNone;
  };

  /// A port as the configuration knows it: by an index once, then by the name that this had.
  struct Port {
    std::string name;
    port::Index link = 0;  ///< 0: there is none
    bool in_bridge = false;
    protocol::PortState state;
    std::set<EndPoint*> end_points;
  };

  /// An association, planned.
  using AssociationState = std::variant<AssociationPlan, Refusal>;
  /// What only one association of a level can have.
  using MaidClaim = std::pair<std::uint8_t, std::array<std::uint8_t, pdu::kMaidSize>>;
  /// What only one end point can have: port, VLAN id, inner VLAN id, level, direction.
  using PlaceClaim = std::tuple<port::Index, std::uint16_t, std::uint16_t, std::uint8_t, protocol::Direction>;

  /// What the kernel's bridges do.
  class Relay final : public protocol::Forwarding {
   public:
    explicit Relay(port::Ports& ports) : ports_(ports) {}
    /// Bridges that filter by VLAN are not among those that the points know.
    bool Carries(protocol::PortIndex /*port*/, const protocol::Vlan& /*vlan*/) const override { return true; }
    std::optional<protocol::PortIndex> Find(protocol::PortIndex bridge, const protocol::Vlan& /*vlan*/,
                                            const pdu::MacAddress& address) const override {
      return ports_.FindStation(bridge, address);
    }

   private:
    port::Ports& ports_;
  };

  /// Who gets what others have given up.
  struct Freed {
    std::vector<contract::AssociationKey> associations;
    std::vector<contract::EndpointKey> end_points;
  };

  struct Apply;

  void ApplyDomain(const std::string& md_name);
  void ApplyAssociation(const contract::AssociationKey& key);
  void ApplyEndPoints(const contract::AssociationKey& key);
  void ApplyEndPoint(const contract::EndpointKey& key);
  void ApplyProbe(std::uint16_t probe_id);
  void ApplySession(std::uint16_t probe_id, std::uint16_t session_id);
  void Remove(const contract::ObjectKey& key, Freed& freed);
  void BeginProbe(EndPoint& end_point, std::uint16_t probe_id);
  void BeginProbes(EndPoint& end_point);
  void RemoveProbe(std::uint16_t probe_id);
  /// The end point that works for the probe; null when there is none.
  EndPoint* HomeOf(std::uint16_t probe_id);

  AssociationState Plan(const contract::AssociationKey& key);
  std::variant<EndPointPlan, Refusal> Plan(const contract::EndpointKey& key);
  /// Who is there already; none: the end point has the place now. `freed`: who has the one that it had before.
  std::optional<contract::EndpointKey> ClaimPlace(const contract::EndpointKey& key, const EndPointPlan& plan,
                                                  std::optional<contract::EndpointKey>& freed);
  void Run(EndPoint& end_point, const EndPointPlan& plan);
  void Refuse(EndPoint& end_point, Refusal refusal);
  /// Takes it from its port and ends it.
  void End(EndPoint& end_point);
  void SetTimer(EndPoint& end_point);

  /// Works out the MIPs, the ports that they need and the filters anew.
  void SettleBridges();
  std::vector<protocol::MipSettings> WantedMips(const std::set<port::Index>& ports);
  void LogFindings(std::vector<protocol::Finding> findings);
  void Filter(port::Index index, Wire& wire);

  void BridgeChanged(const port::Link& bridge);

  Port& PortOf(port::Index configured);
  void Bind(Port& port, const port::Link* link);
  /// What an end point sees of its port: an Up MEP nothing outside of a bridge.
  protocol::PortState StateFor(const contract::EndpointKey& key, const EndPointPlan& plan, const Port& port) const;
  bool OpenWire(port::Index index);
  void Listen(EndPoint& end_point);
  void LeaveWire(EndPoint& end_point, port::Index link);
  void CloseIfUnused(port::Index link);
  void FaultActionChanged(EndPoint& end_point, protocol::FaultAction action) override;
  void SettleAction(port::Index link, Wire& wire);

  EndPoint* Find(const contract::EndpointKey& key);
  /// Null when it works no more.
  EndPoint* Owned(port::Owner owner);
  bool SendOut(protocol::PortIndex port, const protocol::OutgoingFrame& frame, const protocol::Mep* from) override;
  protocol::ClockReading ReadClocks() override { return ports_.ReadClocks(); }
  void Touched(protocol::Mep& mep) override { SetTimer(EndPoint::Of(mep)); }

  template <typename Trigger, typename Begin>
  std::optional<protocol::TestError> StartTest(const Trigger& trigger, Begin begin);
  const std::optional<protocol::SystemId>& System();

  const contract::Cache& cache_;
  port::Ports& ports_;
  Surroundings surroundings_;
  Clock clock_;
  std::optional<protocol::SystemId> system_;

  std::map<contract::AssociationKey, AssociationState> associations_;
  std::map<contract::EndpointKey, std::unique_ptr<EndPoint>> end_points_;
  std::vector<EndPoint*> by_id_;
  protocol::DeadlineQueue timers_;
  std::map<port::Index, Port> configured_ports_;  ///< by the index that the configuration gave
  std::map<port::Index, Wire> wires_;             ///< by the index of the interface
  std::map<port::Index, port::Link> links_;       ///< all that are Ethernet interfaces
  std::set<port::Index> vlan_bridges_;            ///< bridges that filter by VLAN: their ports count as being in none
  Relay relay_{ports_};
  protocol::MaintenancePoints points_;
  bool bridges_settled_ = true;
  std::vector<protocol::Finding> findings_;  ///< that were logged
  std::map<std::uint16_t, contract::EndpointKey> probes_;
  std::map<contract::EndpointKey, std::set<std::uint16_t>> probes_of_;
  Claims<MaidClaim, contract::AssociationKey> maids_;
  Claims<PlaceClaim, contract::EndpointKey> places_;

  protocol::TimePoint status_due_ = protocol::kNever;
  contract::EndpointKey status_from_;
};

}  // namespace cfm::engine

#endif
