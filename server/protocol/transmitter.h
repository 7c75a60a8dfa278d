// The sending side of one maintenance point: from its address, on its VLAN, at its level, to one side of its port.
#ifndef CFM_SERVER_PROTOCOL_TRANSMITTER_H
#define CFM_SERVER_PROTOCOL_TRANSMITTER_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include "pdu/ethernet.h"
#include "pdu/mac_address.h"
#include "protocol/frame.h"

namespace cfm::protocol {

struct Addressing {
  std::uint8_t level = 0;
  pdu::MacAddress address{};
  std::uint16_t primary_vid = 0;  ///< 0: untagged
  std::uint16_t inner_vid = 0;    ///< 0: none; else the primary VID goes into a service tag around it
  std::size_t mtu = 0;            ///< octets from the EtherType on that the port takes, without the EtherType
};

/// Every send returns false when the frame did not leave.
class Transmitter {
 public:
  explicit Transmitter(FrameOutput& output, Side side = Side::kWire) : output_(output), side_(side) {}

  /// In effect from the next frame on.
  void set_addressing(const Addressing& addressing) { addressing_ = addressing; }
  const Addressing& addressing() const { return addressing_; }

  bool ToGroup(pdu::GroupClass group_class, std::uint8_t priority, pdu::Octets pdu);
  bool ToStation(const pdu::MacAddress& station, std::uint8_t priority, pdu::Octets pdu,
                 std::optional<std::uint32_t> stamp_id = std::nullopt);
  /// To the source of the request, with its tags.
  bool Reply(const pdu::EthernetHeader& request, pdu::Octets pdu);

  ClockReading ReadClocks() { return output_.ReadClocks(); }
  std::uint32_t NextStampId() { return next_stamp_id_++; }

 private:
  FrameOutput& output_;
  Side side_;
  Addressing addressing_;
  std::uint32_t next_stamp_id_ = 1;
};

}  // namespace cfm::protocol

#endif
