// An end point of the configuration at work: hands what its state machines put out to the ports and to the clients.
#ifndef CFM_SERVER_ENGINE_END_POINT_H
#define CFM_SERVER_ENGINE_END_POINT_H

#include <zlog.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "contract/announcer.h"
#include "contract/key.h"
#include "engine/plan.h"
#include "port/log_limit.h"
#include "port/ports.h"
#include "protocol/deadline_queue.h"
#include "protocol/maintenance_points.h"
#include "protocol/mep.h"
#include "protocol/mep_output.h"

namespace cfm::engine {

/// What all end points work with.
struct Surroundings {
  contract::Announcer& announcer;
  zlog_category_t* log;
  protocol::Random random;
  mutable port::LogLimit late_lines{};  ///< of all, as they are late together
};

class EndPoint;

/// Who applies the fault action of one end point together with those of the others on the port.
class FaultActions {
 public:
  virtual void FaultActionChanged(EndPoint& end_point, protocol::FaultAction action) = 0;

 protected:
  ~FaultActions() = default;
};

class EndPoint final : public protocol::MepOutput {
 public:
  using Id = protocol::DeadlineQueue::Id;

  /// All outlive the end point.
  EndPoint(contract::EndpointKey key, Id id, const Surroundings& surroundings, port::Ports& ports,
           protocol::MaintenancePoints& points, FaultActions& fault_actions)
      : key_(std::move(key)),
        id_(id),
        surroundings_(surroundings),
        ports_(ports),
        points_(points),
        fault_actions_(fault_actions) {}
  EndPoint(const EndPoint&) = delete;
  EndPoint& operator=(const EndPoint&) = delete;
  ~EndPoint() = default;

  const contract::EndpointKey& key() const { return key_; }
  /// Its number with the timers and the ports.
  Id id() const { return id_; }

  /// Why it does not work; none when it does.
  const std::optional<Refusal>& refusal() const { return refusal_; }
  /// Does nothing but say so.
  void Refuse(Refusal refusal);
  /// The port may be absent: `link` 0.
  void Begin(const EndPointPlan& plan, port::Index link, const protocol::PortState& port, protocol::TimePoint now);
  /// Of an end point that has begun; the identity, the port and the direction stay.
  void Update(const EndPointPlan& plan, protocol::TimePoint now);
  void SetPort(port::Index link, const protocol::PortState& port, protocol::TimePoint now);
  /// Stops everything; told to the clients are the remote MEPs that are watched no longer.
  void End();

  /// Null when it is refused.
  protocol::Mep* mep() { return mep_.get(); }
  const protocol::Mep* mep() const { return mep_.get(); }
  /// Of an end point that has begun.
  const EndPointPlan& plan() const { return *plan_; }
  port::Index link() const { return link_; }

  void AnnounceStatus();

  /// The end point whose state machines these are.
  static EndPoint& Of(protocol::Mep& mep) { return static_cast<EndPoint&>(mep.output()); }

 private:
  bool Send(const protocol::OutgoingFrame& frame) override;
  protocol::ClockReading ReadClocks() override { return ports_.ReadClocks(); }
  void RemoteStatusChanged(std::uint16_t mep_id, const protocol::RemoteStatus& status) override;
  void RemoteRemoved(std::uint16_t mep_id) override;
  void LocalStatusChanged(const protocol::LocalStatus& status) override;
  void FaultActionChanged(protocol::FaultAction action) override;
  void CcmWasLate(std::uint64_t late) override;
  void CcmDefectBegan(const protocol::OffendingCcm& offender) override;
  void LoopbackStarted(std::uint32_t trigger_id, const pdu::MacAddress& target) override;
  void LoopbackReply(std::uint32_t trigger_id, std::uint32_t transaction_id, const pdu::MacAddress& source) override;
  void LoopbackEnded(std::uint32_t trigger_id, const protocol::LoopbackResult& result) override;
  void LinktraceStarted(std::uint32_t transaction_id, const pdu::MacAddress& target, std::uint16_t target_mep_id,
                        std::uint8_t ttl) override;
  void LinktraceReply(const pdu::EthernetHeader& header, const pdu::Ltr& reply) override;
  void LinktraceEnded(std::uint32_t transaction_id) override;
  void DelayMeasurementStarted(std::uint32_t trigger_id, const pdu::MacAddress& target) override;
  void DelayMeasurementReply(std::uint32_t trigger_id, const pdu::MacAddress& source) override;
  void DelayMeasurementEnded(std::uint32_t trigger_id, const protocol::DelayResult& result) override;
  void SessionEnded(const protocol::SessionReport& report) override;

  contract::EndpointKey key_;
  Id id_;
  const Surroundings& surroundings_;
  port::Ports& ports_;
  protocol::MaintenancePoints& points_;
  FaultActions& fault_actions_;
  std::optional<Refusal> refusal_;
  std::unique_ptr<EndPointPlan> plan_;
  port::Index link_ = 0;
  port::LogLimit defect_lines_;
  std::unique_ptr<protocol::Mep> mep_;
};

}  // namespace cfm::engine

#endif
