#include "wire.h"

namespace bus {

namespace {

constexpr std::size_t kEventSize = 8;

bool PayloadFits(const Header& header, std::size_t payload) {
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

std::optional<Header> DecodeHeader(std::span<const std::byte> message) {
  if (message.size() < kHeaderSize || message[0] != std::byte{kWireMagic} || message[1] != std::byte{kWireVersion} ||
      message[3] != std::byte{0}) {
    return std::nullopt;
  }
  const Header header{static_cast<Kind>(message[2]), GetU32(&message[4]), GetU32(&message[8]), GetU32(&message[12])};
  if (!PayloadFits(header, message.size() - kHeaderSize)) {
    return std::nullopt;
  }
  return header;
}

std::size_t HelloEventsSize(std::size_t count) {
  return count * kEventSize;
}

void EncodeHelloEvents(std::byte* to, std::span<const std::uint64_t> events) {
  for (const std::uint64_t event : events) {
    PutU32(to, static_cast<std::uint32_t>(event >> 32));
    PutU32(to + 4, static_cast<std::uint32_t>(event));
    to += kEventSize;
  }
}

std::vector<std::uint64_t> DecodeHelloEvents(std::span<const std::byte> message) {
  std::vector<std::uint64_t> events;
  events.reserve((message.size() - kHeaderSize) / kEventSize);
  for (std::size_t at = kHeaderSize; at + kEventSize <= message.size(); at += kEventSize) {
    events.push_back(Identity(GetU32(&message[at]), GetU32(&message[at + 4])));
  }
  return events;
}

}  // namespace bus
