#include "port/linux_ports.h"

#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <array>
#include <chrono>
#include <cinttypes>
#include <cstring>
#include <system_error>
#include <utility>

#include "port/clocks.h"

namespace cfm::port {
namespace {

// So many ports are served in one Poll(), a batch of frames each. The kernel puts those that it has named behind the
// others that are ready.
constexpr int kPortsPerPoll = 8;

constexpr std::size_t kMostStampsPerServe = 64;

// More are not kept back for one call of the kernel.
constexpr std::size_t kMostQueued = 1024;

// What a descriptor is for; ports are their indices.
constexpr std::uint64_t kLinks = std::uint64_t{1} << 32;
constexpr std::uint64_t kWake = kLinks + 1;

void Watch(int epoll, int fd, std::uint64_t what) {
  epoll_event interest{};
  interest.events = EPOLLIN;
  interest.data.u64 = what;
  if (epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &interest) != 0) ThrowErrno("epoll_ctl");
}

}  // namespace

LinuxPorts::LinuxPorts(Listener& listener, zlog_category_t* log, const Options& options)
    : listener_(listener),
      log_(log),
      options_(options),
      epoll_(epoll_create1(EPOLL_CLOEXEC), "epoll_create1"),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd"),
      links_(requests_) {
  Watch(epoll_.get(), wake_.get(), kWake);
  Watch(epoll_.get(), links_.fd(), kLinks);
  Wake();
}

LinuxPorts::~LinuxPorts() {
  for (const auto& [index, port] : ports_) Release(index, *port);
}

void LinuxPorts::Poll() {
  retired_.clear();
  std::array<epoll_event, kPortsPerPoll> events;
  const int count = epoll_wait(epoll_.get(), events.data(), events.size(), 0);
  for (int i = 0; i < count; ++i) {
    const epoll_event& event = events[static_cast<std::size_t>(i)];
    const std::uint64_t what = event.data.u64;
    if (what == kWake) {
      eventfd_t ignored = 0;
      eventfd_read(wake_.get(), &ignored);
    } else if (what == kLinks) {
      links_.Read();
    } else if (const auto found = ports_.find(static_cast<Index>(what)); found != ports_.end()) {
      Serve(found->first, *found->second, (event.events & EPOLLERR) != 0);
    }
  }
  TellEvents();
}

void LinuxPorts::TellEvents() {
  for (const RefusedFrame& frame : std::exchange(refused_, {})) listener_.NotSent(frame.owner, frame.pdu);
  const auto [removed, changed] = links_.TakeEvents();
  for (const Index index : removed) {
    Retire(index);
    listener_.LinkRemoved(index);
  }
  for (const Index index : changed) {
    if (const Link* link = links_.Find(index)) listener_.LinkChanged(*link);
  }
}

void LinuxPorts::Serve(Index index, Port& port, bool may_have_stamps) {
  const std::size_t count = batch_.Fill(port.socket.fd());
  // Before the frames, as these may answer those that were stamped.
  if (may_have_stamps || (count != 0 && port.socket.awaits_stamps())) TellStamps(port);
  for (std::size_t i = 0; i < count && port.is_open; ++i) {
    if (const auto frame = batch_.Read(i, port.counters)) listener_.Received(index, *frame);
  }
}

void LinuxPorts::TellStamps(Port& port) {
  for (std::size_t i = 0; i < kMostStampsPerServe && port.is_open; ++i) {
    const auto stamped = port.socket.NextStamped();
    if (!stamped) break;
    listener_.Stamped(stamped->owner, stamped->stamp_id, stamped->stamps);
  }
}

void LinuxPorts::Flush() {
  for (Port* port : std::exchange(unflushed_, {})) {
    port->is_queued = false;
    FlushPort(*port);
  }
}

void LinuxPorts::FlushPort(Port& port) {
  port.socket.Flush(port.counters, refused_);
  if (!refused_.empty()) Wake();
}

bool LinuxPorts::Open(Index index) {
  if (ports_.contains(index)) return true;
  const Link* link = links_.Find(index);
  if (link == nullptr || !link->is_ethernet) {
    Report(open_failures_, index, {"to be opened", link == nullptr ? -ENODEV : -EPROTOTYPE});
    return false;
  }
  try {
    auto port = std::make_unique<Port>(index, options_.buffers, requests_);
    Watch(epoll_.get(), port->socket.fd(), index);
    if (port->control.TakeOver()) {
      zlog_warn(log_, "port %s: undoes what an earlier server has left there", link->name.c_str());
      Release(index, *port);
    }
    ports_.emplace(index, std::move(port));
    return true;
  } catch (const std::system_error& error) {
    Report(open_failures_, index, {error.what(), -error.code().value()});
    return false;
  }
}

void LinuxPorts::Close(Index index) {
  const auto found = ports_.find(index);
  if (found == ports_.end()) return;
  Release(index, *found->second);
  Retire(index);
}

void LinuxPorts::Retire(Index index) {
  const auto found = ports_.find(index);
  if (found == ports_.end()) return;
  Port& port = *found->second;
  FlushPort(port);
  port.is_open = false;
  std::erase(unflushed_, &port);
  epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, port.socket.fd(), nullptr);
  retired_.push_back(std::move(found->second));
  ports_.erase(found);
}

void LinuxPorts::Release(Index index, Port& port) {
  const bool was_held = port.control.holds_dormant();
  if (const auto refusal = port.control.Release()) Report(refusals_, index, *refusal);
  if (!was_held) return;
  links_.SetHeldDormant(index, false);
  links_.Refresh(index);
  Wake();
}

bool LinuxPorts::Send(Index index, const protocol::OutgoingFrame& frame, Owner owner) {
  const auto found = ports_.find(index);
  if (found == ports_.end()) return false;
  Port& port = *found->second;
  if (!port.socket.Queue(frame, owner)) return false;
  if (!std::exchange(port.is_queued, true)) unflushed_.push_back(&port);
  if (port.socket.queued() == kMostQueued) FlushPort(port);
  return true;
}

protocol::ClockReading LinuxPorts::ReadClocks() {
  return port::ReadClocks();
}

void LinuxPorts::SetFaultAction(Index index, protocol::FaultAction action) {
  const auto found = ports_.find(index);
  if (found == ports_.end()) return;
  PortControl& control = found->second->control;
  if (control.action() == action) return;
  const bool was_held = control.holds_dormant();
  if (const auto refusal = control.SetFaultAction(action, links_.LinkModeOf(index))) {
    Report(refusals_, index, *refusal);
  }
  if (control.holds_dormant() == was_held) return;
  links_.SetHeldDormant(index, !was_held);
  links_.Refresh(index);
  Wake();
}

bool LinuxPorts::SetLevelFilter(Index index, std::vector<protocol::LevelFilter> filters) {
  const auto found = ports_.find(index);
  if (found == ports_.end()) return false;
  const auto refusal = found->second->control.SetLevelFilter(std::move(filters));
  if (refusal) Report(refusals_, index, *refusal);
  return !refusal;
}

std::optional<Index> LinuxPorts::FindStation(Index bridge, const pdu::MacAddress& address) const {
  ndmsg which{};
  which.ndm_family = AF_BRIDGE;
  which.ndm_flags = NTF_MASTER;
  Request request(RTM_GETNEIGH, NLM_F_ACK, which);
  request.Add(NDA_LLADDR, address);
  request.Add(NDA_MASTER, bridge);
  std::optional<Index> port;
  requests_.Dump(std::move(request), [&](const NetlinkMessage& message) {
    const auto entry = ReadAs<ndmsg>(message.body);
    if (message.header.nlmsg_type == RTM_NEWNEIGH && entry) port = static_cast<Index>(entry->ndm_ifindex);
  });
  return port;
}

Counters LinuxPorts::CountersOf(Index index) const {
  const auto found = ports_.find(index);
  if (found == ports_.end()) return {};
  Counters& counters = found->second->counters;
  counters.overrun += found->second->socket.TakeOverruns();
  return counters;
}

void LinuxPorts::Wake() {
  eventfd_write(wake_.get(), 1);
}

void LinuxPorts::Report(LogLimit& limit, Index index, const Refusal& refusal) {
  const auto kept_back = limit.Allow(std::chrono::steady_clock::now());
  if (!kept_back) return;
  const Link* link = links_.Find(index);
  zlog_error(log_, "port %s (%" PRIu32 "): the system refuses %s: %s (%" PRIu64 " more like this)",
             link == nullptr ? "?" : link->name.c_str(), index, refusal.what, std::strerror(-refusal.error),
             *kept_back);
}

}  // namespace cfm::port
