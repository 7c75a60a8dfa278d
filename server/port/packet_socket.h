// CFM frames in and out of one port.
#ifndef CFM_SERVER_PORT_PACKET_SOCKET_H
#define CFM_SERVER_PORT_PACKET_SOCKET_H

#include <linux/if_packet.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "pdu/ethernet.h"
#include "port/descriptor.h"
#include "port/ports.h"
#include "protocol/frame.h"

namespace cfm::port {

/// Room for frames that arrive together, used for all ports in turn.
class ReceiveBatch {
 public:
  static constexpr std::size_t kFrames = 32;

  ReceiveBatch();
  ReceiveBatch(const ReceiveBatch&) = delete;
  ReceiveBatch& operator=(const ReceiveBatch&) = delete;

  /// Takes what a packet socket has. The number of frames, 0 when there is none; errors of the port are none of the
  /// socket's.
  std::size_t Fill(int socket);

  /// One of those. None when it is not for this system, or when it was counted as wrong. Good until Fill().
  std::optional<protocol::ReceivedFrame> Read(std::size_t number, Counters& counters) const;

 private:
  static constexpr std::size_t kFrameSize = pdu::kLongestEthernetHeader + protocol::kLargestPdu;
  static constexpr std::size_t kControlSize = 256;  // more than a tag's and a stamp's messages take together

  struct alignas(cmsghdr) Control {
    std::array<std::uint8_t, kControlSize> octets;
  };

  std::vector<std::uint8_t> octets_;
  std::array<Control, kFrames> controls_{};
  std::array<sockaddr_ll, kFrames> senders_{};
  std::array<iovec, kFrames> vectors_{};
  std::array<mmsghdr, kFrames> messages_{};
};

/// A frame that the kernel did not take after all.
struct RefusedFrame {
  Owner owner;
  std::vector<std::uint8_t> pdu;
};

struct Stamped {
  Owner owner = 0;
  std::uint32_t stamp_id = 0;
  protocol::Stamps stamps{};
};

class PacketSocket {
 public:
  /// In octets, as far as the system allows them.
  struct Buffers {
    int receive;
    int send;
  };

  /// Throws std::system_error when the system refuses.
  PacketSocket(Index index, const Buffers& buffers);

  int fd() const { return socket_.get(); }

  /// Takes a copy, for Flush(). False when it is larger than any frame.
  bool Queue(const protocol::OutgoingFrame& frame, Owner owner);
  std::size_t queued() const { return queue_.size(); }

  /// Hands over what is queued, in that order.
  void Flush(Counters& counters, std::vector<RefusedFrame>& refused);

  /// One that the kernel has noted; none when there is no more.
  std::optional<Stamped> NextStamped();
  /// Whether there may be more to come.
  bool awaits_stamps() const { return !awaited_.empty(); }

  /// Frames lost since the last call because the socket was full.
  std::uint64_t TakeOverruns();

 private:
  struct Queued {
    std::size_t begin = 0;
    std::size_t header_size = 0;
    std::size_t size = 0;
    Owner owner = 0;
    std::optional<std::uint32_t> stamp_id{};
  };

  struct Awaited {
    std::uint32_t key;  // by the kernel's count of the frames of this socket that ask for stamps
    Stamped answer;
  };

  void SetUp(const Buffers& buffers);
  void JoinGroups(Index index);
  void RestartStampKeys();

  Descriptor socket_;
  std::vector<std::uint8_t> octets_;
  std::vector<Queued> queue_;
  std::vector<iovec> vectors_;
  std::vector<mmsghdr> messages_;
  std::uint32_t next_key_ = 0;
  std::deque<Awaited> awaited_;
};

}  // namespace cfm::port

#endif
