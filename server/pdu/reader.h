// Reads big-endian fields out of octets that nobody has looked at yet.
#ifndef CFM_SERVER_PDU_READER_H
#define CFM_SERVER_PDU_READER_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include "pdu/decoded.h"
#include "pdu/mac_address.h"

namespace cfm::pdu {

/// A TLV of which all octets lie inside of the frame.
struct Tlv {
  std::uint8_t type;
  std::size_t offset;  ///< of the type octet
  Octets value;
};

/// Every read is checked against the end in one place. The first read that does not fit fails the reader for good: it
/// and all that follow give zeros and empty spans, so that a decoder can read all its fields and ask once.
class Reader {
 public:
  /// `base` is what offset() says at the first octet.
  explicit Reader(Octets octets, std::size_t base = 0) : octets_(octets), base_(base) {}

  std::uint8_t u8();
  std::uint16_t u16();
  std::uint32_t u32();
  MacAddress mac();
  Octets octets(std::size_t count);
  /// An octet that says how many follow, and those.
  Octets counted_octets();
  void skip(std::size_t count);

  /// The next TLV. None after an End TLV, at the very end of the octets, and when the next TLV does not fit: that one
  /// fails the reader. TLV: type 1 octet, length 2 octets, value (IEEE 802.1Q clause 21.5).
  std::optional<Tlv> next_tlv();

  bool ok() const { return !failed_; }
  std::size_t remaining() const { return octets_.size() - position_; }
  /// Of the next octet; once failed, of the read that did not fit.
  std::size_t offset() const { return base_ + position_; }

 private:
  Octets take(std::size_t count);
  std::uint32_t big_endian(std::size_t count);

  Octets octets_;
  std::size_t base_;
  std::size_t position_ = 0;
  bool failed_ = false;
};

}  // namespace cfm::pdu

#endif
