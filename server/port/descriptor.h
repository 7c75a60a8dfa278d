// A file descriptor with an owner.
#ifndef CFM_SERVER_PORT_DESCRIPTOR_H
#define CFM_SERVER_PORT_DESCRIPTOR_H

#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace cfm::port {

[[noreturn]] inline void ThrowErrno(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

class Descriptor {
 public:
  /// Takes what a system call returned; throws std::system_error when that is an error.
  Descriptor(int fd, const char* call) : fd_(fd) {
    if (fd_ < 0) ThrowErrno(call);
  }
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;

  int get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace cfm::port

#endif
