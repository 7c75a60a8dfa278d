#include "port/netlink.h"

#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace cfm::port {
namespace {

// Twice of what the kernel puts into one datagram at most.
constexpr std::size_t kBufferSize = 1 << 16;

std::size_t Aligned(std::size_t size) {
  return NLMSG_ALIGN(size);
}

Octets Behind(Octets octets, std::size_t size) {
  return octets.subspan(std::min(octets.size(), size));
}

}  // namespace

std::string_view ReadText(Octets octets) {
  const std::string_view text(reinterpret_cast<const char*>(octets.data()), octets.size());
  return text.substr(0, text.find('\0'));
}

std::optional<NetlinkMessage> TakeMessage(Octets& octets) {
  const auto header = ReadAs<nlmsghdr>(octets);
  if (!header || header->nlmsg_len < sizeof *header || header->nlmsg_len > octets.size()) return std::nullopt;
  NetlinkMessage message{.header = *header, .body = octets.first(header->nlmsg_len).subspan(sizeof *header)};
  octets = Behind(octets, Aligned(header->nlmsg_len));
  return message;
}

std::optional<Attribute> TakeAttribute(Octets& attributes) {
  const auto header = ReadAs<rtattr>(attributes);
  if (!header || header->rta_len < sizeof *header || header->rta_len > attributes.size()) return std::nullopt;
  Attribute attribute{.type = static_cast<std::uint16_t>(header->rta_type & NLA_TYPE_MASK),
                      .value = attributes.first(header->rta_len).subspan(sizeof *header)};
  attributes = Behind(attributes, RTA_ALIGN(header->rta_len));
  return attribute;
}

Octets FindAttribute(Octets attributes, std::uint16_t type) {
  while (const auto attribute = TakeAttribute(attributes)) {
    if (attribute->type == type) return attribute->value;
  }
  return {};
}

void Request::Add(std::uint16_t type, std::string_view text) {
  const std::size_t begun = Begin(type);
  const auto characters = std::as_bytes(std::span(text));
  octets_.insert(octets_.end(), characters.begin(), characters.end());
  octets_.push_back({});
  End(begun);
}

void Request::Add(std::uint16_t type, std::span<const std::byte> value) {
  const std::size_t begun = Begin(type);
  octets_.insert(octets_.end(), value.begin(), value.end());
  End(begun);
}

std::size_t Request::Begin(std::uint16_t type) {
  const std::size_t begun = octets_.size();
  Append(rtattr{.rta_len = 0, .rta_type = type});
  return begun;
}

void Request::End(std::size_t begun) {
  const auto length = static_cast<std::uint16_t>(octets_.size() - begun);
  std::memcpy(octets_.data() + begun + offsetof(rtattr, rta_len), &length, sizeof length);
  octets_.resize(Aligned(octets_.size()));
}

std::span<const std::byte> Request::Finish(std::uint32_t sequence, std::uint16_t flags) {
  std::uint16_t all_flags = 0;
  std::memcpy(&all_flags, octets_.data() + offsetof(nlmsghdr, nlmsg_flags), sizeof all_flags);
  all_flags |= flags;
  std::memcpy(octets_.data() + offsetof(nlmsghdr, nlmsg_flags), &all_flags, sizeof all_flags);
  const auto length = static_cast<std::uint32_t>(octets_.size());
  std::memcpy(octets_.data() + offsetof(nlmsghdr, nlmsg_len), &length, sizeof length);
  std::memcpy(octets_.data() + offsetof(nlmsghdr, nlmsg_seq), &sequence, sizeof sequence);
  return octets_;
}

void Request::AppendAligned(std::span<const std::byte> octets) {
  octets_.insert(octets_.end(), octets.begin(), octets.end());
  octets_.resize(Aligned(octets_.size()));
}

NetlinkSocket::NetlinkSocket(std::uint32_t groups)
    : socket_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE), "netlink socket"), buffer_(kBufferSize) {
  sockaddr_nl own{};
  own.nl_family = AF_NETLINK;
  own.nl_groups = groups;
  if (bind(socket_.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) ThrowErrno("netlink bind");
}

int NetlinkSocket::Ask(Request request) {
  if (const int error = Send(request, NLM_F_ACK); error != 0) return error;
  while (true) {
    Octets datagram;
    if (const int error = Receive(0, datagram); error != 0) return error;
    while (const auto message = TakeMessage(datagram)) {
      if (message->header.nlmsg_seq != sequence_ || message->header.nlmsg_type != NLMSG_ERROR) continue;
      const auto answer = ReadAs<nlmsgerr>(message->body);
      return answer ? answer->error : -EPROTO;
    }
  }
}

int NetlinkSocket::Dump(Request request, const std::function<void(const NetlinkMessage&)>& take) {
  if (const int error = Send(request, 0); error != 0) return error;
  bool is_consistent = true;
  while (true) {
    Octets datagram;
    if (const int error = Receive(0, datagram); error != 0) return error;
    while (const auto message = TakeMessage(datagram)) {
      if (message->header.nlmsg_seq != sequence_) continue;
      if ((message->header.nlmsg_flags & NLM_F_DUMP_INTR) != 0) is_consistent = false;
      if (message->header.nlmsg_type == NLMSG_ERROR) {
        const auto answer = ReadAs<nlmsgerr>(message->body);
        return answer ? answer->error : -EPROTO;
      }
      if (message->header.nlmsg_type == NLMSG_DONE) {
        const auto error = ReadAs<int>(message->body);
        if (error && *error < 0) return *error;
        return is_consistent ? 0 : -EAGAIN;
      }
      take(*message);
    }
  }
}

std::optional<Octets> NetlinkSocket::ReceiveNotice() {
  Octets datagram;
  const int error = Receive(MSG_DONTWAIT, datagram);
  if (error == 0) return datagram;
  if (error == -EAGAIN) return Octets{};
  if (error == -ENOBUFS || error == -EMSGSIZE) return std::nullopt;
  throw std::system_error(-error, std::generic_category(), "netlink recvmsg");
}

int NetlinkSocket::Send(Request& request, std::uint16_t flags) {
  const auto octets = request.Finish(++sequence_, flags);
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  ssize_t sent = 0;
  do {
    sent = sendto(socket_.get(), octets.data(), octets.size(), 0, reinterpret_cast<const sockaddr*>(&kernel),
                  sizeof kernel);
  } while (sent < 0 && errno == EINTR);
  return sent < 0 ? -errno : 0;
}

int NetlinkSocket::Receive(int flags, Octets& datagram) {
  while (true) {
    sockaddr_nl sender{};
    iovec octets{.iov_base = buffer_.data(), .iov_len = buffer_.size()};
    msghdr message{};
    message.msg_name = &sender;
    message.msg_namelen = sizeof sender;
    message.msg_iov = &octets;
    message.msg_iovlen = 1;
    const ssize_t size = recvmsg(socket_.get(), &message, flags);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return -errno;
    if (sender.nl_pid != 0) continue;  // another process's
    if ((message.msg_flags & MSG_TRUNC) != 0) return -EMSGSIZE;
    datagram = Octets(buffer_).first(static_cast<std::size_t>(size));
    return 0;
  }
}

}  // namespace cfm::port
