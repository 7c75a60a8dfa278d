#include "protocol/end_points.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "network.h"
#include "pdu/ccm.h"
#include "recording_output.h"

namespace cfm::protocol {
namespace {

using Vids = std::vector<std::uint16_t>;

class EndPointsOfOnePort : public testing::Test {
 protected:
  Mep& Add(std::uint8_t level, std::uint16_t vid = 0, const Vids& vids = {}, std::uint16_t inner_vid = 0) {
    MepSettings settings = Watching(4, {1, 2});
    settings.primary_vid = vid;
    settings.inner_vid = inner_vid;
    meps_.push_back(std::make_unique<Mep>(
        MepIdentity{.level = level, .mep_id = 1, .maid = MaidNumber(1)}, settings, PortOf(1), output_,
        [](Duration) { return Duration::zero(); }, kStart));
    end_points_.Add(*meps_.back(), vids);
    return *meps_.back();
  }

  Mep* Receive(std::uint8_t level, std::optional<std::uint16_t> vid = {}, std::optional<std::uint16_t> inner_vid = {}) {
    std::vector<std::uint8_t> octets(pdu::kLongestCcm);
    octets.resize(pdu::EncodeCcm(
        {.level = level, .interval = 4, .mep_id = 2, .maid = MaidNumber(1), .sender_id = std::nullopt}, octets));
    pdu::EthernetHeader header;
    header.source = Station(2);
    header.destination = pdu::ToAddress({.group_class = pdu::GroupClass::k1, .level = level});
    if (vid) header.outer = pdu::Tag{.priority = 7, .drop_eligible = false, .vid = *vid};
    if (inner_vid) header.inner = pdu::Tag{.priority = 7, .drop_eligible = false, .vid = *inner_vid};
    return Deliver(end_points_, {.header = header, .pdu = octets, .stamps = {}}, kStart);
  }

  RecordingOutput output_;
  std::vector<std::unique_ptr<Mep>> meps_;
  EndPoints end_points_;
};

TEST_F(EndPointsOfOnePort, StopFramesOfTheirLevelAndLowerOnesAndLetHigherOnesPass) {
  Mep& mep = Add(5);
  for (std::uint8_t level = 0; level <= 5; ++level) EXPECT_EQ(Receive(level), &mep) << int{level};
  EXPECT_EQ(Receive(6), nullptr);
  EXPECT_EQ(Receive(7), nullptr);
}

TEST_F(EndPointsOfOnePort, ShareTheFramesByTheirLevels) {
  Mep& five = Add(5);
  Mep& two = Add(2);
  EXPECT_EQ(Receive(1), &two);
  EXPECT_TRUE(two.cross_connect().present());
  EXPECT_EQ(Receive(2), &two);
  EXPECT_EQ(two.remotes().Find(2)->status().state, RemoteState::kOk);
  EXPECT_FALSE(five.cross_connect().present());
  EXPECT_EQ(Receive(3), &five);
  EXPECT_TRUE(five.cross_connect().present());
  EXPECT_EQ(Receive(5), &five);
  EXPECT_EQ(five.remotes().Find(2)->status().state, RemoteState::kOk);
  EXPECT_EQ(Receive(6), nullptr);
}

TEST_F(EndPointsOfOnePort, AreAsIfAbsentWhileTheyAreDisabled) {
  Mep& mep = Add(5);
  MepSettings settings = mep.settings();
  settings.enabled = false;
  mep.Update(settings, kStart);
  EXPECT_EQ(Receive(5), nullptr);
  EXPECT_EQ(Receive(3), nullptr);
  settings.enabled = true;
  mep.Update(settings, kStart);
  EXPECT_EQ(Receive(5), &mep);
}

TEST_F(EndPointsOfOnePort, TakeTheVlansOfTheirAssociationOnly) {
  Mep& tagged = Add(5, 100, {100, 101});
  EXPECT_EQ(Receive(5, 100), &tagged);
  EXPECT_EQ(Receive(5, 101), &tagged);
  EXPECT_EQ(Receive(5, 102), nullptr);
  EXPECT_EQ(Receive(5), nullptr);
  EXPECT_EQ(Receive(5, 100, 7), nullptr);
  EXPECT_EQ(Receive(3, 200), nullptr);
}

TEST_F(EndPointsOfOnePort, TakeUntaggedAndPriorityTaggedFramesWhenTheyAreUntagged) {
  Mep& untagged = Add(5);
  EXPECT_EQ(Receive(5), &untagged);
  EXPECT_EQ(Receive(5, 0), &untagged);
  EXPECT_EQ(Receive(5, 1), nullptr);
}

TEST_F(EndPointsOfOnePort, TakeDoubleTaggedFramesByBothTags) {
  Mep& inner = Add(5, 100, {}, 7);
  EXPECT_EQ(Receive(5, 100, 7), &inner);
  EXPECT_EQ(Receive(5, 100, 8), nullptr);
  EXPECT_EQ(Receive(5, 100), nullptr);
}

TEST_F(EndPointsOfOnePort, AreGoneOnceRemoved) {
  Mep& one = Add(5, 100, {100, 101});
  Mep& two = Add(5, 200);
  end_points_.Remove(one);
  EXPECT_EQ(Receive(5, 100), nullptr);
  EXPECT_EQ(Receive(5, 101), nullptr);
  EXPECT_EQ(Receive(5, 200), &two);
}

}  // namespace
}  // namespace cfm::protocol
