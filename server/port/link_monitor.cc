#include "port/link_monitor.h"

#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/if_bridge.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace cfm::port {
namespace {

constexpr int kMostNoticesPerRead = 64;
constexpr int kMostOutdated = 1 << 16;
constexpr int kMostDumps = 8;

pdu::PortStatus ToPortStatus(Octets bridge_port) {
  const auto state = ReadAs<std::uint8_t>(FindAttribute(bridge_port, IFLA_BRPORT_STATE));
  if (!state) return pdu::PortStatus::kNone;
  return *state == BR_STATE_FORWARDING ? pdu::PortStatus::kUp : pdu::PortStatus::kBlocked;
}

Request AskForLinks(std::uint16_t flags, Index index) {
  ifinfomsg which{};
  which.ifi_family = AF_UNSPEC;
  which.ifi_index = static_cast<int>(index);
  Request request(RTM_GETLINK, flags, which);
  request.Add(IFLA_EXT_MASK, std::uint32_t{RTEXT_FILTER_SKIP_STATS});
  return request;
}

LinkNotice ReadState(const ifinfomsg& fixed, Octets attributes) {
  LinkNotice notice;
  Link& link = notice.link;
  link.index = static_cast<Index>(fixed.ifi_index);
  link.is_ethernet = fixed.ifi_type == ARPHRD_ETHER;
  link.state.lower_up = (fixed.ifi_flags & IFF_LOWER_UP) != 0;
  Index master = 0;
  while (const auto attribute = TakeAttribute(attributes)) {
    switch (attribute->type) {
      case IFLA_IFNAME:
        link.name = ReadText(attribute->value);
        break;
      case IFLA_ADDRESS:
        if (link.is_ethernet) link.address = ReadAs<pdu::MacAddress>(attribute->value).value_or(pdu::MacAddress{});
        break;
      case IFLA_MTU:
        link.mtu = ReadAs<std::uint32_t>(attribute->value).value_or(0);
        break;
      case IFLA_OPERSTATE:
        link.state.operstate = ReadAs<std::uint8_t>(attribute->value).value_or(0);
        break;
      case IFLA_LINKMODE:
        notice.link_mode = ReadAs<std::uint8_t>(attribute->value).value_or(0);
        break;
      case IFLA_MASTER:
        master = ReadAs<std::uint32_t>(attribute->value).value_or(0);
        break;
      case IFLA_LINKINFO:
        if (ReadText(FindAttribute(attribute->value, IFLA_INFO_SLAVE_KIND)) == "bridge") {
          link.port_status = ToPortStatus(FindAttribute(attribute->value, IFLA_INFO_SLAVE_DATA));
        }
        if (ReadText(FindAttribute(attribute->value, IFLA_INFO_KIND)) == "bridge") {
          const Octets bridge = FindAttribute(attribute->value, IFLA_INFO_DATA);
          link.filters_vlans = ReadAs<std::uint8_t>(FindAttribute(bridge, IFLA_BR_VLAN_FILTERING)).value_or(0) != 0;
        }
        break;
      default:
        break;
    }
  }
  if (link.port_status != pdu::PortStatus::kNone) link.bridge = master;
  return notice;
}

}  // namespace

std::optional<LinkNotice> ReadLinkNotice(const NetlinkMessage& message) {
  const auto type = message.header.nlmsg_type;
  if (type != RTM_NEWLINK && type != RTM_DELLINK) return std::nullopt;
  const auto fixed = ReadAs<ifinfomsg>(message.body);
  if (!fixed || fixed->ifi_index <= 0) return std::nullopt;
  const Octets attributes = message.AttributesBehind<ifinfomsg>();

  if (fixed->ifi_family == AF_UNSPEC && type == RTM_NEWLINK) return ReadState(*fixed, attributes);
  LinkNotice notice;
  notice.link.index = static_cast<Index>(fixed->ifi_index);
  if (fixed->ifi_family == AF_UNSPEC) {
    notice.kind = LinkNotice::Kind::kRemoved;
    return notice;
  }
  // That a port leaves its bridge is told by the link's own message, too.
  if (fixed->ifi_family != AF_BRIDGE || type != RTM_NEWLINK) return std::nullopt;
  notice.kind = LinkNotice::Kind::kBridgePort;
  notice.link.port_status = ToPortStatus(FindAttribute(attributes, IFLA_PROTINFO));
  return notice;
}

LinkMonitor::LinkMonitor(NetlinkSocket& requests) : requests_(requests), notices_(RTMGRP_LINK) {
  ReadAll();
}

void LinkMonitor::Read() {
  for (int i = 0; i < kMostNoticesPerRead; ++i) {
    auto octets = notices_.ReceiveNotice();
    if (!octets) {
      // What is left is older than what is about to be read, and its successor may be among what was lost.
      for (int k = 0; k < kMostOutdated && (!octets || !octets->empty()); ++k) octets = notices_.ReceiveNotice();
      ReadAll();
      return;
    }
    if (octets->empty()) return;
    while (const auto message = TakeMessage(*octets)) {
      if (const auto notice = ReadLinkNotice(*message)) Apply(*notice);
    }
  }
}

void LinkMonitor::Refresh(Index index) {
  requests_.Dump(AskForLinks(NLM_F_ACK, index), [this](const NetlinkMessage& message) {
    if (const auto notice = ReadLinkNotice(message)) Apply(*notice);
  });
}

const Link* LinkMonitor::Find(Index index) const {
  const auto found = links_.find(index);
  return found == links_.end() ? nullptr : &found->second.link;
}

const Link* LinkMonitor::FindByName(std::string_view name) const {
  for (const auto& [index, known] : links_) {
    if (known.link.name == name) return &known.link;
  }
  return nullptr;
}

std::uint8_t LinkMonitor::LinkModeOf(Index index) const {
  const auto found = links_.find(index);
  return found == links_.end() ? 0 : found->second.link_mode;
}

void LinkMonitor::SetHeldDormant(Index index, bool is_held) {
  const auto found = links_.find(index);
  if (found == links_.end()) return;
  Known known = found->second;
  known.link.state.held_dormant = is_held;
  Update(index, std::move(known));
}

LinkMonitor::Events LinkMonitor::TakeEvents() {
  Events events{.removed = std::exchange(removed_, {}), .changed = {changed_.begin(), changed_.end()}};
  changed_.clear();
  return events;
}

// What is not among the answers is gone.
void LinkMonitor::ReadAll() {
  std::set<Index> present;
  int error = -EAGAIN;
  for (int i = 0; error == -EAGAIN && i < kMostDumps; ++i) {
    present.clear();
    error = requests_.Dump(AskForLinks(NLM_F_DUMP, 0), [this, &present](const NetlinkMessage& message) {
      const auto notice = ReadLinkNotice(message);
      if (!notice) return;
      present.insert(notice->link.index);
      Apply(*notice);
    });
  }
  if (error != 0 && error != -EAGAIN) throw std::system_error(-error, std::generic_category(), "links");
  std::vector<Index> gone;
  for (const auto& [index, known] : links_) {
    if (!present.contains(index)) gone.push_back(index);
  }
  for (const Index index : gone) Remove(index);
}

void LinkMonitor::Apply(const LinkNotice& notice) {
  const Index index = notice.link.index;
  const auto found = links_.find(index);
  switch (notice.kind) {
    case LinkNotice::Kind::kRemoved:
      Remove(index);
      break;
    case LinkNotice::Kind::kBridgePort:
      if (found == links_.end() || found->second.link.bridge == 0) break;
      {
        Known known = found->second;
        known.port_status = notice.link.port_status;
        Update(index, std::move(known));
      }
      break;
    case LinkNotice::Kind::kState: {
      Known known{.link = notice.link, .port_status = notice.link.port_status, .link_mode = notice.link_mode};
      if (found != links_.end()) known.link.state.held_dormant = found->second.link.state.held_dormant;
      Update(index, std::move(known));
      break;
    }
  }
}

void LinkMonitor::Update(Index index, Known known) {
  known.link.port_status = known.port_status;
  if (known.link.state.held_dormant && known.link.bridge != 0) {
    known.link.port_status = known.link.state.lower_up ? pdu::PortStatus::kUp : pdu::PortStatus::kBlocked;
  }
  Known& present = links_[index];
  if (present.link != known.link) changed_.insert(index);
  present = std::move(known);
}

void LinkMonitor::Remove(Index index) {
  if (links_.erase(index) == 0) return;
  changed_.erase(index);
  removed_.push_back(index);
}

}  // namespace cfm::port
