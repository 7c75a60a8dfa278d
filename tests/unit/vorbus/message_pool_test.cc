#include "message_pool.h"

#include <gtest/gtest.h>

#include <deque>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

namespace bus {
namespace {

constexpr Header kHeader = {Kind::kSignal, 1000, 42, 7};

std::string PayloadOf(Message& message) {
  const std::span<const std::byte> payload = message.octets().subspan(kHeaderSize);
  return {reinterpret_cast<const char*>(payload.data()), payload.size()};
}

Message Made(MessagePool& pool, const std::string& payload) {
  return pool.Make(kHeader, payload.data(), payload.size());
}

TEST(AMessageOfThePool, HasItsHeaderAndItsPayload) {
  MessagePool pool;
  for (const std::size_t size : {0U, 1U, 15U, 16U, 17U, 80U, 1023U, 1024U, 1025U, 65519U, 65520U, 65521U, 1U << 20}) {
    std::string payload(size, '\0');
    std::iota(payload.begin(), payload.end(), '\0');
    Message message = Made(pool, payload);
    EXPECT_EQ(DecodeHeader(message.octets()), kHeader) << size;
    EXPECT_EQ(PayloadOf(message), payload) << size;
  }
}

TEST(AMessageOfThePool, NeedsNoPayload) {
  MessagePool pool;
  Message message = pool.Make(kHeader, nullptr, 0);
  EXPECT_EQ(message.size(), kHeaderSize);
}

TEST(ThePool, LeavesAMessageAloneUntilItEnds) {
  MessagePool pool;
  std::mt19937 random(4711);
  std::deque<std::pair<Message, std::string>> alive;
  for (int i = 0; i < 100000; ++i) {
    std::string payload(random() % 1100, static_cast<char>(i));
    Message message = Made(pool, payload);
    alive.emplace_back(std::move(message), std::move(payload));
    // Mostly in their order, as a queue ends them.
    while (alive.size() > random() % 400) {
      const auto ended = alive.begin() + static_cast<std::ptrdiff_t>(random() % 8 == 0 ? random() % alive.size() : 0);
      ASSERT_EQ(PayloadOf(ended->first), ended->second) << i;
      alive.erase(ended);
    }
  }
}

TEST(ThePool, UsesTheMemoryOfEndedMessagesAgain) {
  MessagePool pool;
  const std::string payload(1000, 'x');
  std::unordered_set<const std::byte*> places;
  for (int i = 0; i < 100000; ++i) {
    places.insert(Made(pool, payload).data());
  }
  EXPECT_LE(places.size(), 2 * 64U);  // two chunks of 64 KiB
}

// Messages end in another thread than made them, while the next ones are made.
TEST(ThePool, TakesItsMemoryBackFromOtherThreads) {
  constexpr int kRounds = 200;
  constexpr std::size_t kMessages = 1000;
  MessagePool pool;
  std::vector<std::thread> threads;
  for (int round = 0; round < kRounds; ++round) {
    std::vector<Message> messages;
    for (std::size_t i = 0; i < kMessages; ++i) {
      messages.push_back(Made(pool, std::string(i % 200, static_cast<char>(round))));
    }
    threads.emplace_back([round, ended = std::move(messages)]() mutable {
      for (Message& message : ended) {
        for (const char octet : PayloadOf(message)) {
          EXPECT_EQ(octet, static_cast<char>(round));
        }
      }
      ended.clear();
    });
    if (threads.size() == 4) {
      for (std::thread& thread : std::exchange(threads, {})) {
        thread.join();
      }
    }
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST(ThePool, OutlivesAnyNumberOfMessages) {
  MessagePool pool;
  for (int burst = 0; burst < 3; ++burst) {
    std::vector<Message> messages;
    for (int i = 0; i < 20000; ++i) {  // more chunks than are kept
      messages.push_back(Made(pool, std::string(1000, 'x')));
    }
    EXPECT_EQ(PayloadOf(messages.front()), std::string(1000, 'x'));
  }
}

}  // namespace
}  // namespace bus
