// The ports of this element: network interfaces of the namespace that the process runs in.
#ifndef CFM_SERVER_PORT_LINUX_PORTS_H
#define CFM_SERVER_PORT_LINUX_PORTS_H

#include <zlog.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "port/link_monitor.h"
#include "port/log_limit.h"
#include "port/netlink.h"
#include "port/packet_socket.h"
#include "port/port_control.h"
#include "port/ports.h"

namespace cfm::port {

class LinuxPorts final : public Ports {
 public:
  struct Options {
    /// Of each port's socket, in octets: some thousand frames, which is what arrives while others are served.
    PacketSocket::Buffers buffers = {.receive = 4 << 20, .send = 4 << 20};
  };

  /// The listener and the category outlive it. The links that exist are known at once, and the first Poll() tells of
  /// them. Throws std::system_error when the system refuses.
  LinuxPorts(Listener& listener, zlog_category_t* log, const Options& options);
  /// Undoes what was done to the ports.
  ~LinuxPorts();
  LinuxPorts(const LinuxPorts&) = delete;
  LinuxPorts& operator=(const LinuxPorts&) = delete;

  /// Can be read while there is something for Poll() to do.
  int fd() const { return epoll_.get(); }

  /// Serves what is there, a bounded part of it: a flood keeps nobody from what else is due. Throws std::system_error
  /// when the system no longer tells of its links.
  void Poll();

  /// Hands to the kernel what was sent since.
  void Flush();

  const Link* Find(Index index) const override { return links_.Find(index); }
  const Link* FindByName(std::string_view name) const { return links_.FindByName(name); }
  bool Open(Index index) override;
  void Close(Index index) override;
  bool Send(Index index, const protocol::OutgoingFrame& frame, Owner owner) override;
  protocol::ClockReading ReadClocks() override;
  void SetFaultAction(Index index, protocol::FaultAction action) override;
  bool SetLevelFilter(Index index, std::vector<protocol::LevelFilter> filters) override;
  std::optional<Index> FindStation(Index bridge, const pdu::MacAddress& address) const override;
  Counters CountersOf(Index index) const override;

 private:
  struct Port {
    Port(Index index, const PacketSocket::Buffers& buffers, NetlinkSocket& requests)
        : socket(index, buffers), control(requests, index) {}

    PacketSocket socket;
    PortControl control;
    mutable Counters counters;
    bool is_open = true;
    bool is_queued = false;  // in unflushed_
  };

  void TellEvents();
  void Serve(Index index, Port& port, bool may_have_stamps);
  void TellStamps(Port& port);
  void FlushPort(Port& port);
  void Retire(Index index);
  void Release(Index index, Port& port);
  void Wake();
  void Report(LogLimit& limit, Index index, const Refusal& refusal);

  Listener& listener_;
  zlog_category_t* log_;
  Options options_;
  Descriptor epoll_;
  Descriptor wake_;
  mutable NetlinkSocket requests_;
  LinkMonitor links_;
  ReceiveBatch batch_;
  std::map<Index, std::unique_ptr<Port>> ports_;
  std::vector<std::unique_ptr<Port>> retired_;  // closed by the listener while they are served
  std::vector<Port*> unflushed_;
  std::vector<RefusedFrame> refused_;
  LogLimit open_failures_;
  LogLimit refusals_;
};

}  // namespace cfm::port

#endif
