#include "protocol/deadline_queue.h"

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <random>
#include <vector>

#include "recording_output.h"

namespace cfm::protocol {
namespace {

using namespace std::chrono_literals;

TEST(ADeadlineQueue, KnowsNoDeadlineWhenNobodyHasOne) {
  DeadlineQueue queue;
  queue.Add();
  EXPECT_EQ(queue.earliest(), kNever);
  EXPECT_FALSE(queue.Due(kStart));
}

TEST(ADeadlineQueue, HasAMemberDueFromItsDeadlineOnUntilItIsSetAnew) {
  DeadlineQueue queue;
  const auto id = queue.Add();
  queue.Set(id, kStart);
  EXPECT_FALSE(queue.Due(kStart - 1ns));
  EXPECT_EQ(queue.Due(kStart), id);
  EXPECT_EQ(queue.Due(kStart), id);
  queue.Set(id, kStart + 1s);
  EXPECT_FALSE(queue.Due(kStart));
  queue.Set(id, kNever);
  EXPECT_FALSE(queue.Due(kStart + 1h));
}

TEST(ADeadlineQueue, UsesTheIdsOfRemovedMembersAgain) {
  DeadlineQueue queue;
  const auto first = queue.Add();
  queue.Set(first, kStart);
  queue.Remove(first);
  EXPECT_EQ(queue.earliest(), kNever);
  EXPECT_EQ(queue.Add(), first);
  EXPECT_EQ(queue.earliest(), kNever);
}

TEST(ADeadlineQueue, AgreesWithASortedTableThroughRandomChanges) {
  std::mt19937 random(1);
  DeadlineQueue queue;
  std::map<DeadlineQueue::Id, TimePoint> table;
  for (int step = 0; step < 20000; ++step) {
    const auto choice = random() % 10;
    if (table.empty() || choice == 0) {
      ASSERT_TRUE(table.emplace(queue.Add(), kNever).second);
    } else {
      auto member = std::next(table.begin(), static_cast<std::ptrdiff_t>(random() % table.size()));
      if (choice == 1) {
        queue.Remove(member->first);
        table.erase(member);
      } else {
        member->second = choice == 2 ? kNever : kStart + std::chrono::milliseconds(random() % 1000);
        queue.Set(member->first, member->second);
      }
    }
    TimePoint earliest = kNever;
    for (const auto& [id, deadline] : table) earliest = std::min(earliest, deadline);
    ASSERT_EQ(queue.earliest(), earliest);
    if (const auto due = queue.Due(kStart + 1s)) {
      ASSERT_EQ(table.at(*due), earliest);
    }
  }
}

TEST(ADeadlineQueue, WakesNobodyWhoIsNotDue) {
  DeadlineQueue queue;
  const auto busy = queue.Add();
  std::vector<DeadlineQueue::Id> idle(5000);
  for (auto& id : idle) queue.Set(id = queue.Add(), kStart + 10min);
  TimePoint now = kStart;
  for (int i = 0; i < 100000; ++i) {
    queue.Set(busy, now += 3333333ns);
    ASSERT_EQ(queue.Due(now), busy);
  }
}

}  // namespace
}  // namespace cfm::protocol
