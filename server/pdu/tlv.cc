#include "pdu/tlv.h"

namespace cfm::pdu {

void ReadSubtyped(Reader& value, std::uint8_t& subtype, Octets& id) {
  const std::uint8_t length = value.u8();
  if (length == 0) return;
  subtype = value.u8();
  id = value.octets(length);
}

void WriteSubtyped(Writer& writer, std::uint8_t subtype, Octets id) {
  writer.count(id.size());
  if (id.empty()) return;
  writer.u8(subtype);
  writer.octets(id);
}

SenderId ReadSenderId(Reader& value) {
  SenderId sender_id;
  ReadSubtyped(value, sender_id.chassis_subtype, sender_id.chassis_id);
  // What has no address may also leave out the octet that says so.
  if (value.remaining() == 0) return sender_id;
  sender_id.management_domain = value.counted_octets();
  if (!sender_id.management_domain.empty()) sender_id.management_address = value.counted_octets();
  return sender_id;
}

void WriteSenderId(Writer& writer, const std::optional<SenderId>& sender_id) {
  if (!sender_id) return;
  const std::size_t begin = writer.begin_tlv(static_cast<std::uint8_t>(TlvType::kSenderId));
  WriteSubtyped(writer, sender_id->chassis_subtype, sender_id->chassis_id);
  writer.counted_octets(sender_id->management_domain);
  if (!sender_id->management_domain.empty()) writer.counted_octets(sender_id->management_address);
  writer.end_tlv(begin);
}

void WriteData(Writer& writer, Octets data) {
  if (data.empty()) return;
  const std::size_t begin = writer.begin_tlv(static_cast<std::uint8_t>(TlvType::kData));
  writer.octets(data);
  writer.end_tlv(begin);
}

void WriteEnd(Writer& writer) {
  writer.u8(static_cast<std::uint8_t>(TlvType::kEnd));
}

}  // namespace cfm::pdu
