#include "pdu/ais.h"

#include "pdu/header.h"
#include "pdu/tlv.h"

namespace cfm::pdu {
namespace {

constexpr std::uint8_t kAisFieldsSize = 0;
constexpr std::uint8_t kPeriodMask = 0x07;
constexpr std::size_t kFlagsOffset = 2;

}  // namespace

Decoded<Ais> DecodeAis(Octets pdu) {
  const Decoded<Body> body = OpenPdu(pdu, Opcode::kAis, kAisFieldsSize);
  if (!body) return body.error();
  auto [header, fields, tlvs] = *body;
  Ais ais;
  ais.level = header.level;
  ais.version = header.version;
  ais.period = static_cast<AisPeriod>(header.flags & kPeriodMask);
  if (ais.period != AisPeriod::k1s && ais.period != AisPeriod::k1min) return Error{Problem::kValue, kFlagsOffset};

  const auto error = ReadTlvs(tlvs, [](TlvType, Reader&) {});
  if (error) return *error;
  return ais;
}

std::size_t EncodeAis(const Ais& ais, std::span<std::uint8_t> buffer) {
  Writer writer(buffer);
  WriteHeader(writer, {.level = ais.level,
                       .version = ais.version,
                       .opcode = Opcode::kAis,
                       .flags = static_cast<std::uint8_t>(ais.period),
                       .first_tlv_offset = kAisFieldsSize});
  WriteEnd(writer);
  return writer.size();
}

}  // namespace cfm::pdu
