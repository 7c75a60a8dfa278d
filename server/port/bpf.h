// Classic BPF programs, for the kernel to run on frames.
#ifndef CFM_SERVER_PORT_BPF_H
#define CFM_SERVER_PORT_BPF_H

#include <linux/filter.h>

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "port/ports.h"

namespace cfm::port {

using Program = std::vector<sock_filter>;

/// For a packet socket: takes what carries the EtherType of CFM behind at most two tags, of which the kernel may have
/// taken the outer one out of the frame.
Program SocketFilter();

/// Who a program at a hook belongs to, and what else its owner has done to the port. Such a program has no name; its
/// first instruction, which does nothing, tells it.
enum class HookMark : std::uint32_t { kFilter = 0x63666d01, kFilterOfDormantPort = 0x63666d02 };

std::optional<HookMark> MarkOf(std::span<const sock_filter> program);

struct HookPolicy {
  bool cfm_only = false;                             ///< drops everything that is not CFM
  std::span<const protocol::LevelFilter> filters{};  ///< the last one of a VLAN counts
  HookMark mark = HookMark::kFilter;
};

/// For direct action at a hook of traffic control. What it does not drop goes on to the next filter. None when there
/// are more of them than a program can hold.
std::optional<Program> HookProgram(const HookPolicy& policy);

}  // namespace cfm::port

#endif
