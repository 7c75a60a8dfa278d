#include "namespace.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <system_error>

namespace cfm_test {
namespace {

[[noreturn]] void Throw(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

int OpenPresent() {
  const int fd = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
  if (fd < 0) Throw("/proc/thread-self/ns/net");
  return fd;
}

void SetLoopbackUp() {
  const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");  // NOLINT(clang-analyzer-security.insecureAPI.strcpy): a literal that fits
  request.ifr_flags = IFF_UP;
  const int result = any < 0 ? -1 : ioctl(any, SIOCSIFFLAGS, &request);
  close(any);
  if (result != 0) Throw("lo");
}

}  // namespace

Namespace::Namespace() {
  const int home = OpenPresent();
  if (unshare(CLONE_NEWNET) != 0) Throw("unshare");
  fd_ = OpenPresent();
  // Ports that come later take over what stands in "default"; a system without IPv6 has no such files.
  for (const char* scope : {"all", "default"}) {
    std::ofstream(std::string("/proc/sys/net/ipv6/conf/") + scope + "/disable_ipv6") << 1;
  }
  SetLoopbackUp();
  if (setns(home, CLONE_NEWNET) != 0) Throw("setns");
  close(home);
}

Namespace::~Namespace() {
  close(fd_);
}

std::string Namespace::path() const {
  return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd_);
}

Inside::Inside(const Namespace& network) : home_(OpenPresent()) {
  if (setns(network.fd(), CLONE_NEWNET) != 0) Throw("setns");
}

Inside::~Inside() {
  if (setns(home_, CLONE_NEWNET) != 0) {
    // Everything that follows would happen in the wrong place.
    std::perror("setns");
    std::abort();
  }
  close(home_);
}

}  // namespace cfm_test
