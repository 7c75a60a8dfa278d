#include "message_pool.h"

#include <array>
#include <cstring>
#include <utility>

#if defined(__SANITIZE_THREAD__)
#define VORBUS_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VORBUS_THREAD_SANITIZER
#endif
#endif
#ifdef VORBUS_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

namespace bus {

namespace {

constexpr std::size_t kChunkSize = std::size_t{64} << 10;
constexpr std::size_t kLargest =
    1024 + kHeaderSize;  // of the messages that lie in chunks; others have their own memory
constexpr std::size_t kAlignment = 16;
constexpr int kMostSpare = 64;  // chunks (4 MiB) that are kept when they are not needed

// ZeroMQ's queue puts what the maker of a message did before what the thread does that ends it. The thread sanitizer
// does not look into ZeroMQ, and has to be told.
#ifdef VORBUS_THREAD_SANITIZER
void HandOver(void* chunk) {
  __tsan_release(chunk);
}
void TakeOver(void* chunk) {
  __tsan_acquire(chunk);
}
#else
void HandOver(const void* /*chunk*/) {}
void TakeOver(const void* /*chunk*/) {}
#endif

void Fill(std::byte* message, const Header& header, const void* data, std::size_t size) {
  EncodeHeader(message, header);
  if (size != 0) {
    std::memcpy(message + kHeaderSize, data, size);
  }
}

}  // namespace

struct MessagePool::Chunk {
  explicit Chunk(MessagePool& owner) : pool(owner) {}

  MessagePool& pool;
  Chunk* next = nullptr;
  // The messages in it that have not ended. Until it is retired only the ends are counted, below zero.
  std::atomic<std::ptrdiff_t> unended{0};
  alignas(kAlignment) std::array<std::byte, kChunkSize> octets;

  void Count(std::ptrdiff_t messages) {
    if (unended.fetch_add(messages, std::memory_order_acq_rel) + messages == 0) {
      Return();
    }
  }

  void Return() {
    if (pool.spare_.fetch_add(1, std::memory_order_relaxed) >= kMostSpare) {
      pool.spare_.fetch_sub(1, std::memory_order_relaxed);
      delete this;
      return;
    }
    next = pool.returned_.load(std::memory_order_relaxed);
    while (!pool.returned_.compare_exchange_weak(next, this, std::memory_order_release, std::memory_order_relaxed)) {
    }
  }
};

MessagePool::~MessagePool() {
  if (current_ != nullptr) {
    Retire();
  }
  while (const Chunk* chunk = TakeSpare()) {
    delete chunk;
  }
}

Message MessagePool::Make(const Header& header, const void* data, std::size_t size) {
  const std::size_t whole = kHeaderSize + size;
  if (whole > kLargest) {
    Message message(whole);
    Fill(message.data(), header, data, size);
    return message;
  }
  if (current_ == nullptr || kChunkSize - used_ < whole) {
    Renew();
  }
  std::byte* const octets = &current_->octets[used_];
  used_ += (whole + kAlignment - 1) & ~(kAlignment - 1);
  Fill(octets, header, data, size);
  ++made_;
  HandOver(current_);
  return Message(octets, whole, Free, current_);
}

void MessagePool::Free(void*, void* place) {
  TakeOver(place);
  static_cast<Chunk*>(place)->Count(-1);
}

void MessagePool::Retire() {
  std::exchange(current_, nullptr)->Count(std::exchange(made_, 0));
}

void MessagePool::Renew() {
  if (current_ != nullptr) {
    Retire();
  }
  current_ = TakeSpare();
  if (current_ == nullptr) {
    current_ = new Chunk(*this);
  }
  used_ = 0;
}

MessagePool::Chunk* MessagePool::TakeSpare() {
  if (picked_up_ == nullptr) {
    picked_up_ = returned_.exchange(nullptr, std::memory_order_acquire);
  }
  if (picked_up_ == nullptr) {
    return nullptr;
  }
  spare_.fetch_sub(1, std::memory_order_relaxed);
  return std::exchange(picked_up_, picked_up_->next);
}

}  // namespace bus
