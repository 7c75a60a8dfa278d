#include "wire.h"

namespace bus {

namespace {

constexpr std::size_t kEventSize = 8;

bool payload_fits(const Header& header, std::size_t payload) {
  switch (header.kind) {
    case Kind::kHello:
      return header.number <= kMaxWantedEvents && payload == header.number * kEventSize;
    case Kind::kReady:
    case Kind::kTaken:
      return payload == 0;
    case Kind::kSignal:
    case Kind::kEvent:
      return payload <= kMaxPayload;
  }
  return false;
}

}  // namespace

std::optional<Header> decode_header(std::span<const std::byte> message) {
  if (message.size() < kHeaderSize || message[0] != std::byte{kWireMagic} || message[1] != std::byte{kWireVersion} ||
      message[3] != std::byte{0}) {
    return std::nullopt;
  }
  const Header header{static_cast<Kind>(message[2]), get_u32(&message[4]), get_u32(&message[8]), get_u32(&message[12])};
  if (!payload_fits(header, message.size() - kHeaderSize)) {
    return std::nullopt;
  }
  return header;
}

std::size_t hello_events_size(std::size_t count) {
  return count * kEventSize;
}

void encode_hello_events(std::byte* to, std::span<const std::uint64_t> events) {
  for (const std::uint64_t event : events) {
    put_u32(to, static_cast<std::uint32_t>(event >> 32));
    put_u32(to + 4, static_cast<std::uint32_t>(event));
    to += kEventSize;
  }
}

std::vector<std::uint64_t> decode_hello_events(std::span<const std::byte> message) {
  std::vector<std::uint64_t> events;
  events.reserve((message.size() - kHeaderSize) / kEventSize);
  for (std::size_t at = kHeaderSize; at + kEventSize <= message.size(); at += kEventSize) {
    events.push_back(identity(get_u32(&message[at]), get_u32(&message[at + 4])));
  }
  return events;
}

}  // namespace bus
