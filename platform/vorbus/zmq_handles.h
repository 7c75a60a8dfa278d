// ZeroMQ's messages and sockets as C++ values.
#ifndef VORBUS_ZMQ_HANDLES_H
#define VORBUS_ZMQ_HANDLES_H

#include <zmq.h>

#include <cerrno>
#include <cstddef>
#include <new>
#include <span>
#include <string>
#include <utility>

namespace bus {

class Message {
 public:
  Message() { zmq_msg_init(&message_); }
  explicit Message(std::size_t size) {
    if (zmq_msg_init_size(&message_, size) != 0) {
      throw std::bad_alloc();
    }
  }
  // Of octets that stay valid until free(octets, hint) is called, in whichever thread the message ends; at once when
  // it cannot be made.
  Message(void* octets, std::size_t size, zmq_free_fn* free, void* hint) {
    if (zmq_msg_init_data(&message_, octets, size, free, hint) != 0) {
      free(octets, hint);
      throw std::bad_alloc();
    }
  }
  Message(Message&& other) noexcept : Message() { zmq_msg_move(&message_, &other.message_); }
  Message& operator=(Message&& other) noexcept {
    zmq_msg_move(&message_, &other.message_);
    return *this;
  }
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;
  ~Message() { zmq_msg_close(&message_); }

  zmq_msg_t* get() { return &message_; }
  std::byte* data() { return static_cast<std::byte*>(zmq_msg_data(&message_)); }
  std::size_t size() const { return zmq_msg_size(&message_); }
  std::span<std::byte> octets() { return {data(), size()}; }
  bool HasMoreParts() const { return zmq_msg_more(&message_) != 0; }

  // The descriptor of the connection that it came on, or -1.
  int connection() { return zmq_msg_get(&message_, ZMQ_SRCFD); }
  // Which process of this host sent it, as user, group and process of the system; empty when not known.
  std::string sender() {
    const char* address = zmq_msg_gets(&message_, "Peer-Address");
    return address != nullptr ? address : "";
  }

 private:
  zmq_msg_t message_;
};

// Not one call waits. 0, or the positive error number.
class Socket {
 public:
  Socket() = default;
  Socket(void* context, int type) : socket_(zmq_socket(context, type)) {}
  Socket(Socket&& other) noexcept : socket_(std::exchange(other.socket_, nullptr)) {}
  Socket& operator=(Socket&& other) noexcept {
    std::swap(socket_, other.socket_);
    return *this;
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  ~Socket() {
    if (socket_ != nullptr) {
      zmq_close(socket_);
    }
  }

  explicit operator bool() const { return socket_ != nullptr; }
  void* get() const { return socket_; }

  void Set(int option, int value) { zmq_setsockopt(socket_, option, &value, sizeof value); }

  int fd() const {
    int fd = -1;
    std::size_t size = sizeof fd;
    zmq_getsockopt(socket_, ZMQ_FD, &fd, &size);
    return fd;
  }

  int Receive(Message& message) {
    while (zmq_msg_recv(message.get(), socket_, ZMQ_DONTWAIT) < 0) {
      if (errno != EINTR) {
        return errno;
      }
    }
    return 0;
  }

  int Send(Message& message) {
    while (zmq_msg_send(message.get(), socket_, ZMQ_DONTWAIT) < 0) {
      if (errno != EINTR) {
        return errno;
      }
    }
    return 0;
  }

  int SendFirstPart(std::span<const std::byte> part) {
    while (zmq_send(socket_, part.data(), part.size(), ZMQ_DONTWAIT | ZMQ_SNDMORE) < 0) {
      if (errno != EINTR) {
        return errno;
      }
    }
    return 0;
  }

 private:
  void* socket_ = nullptr;
};

}  // namespace bus

#endif
