// The four octets that every CFM PDU begins with. Octets count from the one after the EtherType.
#ifndef CFM_SERVER_PDU_HEADER_H
#define CFM_SERVER_PDU_HEADER_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "pdu/decoded.h"
#include "pdu/reader.h"
#include "pdu/writer.h"

namespace cfm::pdu {

inline constexpr std::size_t kHeaderSize = 4;
inline constexpr std::uint8_t kHighestLevel = 7;
inline constexpr std::uint8_t kHighestVersion = 31;

enum class Opcode : std::uint8_t {
  kCcm = 1,
  kLbr = 2,
  kLbm = 3,
  kLtr = 4,
  kLtm = 5,
  kAis = 33,
  kLck = 35,
  k1dm = 45,
  kDmr = 46,
  kDmm = 47,
};

struct Header {
  std::uint8_t level = 0;    ///< 0 to 7
  std::uint8_t version = 0;  ///< 0 to 31; sent as 0, received as any and read as 0
  Opcode opcode{};           ///< received: any value, named or not
  std::uint8_t flags = 0;
  std::uint8_t first_tlv_offset = 0;  ///< counted from the octet after this one

  bool operator==(const Header&) const = default;
};

/// Looks at the four octets only: what is of a higher level, or of an unknown opcode, is not this server's to judge.
Decoded<Header> DecodeHeader(Octets pdu);

void WriteHeader(Writer& writer, const Header& header);

/// Replies that are octet for octet the request, with another opcode. `pdu` has passed a decoder. Octets written; 0
/// when the buffer is too small.
std::size_t CopyWithOpcode(Octets pdu, Opcode opcode, std::span<std::uint8_t> buffer);

/// A PDU of which the fixed fields are known to be there.
struct Body {
  Header header;
  Reader fields;  ///< at the first octet after the header; ends where the TLVs begin
  Reader tlvs;    ///< at the first TLV, which lies behind the known fields or further
};

/// `fields_size` is the first TLV offset that this opcode is sent with, which is the size of its fixed fields.
Decoded<Body> OpenPdu(Octets pdu, Opcode opcode, std::uint8_t fields_size);

}  // namespace cfm::pdu

#endif
