// All maintenance points of an element, and the way of frames through its bridges past them.
#ifndef CFM_SERVER_PROTOCOL_MAINTENANCE_POINTS_H
#define CFM_SERVER_PROTOCOL_MAINTENANCE_POINTS_H

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <unordered_map>
#include <vector>

#include "pdu/header.h"
#include "protocol/deadline_queue.h"
#include "protocol/end_points.h"
#include "protocol/frame.h"
#include "protocol/level_filter.h"
#include "protocol/linktrace_decision.h"
#include "protocol/mep.h"
#include "protocol/mip.h"
#include "protocol/station_table.h"
#include "protocol/time.h"
#include "protocol/vlan.h"

namespace cfm::protocol {

/// What the element's bridges do with frames.
class Forwarding {
 public:
  /// Whether a port takes part in a VLAN.
  virtual bool Carries(PortIndex port, const Vlan& vlan) const = 0;
  /// The port of a station by the bridge's own table. None: unknown. The addresses of the ports themselves need not be
  /// in it.
  virtual std::optional<PortIndex> Find(PortIndex bridge, const Vlan& vlan, const pdu::MacAddress& address) const = 0;

 protected:
  ~Forwarding() = default;
};

// None of these may call back.
class ElementOutput {
 public:
  /// Out of the port's wire. `from`: null for what a MIP sends. False when the frame could not be sent.
  virtual bool SendOut(PortIndex port, const OutgoingFrame& frame, const Mep* from) = 0;
  virtual ClockReading ReadClocks() = 0;
  /// The end point was handed a frame: its deadline may be another.
  virtual void Touched(Mep& mep) = 0;

 protected:
  ~ElementOutput() = default;
};

struct ElementPort {
  PortIndex bridge = 0;  ///< 0: none
  PortState state;
};

struct MipSettings {
  MipPlace place;
  std::optional<SystemId> sender_id;  ///< what it may tell; none: no TLV
};

/// A port without a bridge is a port without others behind it. Ports are known by their index even while they are not
/// there; end points may be added before.
class MaintenancePoints {
 public:
  /// Of what MIPs see in CCMs. It outlives the bridge's own table by far, so that a trace finds its way to a station
  /// that has fallen silent (IEEE 802.1Q clause 19.4).
  static constexpr Duration kCcmDatabaseLifetime = std::chrono::hours(24);
  /// Of where frames came from, for answers that leave before the bridge's table tells; that of a bridge's own entries.
  static constexpr Duration kSourceLifetime = std::chrono::minutes(5);

  MaintenancePoints(const Forwarding& forwarding, ElementOutput& output, Random random)
      : forwarding_(forwarding), output_(output), random_(std::move(random)) {}
  MaintenancePoints(const MaintenancePoints&) = delete;
  MaintenancePoints& operator=(const MaintenancePoints&) = delete;
  ~MaintenancePoints() = default;

  /// It is new, or something of it is. The end points are told by who owns them.
  void SetPort(PortIndex index, const ElementPort& port);
  void RemovePort(PortIndex index);

  /// An end point's frames go out by Send() from now on; VLANs as with EndPoints::Add().
  void Add(PortIndex port, Mep& mep, std::span<const std::uint16_t> vids);
  /// Also before its VIDs change.
  void Remove(Mep& mep);

  /// All MIPs that are to be, on ports of bridges. Those that were there before stay undisturbed.
  void SetMips(std::span<const MipSettings> mips);

  /// A frame from the wire of a port. What passes the points there is looked at again at the ports where the bridge
  /// sends it; sending it is the bridge's own affair.
  void Receive(PortIndex port, const ReceivedFrame& frame, TimePoint now);

  /// What an end point's FrameOutput::Send() has to do. Towards the relay: out of the ports to which the bridge would
  /// send the frame, and to the points on the way, these at the next Advance(), not from within the call. False when
  /// the frame did not leave; a bridge where nobody else is takes everything.
  bool Send(const Mep& from, const OutgoingFrame& frame);

  /// For MIPs, and for frames from one point of the element to another; the end points have deadlines of their own.
  void Advance(TimePoint now);
  TimePoint deadline() const { return in_transit_.empty() ? timers_.earliest() : TimePoint{}; }

  /// What the kernel has to drop at the port, both ways; nothing outside of a bridge. Changes with the points there and
  /// with whether they are enabled.
  std::vector<LevelFilter> Filters(PortIndex port) const;

  /// Whether the wire of the port has to be listened on and sent to: there are points, or ones on another port of its
  /// bridge that send towards the relay or take frames from there. Changes as Filters() does.
  bool IsNeeded(PortIndex port) const;

  std::size_t mip_count() const { return mips_.size(); }
  /// Null when there is none.
  const Mip* FindMip(const MipPlace& place) const;
  const EndPoints* PointsOf(PortIndex port) const;
  /// Frames too short to have a level.
  std::uint64_t malformed() const { return malformed_; }

 private:
  struct Bridge {
    std::set<PortIndex> members;
    StationTable ccm_database{kCcmDatabaseLifetime};
    StationTable sources{kSourceLifetime};
  };

  struct Port {
    bool present = false;
    ElementPort settings;
    EndPoints points;
  };

  struct MipHome final : FrameOutput {
    MipHome(MaintenancePoints& owner, const MipPlace& place)
        : points(owner), mip(place, *this, owner.random_), timer(owner.timers_.Add()) {}
    bool Send(const OutgoingFrame& frame) override { return points.Emit(mip.place().port, frame, nullptr); }
    ClockReading ReadClocks() override { return points.output_.ReadClocks(); }

    MaintenancePoints& points;
    Mip mip;
    DeadlineQueue::Id timer;
  };

  /// A frame at a port of the element.
  struct Arrival {
    PortIndex at;
    Side from;
    PortIndex origin;  ///< the port by which it entered the bridge
  };

  struct InTransit {
    Arrival arrival;
    pdu::EthernetHeader header;
    std::vector<std::uint8_t> pdu;
  };

  class Trace;

  const Port* Find(PortIndex index) const;
  bool Forwards(PortIndex index, const Vlan& vlan) const;
  pdu::ReplyAction ActionAt(PortIndex index, const Vlan& vlan) const;
  const Bridge& BridgeOf(PortIndex port) const;
  std::vector<PortIndex> PortsWithAddress(const Bridge& bridge, const pdu::MacAddress& address) const;

  /// visit(port, goes_out) for each port to which a bridge sends a frame that enters it by `from`.
  template <typename Visit>
  void ForEachExit(PortIndex from, const pdu::EthernetHeader& header, Visit visit) const;

  /// Hands the frame to the points at the port; true when it passes them.
  bool Pass(const Arrival& arrival, const ReceivedFrame& frame, const pdu::Header& header, TimePoint now);
  bool Emit(PortIndex port, const OutgoingFrame& frame, const Mep* from);
  /// For the points at a port, later. What they do not stop passes: true.
  bool Enter(const Arrival& arrival, const OutgoingFrame& frame, const pdu::Header& header);
  void Arm(MipHome& home) { timers_.Set(home.timer, home.mip.deadline()); }
  void LeaveBridge(PortIndex index, PortIndex bridge);
  void DropIfUnused(PortIndex index);

  const Forwarding& forwarding_;
  ElementOutput& output_;
  Random random_;
  std::unordered_map<PortIndex, Port> ports_;
  std::unordered_map<PortIndex, Bridge> bridges_;
  std::unordered_map<const Mep*, PortIndex> homes_;
  std::map<MipPlace, std::unique_ptr<MipHome>> mips_;
  DeadlineQueue timers_;
  std::unordered_map<DeadlineQueue::Id, MipHome*> by_timer_;
  std::vector<InTransit> in_transit_;
  std::uint64_t malformed_ = 0;
};

}  // namespace cfm::protocol

#endif
