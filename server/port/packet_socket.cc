#include "port/packet_socket.h"

#include <arpa/inet.h>
#include <linux/errqueue.h>
#include <linux/if_ether.h>
#include <linux/net_tstamp.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "pdu/header.h"
#include "port/bpf.h"

namespace cfm::port {
namespace {

// Stamps that never come are forgotten when so many others are awaited.
constexpr std::size_t kMostAwaited = 256;

constexpr unsigned kStampFlags = SOF_TIMESTAMPING_RX_HARDWARE | SOF_TIMESTAMPING_RX_SOFTWARE |
                                 SOF_TIMESTAMPING_RAW_HARDWARE | SOF_TIMESTAMPING_SOFTWARE |
                                 SOF_TIMESTAMPING_OPT_TSONLY | SOF_TIMESTAMPING_OPT_TX_SWHW;
constexpr std::uint32_t kAskForStamps = SOF_TIMESTAMPING_TX_HARDWARE | SOF_TIMESTAMPING_TX_SOFTWARE;

template <typename Value>
bool TryOption(int socket, int level, int option, const Value& value) {
  return setsockopt(socket, level, option, &value, sizeof value) == 0;
}

template <typename Value>
void SetOption(int socket, int level, int option, const Value& value, const char* what) {
  if (!TryOption(socket, level, option, value)) ThrowErrno(what);
}

// Beyond the system's limit where the process may, else up to it.
void SetBuffer(int socket, int forced_option, int option, int size) {
  if (!TryOption(socket, SOL_SOCKET, forced_option, size)) TryOption(socket, SOL_SOCKET, option, size);
}

std::optional<protocol::Duration> ToStamp(const timespec& time) {
  if (time.tv_sec == 0 && time.tv_nsec == 0) return std::nullopt;
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

template <typename Record>
Record DataOf(const cmsghdr& control) {
  Record record;
  std::memcpy(&record, CMSG_DATA(&control), sizeof record);
  return record;
}

bool IsOf(const cmsghdr& control, int level, int type, std::size_t size) {
  return control.cmsg_level == level && control.cmsg_type == type && control.cmsg_len >= CMSG_LEN(size);
}

// The kernel's own layout of three time stamps: software, one that is no longer in use, card.
std::optional<protocol::Stamps> ReadStamps(const cmsghdr& control) {
  if (!IsOf(control, SOL_SOCKET, SCM_TIMESTAMPING, sizeof(scm_timestamping))) return std::nullopt;
  const auto stamps = DataOf<scm_timestamping>(control);
  return protocol::Stamps{.software = ToStamp(stamps.ts[0]), .card = ToStamp(stamps.ts[2])};
}

std::optional<pdu::StrippedTag> ReadTag(const cmsghdr& control) {
  if (!IsOf(control, SOL_PACKET, PACKET_AUXDATA, sizeof(tpacket_auxdata))) return std::nullopt;
  const auto auxiliary = DataOf<tpacket_auxdata>(control);
  if ((auxiliary.tp_status & TP_STATUS_VLAN_VALID) == 0) return std::nullopt;
  const bool has_tpid = (auxiliary.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0;
  return pdu::StrippedTag{.tpid = has_tpid ? auxiliary.tp_vlan_tpid : pdu::kTpidCustomer, .tci = auxiliary.tp_vlan_tci};
}

}  // namespace

ReceiveBatch::ReceiveBatch() : octets_(kFrames * kFrameSize) {
  for (std::size_t i = 0; i < kFrames; ++i) {
    vectors_[i] = {.iov_base = octets_.data() + i * kFrameSize, .iov_len = kFrameSize};
    msghdr& header = messages_[i].msg_hdr;
    header.msg_name = &senders_[i];
    header.msg_iov = &vectors_[i];
    header.msg_iovlen = 1;
    header.msg_control = controls_[i].octets.data();
  }
}

std::size_t ReceiveBatch::Fill(int socket) {
  for (mmsghdr& message : messages_) {
    message.msg_hdr.msg_namelen = sizeof(sockaddr_ll);
    message.msg_hdr.msg_controllen = kControlSize;
    message.msg_hdr.msg_flags = 0;
  }
  const int count = recvmmsg(socket, messages_.data(), kFrames, MSG_DONTWAIT, nullptr);
  return count < 0 ? 0 : static_cast<std::size_t>(count);
}

std::optional<protocol::ReceivedFrame> ReceiveBatch::Read(std::size_t number, Counters& counters) const {
  const msghdr& header = messages_[number].msg_hdr;
  // Where the socket option that refuses them is missing.
  if (senders_[number].sll_pkttype == PACKET_OUTGOING) return std::nullopt;
  if ((header.msg_flags & MSG_TRUNC) != 0) {
    ++counters.oversized;
    return std::nullopt;
  }
  protocol::ReceivedFrame received;
  std::optional<pdu::StrippedTag> tag;
  auto& controls = const_cast<msghdr&>(header);  // CMSG_NXTHDR only reads it
  for (cmsghdr* control = CMSG_FIRSTHDR(&controls); control != nullptr; control = CMSG_NXTHDR(&controls, control)) {
    if (const auto stamps = ReadStamps(*control)) received.stamps = *stamps;
    if (const auto stripped = ReadTag(*control)) tag = stripped;
  }
  const pdu::Octets octets(octets_.data() + number * kFrameSize, messages_[number].msg_len);
  const auto frame = pdu::DecodeEthernet(octets, tag);
  if (!frame || (header.msg_flags & MSG_CTRUNC) != 0) {
    ++counters.malformed;
    return std::nullopt;
  }
  received.header = frame->header;
  received.pdu = frame->pdu;
  ++counters.received;
  return received;
}

// Deaf until it has its filter: a socket that is made for a protocol at once takes every frame of every port until it
// is bound, and those stay in its queue.
PacketSocket::PacketSocket(Index index, const Buffers& buffers)
    : socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "packet socket") {
  SetUp(buffers);
  // Of all protocols: bound to the one of CFM it would hear nothing on a port of a bridge, which takes the frames
  // first, and would not be told their tags elsewhere.
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(index);
  if (bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) ThrowErrno("bind");
  JoinGroups(index);
}

void PacketSocket::SetUp(const Buffers& buffers) {
  const int fd = socket_.get();
  const Program program = SocketFilter();
  const sock_fprog filter{.len = static_cast<unsigned short>(program.size()),
                          .filter = const_cast<sock_filter*>(program.data())};
  SetOption(fd, SOL_SOCKET, SO_ATTACH_FILTER, filter, "SO_ATTACH_FILTER");
  SetOption(fd, SOL_PACKET, PACKET_AUXDATA, 1, "PACKET_AUXDATA");
  SetOption(fd, SOL_PACKET, PACKET_QDISC_BYPASS, 1, "PACKET_QDISC_BYPASS");
  TryOption(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, 1);
  SetBuffer(fd, SO_RCVBUFFORCE, SO_RCVBUF, buffers.receive);
  SetBuffer(fd, SO_SNDBUFFORCE, SO_SNDBUF, buffers.send);
  RestartStampKeys();
}

// A port of a bridge hears everything anyway; it may leave the bridge.
void PacketSocket::JoinGroups(Index index) {
  packet_mreq group{};
  group.mr_ifindex = static_cast<int>(index);
  group.mr_type = PACKET_MR_MULTICAST;
  group.mr_alen = std::tuple_size_v<pdu::MacAddress>;
  for (const pdu::GroupClass group_class : {pdu::GroupClass::k1, pdu::GroupClass::k2}) {
    for (std::uint8_t level = 0; level <= pdu::kHighestLevel; ++level) {
      const pdu::MacAddress address = pdu::ToAddress({.group_class = group_class, .level = level});
      std::copy(address.begin(), address.end(), group.mr_address);
      if (TryOption(socket_.get(), SOL_PACKET, PACKET_ADD_MEMBERSHIP, group)) continue;
      packet_mreq all{};
      all.mr_ifindex = group.mr_ifindex;
      all.mr_type = PACKET_MR_ALLMULTI;
      SetOption(socket_.get(), SOL_PACKET, PACKET_ADD_MEMBERSHIP, all, "PACKET_ADD_MEMBERSHIP");
      return;
    }
  }
}

bool PacketSocket::Queue(const protocol::OutgoingFrame& frame, Owner owner) {
  if (frame.pdu.size() > protocol::kLargestPdu) return false;
  Queued queued{.begin = octets_.size(), .owner = owner, .stamp_id = frame.stamp_id};
  octets_.resize(queued.begin + pdu::kLongestEthernetHeader + frame.pdu.size());
  const auto room = std::span(octets_).subspan(queued.begin);
  queued.header_size = pdu::EncodeEthernet(frame.header, room);
  queued.size = queued.header_size + frame.pdu.size();
  std::copy(frame.pdu.begin(), frame.pdu.end(), room.begin() + static_cast<std::ptrdiff_t>(queued.header_size));
  octets_.resize(queued.begin + queued.size);
  queue_.push_back(queued);
  return true;
}

void PacketSocket::Flush(Counters& counters, std::vector<RefusedFrame>& refused) {
  struct alignas(cmsghdr) AskForStamps {
    std::array<std::uint8_t, CMSG_SPACE(sizeof kAskForStamps)> octets{};
  };
  AskForStamps ask;
  auto* control = reinterpret_cast<cmsghdr*>(ask.octets.data());
  control->cmsg_level = SOL_SOCKET;
  control->cmsg_type = SO_TIMESTAMPING;
  control->cmsg_len = CMSG_LEN(sizeof kAskForStamps);
  std::memcpy(CMSG_DATA(control), &kAskForStamps, sizeof kAskForStamps);

  vectors_.resize(queue_.size());
  messages_.assign(queue_.size(), mmsghdr{});
  for (std::size_t i = 0; i < queue_.size(); ++i) {
    vectors_[i] = {.iov_base = octets_.data() + queue_[i].begin, .iov_len = queue_[i].size};
    msghdr& header = messages_[i].msg_hdr;
    header.msg_iov = &vectors_[i];
    header.msg_iovlen = 1;
    if (!queue_[i].stamp_id) continue;
    header.msg_control = ask.octets.data();
    header.msg_controllen = ask.octets.size();
  }

  std::size_t done = 0;
  while (done < queue_.size()) {
    const int result =
        sendmmsg(socket_.get(), messages_.data() + done, static_cast<unsigned>(queue_.size() - done), MSG_DONTWAIT);
    if (result < 0 && errno == EINTR) continue;
    const std::size_t taken = result < 0 ? 0 : static_cast<std::size_t>(result);
    for (const std::size_t end = done + taken; done < end; ++done) {
      const Queued& sent = queue_[done];
      if (!sent.stamp_id) continue;
      if (awaited_.size() == kMostAwaited) awaited_.pop_front();
      awaited_.push_back({.key = next_key_++, .answer = {.owner = sent.owner, .stamp_id = *sent.stamp_id}});
    }
    counters.sent += taken;
    if (done == queue_.size()) break;
    // The frame that this call stopped at was refused; whether it was counted for stamps before, nobody knows.
    const Queued& stopped = queue_[done];
    if (stopped.stamp_id) RestartStampKeys();
    if (result >= 0) continue;
    const auto pdu = std::span(octets_).subspan(stopped.begin, stopped.size).subspan(stopped.header_size);
    refused.push_back({.owner = stopped.owner, .pdu = {pdu.begin(), pdu.end()}});
    ++counters.refused;
    ++done;
  }
  queue_.clear();
  octets_.clear();
}

// The kernel counts from zero again when the option is set anew.
void PacketSocket::RestartStampKeys() {
  awaited_.clear();
  next_key_ = 0;
  while (NextStamped()) {
  }
  SetOption(socket_.get(), SOL_SOCKET, SO_TIMESTAMPING, kStampFlags, "SO_TIMESTAMPING");
  SetOption(socket_.get(), SOL_SOCKET, SO_TIMESTAMPING, kStampFlags | SOF_TIMESTAMPING_OPT_ID, "SO_TIMESTAMPING");
}

std::optional<Stamped> PacketSocket::NextStamped() {
  struct alignas(cmsghdr) Control {
    std::array<std::uint8_t, 512> octets;
  };
  while (true) {
    Control buffer{};
    msghdr message{};
    message.msg_control = buffer.octets.data();
    message.msg_controllen = buffer.octets.size();
    if (recvmsg(socket_.get(), &message, MSG_ERRQUEUE | MSG_DONTWAIT) < 0) return std::nullopt;
    protocol::Stamps stamps;
    std::optional<std::uint32_t> key;
    for (cmsghdr* control = CMSG_FIRSTHDR(&message); control != nullptr; control = CMSG_NXTHDR(&message, control)) {
      if (const auto read = ReadStamps(*control)) stamps = *read;
      if (!IsOf(*control, SOL_PACKET, PACKET_TX_TIMESTAMP, sizeof(sock_extended_err))) continue;
      const auto error = DataOf<sock_extended_err>(*control);
      if (error.ee_origin == SO_EE_ORIGIN_TIMESTAMPING && error.ee_info == SCM_TSTAMP_SND) key = error.ee_data;
    }
    if (!key) continue;
    const auto awaited =
        std::find_if(awaited_.begin(), awaited_.end(), [&key](const Awaited& one) { return one.key == *key; });
    if (awaited == awaited_.end()) continue;
    protocol::Stamps& known = awaited->answer.stamps;
    if (stamps.software) known.software = stamps.software;
    if (stamps.card) known.card = stamps.card;
    return awaited->answer;
  }
}

std::uint64_t PacketSocket::TakeOverruns() {
  tpacket_stats statistics{};
  socklen_t size = sizeof statistics;
  if (getsockopt(socket_.get(), SOL_PACKET, PACKET_STATISTICS, &statistics, &size) != 0) return 0;
  return statistics.tp_drops;
}

}  // namespace cfm::port
