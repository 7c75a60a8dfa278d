// The exported identities: names, numbers and ids are a wire contract with servers of other versions.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "cfm/identities.h"

// The names without C++ mangling: were one of them not exported with C linkage, this file would not link.
extern "C" {
extern const void* const catalogue_c_names[];
}

namespace {

struct Signal {
  const char* name;
  const vorbus_sig_t* identity;
  const vorbus_sigblock_t* block;
  std::uint32_t block_id;
  unsigned int number;
};

struct Event {
  const char* name;
  const vorbus_event_t* identity;
  unsigned int number;
};

std::vector<Signal> Signals() {
#define C2S(operation, number)                                                   \
  Signal {                                                                       \
#operation, CFM_MGR_C2S_SIG_##operation, CFM_MGR_C2S_SIGBLOCK, 17251, number \
  }
#define S2C(operation, number)                                                   \
  Signal {                                                                       \
#operation, CFM_MGR_S2C_SIG_##operation, CFM_MGR_S2C_SIGBLOCK, 17252, number \
  }
  return {
      Signal{"TICK_SCHED", CFM_MGR_SIG_TICK_SCHED, CFM_MGR_SIGBLOCK, 17250, 1},
      C2S(MD_CREATE, 1),
      C2S(MD_UPDATE, 2),
      C2S(MD_DELETE, 3),
      C2S(MA_CREATE, 4),
      C2S(MA_UPDATE, 5),
      C2S(MA_DELETE, 6),
      C2S(MEP_CREATE, 7),
      C2S(MEP_UPDATE, 8),
      C2S(MEP_DELETE, 9),
      C2S(CACHE_GET, 10),
      C2S(STATS_GET, 11),
      C2S(STATS_CLEAR, 12),
      C2S(STATUS_GET_ALL, 13),
      C2S(LT_TRIGGER, 14),
      C2S(LB_TRIGGER, 15),
      C2S(DM_TRIGGER, 16),
      C2S(DM_PROBE_CREATE, 17),
      C2S(DM_PROBE_DELETE, 18),
      C2S(DM_SESSION_CREATE, 19),
      C2S(DM_SESSION_DELETE, 20),
      S2C(CACHE_REPLY, 1),
      S2C(STATS_REPLY, 2),
      S2C(LT_TRIGGER_ERROR, 3),
      S2C(LB_TRIGGER_ERROR, 4),
      S2C(DM_TRIGGER_ERROR, 5),
  };
#undef C2S
#undef S2C
}

std::vector<Event> Events() {
#define EVENT(operation, number)                      \
  Event {                                             \
#operation, CFM_MGR_SRV_EVENT_##operation, number \
  }
  return {
      EVENT(STATUS_LOCAL_MEP, 1),
      EVENT(STATUS_REMOTE_MEP, 2),
      EVENT(REMOVED_LOCAL_MEP, 3),
      EVENT(REMOVED_REMOTE_MEP, 4),
      EVENT(LINKTRACE_STARTED, 5),
      EVENT(LINKTRACE_REPLY_RX, 6),
      EVENT(LINKTRACE_ENDED, 7),
      EVENT(LOOPBACK_STARTED, 8),
      EVENT(LOOPBACK_REPLY_RX, 9),
      EVENT(LOOPBACK_ENDED, 10),
      EVENT(DELAY_MEASUREMENT_STARTED, 11),
      EVENT(DELAY_MEASUREMENT_REPLY_RX, 12),
      EVENT(DELAY_MEASUREMENT_ENDED, 13),
      EVENT(DELAY_MEASUREMENT_SESSION_ENDED, 14),
  };
#undef EVENT
}

TEST(Catalogue, HasTheProcessNamePaddedWithNulsTo255Octets) {
  std::string padded = "cfm-mgr";
  padded.resize(255, '\0');
  ASSERT_EQ(sizeof(CFM_MGR_PROCESS->name), 255U);
  EXPECT_EQ(std::string(CFM_MGR_PROCESS->name, sizeof(CFM_MGR_PROCESS->name)), padded);
}

TEST(Catalogue, HasThreeSignalBlocksAndOneEventGroup) {
  EXPECT_EQ(CFM_MGR_SIGBLOCK->id, 0x4362U);
  EXPECT_EQ(CFM_MGR_C2S_SIGBLOCK->id, 0x4363U);
  EXPECT_EQ(CFM_MGR_S2C_SIGBLOCK->id, 0x4364U);
  EXPECT_EQ(CFM_MGR_SRV_EVENTGROUP->id, 1128680781U);
  EXPECT_EQ(CFM_MGR_SRV_EVENTGROUP->id, ('C' << 24 | 'F' << 16 | 'M' << 8 | 'M'));
}

TEST(Catalogue, HasEverySignalByItsNumberInItsBlock) {
  for (const Signal& signal : Signals()) {
    SCOPED_TRACE(signal.name);
    EXPECT_EQ(signal.identity->block, signal.block);
    EXPECT_EQ(signal.identity->block->id, signal.block_id);
    EXPECT_EQ(signal.identity->number, signal.number);
  }
}

TEST(Catalogue, HasEveryEventByItsNumberInTheServersGroup) {
  for (const Event& event : Events()) {
    SCOPED_TRACE(event.name);
    EXPECT_EQ(event.identity->group, CFM_MGR_SRV_EVENTGROUP);
    EXPECT_EQ(event.identity->number, event.number);
  }
}

TEST(Catalogue, HasFortySignalsAndEvents) {
  EXPECT_EQ(Signals().size() + Events().size(), 40U);
}

TEST(Catalogue, NumbersFromOneInEveryBlockAndGroupAndUsesNoZero) {
  std::map<std::uint32_t, std::set<unsigned int>> numbers;
  for (const Signal& signal : Signals()) {
    numbers[signal.identity->block->id].insert(signal.identity->number);
  }
  for (const Event& event : Events()) {
    numbers[event.identity->group->id].insert(event.identity->number);
  }
  ASSERT_EQ(numbers.size(), 4U);
  for (const auto& [id, used] : numbers) {
    SCOPED_TRACE(id);
    EXPECT_EQ(*used.begin(), 1U);
    EXPECT_EQ(*used.rbegin(), used.size());
  }
  EXPECT_EQ(numbers[17250].size(), 1U);
  EXPECT_EQ(numbers[17251].size(), 20U);
  EXPECT_EQ(numbers[17252].size(), 5U);
}

TEST(Catalogue, NumbersTheEventsOfAFeatureStartedReplyEnded) {
  EXPECT_EQ(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED->number, 5U);
  EXPECT_EQ(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX->number, 6U);
  EXPECT_EQ(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED->number, 7U);
}

TEST(Catalogue, ExportsTheTickSignalThatNoClientUses) {
  ASSERT_NE(CFM_MGR_SIG_TICK_SCHED, nullptr);
  EXPECT_EQ(CFM_MGR_SIG_TICK_SCHED->block, CFM_MGR_SIGBLOCK);
}

TEST(Catalogue, ExportsWritablePointersToConstantRecords) {
  EXPECT_TRUE((std::is_same_v<decltype(CFM_MGR_PROCESS), const vorbus_proc_t*>));
  EXPECT_TRUE((std::is_same_v<decltype(CFM_MGR_SIGBLOCK), const vorbus_sigblock_t*>));
  EXPECT_TRUE((std::is_same_v<decltype(CFM_MGR_SRV_EVENTGROUP), const vorbus_evgroup_t*>));
  EXPECT_TRUE((std::is_same_v<decltype(CFM_MGR_C2S_SIG_MD_CREATE), const vorbus_sig_t*>));
  EXPECT_TRUE((std::is_same_v<decltype(CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP), const vorbus_event_t*>));
  EXPECT_TRUE((std::is_same_v<decltype(vorbus_sig_t::number), unsigned int>));
  EXPECT_TRUE((std::is_same_v<decltype(vorbus_sigblock_t::id), std::uint32_t>));
}

TEST(Catalogue, IsReachableFromCByEveryName) {
  std::set<const void*> seen;
  std::size_t count = 0;
  for (const void* const* name = catalogue_c_names; *name != nullptr; ++name, ++count) {
    seen.insert(*name);
  }
  EXPECT_EQ(count, 45U);
  EXPECT_EQ(seen.size(), count);
}

}  // namespace
