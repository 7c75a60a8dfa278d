// Frames on their way in and out, and the clocks that they are stamped with.
#ifndef CFM_SERVER_PROTOCOL_FRAME_H
#define CFM_SERVER_PROTOCOL_FRAME_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include "pdu/decoded.h"
#include "pdu/ethernet.h"
#include "protocol/time.h"

namespace cfm::protocol {

/// Larger than the largest frame that common cards take.
inline constexpr std::size_t kLargestPdu = 9216;

/// When a frame passed the port, each since the epoch of its own clock: the system's, read by the kernel, and the
/// card's. The two are never mixed.
struct Stamps {
  std::optional<Duration> software;
  std::optional<Duration> card;
};

struct ReceivedFrame {
  pdu::EthernetHeader header;
  pdu::Octets pdu;
  Stamps stamps;
};

/// The two sides of a port, as its maintenance points see them: where frames come from, and where they go.
enum class Side : std::uint8_t {
  kWire,   ///< what is plugged into the port
  kRelay,  ///< the other ports of its bridge
};

constexpr Side Opposite(Side side) {
  return side == Side::kWire ? Side::kRelay : Side::kWire;
}

struct OutgoingFrame {
  pdu::EthernetHeader header;
  pdu::Octets pdu;
  /// The kernel is asked when this frame leaves, and the answer goes to Mep::Stamped() with this number.
  std::optional<std::uint32_t> stamp_id;
  Side side = Side::kWire;
};

/// Both clocks, read one right after the other.
struct ClockReading {
  Duration system;  ///< since 1970
  TimePoint monotonic;
};

class FrameOutput {
 public:
  /// False when the frame could not be sent. The octets are good during the call only.
  virtual bool Send(const OutgoingFrame& frame) = 0;
  virtual ClockReading ReadClocks() = 0;

 protected:
  ~FrameOutput() = default;
};

}  // namespace cfm::protocol

#endif
