#include "port/port_control.h"

#include <linux/if.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

namespace cfm::port {
namespace {

constexpr std::array<Hook, 2> kHooks = {Hook::kIngress, Hook::kEgress};

}  // namespace

bool PortControl::TakeOver() {
  for (const Hook hook : kHooks) {
    const auto present = hooks_.Look(hook);
    if (!present.own) continue;
    has_filters_ = true;
    owns_hooks_ = true;
    holds_dormant_ |= present.own == HookMark::kFilterOfDormantPort;
  }
  return has_filters_;
}

std::optional<Refusal> PortControl::SetFaultAction(protocol::FaultAction action, std::uint8_t link_mode) {
  action_ = action;
  const bool is_dormant =
      action == protocol::FaultAction::kShutdown && (holds_dormant_ || link_mode == IF_LINK_MODE_DEFAULT);
  // The filter tells whether the port is held, in case that this process ends before it lets go of it.
  if (!is_dormant && holds_dormant_) {
    if (const auto refusal = SetDormant(false)) return refusal;
  }
  const bool is_new = is_dormant && !holds_dormant_;
  if (is_new) holds_dormant_ = true;
  auto refusal = Filter();
  if (is_new && !refusal) refusal = SetDormant(true);
  if (is_new && refusal) holds_dormant_ = false;
  return refusal;
}

std::optional<Refusal> PortControl::SetLevelFilter(std::vector<protocol::LevelFilter> filters) {
  std::swap(filters_, filters);
  const auto refusal = Filter();
  if (refusal) {
    filters_ = std::move(filters);
    Filter();  // one hook may have the new ones
  }
  return refusal;
}

std::optional<Refusal> PortControl::Release() {
  filters_.clear();
  return SetFaultAction(protocol::FaultAction::kNone, IF_LINK_MODE_DEFAULT);
}

std::optional<Refusal> PortControl::Filter() {
  const HookPolicy policy{.cfm_only = action_ != protocol::FaultAction::kNone,
                          .filters = filters_,
                          .mark = holds_dormant_ ? HookMark::kFilterOfDormantPort : HookMark::kFilter};
  if (!policy.cfm_only && policy.filters.empty()) return RemoveFilters();
  const auto program = HookProgram(policy);
  if (!program) return Refusal{"more level filters than a program holds", -E2BIG};
  if (const int error = hooks_.AddHooks(); error == 0) {
    owns_hooks_ = true;
  } else if (error != -EEXIST) {
    return Refusal{"to make the hooks for filters", error};
  }
  has_filters_ = true;
  for (const Hook hook : kHooks) {
    if (const int error = hooks_.PutFilter(hook, *program); error != 0) return Refusal{"to set a filter", error};
  }
  return std::nullopt;
}

std::optional<Refusal> PortControl::RemoveFilters() {
  if (!has_filters_) return std::nullopt;
  for (const Hook hook : kHooks) {
    const int error = hooks_.RemoveFilter(hook);
    if (error != 0 && error != -ENOENT) return Refusal{"to remove a filter", error};
  }
  has_filters_ = false;
  return RemoveUnusedHooks();
}

// Hooks that somebody else made stay, and so do those that somebody else has come to use.
std::optional<Refusal> PortControl::RemoveUnusedHooks() {
  if (!std::exchange(owns_hooks_, false)) return std::nullopt;
  for (const Hook hook : kHooks) {
    if (hooks_.Look(hook).is_shared) return std::nullopt;
  }
  const int error = hooks_.RemoveHooks();
  return error == 0 ? std::nullopt : std::optional<Refusal>({"to remove the hooks for filters", error});
}

// The mode alone takes effect with the next change of the carrier only, so the state is set, too. The kernel takes it
// from up to dormant and back, and leaves it alone when it is anything else.
std::optional<Refusal> PortControl::SetDormant(bool is_dormant) {
  ifinfomsg which{};
  which.ifi_family = AF_UNSPEC;
  which.ifi_index = static_cast<int>(index_);
  Request request(RTM_SETLINK, 0, which);
  request.Add(IFLA_OPERSTATE, static_cast<std::uint8_t>(is_dormant ? IF_OPER_DORMANT : IF_OPER_UP));
  request.Add(IFLA_LINKMODE, static_cast<std::uint8_t>(is_dormant ? IF_LINK_MODE_DORMANT : IF_LINK_MODE_DEFAULT));
  const int error = netlink_.Ask(std::move(request));
  if (error != 0) return Refusal{is_dormant ? "to make the port dormant" : "to take the port out of dormancy", error};
  holds_dormant_ = is_dormant;
  return std::nullopt;
}

}  // namespace cfm::port
