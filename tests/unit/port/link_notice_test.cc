// What the kernel says of links, octet by octet; and how often the log is told something.
#include <gtest/gtest.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/if_bridge.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <vector>

#include "port/link_monitor.h"
#include "port/log_limit.h"
#include "port/netlink.h"

namespace cfm::port {
namespace {

constexpr pdu::MacAddress kAddress = {2, 0, 0, 0, 0, 7};

std::vector<std::uint8_t> MakeNotice(
    std::uint16_t type, std::uint8_t family, const std::function<void(Request&)>& fill = [](Request&) {}) {
  ifinfomsg fixed{};
  fixed.ifi_family = family;
  fixed.ifi_index = 7;
  fixed.ifi_type = ARPHRD_ETHER;
  fixed.ifi_flags = IFF_UP | IFF_LOWER_UP;
  Request notice(type, 0, fixed);
  fill(notice);
  const auto octets = notice.Finish(0, 0);
  std::vector<std::uint8_t> copy(octets.size());
  std::memcpy(copy.data(), octets.data(), octets.size());
  return copy;
}

std::optional<LinkNotice> Read(Octets octets) {
  const auto message = TakeMessage(octets);
  return message ? ReadLinkNotice(*message) : std::nullopt;
}

void FillPort(Request& notice, std::string_view kind_of_master) {
  notice.Add(IFLA_IFNAME, "port7");
  notice.Add(IFLA_ADDRESS, kAddress);
  notice.Add(IFLA_MTU, std::uint32_t{1500});
  notice.Add(IFLA_OPERSTATE, std::uint8_t{IF_OPER_UP});
  notice.Add(IFLA_LINKMODE, std::uint8_t{IF_LINK_MODE_DORMANT});
  notice.Add(IFLA_MASTER, std::uint32_t{9});
  const std::size_t info = notice.Begin(IFLA_LINKINFO);
  notice.Add(IFLA_INFO_SLAVE_KIND, kind_of_master);
  const std::size_t data = notice.Begin(IFLA_INFO_SLAVE_DATA);
  notice.Add(IFLA_BRPORT_STATE, std::uint8_t{BR_STATE_FORWARDING});
  notice.End(data);
  notice.End(info);
}

TEST(ALinkNotice, TellsWhatThePortIs) {
  const auto notice = Read(MakeNotice(RTM_NEWLINK, AF_UNSPEC, [](Request& port) { FillPort(port, "bridge"); }));
  ASSERT_TRUE(notice);
  EXPECT_EQ(notice->kind, LinkNotice::Kind::kState);
  EXPECT_EQ(notice->link_mode, IF_LINK_MODE_DORMANT);
  const Link expected{.index = 7,
                      .name = "port7",
                      .address = kAddress,
                      .is_ethernet = true,
                      .mtu = 1500,
                      .state = {.operstate = IF_OPER_UP, .lower_up = true},
                      .bridge = 9,
                      .port_status = pdu::PortStatus::kUp};
  EXPECT_EQ(notice->link, expected);
}

TEST(ALinkNotice, KnowsABridgeFromOtherMasters) {
  const auto notice = Read(MakeNotice(RTM_NEWLINK, AF_UNSPEC, [](Request& port) { FillPort(port, "bond"); }));
  ASSERT_TRUE(notice);
  EXPECT_EQ(notice->link.bridge, 0U);
  EXPECT_EQ(notice->link.port_status, pdu::PortStatus::kNone);
}

TEST(ALinkNotice, TellsWhetherABridgeFiltersByVlan) {
  for (const bool filters : {true, false}) {
    const auto notice = Read(MakeNotice(RTM_NEWLINK, AF_UNSPEC, [&](Request& bridge) {
      const std::size_t info = bridge.Begin(IFLA_LINKINFO);
      bridge.Add(IFLA_INFO_KIND, std::string_view("bridge"));
      const std::size_t data = bridge.Begin(IFLA_INFO_DATA);
      bridge.Add(IFLA_BR_VLAN_FILTERING, static_cast<std::uint8_t>(filters));
      bridge.End(data);
      bridge.End(info);
    }));
    ASSERT_TRUE(notice);
    EXPECT_EQ(notice->link.filters_vlans, filters);
  }
}

TEST(ALinkNotice, OfTheBridgeTellsTheStateOfItsPort) {
  for (std::uint8_t state = BR_STATE_DISABLED; state <= BR_STATE_BLOCKING; ++state) {
    const auto notice = Read(MakeNotice(RTM_NEWLINK, AF_BRIDGE, [state](Request& port) {
      const std::size_t data = port.Begin(IFLA_PROTINFO | NLA_F_NESTED);
      port.Add(IFLA_BRPORT_STATE, state);
      port.End(data);
    }));
    ASSERT_TRUE(notice);
    EXPECT_EQ(notice->kind, LinkNotice::Kind::kBridgePort);
    EXPECT_EQ(notice->link.port_status,
              state == BR_STATE_FORWARDING ? pdu::PortStatus::kUp : pdu::PortStatus::kBlocked);
  }
}

TEST(ALinkNotice, TellsThatALinkIsGoneAndNotThatAPortHasLeftItsBridge) {
  const auto gone = Read(MakeNotice(RTM_DELLINK, AF_UNSPEC));
  ASSERT_TRUE(gone);
  EXPECT_EQ(gone->kind, LinkNotice::Kind::kRemoved);
  EXPECT_FALSE(Read(MakeNotice(RTM_DELLINK, AF_BRIDGE)));
}

TEST(ALinkNotice, IsNeverReadBeyondItsEnd) {
  const auto whole = MakeNotice(RTM_NEWLINK, AF_UNSPEC, [](Request& port) { FillPort(port, "bridge"); });
  // Cut anywhere, with the length of the message as it is cut; on the heap, where a sanitizer sees its end.
  for (std::size_t size = 0; size < whole.size(); ++size) {
    std::vector<std::uint8_t> cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_FALSE(Read(cut)) << size;
    if (size < sizeof(nlmsghdr)) continue;
    const auto length = static_cast<std::uint32_t>(size);
    std::memcpy(cut.data(), &length, sizeof length);
    EXPECT_EQ(Read(cut).has_value(), size >= sizeof(nlmsghdr) + sizeof(ifinfomsg)) << size;
  }
  // Any length in any attribute.
  for (std::size_t at = sizeof(nlmsghdr) + sizeof(ifinfomsg); at + 2 <= whole.size(); at += 2) {
    for (const std::uint16_t length : std::initializer_list<std::uint16_t>{0, 1, 3, 4, 5, 0x7fff, 0xffff}) {
      auto bent = whole;
      std::memcpy(bent.data() + at, &length, sizeof length);
      EXPECT_TRUE(Read(bent));
    }
  }
}

TEST(ALogLimit, LetsOneLineThroughPerSecondAndCountsTheOthers) {
  LogLimit limit;
  protocol::TimePoint now{};
  EXPECT_EQ(limit.Allow(now), 0U);
  for (int i = 0; i < 5; ++i) EXPECT_FALSE(limit.Allow(now += std::chrono::milliseconds(199)));
  now += std::chrono::milliseconds(5);
  EXPECT_EQ(limit.Allow(now), 5U);
  EXPECT_FALSE(limit.Allow(now));
  EXPECT_EQ(limit.Allow(now + std::chrono::hours(1)), 1U);
}

}  // namespace
}  // namespace cfm::port
