// Loopback, linktrace and delay measurement between end points on real ports.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "fixture.h"
#include "pdu/delay.h"
#include "pdu/linktrace.h"
#include "pdu/loopback.h"

namespace cfm_test {
namespace {

using namespace std::chrono_literals;
using cfm::pdu::EthernetHeader;
using cfm::pdu::Opcode;
using testing::ElementsAre;
using testing::SizeIs;

class Diagnostics : public TwoElements {
 protected:
  Diagnostics() {
    for (EndPoint* end_point : {&near_mep_, &far_mep_}) {
      end_point->sender_id = cfm::SenderIdTlvContent::kChassis;
      end_point->vid = 10;
      end_point->priority = 5;
    }
  }

  void Loopback(std::uint32_t trigger, std::uint32_t messages, std::uint16_t octets, std::uint16_t target = 2) {
    near_.client().LoopbackTrigger({trigger, near_mep_.md, near_mep_.ma, 1, target, messages, octets});
  }
  void Linktrace(std::uint32_t trigger, std::uint8_t ttl, std::uint16_t target = 2) {
    near_.client().LinktraceTrigger({trigger, near_mep_.md, near_mep_.ma, 1, target, ttl});
  }
  void Delay(std::uint32_t trigger, std::uint32_t messages, std::uint32_t interval_ms, std::uint16_t octets,
             std::uint8_t priority = 3, std::uint16_t target = 2) {
    near_.client().DelayMeasurementTrigger(
        {trigger, near_mep_.md, near_mep_.ma, 1, target, messages, interval_ms, octets, priority});
  }

  /// Untagged and with a test for every field, of a frame from the near port to the far one.
  EthernetHeader Header(std::uint8_t priority) const {
    EthernetHeader header = StationHeader(near_mep_, near_cable_.first.address(), far_cable_.first.address());
    header.outer->priority = priority;
    return header;
  }

  const std::string near_mac_ = ToText(near_cable_.first.address());
  const std::string far_mac_ = ToText(far_cable_.first.address());
};

TEST_F(Diagnostics, LoopWithDataAndCountWhatComesBack) {
  Wire far_wire(far_cable_.first);
  Run();
  Loopback(7, 3, 1000);
  ASSERT_TRUE(near_.WaitFor([&] { return near_.events().loopback.size() == 5; })) << near_.server().Errors();
  const auto messages = far_wire.Take(3, [](const Frame& frame) { return frame.opcode() == Opcode::kLbm; });
  ASSERT_THAT(messages, SizeIs(3));
  const auto first = cfm::pdu::DecodeLbm(messages[0].pdu());
  ASSERT_TRUE(first);
  const std::uint32_t id = first->transaction_id;
  std::array<std::uint8_t, 1000> data;
  std::iota(data.begin(), data.end(), std::uint8_t{0});
  const auto chassis = near_cable_.first.address();
  for (std::uint32_t i = 0; i < 3; ++i) {
    std::array<std::uint8_t, 1500> expected;
    const std::size_t size = cfm::pdu::EncodeLbm({.level = near_mep_.level,
                                                  .transaction_id = id + i,
                                                  .sender_id = cfm::pdu::SenderId{4, chassis, {}, {}},
                                                  .data = data},
                                                 expected);
    EXPECT_EQ(messages[i].octets, MakeFrame(Header(5), cfm::pdu::Octets(expected).first(size)));
  }
  const std::string id_text = std::to_string(id);
  EXPECT_THAT(near_.events().loopback,
              ElementsAre("started 7 " + far_mac_, "reply 7 " + std::to_string(id) + " " + far_mac_,
                          "reply 7 " + std::to_string(id + 1) + " " + far_mac_,
                          "reply 7 " + std::to_string(id + 2) + " " + far_mac_, "ended 7 3 3 0 0"));
}

TEST_F(Diagnostics, RefuseWhatCannotBeDone) {
  Run();
  const std::string names = " domain association 1 ";
  Loopback(1, 1025, 0);
  Loopback(2, 1, 1481);
  Loopback(3, 1, 0, 3);
  Loopback(4, 1, 0, 1);
  near_.client().LoopbackTrigger({5, near_mep_.md, "other", 1, 2, 1, 0});
  near_.client().LoopbackTrigger({6, near_mep_.md, near_mep_.ma, 2, 1, 1, 0});
  Loopback(7, 2, 0);
  Loopback(8, 1, 0);
  ASSERT_TRUE(near_.WaitFor([&] { return near_.events().loopback.size() == 11; }));
  EXPECT_EQ(near_.events().loopback.back(), "ended 7 2 2 0 0");
  std::vector<std::string> refused;
  for (const std::string& line : near_.events().loopback) {
    if (line.starts_with("error")) refused.push_back(line);
  }
  EXPECT_THAT(refused, ElementsAre("error 1 4" + names + "2", "error 2 4" + names + "2", "error 3 3" + names + "3",
                                   "error 4 3" + names + "1", "error 5 1 domain other 1 2",
                                   "error 6 1 domain association 2 1", "error 8 5" + names + "2"));

  Delay(1, 0, 10, 0);
  Delay(2, 1025, 10, 0);
  Delay(3, 1, 9, 0);
  Delay(4, 1, 60001, 0);
  Delay(5, 1, 10, 1481);
  Delay(6, 1, 10, 0, 8);
  Delay(7, 1, 10, 0, 0, 3);
  near_.client().DelayMeasurementTrigger({8, "other", near_mep_.ma, 1, 2, 1, 10, 0, 0});
  Delay(9, 2, 1000, 0);
  Delay(10, 1, 10, 0);
  ASSERT_TRUE(near_.WaitFor([&] { return near_.events().delay.size() == 13; }));
  refused.clear();
  for (const std::string& line : near_.events().delay) {
    if (line.starts_with("error")) refused.push_back(line);
  }
  EXPECT_THAT(refused,
              ElementsAre("error 1 4" + names + "2", "error 2 4" + names + "2", "error 3 4" + names + "2",
                          "error 4 4" + names + "2", "error 5 4" + names + "2", "error 6 4" + names + "2",
                          "error 7 3" + names + "3", "error 8 1 other association 1 2", "error 10 5" + names + "2"));

  Linktrace(1, 9, 3);
  near_.client().LinktraceTrigger({2, near_mep_.md, near_mep_.ma, 2, 1, 0});
  ASSERT_TRUE(near_.WaitFor([&] { return near_.events().linktrace.size() == 2; }));
  EXPECT_THAT(near_.events().linktrace,
              ElementsAre("error 1 domain association 1 3 9", "error 2 domain association 2 1 0"));

  // None of them works while the end point is disabled.
  near_.events().Clear();
  near_mep_.enabled = false;
  near_.Configure({near_mep_});
  ASSERT_TRUE(near_.Settle());
  Loopback(1, 1, 0);
  Delay(2, 1, 10, 0);
  Linktrace(3, 0);
  ASSERT_TRUE(near_.WaitFor([&] { return !near_.events().linktrace.empty(); }));
  EXPECT_THAT(near_.events().loopback, ElementsAre("error 1 2" + names + "2"));
  EXPECT_THAT(near_.events().delay, ElementsAre("error 2 2" + names + "2"));
  EXPECT_THAT(near_.events().linktrace, ElementsAre("error 3" + names + "2 0"));
}

// Two traces at a time, each with the answer of the other end.
TEST_F(Diagnostics, TraceTheWayToTheOtherEnd) {
  Wire far_wire(far_cable_.first);
  Run();
  Linktrace(1, 0);
  Linktrace(2, 1);
  ASSERT_TRUE(near_.WaitFor([&] { return near_.events().linktrace.size() == 6; })) << near_.server().Errors();
  const auto messages = far_wire.Take(2, [](const Frame& frame) { return frame.opcode() == Opcode::kLtm; });
  ASSERT_THAT(messages, SizeIs(2));
  const auto chassis = near_cable_.first.address();
  const auto first = cfm::pdu::DecodeLtm(messages[0].pdu());
  ASSERT_TRUE(first);
  const std::uint32_t id = first->transaction_id;
  for (std::uint32_t i = 0; i < 2; ++i) {
    std::array<std::uint8_t, 1500> expected;
    const std::size_t size =
        cfm::pdu::EncodeLtm({.level = near_mep_.level,
                             .use_fdb_only = true,
                             .transaction_id = id + i,
                             .ttl = static_cast<std::uint8_t>(i == 0 ? 64 : 1),
                             .original_address = near_cable_.first.address(),
                             .target_address = far_cable_.first.address(),
                             .egress_identifier = cfm::pdu::EgressIdentifier{0, near_cable_.first.address()},
                             .sender_id = cfm::pdu::SenderId{4, chassis, {}, {}}},
                            expected);
    EXPECT_EQ(messages[i].octets,
              MakeFrame(GroupHeader(near_mep_, near_cable_.first.address(), cfm::pdu::GroupClass::k2),
                        cfm::pdu::Octets(expected).first(size)));
  }
  const std::string names = "domain association 1 ";
  const auto started = [&](std::uint32_t i, const char* ttl) {
    return "started " + names + std::to_string(id + i) + " " + far_mac_ + " 2 " + ttl;
  };
  const auto reply = [&](std::uint32_t i, const char* ttl) {
    return "reply " + names + "Transaction ID: " + std::to_string(id + i) + "; Destination MAC: " + near_mac_ +
           "; Source MAC: " + far_mac_ +
           "; VLAN: 10; Priority: 5; Level: 4; Flags: Terminal MEP: true, Forwarded: false, Use FDB only: true; TTL: " +
           ttl + "; Relay action:1; LTR Egress ID: Last: " + near_mac_ +
           ", Next: 00:00:00:00:00:00; Reply Ingress: Ingress action: 1, Ingress MAC: " + far_mac_ +
           ", Port ID: Subtype 5, Length 4;  'port'";
  };
  const auto ended = [&](std::uint32_t i) { return "ended " + names + std::to_string(id + i); };
  EXPECT_THAT(near_.events().linktrace, testing::UnorderedElementsAre(started(0, "64"), started(1, "1"), reply(0, "63"),
                                                                      reply(1, "0"), ended(0), ended(1)));
  EXPECT_EQ(near_.events().linktrace.front(), started(0, "64"));
  EXPECT_EQ(near_.events().linktrace.back(), ended(1));
}

TEST_F(Diagnostics, MeasureTheDelay) {
  Wire far_wire(far_cable_.first);
  Run();
  Delay(7, 50, 10, 100);
  ASSERT_TRUE(near_.WaitFor([&] { return !near_.events().delay_ended.empty(); })) << near_.server().Errors();
  const auto& lines = near_.events().delay;
  ASSERT_THAT(lines, SizeIs(52));
  EXPECT_EQ(lines.front(), "started 7 " + far_mac_);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "reply 7 " + far_mac_), 50);
  EXPECT_EQ(lines.back(), "ended 7");
  const DelayEnd& end = near_.events().delay_ended.front();
  EXPECT_EQ(end.trigger_id, 7U);
  EXPECT_EQ(end.sent, 50U);
  EXPECT_EQ(end.received, 50U);
  EXPECT_EQ(end.data_octets, 100U);
  EXPECT_GT(end.delay_min, 0);
  EXPECT_LE(end.delay_min, end.delay_mean);
  EXPECT_LE(end.delay_mean, end.delay_max);
  EXPECT_LT(end.delay_min, 100'000) << "microseconds, on one machine";
  EXPECT_GE(end.variation_min, 0);
  EXPECT_LE(end.variation_min, end.variation_mean);
  EXPECT_LE(end.variation_mean, end.variation_max);
  EXPECT_LE(end.variation_max, end.delay_max - end.delay_min + 1e-3);

  const auto messages = far_wire.Take(50, [](const Frame& frame) { return frame.opcode() == Opcode::kDmm; });
  ASSERT_THAT(messages, SizeIs(50));
  std::array<std::uint8_t, 100> data;
  std::iota(data.begin(), data.end(), std::uint8_t{0});
  for (const Frame& message : messages) {
    const auto dmm = cfm::pdu::DecodeDmm(message.pdu());
    ASSERT_TRUE(dmm);
    std::array<std::uint8_t, 1500> expected;
    const std::size_t size = cfm::pdu::EncodeDmm({.level = near_mep_.level,
                                                  .version = 0,
                                                  .proactive = false,
                                                  .sent_f = dmm->sent_f,
                                                  .received_f = {},
                                                  .sent_b = {},
                                                  .received_b = {},
                                                  .data = data},
                                                 expected);
    EXPECT_EQ(message.octets, MakeFrame(Header(3), cfm::pdu::Octets(expected).first(size)));
    const auto sent =
        WallTime(std::chrono::seconds(dmm->sent_f.seconds) + std::chrono::nanoseconds(dmm->sent_f.nanoseconds));
    EXPECT_LE(sent, message.received) << "one clock, on one machine";
  }
}

TEST_F(Diagnostics, ReportEverySessionOfAProbe) {
  Run();
  const auto before = std::chrono::system_clock::now();
  cfm::probe probe;
  probe.probes[3] = {3, 1, near_mep_.md, near_mep_.ma, 1, 2, {{1, {10, 10, 64, 5}}, {9, {5, 20, 0, 0}}}};
  near_.Configure(probe);
  ASSERT_TRUE(near_.WaitFor([&] { return near_.events().sessions.size() == 4; })) << near_.server().Errors();
  const auto after = std::chrono::system_clock::now();
  for (std::size_t i = 0; i < 4; ++i) {
    const cfm::delay_measurement_session_report& report = near_.events().sessions[i];
    const bool is_first = i % 2 == 0;
    const std::uint32_t count = is_first ? 10 : 5;
    EXPECT_EQ(report.report_u32_1, 3U);
    EXPECT_EQ(report.report_u32_2, is_first ? 1U : 9U);
    EXPECT_EQ(report.report_flag, 1);
    EXPECT_EQ(report.report_u32_3, 1U);
    EXPECT_EQ(report.report_u32_4, 2U);
    EXPECT_EQ(report.report_u32_5, count);
    EXPECT_EQ(report.report_u32_6, count);
    EXPECT_EQ(report.report_u32_7, 0U);
    EXPECT_EQ(report.report_u32_8, i / 2 + 1) << "the run";
    EXPECT_GT(report.report_u32_9, 0U);
    EXPECT_LE(report.report_u32_9, report.report_u32_11) << "minimum, median";
    EXPECT_LE(report.report_u32_11, report.report_u32_12) << "median, 95th";
    EXPECT_LE(report.report_u32_12, report.report_u32_13) << "95th, 99th";
    EXPECT_LE(report.report_u32_13, report.report_u32_10) << "99th, maximum";
    EXPECT_GE(report.report_double_1, report.report_u32_9 - 1.0);
    EXPECT_LE(report.report_double_1, report.report_u32_10);
    EXPECT_GE(report.report_double_2, 0);
    EXPECT_LE(report.report_double_2, report.report_u32_10);
    EXPECT_GE(report.report_double_3, 0);
    EXPECT_LE(report.report_double_3, report.report_u32_10);
    EXPECT_GE(report.report_double_4, 0);
    EXPECT_LE(report.report_double_4, report.report_u32_10);
    EXPECT_GE(report.report_u32_14, std::chrono::floor<std::chrono::seconds>(before).time_since_epoch().count());
    EXPECT_LE(report.report_u32_14, std::chrono::floor<std::chrono::seconds>(after).time_since_epoch().count());
  }

  // A run that ends before its time says so.
  near_.events().Clear();
  probe.probes = {{4, {4, 60, near_mep_.md, near_mep_.ma, 1, 2, {{1, {1000, 10, 64, 5}}}}}};
  near_.Configure(probe);
  Wire far_wire(far_cable_.first);
  const auto is_proactive = [](const Frame& frame) {
    const auto dmm = cfm::pdu::DecodeDmm(frame.pdu());
    return dmm && dmm->proactive;
  };
  ASSERT_THAT(far_wire.Take(20, is_proactive), SizeIs(20));
  near_.Configure(cfm::probe{});
  ASSERT_TRUE(near_.WaitFor([&] {
    const auto& sessions = near_.events().sessions;
    return !sessions.empty() && sessions.back().report_u32_1 == 4;
  }));
  EXPECT_EQ(near_.events().sessions.back().report_flag, 0);
  EXPECT_GE(near_.events().sessions.back().report_u32_5, 20U);
  EXPECT_EQ(near_.events().sessions.back().report_u32_5,
            near_.events().sessions.back().report_u32_6 + near_.events().sessions.back().report_u32_7);
}

// ---- Peers that answer in other ways, or not at all ----

class APeer : public OneElement {
 protected:
  std::optional<Frame> Next(Opcode opcode) { return wire_.Next(opcode); }
  EthernetHeader Back() const { return StationHeader(mep_, wire_.address(), port_.address()); }
};

TEST_F(APeer, ThatIsSilentEndsEveryTestAfterFiveSeconds) {
  RunWithPeer();
  const auto begin = std::chrono::steady_clock::now();
  element_.client().LoopbackTrigger({1, mep_.md, mep_.ma, 1, 2, 1, 0});
  element_.client().LinktraceTrigger({2, mep_.md, mep_.ma, 1, 2, 0});
  element_.client().DelayMeasurementTrigger({3, mep_.md, mep_.ma, 1, 2, 1, 10, 0, 0});
  ASSERT_TRUE(element_.WaitFor([&] {
    const Events& events = element_.events();
    return events.loopback.size() == 2 && events.linktrace.size() == 2 && events.delay.size() == 2;
  }));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 5s);
  const std::string mac = ToText(wire_.address());
  EXPECT_THAT(element_.events().loopback, ElementsAre("started 1 " + mac, "ended 1 1 0 0 0"));
  EXPECT_THAT(element_.events().linktrace,
              ElementsAre("started domain association 1 1 " + mac + " 2 64", "ended domain association 1 1"));
  EXPECT_THAT(element_.events().delay, ElementsAre("started 3 " + mac, "ended 3"));
  const DelayEnd& end = element_.events().delay_ended.front();
  EXPECT_EQ(std::tuple(end.trigger_id, end.sent, end.received, end.delay_min, end.delay_mean, end.delay_max,
                       end.variation_min, end.variation_mean, end.variation_max, end.data_octets),
            std::tuple(3U, 1U, 0U, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0U));
}

TEST_F(APeer, ThatChangesOrRepeatsLoopbackMessagesIsFoundOut) {
  RunWithPeer();
  element_.client().LoopbackTrigger({1, mep_.md, mep_.ma, 1, 2, 3, 100});
  const auto answer = [&](const Frame& lbm, std::uint8_t change) {
    std::vector<std::uint8_t> lbr(lbm.pdu().begin(), lbm.pdu().end());
    lbr[1] = static_cast<std::uint8_t>(Opcode::kLbr);
    lbr[60] = static_cast<std::uint8_t>(lbr[60] ^ change);
    wire_.Send(Back(), lbr);
  };
  const auto first = Next(Opcode::kLbm);
  ASSERT_TRUE(first);
  answer(*first, 1);
  answer(*first, 0);  // a second answer to one message counts for nothing
  const auto second = Next(Opcode::kLbm);
  ASSERT_TRUE(second);
  const auto third = Next(Opcode::kLbm);
  ASSERT_TRUE(third);
  answer(*third, 0);
  answer(*second, 0);
  ASSERT_TRUE(element_.WaitFor(
      [&] { return !element_.events().loopback.empty() && element_.events().loopback.back().starts_with("ended"); }));
  EXPECT_EQ(element_.events().loopback.back(), "ended 1 3 0 2 1");
  ASSERT_THAT(element_.events().loopback, SizeIs(5));
}

TEST_F(APeer, ThatAnswersTwiceOrUnaskedIsNotMeasuredTwice) {
  RunWithPeer();
  element_.client().DelayMeasurementTrigger({1, mep_.md, mep_.ma, 1, 2, 2, 100, 0, 0});
  const auto answer = [&](const Frame& dmm, std::uint32_t holding_ns) {
    std::vector<std::uint8_t> dmr(dmm.pdu().size());
    const auto message = cfm::pdu::DecodeDmm(dmm.pdu());
    ASSERT_TRUE(message);
    cfm::pdu::MakeDmr(dmm.pdu(), {1000, 0}, dmr);
    cfm::pdu::SetSentB(dmr, {1000, holding_ns});
    wire_.Send(Back(), dmr);
  };
  const auto first = Next(Opcode::kDmm);
  ASSERT_TRUE(first);
  answer(*first, 1);
  answer(*first, 1);
  std::vector<std::uint8_t> stranger(first->pdu().begin(), first->pdu().end());
  stranger[1] = static_cast<std::uint8_t>(Opcode::kDmr);
  stranger[5] = static_cast<std::uint8_t>(stranger[5] ^ 1U);
  wire_.Send(Back(), stranger);
  const auto second = Next(Opcode::kDmm);
  ASSERT_TRUE(second);
  // It says that it held the message longer than the way there and back took.
  answer(*second, 999'999'999);
  ASSERT_TRUE(element_.WaitFor([&] { return !element_.events().delay_ended.empty(); }));
  EXPECT_EQ(element_.events().delay_ended.front().sent, 2U);
  EXPECT_EQ(element_.events().delay_ended.front().received, 1U);
  const std::string mac = ToText(wire_.address());
  EXPECT_THAT(element_.events().delay, ElementsAre("started 1 " + mac, "reply 1 " + mac, "reply 1 " + mac, "ended 1"));
}

}  // namespace
}  // namespace cfm_test
