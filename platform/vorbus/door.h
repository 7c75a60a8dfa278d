// A named process's side of the links to its subscribers.
#ifndef VORBUS_DOOR_H
#define VORBUS_DOOR_H

#include <vorbus/vorbus.h>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "channel.h"
#include "fd.h"
#include "monitor.h"

namespace bus {

class Door;

// How ZeroMQ tells one connection from another. Subscribers draw a new one for each connection.
using RoutingId = std::string;

struct RoutingIdHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view id) const { return std::hash<std::string_view>()(id); }
};

// One subscriber, or one that sent something else than a subscriber does.
class Peer final : public Channel {
 public:
  Peer(Door& door, RoutingId id, std::uint32_t pid, std::uint64_t connection, std::string process)
      : door_(door), id_(std::move(id)), connection_(connection), process_(std::move(process)) {
    pid_ = pid;
  }

  void Sever() override;

 private:
  friend class Door;

  //   queued: an older link of the same process is not finished yet
  //   linked: in use
  //   leaving: the connection is gone; what it brought is still delivered
  //   severed: given up; what it brings is ignored
  enum class State { kQueued, kLinked, kLeaving, kSevered };

  Sent Transmit(Message& message) override;

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
  int Open(const std::string& process);

  void ReadMonitorIfReady();
  void Absorb();
  int Deliver(int limit);
  bool HasWork() const { return socket_ready_ || !kept_.empty(); }

  // The subscribers that want an event.
  std::span<Peer* const> Audience(std::uint64_t event) const;

 private:
  friend class Peer;

  // A signal, and who sent it.
  struct Signal : Incoming {
    Peer* peer = nullptr;
  };

  Channel::Sent Transmit(const RoutingId& id, Message& message);
  void ReadMonitor();
  void ConnectionGone(int descriptor);
  // The serial number of the connection with that descriptor, 0 when there is none.
  std::uint64_t ConnectionOf(int descriptor) const;
  bool Receive(Signal& signal);
  bool Accept(Signal& signal);
  Peer* Find(std::string_view id);
  bool NoteHello(std::string_view id, Peer* peer, const Header& header, Message& message);
  bool NoteNewcomer(std::string_view id, const Header& header, Message& message);
  void RefuseStranger(std::string_view id, Message& message);
  Peer& AddPeer(std::string_view id, std::uint32_t pid, std::uint64_t connection, Message& message);
  bool HasOther(const Peer& peer) const;  // of the same process
  bool Admit(Peer& peer);
  bool Answer(Peer& peer);
  void JoinAudiences(Peer& peer);
  void LeaveAudiences(Peer& peer);
  void StopServing(Peer& peer);
  void Sever(Peer& peer);
  void Shut(const Peer& peer);
  void ForgetGonePeers();

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
  std::unordered_map<RoutingId, std::unique_ptr<Peer>, RoutingIdHash, std::equal_to<>> peers_;
  Peer* latest_ = nullptr;  // that something came from
  std::unordered_map<std::uint64_t, std::vector<Peer*>> audiences_;
  Message id_part_;  // of the message that is being received
  std::deque<Signal> kept_;
};

}  // namespace bus

#endif
