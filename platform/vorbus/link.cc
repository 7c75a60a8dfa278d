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
constexpr int kFlushMs = 1000;
constexpr int kHandshakeMs = 5000;
// ZeroMQ must not connect again by itself: the other side may have become another process. Switched off altogether
// (-1), it would throw away what has already arrived.
constexpr int kReconnectMs = 3600 * 1000;

}  // namespace

Link::Link(vorbus& token, std::string process) : token_(token), process_(std::move(process)) {}

Link::~Link() {
  drop_kept();
  disconnect(state_ == State::kReady ? kFlushMs : 0);
}

vorbus_subscription* Link::subscribe(vorbus_found_fn found, vorbus_lost_fn lost, void* user) {
  subscriptions_.push_back(std::make_unique<vorbus_subscription>(vorbus_subscription{this, found, lost, user}));
  return subscriptions_.back().get();
}

bool Link::has_subscribers() const {
  return std::any_of(subscriptions_.begin(), subscriptions_.end(), [](const auto& s) { return !s->released; });
}

void Link::sweep() {
  std::erase_if(subscriptions_, [](const auto& subscription) { return subscription->released; });
}

void Link::advance(Clock::time_point now) {
  if (state_ == State::kWaiting && due_ <= now) {
    due_ = token_.sees_changes() ? Clock::time_point::max() : now + kMaxBackoff;
    if (has_subscribers() && token_.directory().has_owner(process_) && !connect()) {
      disconnect(0);
      due_ = now + kMaxBackoff;
    }
  } else if (events_changed_ && (state_ == State::kGreeting || state_ == State::kReady)) {
    greet();
  }
}

bool Link::connect() {
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
  socket_.set(ZMQ_LINGER, 0);
  socket_.set(ZMQ_SNDHWM, Flow::kQueueMessages);
  socket_.set(ZMQ_RCVHWM, Flow::kQueueMessages);
  socket_.set(ZMQ_RECONNECT_IVL, kReconnectMs);
  socket_.set(ZMQ_HANDSHAKE_IVL, kHandshakeMs);
  const std::int64_t limit = kHeaderSize + kMaxPayload;
  zmq_setsockopt(socket_.get(), ZMQ_MAXMSGSIZE, &limit, sizeof limit);
  monitor_.emplace(token_.context(), socket_, ZMQ_EVENT_DISCONNECTED | ZMQ_EVENT_CONNECT_RETRIED);
  if (!*monitor_ || zmq_connect(socket_.get(), token_.directory().endpoint(process_).c_str()) != 0) {
    return false;
  }
  token_.watch(socket_.fd(), &socket_ready_);
  token_.watch(monitor_->fd(), &monitor_ready_);
  state_ = State::kGreeting;
  monitor_ready_ = true;  // ZeroMQ gives a sign of the next report only to a reader that found none
  read_monitor_if_ready();
  return greet() == Sent::kDone;
}

void Link::disconnect(int linger_ms) {
  if (state_ == State::kReady) {
    token_.remove_route(*this);
  }
  if (!socket_) {
    return;
  }
  if (monitor_ && *monitor_) {
    token_.unwatch(monitor_->fd());
  }
  token_.unwatch(socket_.fd());
  monitor_.reset();
  socket_.set(ZMQ_LINGER, linger_ms);
  socket_ = Socket();
  socket_ready_ = monitor_ready_ = false;
  state_ = State::kWaiting;
}

Channel::Sent Link::greet() {
  const std::vector<std::uint64_t> events = token_.wanted_events();
  Message hello = make_message({Kind::kHello, pid_, token_.pid(), static_cast<std::uint32_t>(events.size())},
                               hello_events_size(events.size()));
  encode_hello_events(hello.data() + kHeaderSize, events);
  const Sent sent = hand_over(hello);
  if (sent == Sent::kDone) {
    events_changed_ = false;
    ++hellos_unanswered_;
  }
  return sent;
}

Channel::Sent Link::transmit(Message& message) {
  if (state_ != State::kReady) {
    return Sent::kGone;
  }
  if (events_changed_ && greet() != Sent::kDone) {
    return Sent::kFull;  // the other side is to know of them before it gets this message
  }
  return hand_over(message);
}

Channel::Sent Link::hand_over(Message& message) {
  const int error = socket_.send(message);
  socket_ready_ = true;  // a send may have swallowed the sign that something arrived
  return error == 0 ? Sent::kDone : error == EAGAIN ? Sent::kFull : Sent::kGone;
}

void Link::read_monitor_if_ready() {
  if (!monitor_ready_) {
    return;
  }
  monitor_ready_ = false;
  // Either event means that this connection is over; all that it brought has been handed over before.
  while (monitor_ && monitor_->next()) {
    end();
  }
}

void Link::end() {
  if (state_ != State::kGreeting && state_ != State::kReady) {
    return;
  }
  if (state_ == State::kReady) {
    token_.remove_route(*this);
  }
  state_ = State::kEnding;
  socket_ready_ = true;
}

void Link::sever() {
  end();
  if (state_ == State::kEnding && socket_) {
    disconnect(0);
    state_ = State::kEnding;  // what is kept is still delivered
  }
}

bool Link::receive(Message& message) {
  while (socket_ready_) {
    if (socket_.receive(message) != 0) {
      socket_ready_ = false;
    } else if (accept(message)) {
      return true;
    }
  }
  return false;
}

bool Link::accept(Message& message) {
  const std::optional<Header> header = message.has_more_parts() ? std::nullopt : decode_header(message.octets());
  bool is_well_formed = header.has_value();
  if (is_well_formed && header->to != token_.pid()) {
    return false;
  }
  if (is_well_formed) {
    switch (header->kind) {
      case Kind::kReady:
        is_well_formed = note_ready(*header);
        break;
      case Kind::kTaken:
        is_well_formed = note_taken(*header);
        break;
      case Kind::kSignal:
      case Kind::kEvent:
        if (pid_ != 0) {
          take(message);
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
    sever();
  }
  return false;
}

bool Link::note_ready(const Header& header) {
  if (hellos_unanswered_ == 0 || header.id == 0 || (pid_ != 0 && pid_ != header.id)) {
    return false;
  }
  pid_ = header.id;
  --hellos_unanswered_;
  if (state_ == State::kEnding || hellos_unanswered_ != 0) {
    return true;
  }
  if (state_ == State::kGreeting && !(events_changed_ && greet() == Sent::kDone)) {
    state_ = State::kReady;
    was_ready_ = true;
    backoff_ = {};
    token_.add_route(*this);
  }
  return true;
}

void Link::absorb() {
  if (socket_ready_) {
    keep_what_came();
  }
}

void Link::keep_what_came() {
  Message message;
  while (token_.has_room() && receive(message)) {
    token_.keep(message);
    kept_.push_back(std::move(message));
  }
}

void Link::drop_kept() {
  for (const Message& message : kept_) {
    token_.unkeep(message);
  }
  kept_.clear();
}

bool Link::next(Message& message) {
  if (!was_ready_) {
    keep_what_came();  // nothing is delivered before found
  }
  if (!was_ready_) {
    return false;
  }
  report_found();
  if (kept_.empty()) {
    return receive(message);
  }
  message = std::move(kept_.front());
  kept_.pop_front();
  token_.unkeep(message);
  return true;
}

int Link::deliver(int limit) {
  int calls = 0;
  Message message;
  for (int handled = 0; handled < limit; ++handled) {
    calls += report_found();
    if (!has_subscribers() || !next(message)) {
      break;
    }
    const std::optional<Header> header = decode_header(message.octets());
    calls += header->kind == Kind::kEvent ? token_.call_event_handlers(*header, message)
                                          : token_.call_signal_handlers(pid_, *header, message);
  }
  calls += report_found();
  if (state_ == State::kEnding && kept_.empty() && !socket_ready_) {
    calls += report_lost();
  }
  return calls;
}

bool Link::has_work() const {
  return socket_ready_ || !kept_.empty() || state_ == State::kEnding ||
         (was_ready_ && std::any_of(subscriptions_.begin(), subscriptions_.end(),
                                    [](const auto& s) { return !s->is_found && !s->released; }));
}

int Link::report_found() {
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

int Link::report_lost() {
  disconnect(0);
  drop_kept();
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
  reset_flow();
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
