#include "link.h"

#include <sys/random.h>

#include <algorithm>
#include <array>

#include "token.h"

namespace bus {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kMinBackoff{10};
constexpr milliseconds kMaxBackoff{1000};
// ZeroMQ must not connect again by itself: the other side may have become another process. Switched off altogether
// (-1), it would throw away what has already arrived.
constexpr int kReconnectMs = 3600 * 1000;

}  // namespace

Link::Link(vorbus& token, std::string process) : token_(token), process_(std::move(process)) {}

Link::~Link() {
  DropKept();
  Disconnect(state_ == State::kReady ? kFlushMs : 0);
}

vorbus_subscription* Link::Subscribe(vorbus_found_fn found, vorbus_lost_fn lost, void* user) {
  subscriptions_.push_back(std::make_unique<vorbus_subscription>(vorbus_subscription{this, found, lost, user}));
  return subscriptions_.back().get();
}

bool Link::HasSubscribers() const {
  return std::any_of(subscriptions_.begin(), subscriptions_.end(), [](const auto& s) { return !s->released; });
}

void Link::Sweep() {
  std::erase_if(subscriptions_, [](const auto& subscription) { return subscription->released; });
}

void Link::Advance(Clock::time_point now) {
  if (state_ == State::kWaiting && due_ <= now) {
    due_ = token_.SeesChanges() ? Clock::time_point::max() : now + kMaxBackoff;
    if (HasSubscribers() && token_.directory().HasOwner(process_) && !Connect()) {
      Disconnect(0);
      due_ = now + kMaxBackoff;
    }
  } else if (events_changed_ && (state_ == State::kGreeting || state_ == State::kReady)) {
    Greet();
  }
}

bool Link::Connect() {
  std::array<std::byte, 16> routing_id{};
  if (getrandom(routing_id.data(), routing_id.size(), 0) != static_cast<ssize_t>(routing_id.size())) {
    return false;
  }
  routing_id[0] |= std::byte{0x80};  // those that begin with a zero are ZeroMQ's own
  socket_ = Socket(token_.context(), ZMQ_DEALER);
  if (!socket_) {
    return false;
  }
  zmq_setsockopt(socket_.get(), ZMQ_ROUTING_ID, routing_id.data(), routing_id.size());
  socket_.Set(ZMQ_LINGER, 0);
  socket_.Set(ZMQ_RECONNECT_IVL, kReconnectMs);
  SetLimits(socket_);
  monitor_.emplace(token_.context(), socket_, ZMQ_EVENT_DISCONNECTED | ZMQ_EVENT_CONNECT_RETRIED);
  if (!*monitor_ || zmq_connect(socket_.get(), token_.directory().Endpoint(process_).c_str()) != 0) {
    return false;
  }
  token_.Watch(socket_.fd(), &socket_ready_);
  token_.Watch(monitor_->fd(), &monitor_ready_);
  state_ = State::kGreeting;
  monitor_ready_ = true;  // ZeroMQ gives a sign of the next report only to a reader that found none
  ReadMonitorIfReady();
  return Greet() == Sent::kDone;
}

void Link::Disconnect(int linger_ms) {
  if (state_ == State::kReady) {
    token_.RemoveRoute(*this);
  }
  if (!socket_) {
    return;
  }
  if (monitor_ && *monitor_) {
    token_.Unwatch(monitor_->fd());
  }
  token_.Unwatch(socket_.fd());
  monitor_.reset();
  socket_.Set(ZMQ_LINGER, linger_ms);
  socket_ = Socket();
  socket_ready_ = monitor_ready_ = false;
  state_ = State::kWaiting;
}

Channel::Sent Link::Greet() {
  const std::vector<std::uint64_t> events = token_.WantedEvents();
  Message hello = MakeMessage({Kind::kHello, pid_, token_.pid(), static_cast<std::uint32_t>(events.size())},
                              HelloEventsSize(events.size()));
  EncodeHelloEvents(hello.data() + kHeaderSize, events);
  const Sent sent = HandOver(hello);
  if (sent == Sent::kDone) {
    events_changed_ = false;
    ++hellos_unanswered_;
  }
  return sent;
}

Channel::Sent Link::Transmit(Message& message) {
  if (state_ != State::kReady) {
    return Sent::kGone;
  }
  if (events_changed_ && Greet() != Sent::kDone) {
    return Sent::kFull;  // the other side is to know of them before it gets this message
  }
  return HandOver(message);
}

Channel::Sent Link::HandOver(Message& message) {
  const int error = socket_.Send(message);
  socket_ready_ = true;  // a send may have swallowed the sign that something arrived
  return error == 0 ? Sent::kDone : error == EAGAIN ? Sent::kFull : Sent::kGone;
}

void Link::ReadMonitorIfReady() {
  if (!monitor_ready_) {
    return;
  }
  monitor_ready_ = false;
  // Either event means that this connection is over; all that it brought has been handed over before.
  while (monitor_ && monitor_->Next()) {
    End();
  }
}

void Link::End() {
  if (state_ != State::kGreeting && state_ != State::kReady) {
    return;
  }
  if (state_ == State::kReady) {
    token_.RemoveRoute(*this);
  }
  state_ = State::kEnding;
  socket_ready_ = true;
}

void Link::Sever() {
  End();
  if (state_ == State::kEnding && socket_) {
    Disconnect(0);
    state_ = State::kEnding;  // what is kept is still delivered
  }
}

bool Link::Receive(Incoming& incoming) {
  while (socket_ready_) {
    if (socket_.Receive(incoming.message) != 0) {
      socket_ready_ = false;
    } else if (Accept(incoming)) {
      return true;
    }
  }
  return false;
}

bool Link::Accept(Incoming& incoming) {
  Message& message = incoming.message;
  const std::span<std::byte> octets = message.octets();
  const std::optional<Header> header = message.HasMoreParts() ? std::nullopt : DecodeHeader(octets);
  bool is_well_formed = header.has_value();
  if (is_well_formed && header->to != token_.pid()) {
    return false;
  }
  if (is_well_formed) {
    switch (header->kind) {
      case Kind::kReady:
        is_well_formed = NoteReady(*header);
        break;
      case Kind::kTaken:
        is_well_formed = NoteTaken(*header);
        break;
      case Kind::kSignal:
      case Kind::kEvent:
        if (pid_ != 0) {
          Take(octets.size());
          incoming.header = *header;
          incoming.payload = octets.subspan(kHeaderSize);
          return true;
        }
        is_well_formed = false;
        break;
      case Kind::kHello:
        is_well_formed = false;
        break;
    }
  }
  if (!is_well_formed) {
    Sever();
  }
  return false;
}

bool Link::NoteReady(const Header& header) {
  if (hellos_unanswered_ == 0 || header.id == 0 || (pid_ != 0 && pid_ != header.id)) {
    return false;
  }
  pid_ = header.id;
  --hellos_unanswered_;
  if (state_ == State::kEnding || hellos_unanswered_ != 0) {
    return true;
  }
  if (state_ == State::kGreeting && !(events_changed_ && Greet() == Sent::kDone)) {
    state_ = State::kReady;
    was_ready_ = true;
    backoff_ = {};
    token_.AddRoute(*this);
  }
  return true;
}

void Link::Absorb() {
  if (socket_ready_) {
    KeepWhatCame();
  }
}

void Link::KeepWhatCame() {
  Incoming incoming;
  while (token_.HasRoom() && Receive(incoming)) {
    token_.Keep(incoming.message);
    kept_.push_back(std::move(incoming));
  }
}

void Link::DropKept() {
  for (const Incoming& incoming : kept_) {
    token_.Unkeep(incoming.message);
  }
  kept_.clear();
}

bool Link::Next(Incoming& incoming) {
  if (!was_ready_) {
    KeepWhatCame();  // nothing is delivered before found
  }
  if (!was_ready_) {
    return false;
  }
  ReportFound();
  if (kept_.empty()) {
    return Receive(incoming);
  }
  incoming = std::move(kept_.front());
  kept_.pop_front();
  token_.Unkeep(incoming.message);
  return true;
}

int Link::Deliver(int limit) {
  int calls = 0;
  Incoming incoming;
  for (int handled = 0; handled < limit; ++handled) {
    calls += ReportFound();
    if (!HasSubscribers() || !Next(incoming)) {
      break;
    }
    calls += incoming.header.kind == Kind::kEvent ? token_.CallEventHandlers(incoming)
                                                  : token_.CallSignalHandlers(pid_, incoming);
  }
  calls += ReportFound();
  if (state_ == State::kEnding && kept_.empty() && !socket_ready_) {
    calls += ReportLost();
  }
  return calls;
}

bool Link::HasWork() const {
  return socket_ready_ || !kept_.empty() || state_ == State::kEnding ||
         (was_ready_ && std::any_of(subscriptions_.begin(), subscriptions_.end(),
                                    [](const auto& s) { return !s->is_found && !s->released; }));
}

int Link::ReportFound() {
  int calls = 0;
  // By index and up to the present end: a callback may add subscriptions.
  const std::size_t count = was_ready_ ? subscriptions_.size() : 0;
  for (std::size_t i = 0; i < count; ++i) {
    vorbus_subscription& subscription = *subscriptions_[i];
    if (!subscription.is_found && !subscription.released) {
      subscription.is_found = true;
      if (subscription.found != nullptr) {
        const vorbus_pid_t pid = pid_;
        subscription.found(&token_, &pid, subscription.user);
        ++calls;
      }
    }
  }
  return calls;
}

int Link::ReportLost() {
  Disconnect(0);
  DropKept();
  const Clock::time_point now = Clock::now();
  if (was_ready_) {
    due_ = now;
  } else {
    backoff_ = std::clamp(backoff_ * 2, kMinBackoff, kMaxBackoff);
    due_ = now + backoff_;
  }
  state_ = State::kWaiting;
  was_ready_ = false;
  events_changed_ = false;
  hellos_unanswered_ = 0;
  pid_ = 0;
  ResetFlow();
  int calls = 0;
  const std::size_t count = subscriptions_.size();
  for (std::size_t i = 0; i < count; ++i) {
    vorbus_subscription& subscription = *subscriptions_[i];
    if (subscription.is_found && !subscription.released) {
      subscription.is_found = false;
      if (subscription.lost != nullptr) {
        subscription.lost(&token_, subscription.user);
        ++calls;
      }
    }
  }
  return calls;
}

}  // namespace bus
