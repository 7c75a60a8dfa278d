// Frames that nobody should send: they cost the server nothing but the look at them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "fixture.h"
#include "pdu/ais.h"
#include "pdu/ccm.h"
#include "pdu/delay.h"
#include "pdu/linktrace.h"
#include "pdu/loopback.h"

namespace cfm_test {
namespace {

using namespace std::chrono_literals;
using cfm::CcmInterval;
using cfm::pdu::EthernetHeader;
using cfm::pdu::Octets;
using cfm::pdu::Opcode;
using testing::AllOf;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;
using Pdu = std::vector<std::uint8_t>;

bool IsReply(const Frame& frame) {
  const Opcode opcode = frame.opcode();
  return opcode == Opcode::kLbr || opcode == Opcode::kLtr || opcode == Opcode::kDmr;
}

class AServerUnderAttack : public OneElement {
 protected:
  AServerUnderAttack() { RunWithPeer(); }

  Pdu Lbm(std::uint32_t id, Octets data = {}) const {
    Pdu pdu(65536);
    pdu.resize(cfm::pdu::EncodeLbm({mep_.level, 0, id, {}, data}, pdu));
    return pdu;
  }
  Pdu Ltm(std::uint32_t id) const {
    Pdu pdu(200);
    pdu.resize(cfm::pdu::EncodeLtm({mep_.level,
                                    0,
                                    true,
                                    id,
                                    64,
                                    wire_.address(),
                                    port_.address(),
                                    cfm::pdu::EgressIdentifier{0, wire_.address()},
                                    {}},
                                   pdu));
    return pdu;
  }
  Pdu Dmm(std::uint32_t seconds) const {
    Pdu pdu(200);
    pdu.resize(cfm::pdu::EncodeDmm({mep_.level, 0, false, {seconds, 1}, {}, {}, {}, {}}, pdu));
    return pdu;
  }
  /// One of each kind that means something to the end point, and to which address it goes.
  std::vector<std::pair<EthernetHeader, Pdu>> OneOfEach() const {
    const EthernetHeader here = StationHeader(mep_, wire_.address(), port_.address());
    const auto as = [](Pdu pdu, Opcode opcode) {
      pdu[1] = static_cast<std::uint8_t>(opcode);
      return pdu;
    };
    Pdu ais(20);
    ais.resize(cfm::pdu::EncodeAis({mep_.level, 0, cfm::pdu::AisPeriod::k1s}, ais));
    Pdu ltr(200);
    ltr.resize(cfm::pdu::EncodeLtr({mep_.level,
                                    0,
                                    true,
                                    false,
                                    true,
                                    1,
                                    63,
                                    cfm::pdu::RelayAction::kHit,
                                    cfm::pdu::LtrEgressIdentifiers{},
                                    cfm::pdu::ReplyPort{cfm::pdu::ReplyAction::kOk, wire_.address(), 0, {}},
                                    {},
                                    {}},
                                   ltr));
    return {{GroupHeader(mep_, wire_.address()), PduOf(CcmOf(mep_, 2))},
            {here, Lbm(1)},
            {here, as(Lbm(1), Opcode::kLbr)},
            {GroupHeader(mep_, wire_.address(), cfm::pdu::GroupClass::k2), Ltm(1)},
            {here, ltr},
            {GroupHeader(mep_, wire_.address()), ais},
            {here, Dmm(1)},
            {here, as(Dmm(1), Opcode::kDmr)},
            {here, as(Lbm(1), static_cast<Opcode>(99))}};
  }

  /// Whatever came: it works, and sees its peer.
  void ExpectWell() {
    Drain();
    ASSERT_TRUE(element_.Settle()) << element_.server().Errors();
    EXPECT_TRUE(element_.server().Running());
    ASSERT_TRUE(element_.Request(CFM_MGR_C2S_SIG_STATUS_GET_ALL, ""));
    ASSERT_TRUE(element_.WaitForRemote(mep_.remote(2), kRemoteOk));
    ASSERT_TRUE(element_.WaitFor([&] {
      return element_.events().LocalText(mep_.key()).find(" defects -") != std::string::npos;
    })) << element_.events().LocalText(mep_.key());
    wire_.Clear();
    EXPECT_TRUE(wire_.Next(Opcode::kCcm));
  }
  std::size_t LogLines() {
    const std::string log = element_.server().Errors();
    return static_cast<std::size_t>(std::count(log.begin(), log.end(), '\n'));
  }
};

TEST_F(AServerUnderAttack, DropsFramesThatEndTooEarly) {
  std::size_t whole = 0;
  std::size_t sent = 0;
  for (const auto& [header, pdu] : OneOfEach()) {
    for (std::size_t size = 0; size < pdu.size(); ++size, ++sent) {
      ASSERT_TRUE(wire_.Send(header, Octets(pdu).first(size)));
    }
    whole += pdu[1] == 3 || pdu[1] == 5 || pdu[1] == 47 ? 1 : 0;
  }
  EXPECT_GT(sent, 200U);
  const auto frames = Drain();
  // What lacks but its End TLV is a frame all the same.
  EXPECT_LE(std::count_if(frames.begin(), frames.end(), IsReply), static_cast<std::ptrdiff_t>(whole));
  ExpectWell();
}

TEST_F(AServerUnderAttack, AnswersAnyOctetsWithAtMostOneFrameEach) {
  std::mt19937 random(20260101);
  const auto number = [&](std::size_t below) {
    return std::uniform_int_distribution<std::size_t>(0, below - 1)(random);
  };
  const auto samples = OneOfEach();
  for (int round = 0; round < 3; ++round) {
    constexpr std::size_t kFrames = 1000;
    for (std::size_t i = 0; i < kFrames; ++i) {
      auto [header, pdu] = samples[number(samples.size())];
      // CCMs that are valid but for a bit would be a defect, rightly.
      if (pdu[1] == 1) pdu[1] = 6;
      pdu.resize(4 + number(2 * pdu.size()), 0xff);
      for (std::size_t flips = number(8); flips > 0; --flips) {
        std::uint8_t& octet = pdu[number(pdu.size())];
        octet = static_cast<std::uint8_t>(octet ^ (1U << number(8)));
      }
      if (pdu[1] == 1) pdu[1] = 3;
      ASSERT_TRUE(wire_.Send(header, pdu));
    }
    const auto frames = Drain();
    EXPECT_LE(std::count_if(frames.begin(), frames.end(), IsReply), static_cast<std::ptrdiff_t>(kFrames));
    ASSERT_TRUE(element_.server().Running()) << element_.server().Errors();
  }
  ExpectWell();
  EXPECT_LT(LogLines(), 20U);
}

TEST_F(AServerUnderAttack, TakesFramesOfEverySize) {
  for (const unsigned int mtu : {1500U, 9000U, 60000U}) {
    port_.SetMtu(mtu);
    cable_.second.SetMtu(mtu);
    Pdu data(mtu - 12);
    std::iota(data.begin(), data.end(), std::uint8_t{0});
    const Pdu lbm = Lbm(mtu, data);
    ASSERT_EQ(lbm.size(), mtu);
    wire_.Clear();
    ASSERT_TRUE(wire_.Send(StationHeader(mep_, wire_.address(), port_.address()), lbm));
    std::vector<Frame> answers;
    for (const Frame& frame : Drain()) {
      if (IsReply(frame)) answers.push_back(frame);
    }
    if (mtu > 9216) {
      EXPECT_THAT(answers, IsEmpty()) << "larger than what any card takes";
      continue;
    }
    ASSERT_THAT(answers, SizeIs(1)) << mtu;
    Pdu lbr = lbm;
    lbr[1] = 2;
    EXPECT_EQ(answers[0].octets, MakeFrame(StationHeader(mep_, port_.address(), wire_.address()), lbr));
  }
  ExpectWell();
}

TEST_F(AServerUnderAttack, CopiesWhatItDoesNotKnowIntoLoopbackReplies) {
  mep_.vid = 100;
  mep_.inner_vid = 200;
  mep_.priority = 3;
  peer_.reset();
  Run();
  Pdu lbm = {0x9f, 3, 0xff, 6, 0, 0, 0, 9, 0xaa, 0xbb, 31, 0, 2, 1, 2, 200, 0, 0, 0};
  wire_.Clear();
  ASSERT_TRUE(wire_.Send(StationHeader(mep_, wire_.address(), port_.address()), lbm));
  const auto answer = wire_.Next(Opcode::kLbr);
  ASSERT_TRUE(answer);
  lbm[1] = 2;
  EXPECT_EQ(answer->octets, MakeFrame(StationHeader(mep_, port_.address(), wire_.address()), lbm));
}

TEST_F(AServerUnderAttack, SpendsAtMostAHundredLoopbackRepliesASecond) {
  std::vector<Frame> replies;
  for (std::uint32_t i = 0; i < 5000; ++i) {
    ASSERT_TRUE(wire_.Send(StationHeader(mep_, wire_.address(), port_.address()), Lbm(i)));
    if (i % 100 == 0) std::this_thread::sleep_for(20ms);
  }
  for (Frame& frame : Drain()) {
    if (IsReply(frame)) replies.push_back(std::move(frame));
  }
  EXPECT_THAT(replies, SizeIs(AllOf(Ge(50U), Le(1000U))));
  for (std::size_t i = 100; i < replies.size(); ++i) {
    // With room for what lies between the server's look at the clock and the wire.
    EXPECT_GT(replies[i].received - replies[i - 100].received, 800ms) << i;
  }
  ExpectWell();
}

TEST_F(AServerUnderAttack, LetsAtMostSixtyFourLinktraceRepliesWait) {
  const auto begin = std::chrono::steady_clock::now();
  constexpr std::uint32_t kMessages = 1000;
  for (std::uint32_t i = 0; i < kMessages; ++i) {
    ASSERT_TRUE(wire_.Send(GroupHeader(mep_, wire_.address(), cfm::pdu::GroupClass::k2), Ltm(i)));
  }
  auto frames = Drain();
  const auto took = std::chrono::steady_clock::now() - begin;
  const auto rest = wire_.Take(
      64, [](const Frame& frame) { return frame.opcode() == Opcode::kLtr; }, 3s);
  const auto replies = static_cast<std::size_t>(
      std::count_if(frames.begin(), frames.end(), [](const Frame& frame) { return frame.opcode() == Opcode::kLtr; }) +
      static_cast<std::ptrdiff_t>(rest.size()));
  EXPECT_GE(replies, 32U);
  // Each that leaves, after half a second on average, makes room for another.
  EXPECT_LE(replies, 64 + 256 * static_cast<std::size_t>(std::chrono::ceil<std::chrono::seconds>(took).count()));
  EXPECT_LT(replies, kMessages);
  ExpectWell();
}

TEST_F(AServerUnderAttack, AnswersItsOwnFramesWithNothing) {
  // Whatever it sends comes back to it, for a second.
  const auto end = std::chrono::steady_clock::now() + 1s;
  ASSERT_TRUE(wire_.Send(StationHeader(mep_, wire_.address(), port_.address()), Lbm(1)));
  // From itself to itself: its answer goes out, and comes back as one that it did not ask for.
  ASSERT_TRUE(wire_.Send(StationHeader(mep_, port_.address(), port_.address()), Lbm(2)));
  ASSERT_TRUE(wire_.Send(GroupHeader(mep_, port_.address(), cfm::pdu::GroupClass::k2), Ltm(3)));
  std::size_t replies = 0;
  std::size_t ccms = 0;
  while (const auto frame =
             wire_.Next([](const Frame&) { return true; },
                        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()))) {
    ASSERT_TRUE(wire_.Send(frame->octets));
    ++(IsReply(*frame) ? replies : ccms);
  }
  EXPECT_LE(replies, 3U);
  EXPECT_LE(ccms, 13U);
  ASSERT_TRUE(element_.WaitFor([&] {
    return std::any_of(element_.events().local.begin(), element_.events().local.end(),
                       [](const LocalEvent& event) { return event.status.defect_error_ccm; });
  })) << "it hears its own id";
  ExpectWell();
}

TEST_F(AServerUnderAttack, CountsReplayedFramesAndAnswersEachOnce) {
  ForgetTheBeginning();
  for (std::uint32_t i = 0; i < 50; ++i) {
    ASSERT_TRUE(wire_.Send(StationHeader(mep_, wire_.address(), port_.address()), Dmm(7)));
    cfm::pdu::Ccm ccm = CcmOf(mep_, 2);
    ccm.sequence_number = 7;
    ASSERT_TRUE(wire_.Send(GroupHeader(mep_, wire_.address()), PduOf(ccm)));
  }
  const auto frames = Drain();
  std::size_t replies = 0;
  for (const Frame& frame : frames) {
    if (!IsReply(frame)) continue;
    ++replies;
    const auto dmr = cfm::pdu::DecodeDmr(frame.pdu());
    ASSERT_TRUE(dmr);
    EXPECT_EQ(dmr->sent_f, (cfm::pdu::TimeStamp{7, 1}));
    const auto held = (dmr->sent_b.seconds - dmr->received_f.seconds) * 1'000'000'000LL + dmr->sent_b.nanoseconds -
                      dmr->received_f.nanoseconds;
    EXPECT_GE(held, 0);
    EXPECT_LT(held, 10'000'000'000LL);
  }
  EXPECT_EQ(replies, 50U);
  const auto statistics = element_.Settle();
  ASSERT_TRUE(statistics);
  EXPECT_GE(statistics->local.at(mep_.key()).ccm_rx_seq_errors, 49U);
  EXPECT_THAT(element_.events().local, IsEmpty()) << "a sequence error is no defect";
  ExpectWell();
}

TEST_F(AServerUnderAttack, SpeaksOnItsOtherPortsThroughAFloodOfGarbage) {
  const auto quiet = Connect(element_.network(), "quiet", far_, "quiet-far");
  Wire quiet_wire(quiet.second);
  EndPoint quiet_mep = mep_;
  quiet_mep.port = quiet.first.index();
  quiet_mep.ma = "quiet";
  quiet_mep.interval = CcmInterval::k10ms;
  peer_.reset();
  Run({mep_, quiet_mep});
  ASSERT_TRUE(quiet_wire.Next(Opcode::kCcm));

  std::atomic<bool> is_over = false;
  std::atomic<std::size_t> sent = 0;
  std::thread flood([&] {
    std::vector<std::vector<std::uint8_t>> frames;
    for (const auto& [header, pdu] : OneOfEach()) {
      frames.push_back(MakeFrame(header, Octets(pdu).first(pdu.size() - 3)));
      frames.push_back(MakeFrame(header, Pdu(60, 0xff)));
    }
    for (std::size_t i = 0; !is_over; ++i) sent += wire_.Send(frames[i % frames.size()]) ? 1 : 0;
  });
  quiet_wire.Clear();
  const auto ccms = quiet_wire.Take(150, [](const Frame&) { return true; });
  is_over = true;
  flood.join();
  ASSERT_THAT(ccms, SizeIs(150));
  std::vector<std::chrono::nanoseconds> gaps;
  for (std::size_t i = 1; i < ccms.size(); ++i) gaps.push_back(ccms[i].received - ccms[i - 1].received);
  std::nth_element(gaps.begin(), gaps.begin() + 74, gaps.end());
  // The flood takes the machine's time as well, so the middle one is judged, and more than it should be.
  EXPECT_THAT(gaps[74], AllOf(Ge(5ms), Le(15ms)));
  EXPECT_GT(sent.load(), 10'000U);
  EXPECT_LT(LogLines(), 20U) << element_.server().Errors();
  peer_.emplace(wire_, mep_, 2);
  ASSERT_TRUE(element_.WaitForRemote(mep_.remote(2), kRemoteOk));
  ASSERT_TRUE(element_.WaitForLocal(mep_.key(), kFaultless));
}

}  // namespace
}  // namespace cfm_test
