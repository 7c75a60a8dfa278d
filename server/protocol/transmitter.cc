#include "protocol/transmitter.h"

namespace cfm::protocol {

bool Transmitter::ToGroup(pdu::GroupClass group_class, std::uint8_t priority, pdu::Octets pdu) {
  return ToStation(pdu::ToAddress({.group_class = group_class, .level = addressing_.level}), priority, pdu);
}

bool Transmitter::ToStation(const pdu::MacAddress& station, std::uint8_t priority, pdu::Octets pdu,
                            std::optional<std::uint32_t> stamp_id) {
  OutgoingFrame frame{.header = {}, .pdu = pdu, .stamp_id = stamp_id, .side = side_};
  frame.header.destination = station;
  frame.header.source = addressing_.address;
  const auto tag = [priority](std::uint16_t vid) {
    return pdu::Tag{.priority = priority, .drop_eligible = false, .vid = vid};
  };
  if (addressing_.primary_vid != 0) frame.header.outer = tag(addressing_.primary_vid);
  if (addressing_.primary_vid != 0 && addressing_.inner_vid != 0) frame.header.inner = tag(addressing_.inner_vid);
  return output_.Send(frame);
}

bool Transmitter::Reply(const pdu::EthernetHeader& request, pdu::Octets pdu) {
  OutgoingFrame frame{.header = request, .pdu = pdu, .stamp_id = std::nullopt, .side = side_};
  frame.header.destination = request.source;
  frame.header.source = addressing_.address;
  return output_.Send(frame);
}

}  // namespace cfm::protocol
