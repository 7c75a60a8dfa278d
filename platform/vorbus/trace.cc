// Logging categories of zlog for the bus's users; the bus itself logs nothing.
#include <sys/mman.h>
#include <unistd.h>
#include <vorbus/vorbus.h>
#include <zlog.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <string>

#include "fd.h"

namespace {

constexpr char kDefaultConfiguration[] =
    "[formats]\n"
    "vorbus = \"%d(%F %T).%ms %V %c: %m (%f:%L)%n\"\n"
    "[rules]\n"
    "*.WARN >stderr; vorbus\n";

// By way of a file in memory: zlog_init_from_string leaks some of what it allocates.
void SetUpDefault() {
  const bus::Fd file(memfd_create("vorbus-log", MFD_CLOEXEC));
  constexpr std::size_t kSize = sizeof kDefaultConfiguration - 1;
  if (file && write(file.get(), kDefaultConfiguration, kSize) == kSize) {
    zlog_init(("/proc/self/fd/" + std::to_string(file.get())).c_str());
  }
}

// A program that has set zlog up itself keeps its configuration.
void SetUpZlog() {
  const char* file = std::getenv("VORBUS_LOG_CONF");
  if (file != nullptr && *file != '\0') {
    zlog_init(file);
  } else {
    SetUpDefault();
  }
}

}  // namespace

zlog_category_s* vorbus_trace_init(vorbus_t* token, const char* category) {
  if (token == nullptr || category == nullptr || *category == '\0') {
    errno = EINVAL;
    return nullptr;
  }
  static std::once_flag is_set_up;
  std::call_once(is_set_up, SetUpZlog);
  return zlog_get_category(category);
}
