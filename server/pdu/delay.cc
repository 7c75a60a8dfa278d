#include "pdu/delay.h"

#include <algorithm>

#include "pdu/header.h"
#include "pdu/tlv.h"

namespace cfm::pdu {
namespace {

constexpr std::size_t kStampSize = 8;
constexpr std::size_t kReceivedFOffset = kSentFOffset + kStampSize;
constexpr std::size_t kSentBOffset = kReceivedFOffset + kStampSize;
constexpr std::uint8_t kTwoWayFieldsSize = 4 * kStampSize;
constexpr std::uint8_t kOneWayFieldsSize = 2 * kStampSize;
constexpr std::uint8_t kProactiveFlag = 0x01;

TimeStamp ReadStamp(Reader& reader) {
  TimeStamp stamp;
  stamp.seconds = reader.u32();
  stamp.nanoseconds = reader.u32();
  return stamp;
}

void WriteStamp(Writer& writer, const TimeStamp& stamp) {
  writer.u32(stamp.seconds);
  writer.u32(stamp.nanoseconds);
}

void SetStamp(std::span<std::uint8_t> pdu, std::size_t offset, const TimeStamp& stamp) {
  Writer writer(pdu.subspan(offset));
  WriteStamp(writer, stamp);
}

std::optional<Error> ReadDataOnly(Reader& tlvs, Octets& data) {
  return ReadTlvs(tlvs, [&data](TlvType type, Reader& value) {
    if (type == TlvType::kData) data = value.octets(value.remaining());
  });
}

Decoded<TwoWayDelay> DecodeTwoWay(Octets pdu, Opcode opcode) {
  const Decoded<Body> body = OpenPdu(pdu, opcode, kTwoWayFieldsSize);
  if (!body) return body.error();
  auto [header, fields, tlvs] = *body;
  TwoWayDelay message;
  message.level = header.level;
  message.version = header.version;
  message.proactive = (header.flags & kProactiveFlag) != 0;
  message.sent_f = ReadStamp(fields);
  message.received_f = ReadStamp(fields);
  message.sent_b = ReadStamp(fields);
  message.received_b = ReadStamp(fields);
  if (const auto error = ReadDataOnly(tlvs, message.data)) return *error;
  return message;
}

}  // namespace

Decoded<TwoWayDelay> DecodeDmm(Octets pdu) {
  return DecodeTwoWay(pdu, Opcode::kDmm);
}

Decoded<TwoWayDelay> DecodeDmr(Octets pdu) {
  return DecodeTwoWay(pdu, Opcode::kDmr);
}

std::size_t EncodeDmm(const TwoWayDelay& dmm, std::span<std::uint8_t> buffer) {
  Writer writer(buffer);
  WriteHeader(writer, {.level = dmm.level,
                       .version = dmm.version,
                       .opcode = Opcode::kDmm,
                       .flags = dmm.proactive ? kProactiveFlag : std::uint8_t{0},
                       .first_tlv_offset = kTwoWayFieldsSize});
  WriteStamp(writer, dmm.sent_f);
  WriteStamp(writer, dmm.received_f);
  WriteStamp(writer, dmm.sent_b);
  WriteStamp(writer, dmm.received_b);
  WriteData(writer, dmm.data);
  WriteEnd(writer);
  return writer.size();
}

std::size_t MakeDmr(Octets dmm, const TimeStamp& received_f, std::span<std::uint8_t> buffer) {
  const std::size_t size = CopyWithOpcode(dmm, Opcode::kDmr, buffer);
  if (size > 0) SetStamp(buffer.first(size), kReceivedFOffset, received_f);
  return size;
}

void SetSentF(std::span<std::uint8_t> pdu, const TimeStamp& sent_f) {
  SetStamp(pdu, kSentFOffset, sent_f);
}

void SetSentB(std::span<std::uint8_t> dmr, const TimeStamp& sent_b) {
  SetStamp(dmr, kSentBOffset, sent_b);
}

Decoded<OneWayDelay> Decode1dm(Octets pdu) {
  const Decoded<Body> body = OpenPdu(pdu, Opcode::k1dm, kOneWayFieldsSize);
  if (!body) return body.error();
  auto [header, fields, tlvs] = *body;
  OneWayDelay message;
  message.level = header.level;
  message.version = header.version;
  message.proactive = (header.flags & kProactiveFlag) != 0;
  message.sent_f = ReadStamp(fields);
  message.received_f = ReadStamp(fields);
  if (const auto error = ReadDataOnly(tlvs, message.data)) return *error;
  return message;
}

std::size_t Encode1dm(const OneWayDelay& message, std::span<std::uint8_t> buffer) {
  Writer writer(buffer);
  WriteHeader(writer, {.level = message.level,
                       .version = message.version,
                       .opcode = Opcode::k1dm,
                       .flags = message.proactive ? kProactiveFlag : std::uint8_t{0},
                       .first_tlv_offset = kOneWayFieldsSize});
  WriteStamp(writer, message.sent_f);
  WriteStamp(writer, message.received_f);
  WriteData(writer, message.data);
  WriteEnd(writer);
  return writer.size();
}

}  // namespace cfm::pdu
