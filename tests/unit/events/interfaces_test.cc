// What an application that was built against the headers relies on: the layout of the records and the slots of the
// handler interfaces.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "cfm/client.h"
#include "noting_handlers.h"

namespace {

using recording::Called;
using recording::Entry;

// ---- Records ----

struct Member {
  std::size_t offset;
  std::size_t size;
  std::size_t alignment;
};

std::size_t Aligned(std::size_t offset, std::size_t alignment) {
  return (offset + alignment - 1) / alignment * alignment;
}

// Checks that the record is made of these members in this order and of nothing else. Their types are checked by the
// compiler: the template arguments must be exactly those of the member pointers.
template <typename Record, typename... Types>
void ExpectMembers(std::type_identity_t<Types> Record::*... members) {
  const Record record{};
  const auto* start = reinterpret_cast<const char*>(&record);
  const std::vector<Member> layout = {
      {static_cast<std::size_t>(reinterpret_cast<const char*>(&(record.*members)) - start), sizeof(Types),
       alignof(Types)}...};
  std::size_t end = 0;
  for (std::size_t i = 0; i < layout.size(); ++i) {
    EXPECT_EQ(layout[i].offset, Aligned(end, layout[i].alignment)) << "member " << i + 1;
    end = layout[i].offset + layout[i].size;
  }
  EXPECT_EQ(sizeof(Record), Aligned(end, alignof(Record)));
}

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using Text = std::string;

TEST(ARecord, StMacIsSixOctetsAndNothingElse) {
  static_assert(sizeof(cfm::st_mac) == 6);
  static_assert(alignof(cfm::st_mac) == 1);
  static_assert(std::is_trivially_copyable_v<cfm::st_mac>);
  static_assert(std::is_standard_layout_v<cfm::st_mac>);
  const cfm::st_mac mac = {{1, 2, 3, 4, 5, 6}};
  const auto* octets = reinterpret_cast<const unsigned char*>(&mac);
  EXPECT_EQ(std::vector<unsigned char>(octets, octets + sizeof(mac)), (std::vector<unsigned char>{1, 2, 3, 4, 5, 6}));
}

TEST(ARecord, LocalMepStatusHasItsMembersInOrder) {
  using R = cfm::st_local_mep_status;
  ExpectMembers<R, cfm::st_mac, bool, U8, U32, U32, U32, U32, bool, bool, bool, bool, bool, bool>(
      &R::mac, &R::rdi, &R::intf_status, &R::port_state, &R::block_state, &R::shutdown_state, &R::highest_defect,
      &R::defect_rdi, &R::defect_mac_status, &R::defect_remote_ccm, &R::defect_error_ccm, &R::defect_xcon_ccm,
      &R::defect_ais);
}

TEST(ARecord, RemoteMepStatusHasItsMembersInOrder) {
  using R = cfm::st_remote_mep_status;
  ExpectMembers<R, U32, U64, cfm::st_mac, bool, U32, U8, Text>(&R::fsm_state, &R::last_change_uptime, &R::mac, &R::rdi,
                                                               &R::port_state, &R::intf_status, &R::sender_id);
}

TEST(ARecord, SessionReportHasItsMembersInOrder) {
  using R = cfm::delay_measurement_session_report;
  ExpectMembers<R, U32, U32, U8, U32, U32, U32, U32, U32, U32, double, double, U32, U32, U32, U32, U32, U32, double,
                double>(&R::report_u32_1, &R::report_u32_2, &R::report_flag, &R::report_u32_3, &R::report_u32_4,
                        &R::report_u32_5, &R::report_u32_6, &R::report_u32_7, &R::report_u32_8, &R::report_double_1,
                        &R::report_double_2, &R::report_u32_9, &R::report_u32_10, &R::report_u32_11, &R::report_u32_12,
                        &R::report_u32_13, &R::report_u32_14, &R::report_double_3, &R::report_double_4);
}

TEST(ARecord, StatisticsHaveTheirMembersInOrder) {
  using L = cfm::st_local_mep_stats;
  ExpectMembers<L, U64, U64, U32>(&L::ccm_rx_seq_errors, &L::ccm_tx_total, &L::ccm_tx_current_seq);
  using R = cfm::st_remote_mep_stats;
  ExpectMembers<R, U32>(&R::last_ccm_seq);
}

TEST(ARecord, TriggersHaveTheirMembersInOrder) {
  using L = cfm::linktrace_trigger;
  ExpectMembers<L, U32, Text, Text, U16, U16, U8>(&L::trigger_id, &L::md_name, &L::ma_name, &L::mep_id,
                                                  &L::target_mep_id, &L::ttl);
  using B = cfm::loopback_trigger;
  ExpectMembers<B, U32, Text, Text, U16, U16, U32, U16>(&B::trigger_id, &B::md_name, &B::ma_name, &B::mep_id,
                                                        &B::target_mep_id, &B::lb_param_1, &B::lb_param_2);
  using D = cfm::delay_measurement_trigger;
  ExpectMembers<D, U32, Text, Text, U16, U16, U32, U32, U16, U8>(&D::trigger_id, &D::md_name, &D::ma_name, &D::mep_id,
                                                                 &D::target_mep_id, &D::dm_param_1, &D::dm_param_2,
                                                                 &D::dm_param_3, &D::dm_param_4);
}

TEST(ARecord, LinktraceReplyEntryAndItsPartsHaveTheirMembersInOrder) {
  using E = cfm::LtrEgressIdEntry;
  ExpectMembers<E, cfm::st_mac, U16, cfm::st_mac, U16>(&E::last_mac, &E::last_unique_id, &E::next_mac,
                                                       &E::next_unique_id);
  using P = cfm::LtrReplyPortEntry;
  ExpectMembers<P, U8, cfm::st_mac, bool, U8, Text>(&P::action, &P::mac, &P::port_id_present, &P::port_id_subtype,
                                                    &P::port_id);
  using R = cfm::LinktraceReplyEntry;
  ExpectMembers<R, cfm::st_mac, cfm::st_mac, U16, U8, U16, U8, U8, bool, bool, bool, U32, U8, U32, std::unique_ptr<E>,
                std::unique_ptr<P>, std::unique_ptr<P>>(
      &R::destination_mac, &R::source_mac, &R::vlan, &R::priority, &R::internal_vlan, &R::internal_priority, &R::level,
      &R::terminal_mep, &R::forwarded, &R::use_fdb_only, &R::transaction_id, &R::ttl, &R::relay_action, &R::egress_id,
      &R::reply_ingress, &R::reply_egress);
  static_assert(sizeof(std::unique_ptr<E>) == sizeof(void*));
}

// ---- Handler interfaces ----

template <typename... Interfaces>
constexpr bool kOnlyOperations = ((std::is_abstract_v<Interfaces> && !std::has_virtual_destructor_v<Interfaces> &&
                                   !std::is_destructible_v<Interfaces> && sizeof(Interfaces) == sizeof(void*)) &&
                                  ...);
static_assert(kOnlyOperations<cfm::ReceivedStatusHandlerIntf, cfm::ReceivedStatisticsHandlerIntf,
                              cfm::ReceivedLinktraceHandlerIntf, cfm::ReceivedLoopbackHandlerIntf,
                              cfm::ReceivedDelayMeasurementHandlerIntf>);

// Calls what stands in a slot of the object's virtual table, as code that knows nothing but the slot's number and the
// operation's arguments would (Itanium C++ ABI: the object begins with the table's address, member functions take the
// object first).
template <typename... Arguments>
void CallSlot(void* object, std::size_t slot, std::type_identity_t<Arguments>... arguments) {
  using Operation = void (*)(void*, Arguments...);
  auto* const table = *static_cast<Operation**>(object);
  table[slot](object, arguments...);
}

class AHandlersSlots : public testing::Test {
 protected:
  // The call that the last slot led to.
  Entry Last() {
    const recording::Journal journal = middleware.Take();
    return journal.size() == 1 ? journal[0] : recording::Noted("not one call");
  }

  recording::Middleware middleware;
  const Text md = "MD1";
  const Text ma = "MA1";
  const cfm::st_mac mac = {{1, 2, 3, 4, 5, 6}};
};

TEST_F(AHandlersSlots, OfTheStatusHandlerAreInOrder) {
  recording::StatusNotes notes(middleware);
  void* const handler = static_cast<cfm::ReceivedStatusHandlerIntf*>(&notes);
  const cfm::st_local_mep_status local{};
  const cfm::st_remote_mep_status remote{};
  const cfm::LinktraceReplyEntry reply{};
  const cfm::delay_measurement_session_report report{};

  CallSlot<const Text&, const Text&, U16, const cfm::st_local_mep_status&>(handler, 0, md, ma, 1, local);
  EXPECT_EQ(Last(), Called("status.OnLocalMepStatus", md, ma, 1, local));
  CallSlot<const Text&, const Text&, U16, U16, const cfm::st_remote_mep_status&>(handler, 1, md, ma, 1, 2, remote);
  EXPECT_EQ(Last(), Called("status.OnRemoteMepStatus", md, ma, 1, 2, remote));
  CallSlot<const Text&, const Text&, U16>(handler, 2, md, ma, 1);
  EXPECT_EQ(Last(), Called("status.OnLocalMepRemoved", md, ma, 1));
  CallSlot<const Text&, const Text&, U16, U16>(handler, 3, md, ma, 1, 2);
  EXPECT_EQ(Last(), Called("status.OnRemoteMepRemoved", md, ma, 1, 2));
  CallSlot<const Text&, const Text&, U16, U32, cfm::st_mac, U16, bool, U32>(handler, 4, md, ma, 1, 2, mac, 3, true, 4);
  EXPECT_EQ(Last(), Called("status.OnLinktraceStarted", md, ma, 1, 2, mac, 3, true, 4));
  CallSlot<const Text&, const Text&, U16, U32>(handler, 5, md, ma, 1, 2);
  EXPECT_EQ(Last(), Called("status.OnLinktraceEnded", md, ma, 1, 2));
  CallSlot<const Text&, const Text&, U16, const cfm::LinktraceReplyEntry&>(handler, 6, md, ma, 1, reply);
  EXPECT_EQ(Last(), Called("status.OnLinktraceReply", md, ma, 1, reply));
  CallSlot<const cfm::delay_measurement_session_report&>(handler, 7, report);
  EXPECT_EQ(Last(), Called("status.OnDelayMeasurementSessionEnded", report));
  CallSlot<>(handler, 8);
  EXPECT_EQ(Last(), Called("status.OnServerFound"));
}

TEST_F(AHandlersSlots, OfTheStatisticsHandlerAreInOrder) {
  recording::StatisticsNotes notes(middleware);
  void* const handler = static_cast<cfm::ReceivedStatisticsHandlerIntf*>(&notes);
  const cfm::st_local_mep_stats local{};
  const cfm::st_remote_mep_stats remote{};

  CallSlot<const Text&, const Text&, U16, const cfm::st_local_mep_stats&>(handler, 0, md, ma, 1, local);
  EXPECT_EQ(Last(), Called("statistics.OnLocalMepStatistics", md, ma, 1, local));
  CallSlot<const Text&, const Text&, U16, U16, const cfm::st_remote_mep_stats&>(handler, 1, md, ma, 1, 2, remote);
  EXPECT_EQ(Last(), Called("statistics.OnRemoteMepStatistics", md, ma, 1, 2, remote));
  CallSlot<>(handler, 2);
  EXPECT_EQ(Last(), Called("statistics.OnStatisticsEnd"));
}

TEST_F(AHandlersSlots, OfTheLinktraceHandlerAreInOrder) {
  recording::LinktraceNotes notes(middleware);
  void* const handler = static_cast<cfm::ReceivedLinktraceHandlerIntf*>(&notes);
  const cfm::LinktraceReplyEntry reply{};
  const cfm::linktrace_trigger trigger{};

  CallSlot<const Text&, const Text&, U16, U32, cfm::st_mac, U16, bool, U32>(handler, 0, md, ma, 1, 2, mac, 3, true, 4);
  EXPECT_EQ(Last(), Called("linktrace.OnLinktraceStarted", md, ma, 1, 2, mac, 3, true, 4));
  CallSlot<const Text&, const Text&, U16, U32>(handler, 1, md, ma, 1, 2);
  EXPECT_EQ(Last(), Called("linktrace.OnLinktraceEnded", md, ma, 1, 2));
  CallSlot<const Text&, const Text&, U16, const cfm::LinktraceReplyEntry&>(handler, 2, md, ma, 1, reply);
  EXPECT_EQ(Last(), Called("linktrace.OnLinktraceReply", md, ma, 1, reply));
  CallSlot<const cfm::linktrace_trigger&>(handler, 3, trigger);
  EXPECT_EQ(Last(), Called("linktrace.OnLinktraceTriggerError", trigger));
}

TEST_F(AHandlersSlots, OfTheLoopbackHandlerAreInOrder) {
  recording::LoopbackNotes notes(middleware);
  void* const handler = static_cast<cfm::ReceivedLoopbackHandlerIntf*>(&notes);

  CallSlot<U32, U32, const Text&, const Text&, U16, U16>(handler, 0, 1, 2, md, ma, 3, 4);
  EXPECT_EQ(Last(), Called("loopback.OnLoopbackTriggerError", 1, 2, md, ma, 3, 4));
  CallSlot<U32, const cfm::st_mac&>(handler, 1, 1, mac);
  EXPECT_EQ(Last(), Called("loopback.OnLoopbackStarted", 1, mac));
  CallSlot<U32, U32, const cfm::st_mac&>(handler, 2, 1, 2, mac);
  EXPECT_EQ(Last(), Called("loopback.OnLoopbackReply", 1, 2, mac));
  CallSlot<U32, U64, U64, U64, U64>(handler, 3, 1, 2, 3, 4, 5);
  EXPECT_EQ(Last(), Called("loopback.OnLoopbackEnded", 1, 2, 3, 4, 5));
}

TEST_F(AHandlersSlots, OfTheDelayMeasurementHandlerAreInOrder) {
  recording::DelayMeasurementNotes notes(middleware);
  void* const handler = static_cast<cfm::ReceivedDelayMeasurementHandlerIntf*>(&notes);

  CallSlot<U32, U32, const Text&, const Text&, U16, U16>(handler, 0, 1, 2, md, ma, 3, 4);
  EXPECT_EQ(Last(), Called("delay.OnDelayMeasurementTriggerError", 1, 2, md, ma, 3, 4));
  CallSlot<U32, const cfm::st_mac&>(handler, 1, 1, mac);
  EXPECT_EQ(Last(), Called("delay.OnDelayMeasurementStarted", 1, mac));
  CallSlot<U32, const cfm::st_mac&>(handler, 2, 1, mac);
  EXPECT_EQ(Last(), Called("delay.OnDelayMeasurementReply", 1, mac));
  CallSlot<U32, U64, U64, double, double, double, double, double, double, U64>(handler, 3, 1, 2, 3, 0.5, 1.5, 2.5, 3.5,
                                                                               4.5, 5.5, 6);
  EXPECT_EQ(Last(), Called("delay.OnDelayMeasurementEnded", 1, 2, 3, 0.5, 1.5, 2.5, 3.5, 4.5, 5.5, 6));
}

}  // namespace
