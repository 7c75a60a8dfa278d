#include "pdu/loopback.h"

#include <algorithm>

#include "pdu/header.h"

namespace cfm::pdu {
namespace {

constexpr std::uint8_t kLoopbackFieldsSize = 4;

Decoded<Loopback> Decode(Octets pdu, Opcode opcode) {
  const Decoded<Body> body = OpenPdu(pdu, opcode, kLoopbackFieldsSize);
  if (!body) return body.error();
  auto [header, fields, tlvs] = *body;
  Loopback message;
  message.level = header.level;
  message.version = header.version;
  message.transaction_id = fields.u32();

  const auto error = ReadTlvs(tlvs, [&message](TlvType type, Reader& value) {
    if (type == TlvType::kSenderId) {
      message.sender_id = ReadSenderId(value);
    } else if (type == TlvType::kData) {
      message.data = value.octets(value.remaining());
    }
  });
  if (error) return *error;
  return message;
}

}  // namespace

Decoded<Loopback> DecodeLbm(Octets pdu) {
  return Decode(pdu, Opcode::kLbm);
}

Decoded<Loopback> DecodeLbr(Octets pdu) {
  return Decode(pdu, Opcode::kLbr);
}

std::size_t EncodeLbm(const Loopback& lbm, std::span<std::uint8_t> buffer) {
  Writer writer(buffer);
  WriteHeader(writer, {.level = lbm.level,
                       .version = lbm.version,
                       .opcode = Opcode::kLbm,
                       .flags = 0,
                       .first_tlv_offset = kLoopbackFieldsSize});
  writer.u32(lbm.transaction_id);
  WriteSenderId(writer, lbm.sender_id);
  WriteData(writer, lbm.data);
  WriteEnd(writer);
  return writer.size();
}

std::size_t MakeLbr(Octets lbm, std::span<std::uint8_t> buffer) {
  return CopyWithOpcode(lbm, Opcode::kLbr, buffer);
}

}  // namespace cfm::pdu
