// Tells when a file changed on disk, also when an editor writes a new one and renames it over the old.
#ifndef CFMCTL_FILE_WATCH_H
#define CFMCTL_FILE_WATCH_H

#include <functional>
#include <string>

#include "event_loop.h"

namespace cfmctl {

/// Watches the file's directory, because the file itself may be replaced. `changed` may be called too often, never too
/// seldom: look at the content. A symbolic link is watched where it stands, not where it leads.
class FileWatch {
 public:
  FileWatch(EventLoop& loop, const std::string& file, std::function<void()> changed);
  ~FileWatch();
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

 private:
  int descriptor_;
};

}  // namespace cfmctl

#endif
