// What the network tests stand on: namespaces, cables and captures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "link.h"
#include "namespace.h"
#include "wire.h"

namespace cfm_test {
namespace {

using cfm::pdu::EthernetHeader;
using cfm::pdu::Tag;
using testing::IsEmpty;

std::vector<std::uint8_t> SomePdu(std::size_t size, std::uint8_t mark) {
  std::vector<std::uint8_t> pdu(size, mark);
  pdu[1] = 99;
  return pdu;
}

class TheCable : public testing::Test {
 protected:
  EthernetHeader Header(std::optional<Tag> outer = {}, std::optional<Tag> inner = {}) const {
    return {wire_b_.address(), wire_a_.address(), outer, inner};
  }

  Namespace a_;
  Namespace b_;
  std::pair<Link, Link> ends_ = Connect(a_, "left", b_, "right");
  Wire wire_a_{ends_.first};
  Wire wire_b_{ends_.second};
};

TEST_F(TheCable, CarriesEveryFormOfTagsOctetForOctet) {
  const auto before = std::chrono::system_clock::now();
  const std::vector<EthernetHeader> headers = {Header(), Header(Tag{7, false, 0}), Header(Tag{5, true, 4094}),
                                               Header(Tag{1, false, 100}, Tag{2, false, 200})};
  for (const EthernetHeader& header : headers) ASSERT_TRUE(wire_a_.Send(header, SomePdu(60, 1)));
  const auto frames = wire_b_.Take(headers.size(), [](const Frame&) { return true; });
  ASSERT_EQ(frames.size(), headers.size());
  for (std::size_t i = 0; i < frames.size(); ++i) {
    EXPECT_EQ(frames[i].header(), headers[i]);
    EXPECT_EQ(frames[i].octets, MakeFrame(headers[i], SomePdu(60, 1)));
    EXPECT_GE(frames[i].received, before);
    EXPECT_LE(frames[i].received, std::chrono::system_clock::now());
  }
  EXPECT_THAT(wire_a_.Take(), IsEmpty()) << "its own frames";
  EXPECT_EQ(wire_b_.lost(), 0U);
}

TEST_F(TheCable, BringsNothingButCfm) {
  std::vector<std::uint8_t> other = MakeFrame(Header(), SomePdu(60, 1));
  other[13] = 0xff;
  ASSERT_TRUE(wire_a_.Send(other));
  ASSERT_TRUE(wire_a_.Send(Header(), SomePdu(60, 2)));
  const auto frame = wire_b_.Next([](const Frame&) { return true; });
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->pdu()[4], 2);
}

TEST_F(TheCable, CanBeCutAndMended) {
  ends_.second.Down();
  wire_a_.Send(Header(), SomePdu(60, 1));
  ends_.second.Up();
  ASSERT_TRUE(wire_a_.Send(Header(), SomePdu(60, 2)));
  const auto frame = wire_b_.Next([](const Frame&) { return true; });
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->pdu()[4], 2);
}

TEST_F(TheCable, TakesNamesAndAddresses) {
  Link& end = ends_.first;
  const unsigned int index = end.index();
  end.Rename("other");
  EXPECT_EQ(end.index(), index);
  const cfm::pdu::MacAddress address{2, 0, 0, 0, 0, 9};
  end.SetAddress(address);
  EXPECT_EQ(end.address(), address);
  end.Delete();
  EXPECT_EQ(end.index(), 0U);
  EXPECT_EQ(ends_.second.index(), 0U) << "the other end goes too";
}

TEST_F(TheCable, LeadsIntoBridges) {
  const Link bridge = MakeBridge(b_, "bridge");
  ends_.second.Join(bridge);
  Namespace c;
  const auto further = Connect(b_, "onward", c, "far");
  further.first.Join(bridge);
  further.first.SetBridgeState("listening");
  Wire far(further.second);
  EthernetHeader header = Header();
  header.destination = {2, 0, 0, 0, 0, 9};
  ASSERT_TRUE(wire_a_.Send(header, SomePdu(60, 1)));
  further.first.SetBridgeState("forwarding");
  ASSERT_TRUE(wire_a_.Send(header, SomePdu(60, 2)));
  const auto frame = far.Next([](const Frame&) { return true; });
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->pdu()[4], 2);
}

}  // namespace
}  // namespace cfm_test
