#include "file_watch.h"

#include <fmt/format.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "failure.h"
#include "text.h"

namespace cfmctl {

FileWatch::FileWatch(EventLoop& loop, const std::string& file, std::function<void()> changed)
    : descriptor_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  const std::filesystem::path path(file);
  const std::string directory = path.has_parent_path() ? path.parent_path().string() : std::string(".");
  if (descriptor_ < 0 || inotify_add_watch(descriptor_, directory.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO) < 0) {
    const int error = errno;
    if (descriptor_ >= 0) close(descriptor_);
    throw Failure(kFailed, fmt::format("cannot watch the directory {}: {}", Escape(directory), std::strerror(error)));
  }
  loop.Add(descriptor_, [descriptor = descriptor_, call = std::move(changed)] {
    std::array<char, 4096> events;
    while (read(descriptor, events.data(), events.size()) > 0) {
    }
    call();
  });
}

FileWatch::~FileWatch() {
  close(descriptor_);
}

}  // namespace cfmctl
