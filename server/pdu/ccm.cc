#include "pdu/ccm.h"

#include <algorithm>

#include "pdu/header.h"

namespace cfm::pdu {
namespace {

constexpr std::uint8_t kCcmFieldsSize = 70;
constexpr std::uint8_t kRdiFlag = 0x80;
constexpr std::uint8_t kIntervalMask = 0x07;
constexpr std::uint16_t kMepIdMask = 0x1fff;
/// The counters that ITU-T G.8013/Y.1731 puts behind the MAID, which are not used here.
constexpr std::size_t kCountersSize = 16;

PortStatus ToPortStatus(std::uint8_t value) {
  return value <= static_cast<std::uint8_t>(PortStatus::kUp) ? static_cast<PortStatus>(value) : PortStatus::kNone;
}

InterfaceStatus ToInterfaceStatus(std::uint8_t value) {
  return value <= static_cast<std::uint8_t>(InterfaceStatus::kLowerLayerDown) ? static_cast<InterfaceStatus>(value)
                                                                              : InterfaceStatus::kNone;
}

void WriteStatus(Writer& writer, TlvType type, std::uint8_t status) {
  if (status == 0) return;
  const std::size_t begin = writer.begin_tlv(static_cast<std::uint8_t>(type));
  writer.u8(status);
  writer.end_tlv(begin);
}

std::size_t Encode(const Ccm& ccm, const std::optional<SenderId>& sender_id, std::span<std::uint8_t> buffer) {
  Writer writer(buffer);
  WriteHeader(writer, {.level = ccm.level,
                       .version = ccm.version,
                       .opcode = Opcode::kCcm,
                       .flags = static_cast<std::uint8_t>((ccm.rdi ? kRdiFlag : 0) | (ccm.interval & kIntervalMask)),
                       .first_tlv_offset = kCcmFieldsSize});
  writer.u32(ccm.sequence_number);
  writer.u16(ccm.mep_id & kMepIdMask);
  writer.octets(ccm.maid.octets);
  writer.zeros(kCountersSize);
  WriteSenderId(writer, sender_id);
  WriteStatus(writer, TlvType::kPortStatus, static_cast<std::uint8_t>(ccm.port_status));
  WriteStatus(writer, TlvType::kInterfaceStatus, static_cast<std::uint8_t>(ccm.interface_status));
  WriteEnd(writer);
  return writer.size();
}

}  // namespace

Decoded<Ccm> DecodeCcm(Octets pdu) {
  const Decoded<Body> body = OpenPdu(pdu, Opcode::kCcm, kCcmFieldsSize);
  if (!body) return body.error();
  auto [header, fields, tlvs] = *body;
  Ccm ccm;
  ccm.level = header.level;
  ccm.version = header.version;
  ccm.rdi = (header.flags & kRdiFlag) != 0;
  ccm.interval = header.flags & kIntervalMask;
  ccm.sequence_number = fields.u32();
  ccm.mep_id = fields.u16() & kMepIdMask;
  std::ranges::copy(fields.octets(kMaidSize), ccm.maid.octets.begin());

  const auto error = ReadTlvs(tlvs, [&ccm](TlvType type, Reader& value) {
    switch (type) {
      case TlvType::kSenderId:
        ccm.sender_id = ReadSenderId(value);
        break;
      case TlvType::kPortStatus:
        ccm.port_status = ToPortStatus(value.u8());
        break;
      case TlvType::kInterfaceStatus:
        ccm.interface_status = ToInterfaceStatus(value.u8());
        break;
      default:
        break;
    }
  });
  if (error) return *error;
  return ccm;
}

std::size_t EncodeCcm(const Ccm& ccm, std::span<std::uint8_t> buffer) {
  const std::span<std::uint8_t> room = buffer.first(std::min(buffer.size(), kLongestCcm));
  const std::size_t size = Encode(ccm, ccm.sender_id, room);
  return size > 0 || !ccm.sender_id ? size : Encode(ccm, std::nullopt, room);
}

}  // namespace cfm::pdu
