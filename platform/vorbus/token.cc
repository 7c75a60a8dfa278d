#include "token.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>

namespace {

using bus::Channel;
using bus::Fd;
using bus::Header;
using bus::Kind;
using bus::Message;
using std::chrono::milliseconds;

constexpr int kDispatchLimit = 100;  // messages of the door, and of each link
constexpr int kMaxSockets = 4096;    // three for each process that is subscribed to
constexpr auto kNever = std::chrono::steady_clock::time_point::max();

void* DataOf(const bus::Incoming& incoming) {
  return incoming.payload.empty() ? nullptr : incoming.payload.data();
}

void ReadCounter(int fd) {
  std::uint64_t count = 0;
  [[maybe_unused]] const ssize_t octets = read(fd, &count, sizeof count);
}

}  // namespace

int vorbus::Open(const vorbus_options_t& options, std::unique_ptr<vorbus>* token) {
  const milliseconds timeout(options.send_timeout_ms != 0 ? options.send_timeout_ms : 10000);
  std::unique_ptr<vorbus> opened(new vorbus(timeout));
  const char* directory = options.directory;
  if (directory == nullptr) {
    directory = std::getenv("VORBUS_DIR");
  }
  const int rc = opened->Start(options.process, directory != nullptr ? directory : "/run/vorbus");
  if (rc == 0) {
    *token = std::move(opened);
  }
  return rc;
}

int vorbus::Start(const char* process, const char* directory) {
  if (process != nullptr && !bus::Directory::IsValidName(process)) {
    return -EINVAL;
  }
  int rc = bus::Directory::Open(directory, &directory_);
  if (rc == 0) {
    rc = directory_.AllocatePid(&pid_);
  }
  if (rc != 0) {
    return rc;
  }
  context_ = zmq_ctx_new();
  poll_ = Fd(epoll_create1(EPOLL_CLOEXEC));
  wake_ = Fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  timer_ = Fd(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  if (context_ == nullptr || !poll_ || !wake_ || !timer_) {
    return -errno;
  }
  zmq_ctx_set(context_, ZMQ_MAX_SOCKETS, kMaxSockets);
  Watch(wake_.get(), &wake_ready_);
  Watch(timer_.get(), &timer_ready_);
  if (process != nullptr) {
    door_ = std::make_unique<bus::Door>(*this);
    rc = door_->Open(process);
  }
  return rc;
}

vorbus::~vorbus() {
  links_.clear();
  door_.reset();
  while (context_ != nullptr && zmq_ctx_term(context_) != 0 && errno == EINTR) {
  }
}

void vorbus::Watch(int fd, bool* ready) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.ptr = ready;
  if (epoll_ctl(poll_.get(), EPOLL_CTL_ADD, fd, &event) == 0) {
    ++watched_;
  }
}

void vorbus::Unwatch(int fd) {
  if (epoll_ctl(poll_.get(), EPOLL_CTL_DEL, fd, nullptr) == 0) {
    --watched_;
  }
}

void vorbus::Wake() {
  asked_for_dispatch_ = true;
  if (!wake_written_) {
    wake_written_ = true;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t octets = write(wake_.get(), &one, sizeof one);
  }
}

void vorbus::Rest() {
  if (wake_written_) {
    wake_written_ = false;
    ReadCounter(wake_.get());
  }
}

void vorbus::WatchDirectory() {
  if (changes_) {
    return;
  }
  Fd changes(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  // Sockets get their names by being renamed. Without a watch (a user's number of them is limited), links look once a
  // second.
  if (changes && inotify_add_watch(changes.get(), directory_.path().c_str(), IN_MOVED_TO | IN_ONLYDIR) >= 0) {
    changes_ = std::move(changes);
    Watch(changes_.get(), &changes_ready_);
  }
}

void vorbus::ReadDirectoryChanges() {
  alignas(inotify_event) std::array<char, 4096> buffer;
  ssize_t length = 0;
  while ((length = read(changes_.get(), buffer.data(), buffer.size())) > 0) {
    for (ssize_t at = 0; at < length;) {
      const auto* event = reinterpret_cast<const inotify_event*>(&buffer[static_cast<std::size_t>(at)]);
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      for (const auto& link : links_) {
        if ((event->mask & IN_Q_OVERFLOW) != 0 || (event->len > 0 && link->process() == event->name)) {
          link->Look();
        }
      }
    }
  }
}

void vorbus::Collect(milliseconds timeout) {
  std::array<epoll_event, 64> few;
  std::vector<epoll_event> many;
  epoll_event* events = few.data();
  if (static_cast<std::size_t>(watched_) > few.size()) {
    many.resize(static_cast<std::size_t>(watched_));
    events = many.data();
  }
  const int count = epoll_wait(poll_.get(), events, watched_, static_cast<int>(timeout.count()));
  for (const epoll_event& event : std::span(events, static_cast<std::size_t>(std::max(count, 0)))) {
    *static_cast<bool*>(event.data.ptr) = true;
  }
  if (timer_ready_) {
    timer_ready_ = false;
    timer_set_to_ = kNever;
    ReadCounter(timer_.get());
  }
  if (changes_ready_) {
    changes_ready_ = false;
    ReadDirectoryChanges();
  }
  if (door_) {
    door_->ReadMonitorIfReady();
  }
  for (const auto& link : links_) {
    link->ReadMonitorIfReady();
  }
}

int vorbus::Dispatch() {
  if (dispatching_) {
    return -EBUSY;
  }
  dispatching_ = true;
  Collect(milliseconds(0));
  asked_for_dispatch_ = false;
  int calls = 0;
  if (door_) {
    calls += door_->Deliver(kDispatchLimit);
  }
  // By index: a callback may add links.
  for (std::size_t i = 0; i < links_.size(); ++i) {
    links_[i]->Advance(Clock::now());
    calls += links_[i]->Deliver(kDispatchLimit);
  }
  dispatching_ = false;
  Sweep();
  if (asked_for_dispatch_ || HasWork()) {
    Wake();
  } else {
    Rest();
  }
  SetTimer();
  return calls;
}

bool vorbus::HasWork() const {
  return (door_ && door_->HasWork()) ||
         std::any_of(links_.begin(), links_.end(), [](const auto& link) { return link->HasWork(); });
}

void vorbus::SetTimer() {
  Clock::time_point due = kNever;
  for (const auto& link : links_) {
    due = std::min(due, link->Due());
  }
  if (due == timer_set_to_) {
    return;
  }
  timer_set_to_ = due;
  itimerspec at{};  // zeros switch it off
  if (due != kNever) {
    const auto since_boot = std::max(due.time_since_epoch(), Clock::duration(1));
    const auto seconds = std::chrono::floor<std::chrono::seconds>(since_boot);
    at.it_value.tv_sec = seconds.count();
    at.it_value.tv_nsec = (since_boot - seconds).count();
  }
  timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &at, nullptr);
}

void vorbus::Sweep() {
  if (dispatching_) {
    return;
  }
  signals_.Sweep();
  events_.Sweep();
  for (const auto& link : links_) {
    link->Sweep();
  }
  std::erase_if(links_, [](const auto& link) { return !link->HasSubscribers(); });
}

int vorbus::Subscribe(std::string_view process, vorbus_found_fn found, vorbus_lost_fn lost, void* user,
                      vorbus_subscription** subscription) {
  if (!bus::Directory::IsValidName(process)) {
    return -EINVAL;
  }
  const int rc = directory_.CheckLength(process);
  if (rc != 0) {
    return rc;
  }
  WatchDirectory();
  auto link =
      std::find_if(links_.begin(), links_.end(), [&](const auto& other) { return other->process() == process; });
  if (link == links_.end()) {
    links_.push_back(std::make_unique<bus::Link>(*this, std::string(process)));
    link = std::prev(links_.end());
  }
  *subscription = (*link)->Subscribe(found, lost, user);
  Wake();
  return 0;
}

void vorbus::Unsubscribe(vorbus_subscription& subscription) {
  subscription.released = true;
  Sweep();
}

int vorbus::SendSignal(std::uint32_t to, std::uint64_t signal, const void* data, std::size_t size) {
  if (size > bus::kMaxPayload) {
    return -EMSGSIZE;
  }
  const auto route = routes_.find(to);
  if (route == routes_.end()) {
    return -ESRCH;
  }
  const Header header{Kind::kSignal, to, static_cast<std::uint32_t>(signal >> 32), static_cast<std::uint32_t>(signal)};
  Message message = pool_.Make(header, data, size);
  return SendWaiting(*route->second, message);
}

int vorbus::SendWaiting(Channel& channel, Message& message) {
  Clock::time_point deadline = kNever;
  Channel::Sent sent = channel.Send(message);
  bool in_time = true;
  while (sent == Channel::Sent::kFull && (in_time = WaitForRoom(&deadline))) {
    sent = channel.Send(message);
  }
  if (!in_time) {
    channel.Sever();
  }
  if (!dispatching_) {
    Wake();
  }
  return sent == Channel::Sent::kDone ? 0 : in_time ? -ESRCH : -ETIMEDOUT;
}

bool vorbus::WaitForRoom(Clock::time_point* deadline) {
  const Clock::time_point now = Clock::now();
  milliseconds timeout(0);
  if (*deadline == kNever) {
    *deadline = now + send_timeout_;
  } else if (now >= *deadline) {
    return false;
  } else {
    timeout = std::chrono::ceil<milliseconds>(*deadline - now);
    Rest();
  }
  Collect(timeout);
  Absorb();
  return true;
}

void vorbus::Absorb() {
  if (door_) {
    door_->Absorb();
  }
  for (const auto& link : links_) {
    link->Absorb();
  }
}

int vorbus::Publish(std::uint64_t event, const void* data, std::size_t size) {
  if (size > bus::kMaxPayload) {
    return -EMSGSIZE;
  }
  if (!door_) {
    return 0;
  }
  const std::span<bus::Peer* const> audience = door_->Audience(event);
  audience_.assign(audience.begin(), audience.end());
  if (audience_.empty()) {
    return 0;
  }
  int reached = 0;
  const auto is_done_with = [&](bus::Peer* peer) {
    if (!peer->HasRoom()) {
      return false;
    }
    Message message = pool_.Make(
        {Kind::kEvent, peer->pid(), static_cast<std::uint32_t>(event >> 32), static_cast<std::uint32_t>(event)}, data,
        size);
    const Channel::Sent sent = peer->Send(message);
    reached += sent == Channel::Sent::kDone ? 1 : 0;
    return sent != Channel::Sent::kFull;
  };
  std::erase_if(audience_, is_done_with);
  // Those that are slow are waited for together.
  for (Clock::time_point deadline = kNever; !audience_.empty() && WaitForRoom(&deadline);) {
    std::erase_if(audience_, is_done_with);
  }
  for (bus::Peer* peer : audience_) {
    peer->Sever();
  }
  if (!dispatching_) {
    Wake();
  }
  return reached;
}

bool vorbus::IsReady(std::uint64_t event) {
  if (!door_) {
    return true;
  }
  const auto have_room = [&] {
    const std::span<bus::Peer* const> audience = door_->Audience(event);
    return std::all_of(audience.begin(), audience.end(), [](const bus::Peer* peer) { return peer->HasRoom(); });
  };
  if (have_room()) {
    return true;
  }
  // What they have taken since is not known before it is read; what comes along with it is for the next dispatch.
  Collect(milliseconds(0));
  Absorb();
  if (!dispatching_) {
    Wake();
  }
  return have_room();
}

vorbus_registration* vorbus::RegisterSignal(std::uint64_t signal, vorbus_sig_fn handler, void* user) {
  return signals_.Add(this, signal, handler, user);
}

void vorbus::Deregister(vorbus_registration& registration) {
  signals_.Release(registration);
  Sweep();
}

int vorbus::RegisterEvent(std::uint64_t event, vorbus_event_fn handler, void* user, vorbus_eventreg** registration) {
  const bool is_new = !events_.Has(event);
  if (is_new && events_.size() >= bus::kMaxWantedEvents) {
    return -ENOSPC;
  }
  *registration = events_.Add(this, event, handler, user);
  if (is_new) {
    EventsChanged();
  }
  return 0;
}

void vorbus::Deregister(vorbus_eventreg& registration) {
  const std::uint64_t event = registration.identity;
  events_.Release(registration);
  if (!events_.Has(event)) {
    EventsChanged();
  }
  Sweep();
}

void vorbus::EventsChanged() {
  for (const auto& link : links_) {
    link->EventsChanged();
  }
  Wake();
}

int vorbus::CallSignalHandlers(std::uint32_t sender, const bus::Incoming& signal) {
  int calls = 0;
  signals_.Each(bus::Identity(signal.header.id, signal.header.number), [&](const vorbus_registration& registration) {
    const vorbus_pid_t pid = sender;
    registration.function(this, registration.user, &pid, DataOf(signal), signal.payload.size());
    ++calls;
  });
  return calls;
}

int vorbus::CallEventHandlers(const bus::Incoming& event) {
  int calls = 0;
  events_.Each(bus::Identity(event.header.id, event.header.number), [&](const vorbus_eventreg& registration) {
    registration.function(this, registration.user, DataOf(event), event.payload.size());
    ++calls;
  });
  return calls;
}

void vorbus::AddRoute(Channel& channel) {
  routes_.try_emplace(channel.pid(), &channel);
}

void vorbus::RemoveRoute(const Channel& channel) {
  const auto found = routes_.find(channel.pid());
  if (found != routes_.end() && found->second == &channel) {
    routes_.erase(found);
  }
}
