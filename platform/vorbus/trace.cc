// Logging categories of zlog for the bus's users; the bus itself logs nothing.
#include <vorbus/vorbus.h>
#include <zlog.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>

namespace {

constexpr char kDefaultConfiguration[] =
    "[formats]\n"
    "vorbus = \"%d(%F %T).%ms %V %c: %m (%f:%L)%n\"\n"
    "[rules]\n"
    "*.WARN >stderr; vorbus\n";

// A program that has set zlog up itself keeps its configuration.
void SetUpZlog() {
  const char* file = std::getenv("VORBUS_LOG_CONF");
  if (file != nullptr && *file != '\0') {
    zlog_init(file);
  } else {
    zlog_init_from_string(kDefaultConfiguration);
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
