// A named process's side of the links to its subscribers.
#ifndef VORBUS_DOOR_H
#define VORBUS_DOOR_H

#include <vorbus/vorbus.h>

#include <array>
#include <cstring>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "channel.h"
#include "fd.h"
#include "monitor.h"

namespace bus {

class Door;

// How ZeroMQ tells one connection from another. Subscribers draw a new one for each connection.
using RoutingId = std::array<std::byte, 16>;

struct RoutingIdHash {
  std::size_t operator()(const RoutingId& id) const {
    std::size_t hash = 0;
    std::memcpy(&hash, id.data(), sizeof hash);
    return hash;
  }
};

// One subscriber.
class Peer final : public Channel {
 public:
  Peer(Door& door, const RoutingId& id, std::uint32_t pid, std::uint64_t connection, std::string process)
      : door_(door), id_(id), connection_(connection), process_(std::move(process)) {
    pid_ = pid;
  }

  void sever() override;

 private:
  friend class Door;

  //   queued: an older link of the same process is not finished yet
  //   linked: in use
  //   leaving: the connection is gone; what it brought is still delivered
  //   severed: given up; what it brings is ignored
  enum class State { kQueued, kLinked, kLeaving, kSevered };

  Sent transmit(Message& message) override;

  Door& door_;
  RoutingId id_;
  std::uint64_t connection_;  // its serial number at the door
  bool is_gone_ = false;      // the connection
  std::string process_;       // as the system knows it
  State state_ = State::kQueued;
  unsigned int hellos_unanswered_ = 0;
  std::vector<std::uint64_t> wanted_events_;
};

class Door {
 public:
  explicit Door(vorbus& token) : token_(token) {}
  ~Door();
  Door(const Door&) = delete;
  Door& operator=(const Door&) = delete;

  // 0 or a negative errno.
  int open(const std::string& process);

  void read_monitor_if_ready();
  void absorb();
  int deliver(int limit);
  bool has_work() const { return socket_ready_ || !kept_.empty(); }

  // The subscribers that want an event.
  std::span<Peer* const> audience(std::uint64_t event) const;

 private:
  friend class Peer;

  struct Kept {
    Peer* peer;
    Message message;
  };

  Channel::Sent transmit(const RoutingId& id, Message& message);
  void read_monitor();
  void connection_gone(int descriptor);
  // The serial number of the connection with that descriptor, 0 when there is none.
  std::uint64_t connection_of(int descriptor) const;
  bool receive(Kept& kept);
  bool accept(Message& id, Message& message, Kept& kept);
  Peer* find(Message& id);
  bool note_hello(Message& id, Peer* peer, const Header& header, Message& message);
  bool note_newcomer(const RoutingId& id, const Header& header, Message& message);
  bool has_other(const Peer& peer) const;  // of the same process
  bool admit(Peer& peer);
  bool answer(Peer& peer);
  void join_audiences(Peer& peer);
  void leave_audiences(Peer& peer);
  void stop_serving(Peer& peer);
  void sever(Peer& peer);
  void shut(std::uint64_t connection);
  void forget_gone_peers();

  vorbus& token_;
  std::string process_;
  Fd name_lock_;
  Socket socket_;
  std::optional<Monitor> monitor_;
  bool socket_ready_ = false;
  bool monitor_ready_ = false;
  bool any_gone_ = false;
  std::unordered_map<int, std::uint64_t> connections_;  // that are there: descriptor and serial number
  std::uint64_t last_connection_ = 0;
  std::unordered_map<RoutingId, std::unique_ptr<Peer>, RoutingIdHash> peers_;
  Peer* latest_ = nullptr;  // that something came from
  std::unordered_map<std::uint64_t, std::vector<Peer*>> audiences_;
  std::deque<Kept> kept_;
};

}  // namespace bus

#endif
