// The memory of messages that carry a payload.
//
// A message is made by the caller's thread and ended by ZeroMQ's, once it is in the socket. When both go to the
// allocator for each message, they meet at its lock; from a pool they meet once for each chunk of some hundred
// messages.
#ifndef VORBUS_MESSAGE_POOL_H
#define VORBUS_MESSAGE_POOL_H

#include <atomic>
#include <cstddef>

#include "wire.h"
#include "zmq_handles.h"

namespace bus {

// Used by one thread at a time. Its messages may end in any thread, but not after the pool.
class MessagePool {
 public:
  MessagePool() = default;
  ~MessagePool();
  MessagePool(const MessagePool&) = delete;
  MessagePool& operator=(const MessagePool&) = delete;

  // A message of that header and payload; data may be null when size is 0.
  Message Make(const Header& header, const void* data, std::size_t size);

 private:
  struct Chunk;

  static void Free(void* octets, void* chunk);
  void Retire();
  void Renew();
  Chunk* TakeSpare();

  Chunk* current_ = nullptr;
  std::size_t used_ = 0;     // octets of the current chunk
  std::ptrdiff_t made_ = 0;  // messages in the current chunk
  // Chunks to be used again: lists of those that came back, in any thread, and of those that this one has picked up.
  std::atomic<Chunk*> returned_ = nullptr;
  Chunk* picked_up_ = nullptr;
  std::atomic<int> spare_ = 0;  // number of both
};

}  // namespace bus

#endif
