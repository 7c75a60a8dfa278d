// CCMs of real servers on a real cable: how exactly they keep their interval, and what they cost.
//
//   cfm_ccm_bench [--quick] [INTERVAL:MEPS ...]
//
// Two elements with as many end points each as asked for, one VLAN for each, on the two ends of one cable. The interval
// is its code (1: 3.3 ms, 2: 10 ms, 3: 100 ms, 4: 1 s). The first element's server has a processor core for itself, and
// what it sends is captured at the other end with the kernel's stamps. Printed for each run:
//
//   error     the mean of the measured intervals, less the nominal one
//   p50 ... max   how far single intervals are off, either way
//   late      intervals of more than 1.5 times the nominal one, of all; the standard allows 3.25 in a row without a CCM
//   core      the part of its core that the server used
//   per frame processor time of the server by frame, sent and received ones together
//
// Exit status 77: no user and network namespace can be made here.
#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "element.h"
#include "own_namespace.h"
#include "protocol/time.h"

namespace {

using namespace std::chrono_literals;
using cfm_test::Element;
using std::chrono::duration;
using std::chrono::nanoseconds;

void PinTo(pid_t process, std::size_t core) {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(core, &cores);
  sched_setaffinity(process, sizeof cores, &cores);
}

// Of all threads. The ticks that /proc/PID/stat counts in would miss what sleeps between them.
nanoseconds ProcessorTime(pid_t process) {
  nanoseconds sum{0};
  for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    long long running = 0;
    std::ifstream(thread.path() / "schedstat") >> running;
    sum += nanoseconds(running);
  }
  if (sum.count() == 0) throw std::runtime_error("cannot read the server's processor time");
  return sum;
}

struct Series {
  std::vector<nanoseconds> gaps;
  nanoseconds last{0};
};

// The times between the CCMs of each VLAN that arrive at a port, by a ring that the kernel fills: it holds a second and
// more of what comes while this process waits for its turn.
class Capture {
 public:
  explicit Capture(const cfm_test::Link& link) {
    const cfm_test::Inside inside(link.network());
    fd_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    const int on = 1;
    const int version = TPACKET_V2;
    tpacket_req ring{};
    ring.tp_block_size = kBlock;
    ring.tp_block_nr = kBlocks;
    ring.tp_frame_size = kFrame;
    ring.tp_frame_nr = kFrames;
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(link.index());
    const bool set_up = fd_ >= 0 && setsockopt(fd_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on) == 0 &&
                        setsockopt(fd_, SOL_PACKET, PACKET_VERSION, &version, sizeof version) == 0 &&
                        setsockopt(fd_, SOL_PACKET, PACKET_RX_RING, &ring, sizeof ring) == 0;
    void* memory = set_up ? mmap(nullptr, kBlock * kBlocks, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0) : MAP_FAILED;
    if (memory == MAP_FAILED || bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error("cannot capture");
    }
    ring_ = static_cast<std::uint8_t*>(memory);
  }
  ~Capture() {
    munmap(ring_, kBlock * kBlocks);
    close(fd_);
  }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  std::map<std::uint16_t, Series> Take(std::chrono::seconds span) {
    std::map<std::uint16_t, Series> series;
    const auto end = std::chrono::steady_clock::now() + span;
    while (std::chrono::steady_clock::now() < end) {
      while (TakeOne(series)) {
      }
      std::this_thread::sleep_for(1ms);
    }
    return series;
  }
  std::size_t frames() const { return frames_; }
  /// That the ring had no room for.
  std::size_t lost() const {
    tpacket_stats statistics{};
    socklen_t size = sizeof statistics;
    getsockopt(fd_, SOL_PACKET, PACKET_STATISTICS, &statistics, &size);
    return statistics.tp_drops;
  }

 private:
  static constexpr std::size_t kBlock = 1 << 20;
  static constexpr std::size_t kBlocks = 64;
  static constexpr std::size_t kFrame = 512;
  static constexpr std::size_t kFrames = kBlock / kFrame * kBlocks;

  bool TakeOne(std::map<std::uint16_t, Series>& series) {
    auto* frame = reinterpret_cast<tpacket2_hdr*>(ring_ + next_ * kFrame);
    if ((__atomic_load_n(&frame->tp_status, __ATOMIC_ACQUIRE) & TP_STATUS_USER) == 0) return false;
    const nanoseconds stamp = std::chrono::seconds(frame->tp_sec) + nanoseconds(frame->tp_nsec);
    const auto vid = static_cast<std::uint16_t>(frame->tp_vlan_tci & 0xfffU);
    __atomic_store_n(&frame->tp_status, TP_STATUS_KERNEL, __ATOMIC_RELEASE);
    next_ = (next_ + 1) % kFrames;
    if (vid == 0) return true;
    ++frames_;
    Series& of = series[vid];
    if (of.last.count() != 0) of.gaps.push_back(stamp - of.last);
    of.last = stamp;
    return true;
  }

  int fd_ = -1;
  std::uint8_t* ring_ = nullptr;
  std::size_t next_ = 0;
  std::size_t frames_ = 0;
};

std::vector<cfm_test::EndPoint> EndPoints(const cfm_test::Link& link, std::uint16_t mep_id, int interval, int count) {
  std::vector<cfm_test::EndPoint> end_points;
  for (int i = 1; i <= count; ++i) {
    cfm_test::EndPoint end_point;
    end_point.port = link.index();
    end_point.mep_id = mep_id;
    end_point.ma = std::to_string(i);
    end_point.vid = static_cast<std::uint16_t>(i);
    end_point.interval = static_cast<cfm::CcmInterval>(interval);
    end_points.push_back(end_point);
  }
  return end_points;
}

double Microseconds(nanoseconds value) {
  return duration<double, std::micro>(value).count();
}

void Report(int interval, int meps, const std::map<std::uint16_t, Series>& series, double core, double per_frame_us) {
  const nanoseconds nominal = *cfm::protocol::IntervalOf(static_cast<std::uint8_t>(interval));
  std::vector<nanoseconds> off;
  nanoseconds sum{0};
  std::size_t late = 0;
  for (const auto& [vid, of] : series) {
    for (const nanoseconds gap : of.gaps) {
      sum += gap - nominal;
      late += gap > nominal * 3 / 2 ? 1 : 0;
      off.push_back(gap > nominal ? gap - nominal : nominal - gap);
    }
  }
  if (off.empty()) throw std::runtime_error("no CCM was captured");
  std::sort(off.begin(), off.end());
  const auto at = [&](double part) {
    return Microseconds(off[static_cast<std::size_t>(part * static_cast<double>(off.size() - 1))]);
  };
  std::printf("%8.1f ms %6d %9zu %10.2f %8.0f %8.0f %8.0f %8.0f %6zu %6.1f%% %9.2f\n",
              duration<double, std::milli>(nominal).count(), meps, off.size(),
              Microseconds(sum) / static_cast<double>(off.size()), at(0.5), at(0.99), at(0.999), at(1), late,
              100 * core, per_frame_us);
  std::fflush(stdout);
}

void Run(int interval, int meps, std::chrono::seconds span) {
  Element west;
  Element east;
  const auto [near, far] = cfm_test::Connect(west.network(), "west0", east.network(), "east0");
  west.StartServer();
  east.StartServer();
  PinTo(west.server().pid(), 0);
  PinTo(east.server().pid(), 1);
  PinTo(0, 1);
  const auto here = EndPoints(near, 1, interval, meps);
  const auto there = EndPoints(far, 2, interval, meps);
  west.Configure(here);
  east.Configure(there);
  if (!west.Settle() || !east.Settle()) throw std::runtime_error("the servers do not take the configuration");
  for (const cfm_test::EndPoint& end_point : here) {
    if (!west.WaitForRemote(end_point.remote(2), cfm_test::kRemoteOk)) {
      throw std::runtime_error("the end points do not find each other");
    }
  }
  Capture capture(far);
  const nanoseconds before = ProcessorTime(west.server().pid());
  const auto begun = std::chrono::steady_clock::now();
  const auto series = capture.Take(span);
  const auto elapsed = std::chrono::steady_clock::now() - begun;
  const nanoseconds used = ProcessorTime(west.server().pid()) - before;
  const double frames = 2 * static_cast<double>(capture.frames());  // as many come as go
  if (const std::size_t lost = capture.lost(); lost != 0) {
    throw std::runtime_error("the capture lost " + std::to_string(lost) + " frames: this machine has too much to do");
  }
  Report(interval, meps, series, duration<double>(used) / duration<double>(elapsed), Microseconds(used) / frames);
}

int RunInside(int argc, char** argv) {
  std::printf("%11s %6s %9s %10s %8s %8s %8s %8s %6s %7s %9s\n", "interval", "MEPs", "intervals", "error us", "p50 us",
              "p99 us", "p99.9 us", "max us", "late", "core", "us/frame");
  std::vector<std::string> runs(argv + 1, argv + argc);
  auto span = 10s;
  if (!runs.empty() && runs.front() == "--quick") {
    runs = {"2:2"};
    span = 1s;
  } else if (runs.empty()) {
    runs = {"1:1", "2:1", "3:1", "2:100", "2:250", "2:500", "2:1000", "4:1000", "4:4000"};
  }
  for (const std::string& run : runs) {
    int interval = 0;
    int meps = 0;
    if (std::sscanf(run.c_str(), "%d:%d", &interval, &meps) != 2 || interval < 1 || interval > 4 || meps < 1 ||
        meps > 4094) {
      std::fprintf(stderr, "cfm_ccm_bench: %s is not INTERVAL:MEPS, with an interval of 1 to 4 and 1 to 4094 MEPs\n",
                   run.c_str());
      return 2;
    }
    Run(interval, meps, span);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (cfm_test::InOwnNamespace()) {
    try {
      return RunInside(argc, argv);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "cfm_ccm_bench: %s\n", error.what());
      return 1;
    }
  }
  cfm_test::RunInOwnNamespace(argc, argv);
  std::puts("skipped: no user and network namespace can be made here");
  return 77;
}
