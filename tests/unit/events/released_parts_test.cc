// What the library allocates and frees for one linktrace reply, seen from under operator new and delete; a program of
// its own, because it replaces both.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "client_server.pb.h"
#include "noting_handlers.h"

namespace {

// Addresses that are watched, and the order in which the blocks around them were freed.
struct Watch {
  std::array<std::uintptr_t, 4> addresses{};
  std::array<std::size_t, 4> freed{};  // indices into addresses
  std::size_t watched = 0;
  std::size_t count = 0;
};
Watch watch;
std::size_t largest = 0;

void Freed(void* block) {
  const auto start = reinterpret_cast<std::uintptr_t>(block);
  const std::uintptr_t end = start + malloc_usable_size(block);
  for (std::size_t i = 0; i < watch.watched; ++i) {
    if (watch.addresses[i] >= start && watch.addresses[i] < end && watch.count < watch.freed.size()) {
      watch.freed[watch.count++] = i;
    }
  }
}

}  // namespace

void* operator new(std::size_t size) {
  largest = std::max(largest, size);
  void* const block = std::malloc(size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

void operator delete(void* block) noexcept {
  if (block != nullptr) {
    Freed(block);
    std::free(block);
  }
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
  operator delete(block);
}

namespace {

namespace pb = client_server;

class WatchingHandler final : public cfm::ReceivedLinktraceHandlerIntf {
 public:
  void OnLinktraceStarted(const std::string& /*md_name*/, const std::string& /*ma_name*/, std::uint16_t /*mep_id*/,
                          std::uint32_t /*transaction_id*/, cfm::st_mac /*target_mac*/, std::uint16_t /*target_mep_id*/,
                          bool /*has_optional_value*/, std::uint32_t /*optional_value*/) override {}
  void OnLinktraceEnded(const std::string& /*md_name*/, const std::string& /*ma_name*/, std::uint16_t /*mep_id*/,
                        std::uint32_t /*transaction_id*/) override {}
  void OnLinktraceReply(const std::string& /*md_name*/, const std::string& /*ma_name*/, std::uint16_t /*mep_id*/,
                        const cfm::LinktraceReplyEntry& reply) override {
    watch = {};
    watch.addresses = {Address(reply.egress_id.get()), Address(reply.reply_ingress.get()),
                       Address(reply.reply_egress.get()), Address(&reply)};
    watch.watched = 4;
  }
  void OnLinktraceTriggerError(const cfm::linktrace_trigger& /*trigger*/) override {}

 private:
  static std::uintptr_t Address(const void* pointer) { return reinterpret_cast<std::uintptr_t>(pointer); }
};

class AReceivedReply : public testing::Test, protected recording::ClientUnderTest {
 protected:
  ~AReceivedReply() override { watch = {}; }

  static pb::OpLinktraceReplyRx Message(bool ingress, bool egress) {
    pb::OpLinktraceReplyRx message;
    if (ingress) {
      message.mutable_reply()->mutable_reply_ingress();
    }
    if (egress) {
      message.mutable_reply()->mutable_reply_egress();
    }
    return message;
  }

  std::vector<std::size_t> FreedAfter(const pb::OpLinktraceReplyRx& message) {
    WatchingHandler watching;
    client.RegisterLinktraceHandler(&watching);
    EXPECT_EQ(middleware.Deliver(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, message), 1);
    client.RegisterLinktraceHandler(nullptr);
    watch.watched = 0;
    return {watch.freed.begin(), watch.freed.begin() + static_cast<std::ptrdiff_t>(watch.count)};
  }
};

constexpr std::size_t kEgressId = 0;
constexpr std::size_t kIngress = 1;
constexpr std::size_t kEgress = 2;
constexpr std::size_t kEntry = 3;

TEST_F(AReceivedReply, IsFreedAfterItsPartsAndTheyInTheirOrderWhenTheCallbackEnds) {
  EXPECT_EQ(FreedAfter(Message(true, true)), (std::vector{kEgressId, kIngress, kEgress, kEntry}));
}

TEST_F(AReceivedReply, IsFreedWithThePartsThatItHas) {
  EXPECT_EQ(FreedAfter(Message(false, false)), (std::vector{kEgressId, kEntry}));
  EXPECT_EQ(FreedAfter(Message(true, false)), (std::vector{kEgressId, kIngress, kEntry}));
  EXPECT_EQ(FreedAfter(Message(false, true)), (std::vector{kEgressId, kEgress, kEntry}));
}

TEST_F(AReceivedReply, IsNotRenderedWhenLevel11IsOff) {
  const pb::OpLinktraceReplyRx message = Message(true, true);
  const std::string octets = message.SerializeAsString();
  const auto largest_block = [&](bool enabled) {
    middleware.level_enabled = [enabled](int) { return enabled; };
    middleware.Take();
    largest = 0;
    EXPECT_EQ(middleware.Deliver(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, octets), 1);
    return largest;
  };
  // The rendered text is by far the longest thing here.
  const std::size_t text =
      cfm::LinktraceReplyEntry::Show(cfm::LinktraceReplyEntry{}, 0).size() + std::string(" no port id ").size();
  EXPECT_GE(largest_block(true), text);
  EXPECT_LT(largest_block(false), text);
}

}  // namespace
