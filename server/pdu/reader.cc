#include "pdu/reader.h"

#include <algorithm>

#include "pdu/tlv.h"

namespace cfm::pdu {

Octets Reader::take(std::size_t count) {
  if (failed_ || count > remaining()) {
    failed_ = true;
    return {};
  }
  const Octets taken = octets_.subspan(position_, count);
  position_ += count;
  return taken;
}

std::uint32_t Reader::big_endian(std::size_t count) {
  std::uint32_t value = 0;
  for (const std::uint8_t octet : take(count)) value = value << 8 | octet;
  return value;
}

std::uint8_t Reader::u8() {
  return static_cast<std::uint8_t>(big_endian(1));
}

std::uint16_t Reader::u16() {
  return static_cast<std::uint16_t>(big_endian(2));
}

std::uint32_t Reader::u32() {
  return big_endian(4);
}

MacAddress Reader::mac() {
  MacAddress address{};
  std::ranges::copy(take(address.size()), address.begin());
  return address;
}

Octets Reader::octets(std::size_t count) {
  return take(count);
}

Octets Reader::counted_octets() {
  return take(u8());
}

void Reader::skip(std::size_t count) {
  take(count);
}

std::optional<Tlv> Reader::next_tlv() {
  if (failed_ || remaining() == 0) return std::nullopt;
  const std::size_t begin = position_;
  Tlv tlv{.type = u8(), .offset = base_ + begin, .value = {}};
  if (tlv.type == static_cast<std::uint8_t>(TlvType::kEnd)) return std::nullopt;
  tlv.value = take(u16());
  if (failed_) {
    position_ = begin;
    return std::nullopt;
  }
  return tlv;
}

}  // namespace cfm::pdu
