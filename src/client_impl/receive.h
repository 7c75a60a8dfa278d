// What every receiving callback shares: from the middleware's raw data to a message, and from its fields to the
// records.
#ifndef CFM_SRC_CLIENT_IMPL_RECEIVE_H
#define CFM_SRC_CLIENT_IMPL_RECEIVE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "cfm/mac.h"
#include "client_impl.h"

namespace cfm {

// Parses what was received. False when it is malformed; the message then holds what could be read.
template <typename Message>
bool Receive(const void* data, std::size_t size, Message& message) {
  const std::string payload = data == nullptr ? std::string() : std::string(static_cast<const char*>(data), size);
  return message.ParseFromString(payload);
}

// As above for callbacks that go on with whatever could be read.
template <typename Message>
Message Received(const void* data, std::size_t size) {
  Message message;
  Receive(data, size, message);
  return message;
}

inline ClientImpl& ClientOf(void* user) {
  return *static_cast<ClientImpl*>(user);
}

// The low bits of a 32-bit wire value, for members that are narrower.
inline std::uint16_t Low16(std::uint32_t value) {
  return static_cast<std::uint16_t>(value);
}
inline std::uint8_t Low8(std::uint32_t value) {
  return static_cast<std::uint8_t>(value);
}

// Copies the leading octets of a field; what a short field lacks stays zero.
inline void CopyOctets(const std::string& field, void* to, std::size_t size) {
  std::copy_n(field.data(), std::min(field.size(), size), static_cast<char*>(to));
}

inline st_mac MacOf(const std::string& field) {
  st_mac mac{};
  CopyOctets(field, mac.octets, sizeof(mac.octets));
  return mac;
}

}  // namespace cfm

#endif
