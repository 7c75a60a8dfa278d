// The map file: logical interface ids that differ from the kernel's interface indexes.
#ifndef LIMID_MAP_FILE_H
#define LIMID_MAP_FILE_H

#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

namespace limid {

// The contents of one map file. Every id and every name occurs once.
struct PortMap {
  std::unordered_map<uint32_t, std::string> names;
  std::unordered_map<std::string, uint32_t> ids;
};

// Reads a map from the text of a file. 0, or -EBADMSG and an unspecified map.
int ParsePortMap(std::string_view text, PortMap* map);

// The map that a file holds now. Costs one stat() while the file stays as it is. Any thread.
class PortMapCache {
 public:
  // 0 and the map, or a negative errno: -EBADMSG for a malformed file, others as the file system reports.
  int Get(const char* path, std::shared_ptr<const PortMap>* map);

 private:
  struct Stamp {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified = {};
    timespec changed = {};
  };

  static Stamp StampOf(const struct stat& status);
  static bool Same(const Stamp& a, const Stamp& b);
  void Load(const char* path);

  std::mutex mutex_;
  std::string path_;
  Stamp stamp_;
  bool settled_ = false;
  int result_ = 0;
  std::shared_ptr<const PortMap> map_;
};

}  // namespace limid

#endif
