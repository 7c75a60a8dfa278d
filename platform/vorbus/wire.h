// The messages on the bus: encoding and decoding, no I/O. docs/vorbus.md describes the format with an example.
#ifndef VORBUS_WIRE_H
#define VORBUS_WIRE_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <vector>

namespace bus {

inline constexpr std::uint8_t kWireMagic = 0x76;
inline constexpr std::uint8_t kWireVersion = 1;
inline constexpr std::size_t kHeaderSize = 16;
inline constexpr std::size_t kMaxPayload = std::size_t{256} << 20;
inline constexpr std::size_t kMaxWantedEvents = 65536;  // of one process

enum class Kind : std::uint8_t {
  kHello = 1,   // subscriber to named process: who it is and which events it wants; again whenever they change
  kReady = 2,   // the answer to each hello
  kSignal = 3,  // either way
  kEvent = 4,   // named process to subscriber
  kTaken = 5,   // either way: how much the receiver has taken since it last said so
};

struct Header {
  Kind kind;
  std::uint32_t to;      // pid that the message is for; 0 in a hello, whose sender does not know it yet
  std::uint32_t id;      // signal block or event group; sender's pid (hello, ready); messages (taken)
  std::uint32_t number;  // signal or event number; events that follow (hello); octets (taken)

  friend bool operator==(const Header&, const Header&) = default;
};

// One number for the two of an event or signal identity.
constexpr std::uint64_t Identity(std::uint32_t id, std::uint32_t number) {
  return std::uint64_t{id} << 32 | number;
}

inline void PutU32(std::byte* to, std::uint32_t value) {
  const std::uint32_t big_endian = __builtin_bswap32(value);
  std::memcpy(to, &big_endian, sizeof big_endian);
}

inline std::uint32_t GetU32(const std::byte* from) {
  std::uint32_t big_endian = 0;
  std::memcpy(&big_endian, from, sizeof big_endian);
  return __builtin_bswap32(big_endian);
}
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "put_u32 and get_u32 swap");

inline void EncodeHeader(std::byte* to, const Header& header) {
  to[0] = std::byte{kWireMagic};
  to[1] = std::byte{kWireVersion};
  to[2] = static_cast<std::byte>(header.kind);
  to[3] = std::byte{0};
  PutU32(to + 4, header.to);
  PutU32(to + 8, header.id);
  PutU32(to + 12, header.number);
}

// Nothing when the octets are not a message of this version: too short or too long, an unknown kind, a payload that the
// kind does not have.
std::optional<Header> DecodeHeader(std::span<const std::byte> message);

// The events of a hello, behind its header.
std::size_t HelloEventsSize(std::size_t count);
void EncodeHelloEvents(std::byte* to, std::span<const std::uint64_t> events);
std::vector<std::uint64_t> DecodeHelloEvents(std::span<const std::byte> message);  // of a message that decodes

}  // namespace bus

#endif
