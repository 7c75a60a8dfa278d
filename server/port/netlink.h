// Messages to and from the kernel's network configuration.
#ifndef CFM_SERVER_PORT_NETLINK_H
#define CFM_SERVER_PORT_NETLINK_H

#include <linux/netlink.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <span>
#include <string_view>
#include <type_traits>
#include <vector>

#include "pdu/decoded.h"
#include "port/descriptor.h"

namespace cfm::port {

using pdu::Octets;

/// The first octets as a record of the kernel's; none when there are too few of them.
template <typename Record>
std::optional<Record> ReadAs(Octets octets) {
  static_assert(std::is_trivially_copyable_v<Record>);
  if (octets.size() < sizeof(Record)) return std::nullopt;
  Record record;
  std::memcpy(&record, octets.data(), sizeof record);
  return record;
}

/// Up to the first zero octet.
std::string_view ReadText(Octets octets);

struct NetlinkMessage {
  nlmsghdr header{};
  Octets body;

  /// What follows the fixed part of the body, which is a record of this type; empty when there is not even that.
  template <typename Record>
  Octets AttributesBehind() const {
    return body.size() < NLMSG_ALIGN(sizeof(Record)) ? Octets{} : body.subspan(NLMSG_ALIGN(sizeof(Record)));
  }
};

/// Cuts a message off the front of what was received; none when there is no whole one.
std::optional<NetlinkMessage> TakeMessage(Octets& octets);

struct Attribute {
  std::uint16_t type = 0;
  Octets value;
};

/// Cuts an attribute off the front; none when there is no whole one.
std::optional<Attribute> TakeAttribute(Octets& attributes);

/// The value of the first one of a type; empty when there is none.
Octets FindAttribute(Octets attributes, std::uint16_t type);

class Request {
 public:
  template <typename Record>
  Request(std::uint16_t type, std::uint16_t flags, const Record& fixed_part) {
    nlmsghdr header{};
    header.nlmsg_type = type;
    header.nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
    Append(header);
    Append(fixed_part);
  }

  template <typename Value>
  void Add(std::uint16_t type, const Value& value) {
    static_assert(std::is_trivially_copyable_v<Value>);
    Add(type, std::as_bytes(std::span(&value, 1)));
  }
  void Add(std::uint16_t type, std::string_view text);  ///< with a zero octet behind it
  void Add(std::uint16_t type, std::span<const std::byte> value);

  /// Attributes that are added until End() lie inside of this one.
  std::size_t Begin(std::uint16_t type);
  void End(std::size_t begun);

  /// With the length and the sequence number filled in, and with these flags besides its own.
  std::span<const std::byte> Finish(std::uint32_t sequence, std::uint16_t flags);

 private:
  template <typename Record>
  void Append(const Record& record) {
    static_assert(std::is_trivially_copyable_v<Record>);
    AppendAligned(std::as_bytes(std::span(&record, 1)));
  }
  void AppendAligned(std::span<const std::byte> octets);

  std::vector<std::byte> octets_;
};

/// Talks to the kernel only. Throws std::system_error when it cannot be opened.
class NetlinkSocket {
 public:
  /// Member of these groups of messages: a mask of RTMGRP_...
  explicit NetlinkSocket(std::uint32_t groups = 0);

  int fd() const { return socket_.get(); }

  /// Waits for the answer. 0, or the negative errno that the kernel answers with.
  int Ask(Request request);

  /// Hands over every message of the answer to a request that is for a dump or for an acknowledgement. 0, or a negative
  /// errno; -EAGAIN when what was asked for changed on the way, so that something may be missing.
  int Dump(Request request, const std::function<void(const NetlinkMessage&)>& take);

  /// One datagram that nobody asked for, good until the next call; empty: none is there. None: the kernel had to drop
  /// messages.
  std::optional<Octets> ReceiveNotice();

 private:
  int Send(Request& request, std::uint16_t flags);
  /// 0 and a datagram of the kernel's, or a negative errno.
  int Receive(int flags, Octets& datagram);

  Descriptor socket_;
  std::uint32_t sequence_ = 0;
  std::vector<std::uint8_t> buffer_;
};

}  // namespace cfm::port

#endif
