// One intermediate point (MIP) of a bridge's port: a half that faces the wire and one that faces the relay. It answers
// and records, and lets everything pass that is not for it (IEEE 802.1Q clause 19.3).
#ifndef CFM_SERVER_PROTOCOL_MIP_H
#define CFM_SERVER_PROTOCOL_MIP_H

#include <cstdint>
#include <optional>
#include <tuple>

#include "pdu/header.h"
#include "protocol/frame.h"
#include "protocol/linktrace_responder.h"
#include "protocol/loopback_responder.h"
#include "protocol/mep_settings.h"
#include "protocol/station_table.h"
#include "protocol/time.h"
#include "protocol/transmitter.h"
#include "protocol/vlan.h"

namespace cfm::protocol {

/// Where a MIP is.
struct MipPlace {
  PortIndex port = 0;
  Vlan vlan{};
  std::uint8_t level = 0;

  bool operator==(const MipPlace&) const = default;
  bool operator<(const MipPlace& other) const {
    return std::tie(port, vlan, level) < std::tie(other.port, other.vlan, other.level);
  }
};

class Mip {
 public:
  Mip(const MipPlace& place, FrameOutput& output, const Random& random);
  Mip(const Mip&) = delete;
  Mip& operator=(const Mip&) = delete;
  ~Mip() = default;

  void SetPort(const PortState& port);
  /// What it may tell; none: no TLV.
  void SetSenderId(const std::optional<SystemId>& sender_id) { sender_id_ = sender_id; }

  const MipPlace& place() const { return place_; }

  /// Whether a frame on its VLAN and of its level goes no further than here: an LTM, and an LBM to its own address.
  bool Stops(const pdu::EthernetHeader& ethernet, const pdu::Header& header) const;

  /// A frame on its VLAN from this side. `origin` is the port by which it entered the bridge. Where CCMs of its level
  /// come from goes into the MIP CCM database.
  void Receive(const ReceivedFrame& frame, Side from, PortIndex origin, StationTable& ccm_database, TraceRelay& relay,
               TimePoint now);

  void Advance(TimePoint now);
  TimePoint deadline() const;

  struct Half {
    Half(FrameOutput& output, Side side, const Random& random)
        : transmitter(output, side), loopback(transmitter, random), linktrace(transmitter, random) {}

    Transmitter transmitter;
    LoopbackResponder loopback;
    LinktraceResponder linktrace;
  };
  const Half& half(Side side) const { return side == Side::kWire ? wire_ : relay_; }

 private:
  Half& HalfAt(Side side) { return side == Side::kWire ? wire_ : relay_; }

  MipPlace place_;
  PortState port_;
  std::optional<SystemId> sender_id_;
  Half wire_;
  Half relay_;
};

}  // namespace cfm::protocol

#endif
