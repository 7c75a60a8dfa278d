// The TLVs that more than one kind of PDU carries, and the walk over the TLVs of a received one.
#ifndef CFM_SERVER_PDU_TLV_H
#define CFM_SERVER_PDU_TLV_H

#include <bitset>
#include <cstdint>
#include <optional>

#include "pdu/decoded.h"
#include "pdu/reader.h"
#include "pdu/writer.h"

namespace cfm::pdu {

enum class TlvType : std::uint8_t {
  kEnd = 0,
  kSenderId = 1,
  kPortStatus = 2,
  kData = 3,
  kInterfaceStatus = 4,
  kReplyIngress = 5,
  kReplyEgress = 6,
  kLtmEgressIdentifier = 7,
  kLtrEgressIdentifier = 8,
};

/// Chassis id subtype of a port's address; the value is its six octets.
inline constexpr std::uint8_t kChassisMacAddress = 4;
/// Port id subtype of an interface name.
inline constexpr std::uint8_t kPortInterfaceName = 5;

/// IEEE 802.1Q clause 21.5.3. Each run of octets holds at most 255; an empty one is not present. An address without a
/// domain cannot be expressed, and is not sent.
struct SenderId {
  std::uint8_t chassis_subtype = 0;  ///< of no meaning without a chassis id
  Octets chassis_id;
  Octets management_domain;  ///< object id, as the value of its basic encoding
  Octets management_address;
};

/// The form of chassis ids and port ids: a length; when it is not 0, a subtype and as many octets.
void ReadSubtyped(Reader& value, std::uint8_t& subtype, Octets& id);
void WriteSubtyped(Writer& writer, std::uint8_t subtype, Octets id);

SenderId ReadSenderId(Reader& value);
void WriteSenderId(Writer& writer, const std::optional<SenderId>& sender_id);

/// An empty data TLV is not sent.
void WriteData(Writer& writer, Octets data);

void WriteEnd(Writer& writer);

/// Calls `read(type, value)` for the first TLV of each type, with a reader over its value. A value may be longer than
/// its fields, as those of a later version are, but not shorter: a reader that has failed makes the frame invalid.
/// Types that `read` does not know are skipped by leaving the value alone.
template <typename Read>
std::optional<Error> ReadTlvs(Reader& tlvs, Read read) {
  std::bitset<256> seen;
  while (const auto tlv = tlvs.next_tlv()) {
    if (seen.test(tlv->type)) continue;
    seen.set(tlv->type);
    Reader value(tlv->value);
    read(static_cast<TlvType>(tlv->type), value);
    if (!value.ok()) return Error{Problem::kTlvTooShort, tlv->offset};
  }
  if (!tlvs.ok()) return Error{Problem::kTlvOverrun, tlvs.offset()};
  return std::nullopt;
}

}  // namespace cfm::pdu

#endif
