#include "wire.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace cfm_test {
namespace {

using cfm::pdu::Octets;

template <typename Value>
void SetOption(int fd, int level, int option, const Value& value) {
  if (setsockopt(fd, level, option, &value, sizeof value) != 0) {
    throw std::system_error(errno, std::generic_category(), "setsockopt");
  }
}

bool IsTag(std::uint16_t type) {
  return type == cfm::pdu::kTpidCustomer || type == cfm::pdu::kTpidService;
}

std::uint16_t TypeAt(const std::vector<std::uint8_t>& octets, std::size_t offset) {
  return offset + 2 > octets.size() ? std::uint16_t{0}
                                    : static_cast<std::uint16_t>(octets[offset] << 8 | octets[offset + 1]);
}

bool IsCfm(const std::vector<std::uint8_t>& octets) {
  constexpr std::size_t kTypeOffset = 12;
  std::size_t offset = kTypeOffset;
  while (IsTag(TypeAt(octets, offset))) offset += 4;
  return TypeAt(octets, offset) == cfm::pdu::kEtherTypeCfm;
}

cfm::pdu::EthernetFrame Decoded(const Frame& frame) {
  const auto decoded = cfm::pdu::DecodeEthernet(frame.octets);
  if (!decoded) throw std::runtime_error(ToText(decoded.error().problem));
  return *decoded;
}

}  // namespace

cfm::pdu::EthernetHeader Frame::header() const {
  return Decoded(*this).header;
}

Octets Frame::pdu() const {
  return Decoded(*this).pdu;
}

cfm::pdu::Opcode Frame::opcode() const {
  const auto header = cfm::pdu::DecodeHeader(pdu());
  return header ? header->opcode : cfm::pdu::Opcode{};
}

std::vector<std::uint8_t> MakeFrame(const cfm::pdu::EthernetHeader& header, Octets pdu) {
  std::vector<std::uint8_t> octets(cfm::pdu::kLongestEthernetHeader);
  octets.resize(EncodeEthernet(header, octets));
  octets.insert(octets.end(), pdu.begin(), pdu.end());
  return octets;
}

Wire::Wire(const Link& link) : link_(link), address_(link.address()) {
  const Inside inside(link.network());
  // It hears nothing before it is bound.
  fd_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd_ < 0) throw std::system_error(errno, std::generic_category(), "packet socket");
  SetOption(fd_, SOL_PACKET, PACKET_AUXDATA, 1);
  SetOption(fd_, SOL_PACKET, PACKET_IGNORE_OUTGOING, 1);
  // Past the queue, which opens a while after the port has come up.
  SetOption(fd_, SOL_PACKET, PACKET_QDISC_BYPASS, 1);
  SetOption(fd_, SOL_SOCKET, SO_TIMESTAMPNS, 1);
  SetOption(fd_, SOL_SOCKET, SO_RCVBUF, 1 << 24);
  sockaddr_ll here{};
  here.sll_family = AF_PACKET;
  here.sll_protocol = htons(ETH_P_ALL);
  here.sll_ifindex = static_cast<int>(link.index());
  if (bind(fd_, reinterpret_cast<const sockaddr*>(&here), sizeof here) != 0) {
    throw std::system_error(errno, std::generic_category(), "bind");
  }
  stop_ = eventfd(0, EFD_CLOEXEC);
  capture_ = std::thread([this] { Capture(); });
}

Wire::~Wire() {
  eventfd_write(stop_, 1);
  capture_.join();
  close(stop_);
  close(fd_);
}

bool Wire::Send(std::span<const std::uint8_t> octets) const {
  return send(fd_, octets.data(), octets.size(), 0) == static_cast<ssize_t>(octets.size());
}

// The next CFM frame in the socket. The kernel has taken the outer tag out of the frame; here it goes back in.
std::optional<Frame> Wire::Receive() const {
  std::array<std::uint8_t, 65536> buffer;
  for (;;) {
    iovec part{buffer.data(), buffer.size()};
    alignas(cmsghdr) std::array<char, 256> control;
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t size = recvmsg(fd_, &message, 0);
    if (size < 0) {
      // The port went down: said once, and no obstacle.
      if (errno == ENETDOWN || errno == EINTR) continue;
      return std::nullopt;
    }
    Frame frame{{}, std::vector<std::uint8_t>(buffer.begin(), buffer.begin() + size)};
    for (cmsghdr* item = CMSG_FIRSTHDR(&message); item != nullptr; item = CMSG_NXTHDR(&message, item)) {
      if (item->cmsg_level == SOL_SOCKET && item->cmsg_type == SCM_TIMESTAMPNS) {
        timespec stamp{};
        std::memcpy(&stamp, CMSG_DATA(item), sizeof stamp);
        frame.received = WallTime(std::chrono::seconds(stamp.tv_sec) + std::chrono::nanoseconds(stamp.tv_nsec));
      } else if (item->cmsg_level == SOL_PACKET && item->cmsg_type == PACKET_AUXDATA) {
        tpacket_auxdata data{};
        std::memcpy(&data, CMSG_DATA(item), sizeof data);
        if ((data.tp_status & TP_STATUS_VLAN_VALID) == 0 || size < 12) continue;
        const std::uint16_t tpid =
            (data.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0 ? data.tp_vlan_tpid : cfm::pdu::kTpidCustomer;
        const std::array<std::uint8_t, 4> tag{static_cast<std::uint8_t>(tpid >> 8), static_cast<std::uint8_t>(tpid),
                                              static_cast<std::uint8_t>(data.tp_vlan_tci >> 8),
                                              static_cast<std::uint8_t>(data.tp_vlan_tci)};
        frame.octets.insert(frame.octets.begin() + 12, tag.begin(), tag.end());
      }
    }
    if (IsCfm(frame.octets)) return frame;
  }
}

void Wire::Capture() {
  for (;;) {
    pollfd ready[] = {{fd_, POLLIN, 0}, {stop_, POLLIN, 0}};
    poll(ready, 2, -1);
    if (ready[1].revents != 0) return;
    while (auto frame = Receive()) {
      const std::lock_guard lock(mutex_);
      frames_.push_back(std::move(*frame));
      arrived_.notify_one();
    }
  }
}

std::optional<Frame> Wire::Next(const Predicate& wanted, std::chrono::milliseconds timeout) {
  auto frames = Take(1, wanted, timeout);
  return frames.empty() ? std::nullopt : std::optional(std::move(frames.front()));
}

std::optional<Frame> Wire::Next(cfm::pdu::Opcode opcode, std::chrono::milliseconds timeout) {
  return Next([opcode](const Frame& frame) { return frame.opcode() == opcode; }, timeout);
}

std::vector<Frame> Wire::Take(std::size_t count, const Predicate& wanted, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  std::vector<Frame> taken;
  std::unique_lock lock(mutex_);
  do {
    while (!frames_.empty() && taken.size() < count) {
      if (wanted(frames_.front())) taken.push_back(std::move(frames_.front()));
      frames_.pop_front();
    }
  } while (taken.size() < count && arrived_.wait_until(lock, deadline, [this] { return !frames_.empty(); }));
  return taken;
}

std::vector<Frame> Wire::Take() {
  const std::lock_guard lock(mutex_);
  std::vector<Frame> taken(std::make_move_iterator(frames_.begin()), std::make_move_iterator(frames_.end()));
  frames_.clear();
  return taken;
}

std::size_t Wire::lost() const {
  tpacket_stats counters{};  // since they were read last
  socklen_t size = sizeof counters;
  const std::lock_guard lock(mutex_);
  if (getsockopt(fd_, SOL_PACKET, PACKET_STATISTICS, &counters, &size) == 0) lost_ += counters.tp_drops;
  return lost_;
}

}  // namespace cfm_test
