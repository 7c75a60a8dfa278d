#include "pdu/writer.h"

#include <algorithm>
#include <limits>

namespace cfm::pdu {
namespace {

constexpr std::size_t kTlvLengthSize = 2;

void Store(std::span<std::uint8_t> room, std::uint32_t value) {
  for (std::size_t i = room.size(); i > 0; --i) {
    room[i - 1] = static_cast<std::uint8_t>(value);
    value >>= 8;
  }
}

}  // namespace

std::span<std::uint8_t> Writer::take(std::size_t count) {
  if (failed_ || count > buffer_.size() - position_) {
    failed_ = true;
    return {};
  }
  const std::span<std::uint8_t> taken = buffer_.subspan(position_, count);
  position_ += count;
  return taken;
}

void Writer::big_endian(std::uint32_t value, std::size_t count) {
  Store(take(count), value);
}

void Writer::u8(std::uint8_t value) {
  big_endian(value, 1);
}

void Writer::u16(std::uint16_t value) {
  big_endian(value, 2);
}

void Writer::u32(std::uint32_t value) {
  big_endian(value, 4);
}

void Writer::mac(const MacAddress& address) {
  octets(address);
}

void Writer::octets(Octets octets) {
  const std::span<std::uint8_t> room = take(octets.size());
  if (!failed_) std::ranges::copy(octets, room.begin());
}

void Writer::count(std::size_t octets) {
  if (octets > std::numeric_limits<std::uint8_t>::max()) failed_ = true;
  u8(static_cast<std::uint8_t>(octets));
}

void Writer::counted_octets(Octets octets) {
  count(octets.size());
  this->octets(octets);
}

void Writer::zeros(std::size_t count) {
  std::ranges::fill(take(count), std::uint8_t{0});
}

std::size_t Writer::begin_tlv(std::uint8_t type) {
  const std::size_t begin = position_;
  u8(type);
  zeros(kTlvLengthSize);
  return begin;
}

void Writer::end_tlv(std::size_t begin) {
  if (failed_) return;
  const std::size_t length = position_ - begin - 1 - kTlvLengthSize;
  if (length > std::numeric_limits<std::uint16_t>::max()) {
    failed_ = true;
    return;
  }
  Store(buffer_.subspan(begin + 1, kTlvLengthSize), static_cast<std::uint32_t>(length));
}

}  // namespace cfm::pdu
