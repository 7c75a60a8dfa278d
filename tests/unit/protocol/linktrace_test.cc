#include "pdu/linktrace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "protocol/linktrace_initiator.h"
#include "protocol/linktrace_responder.h"
#include "recording_output.h"

namespace cfm::protocol {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr Addressing kOwn = {
    .level = 5, .address = {2, 0, 0, 0, 0, 1}, .primary_vid = 100, .inner_vid = 0, .mtu = 1500};

class ALinktrace : public testing::Test {
 protected:
  ALinktrace() { transmitter_.set_addressing(kOwn); }

  std::optional<TestError> Start(const LinktraceRequest& request) {
    return initiator_.Start(request, Station(2), 6, std::nullopt, now_);
  }

  void Reply(std::uint32_t transaction_id, std::uint8_t ttl = 63) {
    pdu::EthernetHeader header;
    header.source = Station(2);
    initiator_.Receive(header, {.transaction_id = transaction_id, .ttl = ttl});
  }

  TimePoint now_ = kStart;
  RecordingOutput output_;
  Transmitter transmitter_{output_};
  LinktraceInitiator initiator_{transmitter_, output_};
};

TEST_F(ALinktrace, SendsAMessageToTheGroupOfItsLevel) {
  EXPECT_FALSE(Start({.target_mep_id = 7, .ttl = 12}));
  ASSERT_THAT(output_.frames, SizeIs(1));
  EXPECT_EQ(output_.frames[0].header.destination, (pdu::MacAddress{0x01, 0x80, 0xc2, 0, 0, 0x3d}));
  EXPECT_EQ(output_.frames[0].header.outer, (pdu::Tag{.priority = 6, .drop_eligible = false, .vid = 100}));
  const auto ltm = pdu::DecodeLtm(output_.frames[0].pdu);
  ASSERT_TRUE(ltm);
  EXPECT_EQ(ltm->level, 5);
  EXPECT_TRUE(ltm->use_fdb_only);
  EXPECT_EQ(ltm->transaction_id, 1U);
  EXPECT_EQ(ltm->ttl, 12);
  EXPECT_EQ(ltm->original_address, Station(1));
  EXPECT_EQ(ltm->target_address, Station(2));
  EXPECT_EQ(ltm->egress_identifier, (pdu::EgressIdentifier{.unique_id = 0, .address = Station(1)}));
  EXPECT_THAT(output_.events, ElementsAre("linktrace 1 started to 2 mep 7 ttl 12"));
}

TEST_F(ALinktrace, StartsWithSixtyFourHopsUnlessToldOtherwise) {
  Start({.target_mep_id = 7});
  EXPECT_EQ(pdu::DecodeLtm(output_.frames.at(0).pdu)->ttl, 64);
  EXPECT_THAT(output_.events, ElementsAre("linktrace 1 started to 2 mep 7 ttl 64"));
}

TEST_F(ALinktrace, DoesNotStartWhenItsMessageDoesNotLeave) {
  output_.can_send = false;
  EXPECT_EQ(Start({.target_mep_id = 7}), TestError::kMepNotOperational);
  EXPECT_THAT(output_.events, IsEmpty());
  EXPECT_EQ(initiator_.deadline(), kNever);
}

TEST_F(ALinktrace, TakesRepliesForFiveSecondsAndEndsOnce) {
  Start({.target_mep_id = 7});
  output_.TakeEvents();
  Reply(1, 62);
  Reply(1, 63);
  EXPECT_THAT(output_.TakeEvents(), ElementsAre("linktrace 1 reply from 2 ttl 62", "linktrace 1 reply from 2 ttl 63"));
  initiator_.Advance(now_ + 5s - 1ns);
  EXPECT_THAT(output_.events, IsEmpty());
  EXPECT_EQ(initiator_.deadline(), now_ + 5s);
  initiator_.Advance(now_ + 5s);
  initiator_.Advance(now_ + 6s);
  EXPECT_THAT(output_.TakeEvents(), ElementsAre("linktrace 1 ended"));
  Reply(1);
  EXPECT_THAT(output_.events, IsEmpty());
  EXPECT_EQ(initiator_.unexpected(), 1U);
}

TEST_F(ALinktrace, RunsBesideAnother) {
  Start({.target_mep_id = 7});
  now_ += 1s;
  Start({.target_mep_id = 8});
  output_.TakeEvents();
  Reply(2);
  Reply(1);
  Reply(3);
  initiator_.Advance(kStart + 5s);
  Reply(2);
  initiator_.Advance(kStart + 6s);
  EXPECT_THAT(output_.events, ElementsAre("linktrace 2 reply from 2 ttl 63", "linktrace 1 reply from 2 ttl 63",
                                          "linktrace 1 ended", "linktrace 2 reply from 2 ttl 63", "linktrace 2 ended"));
  EXPECT_EQ(initiator_.unexpected(), 1U);
}

TEST_F(ALinktrace, IsRefusedBesideSixteenOthers) {
  for (int i = 0; i < 16; ++i) EXPECT_FALSE(Start({.target_mep_id = 7}));
  EXPECT_EQ(Start({.target_mep_id = 7}), TestError::kTooManyTests);
}

TEST_F(ALinktrace, IsNotDrownedInReplies) {
  Start({.target_mep_id = 7});
  output_.TakeEvents();
  for (int i = 0; i < 1000; ++i) Reply(1);
  EXPECT_THAT(output_.events, SizeIs(255));
  EXPECT_EQ(initiator_.unexpected(), 745U);
}

TEST_F(ALinktrace, EndsWhenItIsAborted) {
  Start({.target_mep_id = 7});
  Start({.target_mep_id = 7});
  output_.TakeEvents();
  initiator_.Abort();
  EXPECT_THAT(output_.events, ElementsAre("linktrace 1 ended", "linktrace 2 ended"));
}

class ALinktraceResponder : public testing::Test {
 protected:
  ALinktraceResponder() { transmitter_.set_addressing(kOwn); }

  static pdu::Ltm LookingFor(const pdu::MacAddress& target) {
    return {.level = 5,
            .use_fdb_only = true,
            .transaction_id = 99,
            .ttl = 1,
            .original_address = Station(9),
            .target_address = target,
            .egress_identifier = pdu::EgressIdentifier{.unique_id = 3, .address = Station(8)},
            .sender_id = std::nullopt};
  }

  void Receive(const pdu::Ltm& ltm) {
    pdu::EthernetHeader header;
    header.source = Station(8);
    header.outer = pdu::Tag{.priority = 4, .drop_eligible = false, .vid = 100};
    responder_.Receive({.header = header, .pdu = {}, .stamps = {}}, ltm, {.port = {.name = "eth0"}}, std::nullopt,
                       kStart);
  }

  RecordingOutput output_;
  Transmitter transmitter_{output_};
  Duration wait_ = 300ms;
  LinktraceResponder responder_{transmitter_, [this](Duration below) {
                                  EXPECT_EQ(below, 1s);
                                  return wait_;
                                }};
};

TEST_F(ALinktraceResponder, AnswersAsTheTargetAfterItsRandomTime) {
  Receive(LookingFor(Station(1)));
  EXPECT_THAT(output_.frames, IsEmpty());
  EXPECT_EQ(responder_.deadline(), kStart + 300ms);
  responder_.Advance(kStart + 300ms);
  ASSERT_THAT(output_.frames, SizeIs(1));
  const auto& frame = output_.frames[0];
  EXPECT_EQ(frame.header.destination, Station(9)) << "the station that asked, not the last hop";
  EXPECT_EQ(frame.header.source, Station(1));
  EXPECT_EQ(frame.header.outer, (pdu::Tag{.priority = 4, .drop_eligible = false, .vid = 100}));
  const auto ltr = pdu::DecodeLtr(frame.pdu);
  ASSERT_TRUE(ltr);
  EXPECT_EQ(ltr->level, 5);
  EXPECT_TRUE(ltr->use_fdb_only);
  EXPECT_FALSE(ltr->forwarded);
  EXPECT_TRUE(ltr->terminal_mep);
  EXPECT_EQ(ltr->transaction_id, 99U);
  EXPECT_EQ(ltr->ttl, 0);
  EXPECT_EQ(ltr->relay_action, pdu::RelayAction::kHit);
  EXPECT_EQ(ltr->egress_identifiers,
            (pdu::LtrEgressIdentifiers{.last = {.unique_id = 3, .address = Station(8)}, .next = {}}));
  ASSERT_TRUE(ltr->ingress);
  EXPECT_EQ(ltr->ingress->action, pdu::ReplyAction::kOk);
  EXPECT_EQ(ltr->ingress->address, Station(1));
  EXPECT_EQ(ltr->ingress->port_subtype, 5);
  EXPECT_EQ(std::string(ltr->ingress->port_id.begin(), ltr->ingress->port_id.end()), "eth0");
  EXPECT_FALSE(ltr->egress);
}

TEST_F(ALinktraceResponder, StaysSilentWhenItIsNotTheTarget) {
  Receive(LookingFor(Station(2)));
  EXPECT_EQ(responder_.deadline(), kNever);
}

TEST_F(ALinktraceResponder, DropsWhatHasNoEgressIdentifierNoHopsLeftOrNobodyToAnswer) {
  pdu::Ltm ltm = LookingFor(Station(1));
  ltm.egress_identifier.reset();
  Receive(ltm);
  ltm = LookingFor(Station(1));
  ltm.ttl = 0;
  Receive(ltm);
  ltm = LookingFor(Station(1));
  ltm.original_address[0] |= 1U;
  Receive(ltm);
  EXPECT_EQ(responder_.counters().invalid, 3U);
  EXPECT_EQ(responder_.deadline(), kNever);
}

TEST_F(ALinktraceResponder, LetsNoMoreThanSixtyFourRepliesWait) {
  for (int i = 0; i < 100; ++i) Receive(LookingFor(Station(1)));
  EXPECT_EQ(responder_.counters().overflow, 36U);
  responder_.Advance(kStart + 1s);
  EXPECT_THAT(output_.frames, SizeIs(64));
  EXPECT_EQ(responder_.counters().sent, 64U);
  Receive(LookingFor(Station(1)));
  EXPECT_EQ(responder_.counters().overflow, 36U);
}

}  // namespace
}  // namespace cfm::protocol
