// What a frame costs in the port layer, against bare calls of the system on the same cable.
//
//   cfm_port_bench [--quick]
//
// Makes a user and network namespace of its own with a cable in it, whose ends lie in two namespaces as those of two
// elements do. Frames have the size of a CCM. Both ways are measured in bursts, so that no buffer overflows:
//   send      Send() for each frame of a burst and one Flush(), against sendmmsg() of frames that lie ready, with the
//             same socket options. The far end hears nothing, so that the other side costs the same and little.
//   receive   a burst that lies in the socket, taken by Poll() until all frames are handed over, against recvmmsg() in
//             batches of the same size into the same buffers. How it got there is not measured.
//   flood     another process sends CFM frames as fast as it can; how long a call of Poll() keeps its caller from its
//             timers then, the time for which the system runs others included.
// Repetitions of both variants take turns; the medians are printed. --quick only shows that all of it works. Ends with
// status 77 where the system refuses the namespaces.
#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/net_tstamp.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlog.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "pdu/ccm.h"
#include "pdu/ethernet.h"
#include "port/bpf.h"
#include "port/descriptor.h"
#include "port/linux_ports.h"
#include "port/netlink.h"

namespace {

using cfm::port::Descriptor;
using cfm::port::Index;
using cfm::port::LinuxPorts;
using cfm::port::ThrowErrno;
using Clock = std::chrono::steady_clock;

constexpr int kSkipped = 77;
constexpr std::size_t kBurst = 100;  // frames: fits into any socket's buffer
constexpr std::array<std::uint8_t, cfm::pdu::kShortestCcm> kPdu{};

void WriteFile(const char* path, const std::string& text) {
  std::ofstream file(path);
  file << text;
  if (!file.flush()) ThrowErrno(path);
}

// Root inside, without a privilege outside.
void EnterNamespace() {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) ThrowErrno("unshare");
  WriteFile("/proc/self/setgroups", "deny");
  WriteFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
  WriteFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

Descriptor PresentNamespace() {
  return {open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC), "/proc/self/ns/net"};
}

void Enter(const Descriptor& network) {
  if (setns(network.get(), CLONE_NEWNET) != 0) ThrowErrno("setns");
}

void Ask(cfm::port::NetlinkSocket& netlink, cfm::port::Request request) {
  if (const int error = netlink.Ask(std::move(request)); error != 0) {
    throw std::system_error(-error, std::generic_category(), "the cable");
  }
}

void SetUp(const char* name) {
  cfm::port::NetlinkSocket netlink;
  ifinfomsg which{};
  which.ifi_index = static_cast<int>(if_nametoindex(name));
  which.ifi_flags = IFF_UP;
  which.ifi_change = IFF_UP;
  Ask(netlink, cfm::port::Request(RTM_NEWLINK, 0, which));
}

// "near" here, "far" there. IPv6 is off, so that no port says anything by itself.
void Connect(const Descriptor& here, const Descriptor& there) {
  for (const Descriptor* network : {&here, &there}) {
    Enter(*network);
    std::ofstream("/proc/sys/net/ipv6/conf/default/disable_ipv6") << 1;
  }
  Enter(here);
  cfm::port::NetlinkSocket netlink;
  cfm::port::Request request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, ifinfomsg{});
  request.Add(IFLA_IFNAME, "near");
  const std::size_t info = request.Begin(IFLA_LINKINFO);
  request.Add(IFLA_INFO_KIND, "veth");
  const std::size_t data = request.Begin(IFLA_INFO_DATA);
  struct {
    ifinfomsg fixed{};
    rtattr name_header{.rta_len = sizeof(rtattr) + 4, .rta_type = IFLA_IFNAME};
    std::array<char, 4> name{'f', 'a', 'r', '\0'};
    rtattr network_header{.rta_len = sizeof(rtattr) + 4, .rta_type = IFLA_NET_NS_FD};
    int network = 0;
  } peer;
  peer.network = there.get();
  request.Add(VETH_INFO_PEER, peer);
  request.End(data);
  request.End(info);
  Ask(netlink, std::move(request));
  SetUp("near");
  Enter(there);
  SetUp("far");
  Enter(here);
}

// A packet socket as the port layer has it.
Descriptor BareSocket(Index index) {
  Descriptor bare(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "packet socket");
  const cfm::port::Program program = cfm::port::SocketFilter();
  const sock_fprog filter{.len = static_cast<unsigned short>(program.size()),
                          .filter = const_cast<sock_filter*>(program.data())};
  const int on = 1;
  const int stamps =
      SOF_TIMESTAMPING_RX_SOFTWARE | SOF_TIMESTAMPING_SOFTWARE | SOF_TIMESTAMPING_OPT_ID | SOF_TIMESTAMPING_OPT_TSONLY;
  setsockopt(bare.get(), SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
  setsockopt(bare.get(), SOL_SOCKET, SO_TIMESTAMPING, &stamps, sizeof stamps);
  for (const int option : {PACKET_AUXDATA, PACKET_QDISC_BYPASS, PACKET_IGNORE_OUTGOING}) {
    setsockopt(bare.get(), SOL_PACKET, option, &on, sizeof on);
  }
  sockaddr_ll here{};
  here.sll_family = AF_PACKET;
  here.sll_protocol = htons(ETH_P_ALL);
  here.sll_ifindex = static_cast<int>(index);
  if (bind(bare.get(), reinterpret_cast<const sockaddr*>(&here), sizeof here) != 0) ThrowErrno("bind");
  return bare;
}

// Frames that lie ready.
class Burst {
 public:
  explicit Burst(const cfm::pdu::EthernetHeader& header) : octets_(kBurst) {
    for (std::size_t i = 0; i < kBurst; ++i) {
      const std::size_t size = cfm::pdu::EncodeEthernet(header, octets_[i]);
      std::ranges::copy(kPdu, octets_[i].begin() + static_cast<std::ptrdiff_t>(size));
      vectors_[i] = {.iov_base = octets_[i].data(), .iov_len = size + kPdu.size()};
      messages_[i].msg_hdr.msg_iov = &vectors_[i];
      messages_[i].msg_hdr.msg_iovlen = 1;
    }
  }

  void Send(int socket) {
    if (sendmmsg(socket, messages_.data(), kBurst, 0) != kBurst) ThrowErrno("sendmmsg");
  }

 private:
  std::vector<std::array<std::uint8_t, 128>> octets_;
  std::array<iovec, kBurst> vectors_{};
  std::array<mmsghdr, kBurst> messages_{};
};

class Counter final : public cfm::port::Listener {
 public:
  void LinkChanged(const cfm::port::Link& /*link*/) override {}
  void LinkRemoved(Index /*index*/) override {}
  void Received(Index /*index*/, const cfm::protocol::ReceivedFrame& frame) override {
    ++frames;
    octets += frame.pdu.size();
  }
  void Stamped(cfm::port::Owner /*owner*/, std::uint32_t /*stamp_id*/,
               const cfm::protocol::Stamps& /*stamps*/) override {}
  void NotSent(cfm::port::Owner /*owner*/, cfm::pdu::Octets /*pdu*/) override { ++refused; }

  std::size_t frames = 0;
  std::size_t octets = 0;
  std::size_t refused = 0;
};

double NanosecondsPerFrame(Clock::duration time, std::size_t frames) {
  return std::chrono::duration<double, std::nano>(time).count() / static_cast<double>(frames);
}

double Median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

void Print(const char* what, std::vector<double> layer, std::vector<double> bare) {
  const double layer_ns = Median(std::move(layer));
  const double bare_ns = Median(std::move(bare));
  std::printf("%-8s port layer %6.0f ns/frame %9.0f frames/s   bare %6.0f ns/frame %9.0f frames/s   ratio %.2f\n", what,
              layer_ns, 1e9 / layer_ns, bare_ns, 1e9 / bare_ns, layer_ns / bare_ns);
}

struct Cable {
  Index near;
  cfm::pdu::EthernetHeader header;  // the far end does not take it for itself
};

void MeasureSend(const Cable& cable, LinuxPorts& ports, const Counter& told, std::size_t repetitions,
                 std::size_t bursts) {
  const Descriptor bare = BareSocket(cable.near);
  Burst burst(cable.header);
  std::vector<double> layer_ns;
  std::vector<double> bare_ns;
  for (std::size_t r = 0; r < repetitions; ++r) {
    const auto start = Clock::now();
    for (std::size_t b = 0; b < bursts; ++b) {
      cfm::protocol::OutgoingFrame frame;
      frame.header = cable.header;
      frame.pdu = kPdu;
      for (std::size_t i = 0; i < kBurst; ++i) {
        if (!ports.Send(cable.near, frame, 1)) throw std::runtime_error("Send");
      }
      ports.Flush();
    }
    const auto middle = Clock::now();
    for (std::size_t b = 0; b < bursts; ++b) burst.Send(bare.get());
    const auto end = Clock::now();
    layer_ns.push_back(NanosecondsPerFrame(middle - start, bursts * kBurst));
    bare_ns.push_back(NanosecondsPerFrame(end - middle, bursts * kBurst));
  }
  ports.Poll();
  if (told.refused > 0 || ports.CountersOf(cable.near).sent != repetitions * bursts * kBurst) {
    throw std::runtime_error("frames were refused");
  }
  Print("send", std::move(layer_ns), std::move(bare_ns));
}

std::size_t ReceiveBare(int socket, cfm::port::ReceiveBatch& batch) {
  std::size_t frames = 0;
  while (frames < kBurst) {
    pollfd ready{socket, POLLIN, 0};
    if (poll(&ready, 1, 1000) != 1) throw std::runtime_error("frames were lost");
    frames += batch.Fill(socket);
  }
  return frames;
}

void MeasureReceive(const Cable& cable, LinuxPorts& ports, Counter& told, int far, std::size_t repetitions,
                    std::size_t bursts) {
  const Descriptor bare = BareSocket(cable.near);
  cfm::port::ReceiveBatch batch;
  Burst burst(cable.header);
  std::vector<double> layer_ns;
  std::vector<double> bare_ns;
  for (std::size_t r = 0; r < repetitions; ++r) {
    Clock::duration layer_time{};
    Clock::duration bare_time{};
    for (std::size_t b = 0; b < bursts; ++b) {
      burst.Send(far);
      // Both sockets hear each burst; they take turns in being the first to read.
      const auto read_layer = [&] {
        const auto start = Clock::now();
        const std::size_t before = told.frames;
        while (told.frames - before < kBurst) {
          pollfd ready{ports.fd(), POLLIN, 0};
          if (poll(&ready, 1, 1000) != 1) throw std::runtime_error("frames were lost");
          ports.Poll();
        }
        layer_time += Clock::now() - start;
      };
      const auto read_bare = [&] {
        const auto start = Clock::now();
        if (ReceiveBare(bare.get(), batch) != kBurst) throw std::runtime_error("frames of others");
        bare_time += Clock::now() - start;
      };
      if (b % 2 == 0) {
        read_layer();
        read_bare();
      } else {
        read_bare();
        read_layer();
      }
    }
    layer_ns.push_back(NanosecondsPerFrame(layer_time, bursts * kBurst));
    bare_ns.push_back(NanosecondsPerFrame(bare_time, bursts * kBurst));
  }
  if (told.octets != told.frames * kPdu.size()) throw std::runtime_error("frames of others");
  Print("receive", std::move(layer_ns), std::move(bare_ns));
}

pid_t StartFlood(int far, const cfm::pdu::EthernetHeader& header) {
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child < 0) ThrowErrno("fork");
  if (child > 0) return child;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  try {
    Burst burst(header);
    while (getppid() == parent) burst.Send(far);
  } catch (const std::system_error& error) {
    std::fprintf(stderr, "cfm_port_bench: %s\n", error.what());
  }
  _exit(1);
}

void MeasureFlood(const Cable& cable, LinuxPorts& ports, const Counter& told, int far, std::chrono::milliseconds time) {
  const auto overrun_before = ports.CountersOf(cable.near).overrun;
  const std::size_t frames_before = told.frames;
  const pid_t flood = StartFlood(far, cable.header);
  std::vector<double> polls_us;
  const auto start = Clock::now();
  while (Clock::now() - start < time) {
    pollfd ready{ports.fd(), POLLIN, 0};
    poll(&ready, 1, 1);
    const auto before = Clock::now();
    ports.Poll();
    polls_us.push_back(std::chrono::duration<double, std::micro>(Clock::now() - before).count());
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  kill(flood, SIGKILL);
  waitpid(flood, nullptr, 0);
  const auto taken = static_cast<double>(told.frames - frames_before);
  const auto overrun = static_cast<double>(ports.CountersOf(cable.near).overrun - overrun_before);
  if (taken == 0) throw std::runtime_error("no flood");
  std::ranges::sort(polls_us);
  std::printf("flood    %9.0f frames/s arrive, %9.0f are taken; Poll() takes %.0f us (99.9 %%: %.0f, longest: %.0f)\n",
              (taken + overrun) / seconds, taken / seconds, polls_us[polls_us.size() / 2],
              polls_us[polls_us.size() * 999 / 1000], polls_us.back());
}

int Run(bool is_quick) {
  const std::size_t repetitions = is_quick ? 3 : 21;
  const std::size_t bursts = is_quick ? 10 : 1000;
  try {
    EnterNamespace();
  } catch (const std::system_error& error) {
    std::fprintf(stderr, "cfm_port_bench: no namespaces here: %s\n", error.what());
    return kSkipped;
  }
  const Descriptor here = PresentNamespace();
  if (unshare(CLONE_NEWNET) != 0) ThrowErrno("unshare");
  const Descriptor there = PresentNamespace();
  Connect(here, there);
  Enter(there);
  const Descriptor far = BareSocket(if_nametoindex("far"));
  // It only sends.
  const sock_filter nothing = BPF_STMT(BPF_RET | BPF_K, 0);
  const sock_fprog filter{.len = 1, .filter = const_cast<sock_filter*>(&nothing)};
  setsockopt(far.get(), SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
  Enter(here);

  Cable cable{.near = if_nametoindex("near"), .header = {}};
  cable.header.destination = cfm::pdu::ToAddress({.group_class = cfm::pdu::GroupClass::k1, .level = 4});
  cable.header.source = {2, 0, 0, 0, 0, 1};
  Counter told;
  LinuxPorts ports(told, nullptr, {});
  ports.Poll();
  if (!ports.Open(cable.near)) throw std::runtime_error("the port does not open");
  MeasureSend(cable, ports, told, repetitions, bursts);
  MeasureReceive(cable, ports, told, far.get(), repetitions, bursts);
  MeasureFlood(cable, ports, told, far.get(), is_quick ? std::chrono::milliseconds(100) : std::chrono::seconds(5));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc > 1 && std::string_view(argv[1]) == "--quick");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "cfm_port_bench: %s\n", error.what());
    return 1;
  }
}
