#include "door.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include "token.h"

namespace bus {

namespace {

constexpr int kBacklog = 1024;

// Whether the connection is one of that process, as Message::sender names it. A stranger's message may be older than
// the connection that its descriptor belongs to now, and nobody else is to lose a link for it.
bool BelongsTo(int connection, std::string_view process) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
    return false;
  }
  return process.ends_with(":" + std::to_string(credentials.uid) + ":" + std::to_string(credentials.gid) + ":" +
                           std::to_string(credentials.pid));
}

}  // namespace

void Peer::Sever() {
  door_.Sever(*this);
}

Channel::Sent Peer::Transmit(Message& message) {
  if (state_ != State::kLinked) {
    return Sent::kGone;
  }
  const Sent sent = door_.Transmit(id_, message);
  if (sent == Sent::kGone) {
    door_.StopServing(*this);
  }
  return sent;
}

Door::~Door() {
  if (!process_.empty()) {
    token_.directory().Withdraw(process_);
  }
  if (monitor_ && *monitor_) {
    token_.Unwatch(monitor_->fd());
  }
  if (socket_) {
    token_.Unwatch(socket_.fd());
  }
  for (const Signal& kept : kept_) {
    token_.Unkeep(kept.message);
  }
}

int Door::Open(const std::string& process) {
  const Directory& directory = token_.directory();
  int rc = directory.CheckLength(process);
  if (rc == 0) {
    rc = directory.LockName(process, &name_lock_);
  }
  if (rc != 0) {
    return rc;
  }
  socket_ = Socket(token_.context(), ZMQ_ROUTER);
  if (!socket_) {
    return -errno;
  }
  socket_.Set(ZMQ_ROUTER_MANDATORY, 1);
  socket_.Set(ZMQ_LINGER, kFlushMs);
  socket_.Set(ZMQ_BACKLOG, kBacklog);
  SetLimits(socket_);
  monitor_.emplace(token_.context(), socket_, ZMQ_EVENT_ACCEPTED | ZMQ_EVENT_DISCONNECTED);
  if (!*monitor_ || zmq_bind(socket_.get(), directory.FreshEndpoint(token_.pid()).c_str()) != 0) {
    return -errno;
  }
  token_.Watch(socket_.fd(), &socket_ready_);
  token_.Watch(monitor_->fd(), &monitor_ready_);
  ReadMonitor();  // ZeroMQ gives a sign of the next report only to a reader that found none
  socket_ready_ = true;
  token_.Wake();
  rc = directory.Publish(token_.pid(), process);
  if (rc == 0) {
    process_ = process;
  }
  return rc;
}

Channel::Sent Door::Transmit(const RoutingId& id, Message& message) {
  int error = socket_.SendFirstPart(std::as_bytes(std::span(id)));
  if (error == 0) {
    error = socket_.Send(message);
  }
  socket_ready_ = true;  // a send may have swallowed the sign that something arrived
  return error == 0 ? Channel::Sent::kDone : error == EAGAIN ? Channel::Sent::kFull : Channel::Sent::kGone;
}

void Door::ReadMonitorIfReady() {
  if (monitor_ready_) {
    ReadMonitor();
  }
}

void Door::ReadMonitor() {
  monitor_ready_ = false;
  while (const std::optional<Monitor::Event> event = monitor_->Next()) {
    const int descriptor = static_cast<int>(event->value);
    ConnectionGone(descriptor);
    if (event->what == ZMQ_EVENT_ACCEPTED) {
      connections_[descriptor] = ++last_connection_;
    }
  }
}

void Door::ConnectionGone(int descriptor) {
  const auto found = connections_.find(descriptor);
  if (found == connections_.end()) {
    return;
  }
  const std::uint64_t connection = found->second;
  connections_.erase(found);
  for (const auto& [id, peer] : peers_) {
    if (peer->connection_ == connection) {
      StopServing(*peer);
      peer->is_gone_ = true;
      any_gone_ = true;
      socket_ready_ = true;  // it is forgotten after all that it brought was received
    }
  }
}

std::uint64_t Door::ConnectionOf(int descriptor) const {
  const auto found = connections_.find(descriptor);
  return found != connections_.end() ? found->second : 0;
}

bool Door::Receive(Signal& signal) {
  while (socket_ready_) {
    if (socket_.Receive(id_part_) != 0) {
      socket_ready_ = false;
    } else if (socket_.Receive(signal.message) == 0 && Accept(signal)) {
      return true;
    }
  }
  return false;
}

bool Door::Accept(Signal& signal) {
  Message& message = signal.message;
  const bool has_more_parts = message.HasMoreParts();
  const std::span<std::byte> octets = message.octets();
  const std::optional<Header> header = has_more_parts ? std::nullopt : DecodeHeader(octets);
  for (bool more = has_more_parts; more;) {
    Message rest;
    more = socket_.Receive(rest) == 0 && rest.HasMoreParts();
  }
  const std::string_view id(reinterpret_cast<const char*>(id_part_.data()), id_part_.size());
  Peer* peer = Find(id);
  if (peer != nullptr && peer->state_ == Peer::State::kSevered) {
    return false;
  }
  const bool is_known =
      peer != nullptr && (peer->state_ == Peer::State::kLinked || peer->state_ == Peer::State::kLeaving);
  if (header && header->kind == Kind::kHello) {
    if (NoteHello(id, peer, *header, message)) {
      return false;
    }
    peer = Find(id);
  } else if (header && is_known) {
    if (header->to != token_.pid()) {
      return false;
    }
    if (header->kind == Kind::kSignal) {
      peer->Take(octets.size());
      signal.peer = peer;
      signal.header = *header;
      signal.payload = octets.subspan(kHeaderSize);
      return true;
    }
    if (header->kind == Kind::kTaken && peer->NoteTaken(*header)) {
      return false;
    }
  }
  if (peer != nullptr) {
    Sever(*peer);
  } else {
    RefuseStranger(id, message);
  }
  return false;
}

Peer* Door::Find(std::string_view id) {
  if (latest_ == nullptr || latest_->id_ != id) {
    const auto found = peers_.find(id);
    latest_ = found != peers_.end() ? found->second.get() : nullptr;
  }
  return latest_;
}

bool Door::NoteHello(std::string_view id, Peer* peer, const Header& header, Message& message) {
  if (header.id == 0 || (header.to != 0 && header.to != token_.pid())) {
    return false;
  }
  if (peer == nullptr) {
    return NoteNewcomer(id, header, message);
  }
  if (peer->pid_ != header.id) {
    return false;
  }
  LeaveAudiences(*peer);
  peer->wanted_events_ = DecodeHelloEvents(message.octets());
  ++peer->hellos_unanswered_;
  if (peer->state_ != Peer::State::kLinked) {
    return true;
  }
  JoinAudiences(*peer);
  return Answer(*peer);
}

bool Door::NoteNewcomer(std::string_view id, const Header& header, Message& message) {
  const std::string process = message.sender();
  for (const auto& [other_id, other] : peers_) {
    if (other->pid_ == header.id && other->process_ != process) {
      return false;  // nobody else can be that process
    }
  }
  ReadMonitor();
  const std::uint64_t connection = ConnectionOf(message.connection());
  if (connection == 0) {
    return true;  // it is gone already
  }
  Peer& peer = AddPeer(id, header.id, connection, message);
  peer.wanted_events_ = DecodeHelloEvents(message.octets());
  peer.hellos_unanswered_ = 1;
  return HasOther(peer) || Admit(peer);
}

// Remembered as one that is severed, so that what else it has sent is ignored.
void Door::RefuseStranger(std::string_view id, Message& message) {
  ReadMonitor();
  const std::uint64_t connection = ConnectionOf(message.connection());
  const bool is_anothers = std::any_of(peers_.begin(), peers_.end(),
                                       [&](const auto& entry) { return entry.second->connection_ == connection; });
  if (connection != 0 && !is_anothers) {
    Sever(AddPeer(id, 0, connection, message));
  }
}

Peer& Door::AddPeer(std::string_view id, std::uint32_t pid, std::uint64_t connection, Message& message) {
  auto peer = std::make_unique<Peer>(*this, RoutingId(id), pid, connection, message.sender());
  Peer& added = *peer;
  peers_[added.id_] = std::move(peer);
  return added;
}

bool Door::HasOther(const Peer& peer) const {
  return std::any_of(peers_.begin(), peers_.end(),
                     [&](const auto& entry) { return entry.second->pid_ == peer.pid_ && entry.second.get() != &peer; });
}

bool Door::Admit(Peer& peer) {
  peer.state_ = Peer::State::kLinked;
  token_.AddRoute(peer);
  JoinAudiences(peer);
  return Answer(peer);
}

bool Door::Answer(Peer& peer) {
  for (; peer.hellos_unanswered_ > 0; --peer.hellos_unanswered_) {
    Message ready = MakeMessage({Kind::kReady, peer.pid_, token_.pid(), 0}, 0);
    const Channel::Sent sent = peer.Transmit(ready);
    if (sent != Channel::Sent::kDone) {
      return sent == Channel::Sent::kGone;
    }
  }
  return true;
}

void Door::JoinAudiences(Peer& peer) {
  std::vector<std::uint64_t>& events = peer.wanted_events_;
  std::sort(events.begin(), events.end());
  events.erase(std::unique(events.begin(), events.end()), events.end());
  for (const std::uint64_t event : events) {
    audiences_[event].push_back(&peer);
  }
}

void Door::LeaveAudiences(Peer& peer) {
  if (peer.state_ != Peer::State::kLinked) {
    return;
  }
  for (const std::uint64_t event : peer.wanted_events_) {
    const auto found = audiences_.find(event);
    std::erase(found->second, &peer);
    if (found->second.empty()) {
      audiences_.erase(found);
    }
  }
}

std::span<Peer* const> Door::Audience(std::uint64_t event) const {
  const auto found = audiences_.find(event);
  return found != audiences_.end() ? std::span<Peer* const>(found->second) : std::span<Peer* const>();
}

void Door::StopServing(Peer& peer) {
  if (peer.state_ == Peer::State::kLinked) {
    LeaveAudiences(peer);
    token_.RemoveRoute(peer);
    peer.state_ = Peer::State::kLeaving;
  }
}

void Door::Sever(Peer& peer) {
  StopServing(peer);
  peer.state_ = Peer::State::kSevered;
  if (!peer.is_gone_) {
    Shut(peer);
  }
}

// ZeroMQ has no call for this; but the connection's descriptor is known, and ZeroMQ takes a connection that was shut
// down as one that the other side has closed.
void Door::Shut(const Peer& peer) {
  const auto found = std::find_if(connections_.begin(), connections_.end(),
                                  [&](const auto& entry) { return entry.second == peer.connection_; });
  if (found == connections_.end()) {
    return;
  }
  // Whatever the descriptor is now, it stays that while it is held; and it was the connection's if that is not reported
  // gone by now.
  const Fd held(fcntl(found->first, F_DUPFD_CLOEXEC, 0));
  ReadMonitor();
  if (held && !peer.is_gone_ && BelongsTo(held.get(), peer.process_)) {
    shutdown(held.get(), SHUT_RDWR);
  }
}

void Door::Absorb() {
  Signal signal;
  while (token_.HasRoom() && Receive(signal)) {
    token_.Keep(signal.message);
    kept_.push_back(std::move(signal));
  }
}

int Door::Deliver(int limit) {
  int calls = 0;
  Signal signal;
  for (int handled = 0; handled < limit; ++handled) {
    if (!kept_.empty()) {
      signal = std::move(kept_.front());
      kept_.pop_front();
      token_.Unkeep(signal.message);
    } else if (!Receive(signal)) {
      break;
    }
    if (signal.peer->state_ != Peer::State::kSevered) {
      calls += token_.CallSignalHandlers(signal.peer->pid_, signal);
    }
  }
  if (any_gone_ && !HasWork()) {
    ForgetGonePeers();
  }
  return calls;
}

void Door::ForgetGonePeers() {
  any_gone_ = false;
  latest_ = nullptr;
  std::erase_if(peers_, [](const auto& entry) { return entry.second->is_gone_; });
  for (const auto& [id, peer] : peers_) {
    if (peer->state_ == Peer::State::kQueued && !HasOther(*peer) && !Admit(*peer)) {
      Sever(*peer);
    }
  }
}

}  // namespace bus
