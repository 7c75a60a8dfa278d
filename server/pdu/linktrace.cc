#include "pdu/linktrace.h"

#include "pdu/header.h"

namespace cfm::pdu {
namespace {

constexpr std::uint8_t kLtmFieldsSize = 17;
constexpr std::uint8_t kLtrFieldsSize = 6;
constexpr std::uint8_t kUseFdbOnlyFlag = 0x80;
constexpr std::uint8_t kForwardedFlag = 0x40;
constexpr std::uint8_t kTerminalMepFlag = 0x20;
/// Of the relay action, from the first octet of an LTR.
constexpr std::size_t kRelayActionOffset = 9;

EgressIdentifier ReadEgressIdentifier(Reader& reader) {
  EgressIdentifier identifier;
  identifier.unique_id = reader.u16();
  identifier.address = reader.mac();
  return identifier;
}

void WriteEgressIdentifier(Writer& writer, const EgressIdentifier& identifier) {
  writer.u16(identifier.unique_id);
  writer.mac(identifier.address);
}

bool IsRelayAction(std::uint8_t value) {
  return value >= static_cast<std::uint8_t>(RelayAction::kHit) &&
         value <= static_cast<std::uint8_t>(RelayAction::kMpdb);
}

bool IsReplyAction(std::uint8_t value) {
  return value >= static_cast<std::uint8_t>(ReplyAction::kOk) && value <= static_cast<std::uint8_t>(ReplyAction::kVid);
}

std::optional<ReplyPort> ReadReplyPort(Reader& value) {
  ReplyPort port;
  const std::uint8_t action = value.u8();
  port.address = value.mac();
  // The port id may be missing together with its length.
  if (value.remaining() > 0) ReadSubtyped(value, port.port_subtype, port.port_id);
  if (!IsReplyAction(action)) return std::nullopt;
  port.action = static_cast<ReplyAction>(action);
  return port;
}

void WriteLtmEgressIdentifier(Writer& writer, const EgressIdentifier& identifier) {
  const std::size_t begin = writer.begin_tlv(static_cast<std::uint8_t>(TlvType::kLtmEgressIdentifier));
  WriteEgressIdentifier(writer, identifier);
  writer.end_tlv(begin);
}

void WriteReplyPort(Writer& writer, TlvType type, const std::optional<ReplyPort>& port) {
  if (!port) return;
  const std::size_t begin = writer.begin_tlv(static_cast<std::uint8_t>(type));
  writer.u8(static_cast<std::uint8_t>(port->action));
  writer.mac(port->address);
  if (!port->port_id.empty()) WriteSubtyped(writer, port->port_subtype, port->port_id);
  writer.end_tlv(begin);
}

}  // namespace

Decoded<Ltm> DecodeLtm(Octets pdu) {
  const Decoded<Body> body = OpenPdu(pdu, Opcode::kLtm, kLtmFieldsSize);
  if (!body) return body.error();
  auto [header, fields, tlvs] = *body;
  Ltm ltm;
  ltm.level = header.level;
  ltm.version = header.version;
  ltm.use_fdb_only = (header.flags & kUseFdbOnlyFlag) != 0;
  ltm.transaction_id = fields.u32();
  ltm.ttl = fields.u8();
  ltm.original_address = fields.mac();
  ltm.target_address = fields.mac();

  const auto error = ReadTlvs(tlvs, [&ltm](TlvType type, Reader& value) {
    if (type == TlvType::kLtmEgressIdentifier) {
      ltm.egress_identifier = ReadEgressIdentifier(value);
    } else if (type == TlvType::kSenderId) {
      ltm.sender_id = ReadSenderId(value);
    }
  });
  if (error) return *error;
  return ltm;
}

std::size_t EncodeLtm(const Ltm& ltm, std::span<std::uint8_t> buffer) {
  Writer writer(buffer);
  WriteHeader(writer, {.level = ltm.level,
                       .version = ltm.version,
                       .opcode = Opcode::kLtm,
                       .flags = ltm.use_fdb_only ? kUseFdbOnlyFlag : std::uint8_t{0},
                       .first_tlv_offset = kLtmFieldsSize});
  writer.u32(ltm.transaction_id);
  writer.u8(ltm.ttl);
  writer.mac(ltm.original_address);
  writer.mac(ltm.target_address);
  if (ltm.egress_identifier) WriteLtmEgressIdentifier(writer, *ltm.egress_identifier);
  WriteSenderId(writer, ltm.sender_id);
  WriteEnd(writer);
  return writer.size();
}

std::size_t MakeForwardedLtm(Octets ltm, const EgressIdentifier& through, const std::optional<SenderId>& sender_id,
                             std::span<std::uint8_t> buffer) {
  const Decoded<Body> body = OpenPdu(ltm, Opcode::kLtm, kLtmFieldsSize);
  if (!body) return 0;
  auto [header, fields, tlvs] = *body;
  Writer writer(buffer);
  WriteHeader(writer, {.level = header.level,
                       .version = 0,
                       .opcode = Opcode::kLtm,
                       .flags = header.flags,
                       .first_tlv_offset = kLtmFieldsSize});
  writer.u32(fields.u32());
  writer.u8(static_cast<std::uint8_t>(fields.u8() - 1));
  writer.mac(fields.mac());
  writer.mac(fields.mac());
  WriteLtmEgressIdentifier(writer, through);
  WriteSenderId(writer, sender_id);
  while (const auto tlv = tlvs.next_tlv()) {
    if (tlv->type == static_cast<std::uint8_t>(TlvType::kLtmEgressIdentifier) ||
        tlv->type == static_cast<std::uint8_t>(TlvType::kSenderId)) {
      continue;
    }
    const std::size_t begin = writer.begin_tlv(tlv->type);
    writer.octets(tlv->value);
    writer.end_tlv(begin);
  }
  WriteEnd(writer);
  return writer.size();
}

Decoded<Ltr> DecodeLtr(Octets pdu) {
  const Decoded<Body> body = OpenPdu(pdu, Opcode::kLtr, kLtrFieldsSize);
  if (!body) return body.error();
  auto [header, fields, tlvs] = *body;
  Ltr ltr;
  ltr.level = header.level;
  ltr.version = header.version;
  ltr.use_fdb_only = (header.flags & kUseFdbOnlyFlag) != 0;
  ltr.forwarded = (header.flags & kForwardedFlag) != 0;
  ltr.terminal_mep = (header.flags & kTerminalMepFlag) != 0;
  ltr.transaction_id = fields.u32();
  ltr.ttl = fields.u8();
  const std::uint8_t relay_action = fields.u8();
  if (!IsRelayAction(relay_action)) return Error{Problem::kValue, kRelayActionOffset};
  ltr.relay_action = static_cast<RelayAction>(relay_action);

  const auto error = ReadTlvs(tlvs, [&ltr](TlvType type, Reader& value) {
    switch (type) {
      case TlvType::kLtrEgressIdentifier: {
        LtrEgressIdentifiers& identifiers = ltr.egress_identifiers.emplace();
        identifiers.last = ReadEgressIdentifier(value);
        identifiers.next = ReadEgressIdentifier(value);
        break;
      }
      case TlvType::kReplyIngress:
        ltr.ingress = ReadReplyPort(value);
        break;
      case TlvType::kReplyEgress:
        ltr.egress = ReadReplyPort(value);
        break;
      case TlvType::kSenderId:
        ltr.sender_id = ReadSenderId(value);
        break;
      default:
        break;
    }
  });
  if (error) return *error;
  return ltr;
}

std::size_t EncodeLtr(const Ltr& ltr, std::span<std::uint8_t> buffer) {
  Writer writer(buffer);
  WriteHeader(writer, {.level = ltr.level,
                       .version = ltr.version,
                       .opcode = Opcode::kLtr,
                       .flags = static_cast<std::uint8_t>((ltr.use_fdb_only ? kUseFdbOnlyFlag : 0) |
                                                          (ltr.forwarded ? kForwardedFlag : 0) |
                                                          (ltr.terminal_mep ? kTerminalMepFlag : 0)),
                       .first_tlv_offset = kLtrFieldsSize});
  writer.u32(ltr.transaction_id);
  writer.u8(ltr.ttl);
  writer.u8(static_cast<std::uint8_t>(ltr.relay_action));
  if (ltr.egress_identifiers) {
    const std::size_t begin = writer.begin_tlv(static_cast<std::uint8_t>(TlvType::kLtrEgressIdentifier));
    WriteEgressIdentifier(writer, ltr.egress_identifiers->last);
    WriteEgressIdentifier(writer, ltr.egress_identifiers->next);
    writer.end_tlv(begin);
  }
  WriteReplyPort(writer, TlvType::kReplyIngress, ltr.ingress);
  WriteReplyPort(writer, TlvType::kReplyEgress, ltr.egress);
  WriteSenderId(writer, ltr.sender_id);
  WriteEnd(writer);
  return writer.size();
}

}  // namespace cfm::pdu
