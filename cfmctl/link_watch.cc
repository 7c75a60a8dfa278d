#include "link_watch.h"

#include <fmt/format.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "failure.h"

namespace cfmctl {

LinkWatch::LinkWatch(EventLoop& loop, std::function<void()> changed)
    : descriptor_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE)) {
  sockaddr_nl address = {};
  address.nl_family = AF_NETLINK;
  address.nl_groups = RTMGRP_LINK;
  if (descriptor_ < 0 || bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    const int error = errno;
    if (descriptor_ >= 0) close(descriptor_);
    throw Failure(kFailed, fmt::format("cannot watch the kernel's interface table: {}", std::strerror(error)));
  }
  loop.Add(descriptor_, [descriptor = descriptor_, call = std::move(changed)] {
    // What was too much for the socket is an error once (ENOBUFS), and a change like any other.
    std::array<char, 8192> messages;
    while (recv(descriptor, messages.data(), messages.size(), 0) >= 0 || errno == ENOBUFS || errno == EINTR) {
    }
    call();
  });
}

LinkWatch::~LinkWatch() {
  close(descriptor_);
}

}  // namespace cfmctl
