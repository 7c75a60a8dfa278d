#include "pdu/header.h"

namespace cfm::pdu {
namespace {

constexpr unsigned kLevelShift = 5;
constexpr std::size_t kOpcodeOffset = 1;
constexpr std::size_t kFirstTlvOffsetOffset = 3;

}  // namespace

Decoded<Header> DecodeHeader(Octets pdu) {
  Reader reader(pdu);
  const std::uint8_t level_and_version = reader.u8();
  Header header{
      .level = static_cast<std::uint8_t>(level_and_version >> kLevelShift),
      .version = static_cast<std::uint8_t>(level_and_version & kHighestVersion),
      .opcode = static_cast<Opcode>(reader.u8()),
      .flags = reader.u8(),
      .first_tlv_offset = reader.u8(),
  };
  if (!reader.ok()) return Error{Problem::kTooShort, reader.offset()};
  return header;
}

void WriteHeader(Writer& writer, const Header& header) {
  writer.u8(static_cast<std::uint8_t>(header.level << kLevelShift | (header.version & kHighestVersion)));
  writer.u8(static_cast<std::uint8_t>(header.opcode));
  writer.u8(header.flags);
  writer.u8(header.first_tlv_offset);
}

std::size_t CopyWithOpcode(Octets pdu, Opcode opcode, std::span<std::uint8_t> buffer) {
  Writer writer(buffer);
  writer.octets(pdu);
  if (writer.ok()) buffer[kOpcodeOffset] = static_cast<std::uint8_t>(opcode);
  return writer.size();
}

Decoded<Body> OpenPdu(Octets pdu, Opcode opcode, std::uint8_t fields_size) {
  const Decoded<Header> header = DecodeHeader(pdu);
  if (!header) return header.error();
  if (header->opcode != opcode) return Error{Problem::kOpcode, kOpcodeOffset};
  if (header->first_tlv_offset < fields_size) return Error{Problem::kFirstTlvOffset, kFirstTlvOffsetOffset};
  const std::size_t first_tlv = kHeaderSize + header->first_tlv_offset;
  if (pdu.size() < first_tlv) return Error{Problem::kTooShort, pdu.size()};
  return Body{
      .header = *header,
      .fields = Reader(pdu.first(first_tlv).subspan(kHeaderSize), kHeaderSize),
      .tlvs = Reader(pdu.subspan(first_tlv), first_tlv),
  };
}

}  // namespace cfm::pdu
