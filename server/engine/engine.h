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
#include "protocol/deadline_queue.h"
#include "protocol/end_points.h"
#include "protocol/time.h"

namespace cfm::engine {

/// One thread. What refers to objects of the configuration is told from the cache, which has changed already.
class Engine final : public contract::Machinery, public port::Listener, public FaultActions {
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

  /// An interface that end points listen on.
  struct Wire {
    protocol::EndPoints points;
    std::set<EndPoint*> end_points;
    std::map<EndPoint*, protocol::FaultAction> actions;
    protocol::FaultAction action = protocol::FaultAction::kNone;
  };

  /// A port as the configuration knows it: by an index once, then by the name that this had.
  struct Port {
    std::string name;
    port::Index link = 0;  ///< 0: there is none
    protocol::PortState state;
    std::set<EndPoint*> end_points;
  };

  /// An association, planned.
  using AssociationState = std::variant<AssociationPlan, Refusal>;
  /// What only one association of a level can have.
  using MaidClaim = std::pair<std::uint8_t, std::array<std::uint8_t, pdu::kMaidSize>>;
  /// What only one end point can have: port, VLAN id, inner VLAN id, level, direction.
  using PlaceClaim = std::tuple<port::Index, std::uint16_t, std::uint16_t, std::uint8_t, protocol::Direction>;

  struct Apply;

  void ApplyDomain(const std::string& md_name);
  void ApplyAssociation(const contract::AssociationKey& key);
  void ApplyEndPoints(const contract::AssociationKey& key);
  void ApplyEndPoint(const contract::EndpointKey& key);
  void ApplyProbe(std::uint16_t probe_id);
  void ApplySession(std::uint16_t probe_id, std::uint16_t session_id);
  void Remove(const contract::ObjectKey& key);
  void BeginProbe(EndPoint& end_point, std::uint16_t probe_id);
  void BeginProbes(EndPoint& end_point);
  void RemoveProbe(std::uint16_t probe_id);
  /// The end point that works for the probe; null when there is none.
  EndPoint* HomeOf(std::uint16_t probe_id);

  AssociationState Plan(const contract::AssociationKey& key);
  std::variant<EndPointPlan, Refusal> Plan(const contract::EndpointKey& key);
  void Run(EndPoint& end_point, const EndPointPlan& plan);
  void Refuse(EndPoint& end_point, Refusal refusal);
  /// Takes it from its port and ends it.
  void End(EndPoint& end_point);
  void SetTimer(EndPoint& end_point);

  Port& PortOf(port::Index configured);
  void Bind(Port& port, const port::Link* link);
  void Listen(EndPoint& end_point);
  void LeaveWire(EndPoint& end_point, port::Index link);
  void FaultActionChanged(EndPoint& end_point, protocol::FaultAction action) override;
  void SettleAction(port::Index link, Wire& wire);

  EndPoint* Find(const contract::EndpointKey& key);
  /// Null when it works no more.
  EndPoint* Owned(port::Owner owner);
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
  std::map<port::Index, pdu::MacAddress> addresses_;
  std::map<std::uint16_t, contract::EndpointKey> probes_;
  std::map<contract::EndpointKey, std::set<std::uint16_t>> probes_of_;
  Claims<MaidClaim, contract::AssociationKey> maids_;
  Claims<PlaceClaim, contract::EndpointKey> places_;

  protocol::TimePoint status_due_ = protocol::kNever;
  contract::EndpointKey status_from_;
};

}  // namespace cfm::engine

#endif
