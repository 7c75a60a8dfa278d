// Writes big-endian fields into a buffer of fixed size.
#ifndef CFM_SERVER_PDU_WRITER_H
#define CFM_SERVER_PDU_WRITER_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "pdu/decoded.h"
#include "pdu/mac_address.h"

namespace cfm::pdu {

/// The first write that does not fit fails the writer for good; nothing is ever written beyond the buffer.
class Writer {
 public:
  explicit Writer(std::span<std::uint8_t> buffer) : buffer_(buffer) {}

  void u8(std::uint8_t value);
  void u16(std::uint16_t value);
  void u32(std::uint32_t value);
  void mac(const MacAddress& address);
  void octets(Octets octets);
  /// An octet that says how many follow. More than 255 do not fit.
  void count(std::size_t octets);
  /// The same, and those.
  void counted_octets(Octets octets);
  void zeros(std::size_t count);

  /// Writes the type, leaves room for the length, and says where: end_tlv() fills it in when the value has been
  /// written.
  std::size_t begin_tlv(std::uint8_t type);
  void end_tlv(std::size_t begin);

  bool ok() const { return !failed_; }
  /// Octets written, 0 when not all of them found room.
  std::size_t size() const { return failed_ ? 0 : position_; }

 private:
  std::span<std::uint8_t> take(std::size_t count);
  void big_endian(std::uint32_t value, std::size_t count);

  std::span<std::uint8_t> buffer_;
  std::size_t position_ = 0;
  bool failed_ = false;
};

}  // namespace cfm::pdu

#endif
