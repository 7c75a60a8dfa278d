#include "pdu/loopback.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <vector>

#include "protocol/loopback_initiator.h"
#include "protocol/loopback_responder.h"
#include "recording_output.h"

namespace cfm::protocol {
namespace {

using namespace std::chrono_literals;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr Addressing OnVlan100(std::uint8_t station) {
  return {.level = 5, .address = {2, 0, 0, 0, 0, station}, .primary_vid = 100, .inner_vid = 0, .mtu = 1500};
}

class ALoopback : public testing::Test {
 protected:
  ALoopback() { transmitter_.set_addressing(OnVlan100(1)); }

  std::optional<TestError> Start(const LoopbackRequest& request) {
    return initiator_.Start(request, Station(2), 7, std::nullopt, now_);
  }

  void RunFor(Duration span) {
    const TimePoint end = now_ + span;
    for (; initiator_.deadline() <= end; initiator_.Advance(now_)) now_ = initiator_.deadline();
    now_ = end;
  }

  /// Answers the message with this place among all that were sent.
  void Answer(std::size_t index) { Deliver(ReplyTo(index)); }

  std::vector<std::uint8_t> ReplyTo(std::size_t index) {
    std::vector<std::uint8_t> lbr(output_.frames.at(index).pdu.size());
    EXPECT_EQ(pdu::MakeLbr(output_.frames[index].pdu, lbr), lbr.size());
    return lbr;
  }

  void Deliver(const std::vector<std::uint8_t>& lbr) {
    pdu::EthernetHeader header;
    header.source = Station(2);
    header.destination = Station(1);
    const auto decoded = pdu::DecodeLbr(lbr);
    ASSERT_TRUE(decoded);
    initiator_.Receive(header, *decoded, lbr);
  }

  TimePoint now_ = kStart;
  RecordingOutput output_;
  Transmitter transmitter_{output_};
  LoopbackInitiator initiator_{transmitter_, output_};
};

TEST_F(ALoopback, SendsOneMessageEachSecondToItsTarget) {
  EXPECT_FALSE(Start({.trigger_id = 9, .messages = 3, .data_octets = 10}));
  EXPECT_THAT(output_.events, ElementsAre("loopback 9 started to 2"));
  EXPECT_THAT(output_.frames, SizeIs(1));
  RunFor(999ms);
  EXPECT_THAT(output_.frames, SizeIs(1));
  RunFor(1s);
  EXPECT_THAT(output_.frames, SizeIs(2));
  RunFor(1s);
  ASSERT_THAT(output_.frames, SizeIs(3));
  std::uint32_t id = 1;
  for (const SentFrame& frame : output_.frames) {
    EXPECT_EQ(frame.header.destination, Station(2));
    EXPECT_EQ(frame.header.source, Station(1));
    EXPECT_EQ(frame.header.outer, (pdu::Tag{.priority = 7, .drop_eligible = false, .vid = 100}));
    const auto lbm = pdu::DecodeLbm(frame.pdu);
    ASSERT_TRUE(lbm);
    EXPECT_EQ(lbm->level, 5);
    EXPECT_EQ(lbm->transaction_id, id++);
    EXPECT_THAT(lbm->data, SizeIs(10));
  }
}

TEST_F(ALoopback, EndsWhenAllRepliesAreIn) {
  Start({.trigger_id = 9, .messages = 2});
  Answer(0);
  RunFor(1s);
  Answer(1);
  EXPECT_THAT(output_.events,
              ElementsAre("loopback 9 started to 2", "loopback 9 reply 1 from 2", "loopback 9 reply 2 from 2",
                          "loopback 9 ended: 2 expected, 2 in order, 0 out of order, 0 wrong"));
  EXPECT_EQ(initiator_.deadline(), kNever);
}

TEST_F(ALoopback, EndsFiveSecondsAfterTheLastMessageToASilentPeer) {
  Start({.trigger_id = 9, .messages = 2});
  RunFor(6s - 1ns);
  EXPECT_THAT(output_.TakeEvents(), ElementsAre("loopback 9 started to 2"));
  RunFor(1ns);
  EXPECT_THAT(output_.events, ElementsAre("loopback 9 ended: 2 expected, 0 in order, 0 out of order, 0 wrong"));
}

TEST_F(ALoopback, SendsOneMessageWhenNoNumberIsGiven) {
  Start({.messages = 0});
  RunFor(1min);
  EXPECT_THAT(output_.frames, SizeIs(1));
}

TEST_F(ALoopback, CountsAReplyInOrderWhenItFollowsTheOneBefore) {
  Start({.trigger_id = 9, .messages = 5});
  RunFor(4s);
  for (const std::size_t index : {0U, 2U, 3U, 1U, 4U}) Answer(index);
  EXPECT_EQ(output_.events.back(), "loopback 9 ended: 5 expected, 2 in order, 3 out of order, 0 wrong");
}

TEST_F(ALoopback, CountsADamagedReplyAsWrongAndNothingElse) {
  Start({.trigger_id = 9, .messages = 2, .data_octets = 100});
  auto damaged = ReplyTo(0);
  damaged[60] ^= 0x01U;
  Deliver(damaged);
  RunFor(1s);
  Answer(1);
  EXPECT_EQ(output_.events.back(), "loopback 9 ended: 2 expected, 1 in order, 0 out of order, 1 wrong");
}

TEST_F(ALoopback, AcceptsAReplyThatWasPadded) {
  Start({.trigger_id = 9, .messages = 1});
  auto padded = ReplyTo(0);
  padded.resize(46);
  Deliver(padded);
  EXPECT_EQ(output_.events.back(), "loopback 9 ended: 1 expected, 1 in order, 0 out of order, 0 wrong");
}

TEST_F(ALoopback, CountsDuplicatesAndStrangersApart) {
  Start({.trigger_id = 9, .messages = 3});
  Answer(0);
  Answer(0);
  auto foreign = ReplyTo(0);
  foreign[7] = 99;
  Deliver(foreign);
  EXPECT_EQ(initiator_.counters().duplicates, 1U);
  EXPECT_EQ(initiator_.counters().strangers, 1U);
  RunFor(1min);
  Answer(2);
  EXPECT_EQ(initiator_.counters().strangers, 2U) << "after the end";
  EXPECT_EQ(output_.events.back(), "loopback 9 ended: 3 expected, 1 in order, 0 out of order, 0 wrong");
}

TEST_F(ALoopback, CountsItsTransactionsOverAllRuns) {
  Start({.messages = 1});
  Answer(0);
  Start({.messages = 1});
  EXPECT_EQ(pdu::DecodeLbm(output_.frames.at(1).pdu)->transaction_id, 2U);
}

TEST_F(ALoopback, RefusesASecondRun) {
  Start({.trigger_id = 1, .messages = 1});
  EXPECT_EQ(Start({.trigger_id = 2, .messages = 1}), TestError::kTooManyTests);
  EXPECT_THAT(output_.events, SizeIs(1));
}

TEST_F(ALoopback, RefusesWhatLiesOutsideOfItsBounds) {
  EXPECT_EQ(Start({.messages = 1025}), TestError::kBadParameter);
  EXPECT_EQ(Start({.messages = 1, .data_octets = 1481}), TestError::kBadParameter);
  EXPECT_THAT(output_.events, IsEmpty());
  EXPECT_FALSE(Start({.messages = 1024, .data_octets = 1480}));
}

TEST_F(ALoopback, RefusesDataBeyondThePortsMtu) {
  Addressing narrow = OnVlan100(1);
  narrow.mtu = 512;
  transmitter_.set_addressing(narrow);
  // Header 4, transaction id 4, TLV type and length 3, End 1.
  EXPECT_EQ(Start({.messages = 1, .data_octets = 512 - 12 + 1}), TestError::kBadParameter);
  EXPECT_FALSE(Start({.messages = 1, .data_octets = 512 - 12}));
}

TEST_F(ALoopback, ExpectsNoReplyToAMessageThatDidNotLeave) {
  Start({.trigger_id = 9, .messages = 2});
  output_.can_send = false;
  RunFor(1s);
  Answer(0);
  EXPECT_EQ(output_.events.back(), "loopback 9 ended: 1 expected, 1 in order, 0 out of order, 0 wrong");
}

TEST_F(ALoopback, EndsWithWhatWasCountedWhenItIsAborted) {
  Start({.trigger_id = 9, .messages = 3});
  Answer(0);
  initiator_.Abort();
  EXPECT_EQ(output_.events.back(), "loopback 9 ended: 1 expected, 1 in order, 0 out of order, 0 wrong");
  EXPECT_EQ(initiator_.deadline(), kNever);
}

class ALoopbackResponder : public testing::Test {
 protected:
  ALoopbackResponder() { transmitter_.set_addressing(OnVlan100(1)); }

  static std::vector<std::uint8_t> Lbm(std::size_t data_octets) {
    const std::vector<std::uint8_t> data(data_octets, 0xa5);
    std::vector<std::uint8_t> octets(9000);
    octets.resize(pdu::EncodeLbm({.level = 5, .transaction_id = 77, .sender_id = std::nullopt, .data = data}, octets));
    // A TLV that nobody knows, and noise after the end.
    octets.back() = 0xee;
    octets.insert(octets.end(), {0, 2, 1, 2, 0, 0xff, 0xff});
    return octets;
  }

  static pdu::EthernetHeader From(std::uint8_t station, const pdu::MacAddress& destination) {
    pdu::EthernetHeader header;
    header.source = Station(station);
    header.destination = destination;
    header.outer = pdu::Tag{.priority = 3, .drop_eligible = false, .vid = 200};
    header.inner = pdu::Tag{.priority = 2, .drop_eligible = false, .vid = 5};
    return header;
  }

  RecordingOutput output_;
  Transmitter transmitter_{output_};
  Duration wait_ = 0ns;
  LoopbackResponder responder_{transmitter_, [this](Duration below) {
                                 EXPECT_EQ(below, 1s);
                                 return wait_;
                               }};
};

TEST_F(ALoopbackResponder, SendsBackEverythingButTheOpcodeToTheSourceOnItsVlanAndPriority) {
  auto lbm = Lbm(1480);
  const auto header = From(2, Station(1));
  responder_.Receive(header, lbm, kStart);
  ASSERT_THAT(output_.frames, SizeIs(1));
  EXPECT_EQ(output_.frames[0].header.source, Station(1));
  EXPECT_EQ(output_.frames[0].header.destination, Station(2));
  EXPECT_EQ(output_.frames[0].header.outer, header.outer);
  EXPECT_EQ(output_.frames[0].header.inner, header.inner);
  lbm[1] = 2;
  EXPECT_EQ(output_.frames[0].pdu, lbm);
}

TEST_F(ALoopbackResponder, AnswersAtMostAHundredTimesInAnySecond) {
  const auto lbm = Lbm(10);
  for (int i = 0; i < 3000; ++i) responder_.Receive(From(2, Station(1)), lbm, kStart + i * 1ms);
  EXPECT_THAT(output_.frames, SizeIs(300));
  EXPECT_EQ(responder_.counters().sent, 300U);
  EXPECT_EQ(responder_.counters().over_rate, 2700U);
}

TEST_F(ALoopbackResponder, AnswersAMessageToAllAfterItsRandomTime) {
  const auto group = pdu::ToAddress({.group_class = pdu::GroupClass::k1, .level = 5});
  wait_ = 400ms;
  responder_.Receive(From(2, group), Lbm(10), kStart);
  wait_ = 100ms;
  responder_.Receive(From(3, group), Lbm(10), kStart);
  EXPECT_THAT(output_.frames, IsEmpty());
  EXPECT_EQ(responder_.deadline(), kStart + 100ms);
  responder_.Advance(kStart + 100ms);
  ASSERT_THAT(output_.frames, SizeIs(1));
  EXPECT_EQ(output_.frames[0].header.destination, Station(3));
  EXPECT_EQ(output_.frames[0].header.source, Station(1));
  responder_.Advance(kStart + 400ms);
  EXPECT_THAT(output_.frames, SizeIs(2));
  EXPECT_EQ(responder_.deadline(), kNever);
}

}  // namespace
}  // namespace cfm::protocol
