#include "map_file.h"

#include <fcntl.h>
#include <net/if.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <utility>

namespace limid {
namespace {

constexpr std::string_view kBlank = " \t\r";
constexpr off_t kMaxFileSize = 16 << 20;  // octets; 65535 ports with the longest names take 1.4 MiB

// A file written twice within one tick of the kernel's clock can keep its size and its times. A tick is at most 10 ms;
// a file that was changed less than this before it was read is read again the next time.
constexpr std::chrono::milliseconds kSettleTime{100};

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// Cuts the next word off the front of the line; empty at its end.
std::string_view NextWord(std::string_view* line) {
  const size_t begin = std::min(line->find_first_not_of(kBlank), line->size());
  const size_t end = std::min(line->find_first_of(kBlank, begin), line->size());
  const std::string_view word = line->substr(begin, end - begin);
  line->remove_prefix(end);
  return word;
}

bool ParseId(std::string_view word, uint32_t* id) {
  const char* end = word.data() + word.size();
  const auto [rest, error] = std::from_chars(word.data(), end, *id);
  return error == std::errc() && rest == end && *id != 0;
}

// What the kernel takes for an interface name, of the characters that can stand in a word of the file.
bool IsInterfaceName(std::string_view word) {
  return !word.empty() && word.size() < IF_NAMESIZE && word != "." && word != ".." &&
         word.find_first_of(std::string_view("/:\v\f\0", 5)) == std::string_view::npos;
}

int ReadAll(int fd, off_t size, std::string* text) {
  text->reserve(static_cast<size_t>(size));
  std::array<char, 65536> chunk;
  while (true) {
    const ssize_t got = read(fd, chunk.data(), chunk.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -errno;
    if (got == 0) return 0;
    text->append(chunk.data(), static_cast<size_t>(got));
    if (std::cmp_greater(text->size(), kMaxFileSize)) return -EFBIG;
  }
}

std::chrono::nanoseconds SinceEpoch(const timespec& time) {
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace

int ParsePortMap(std::string_view text, PortMap* map) {
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    line = line.substr(0, line.find('#'));

    const std::string_view id_word = NextWord(&line);
    if (id_word.empty()) continue;
    const std::string_view name = NextWord(&line);
    uint32_t id = 0;
    if (!ParseId(id_word, &id) || !IsInterfaceName(name) || !NextWord(&line).empty()) return -EBADMSG;
    if (!map->names.emplace(id, name).second || !map->ids.emplace(name, id).second) return -EBADMSG;
  }
  return 0;
}

PortMapCache::Stamp PortMapCache::StampOf(const struct stat& status) {
  return {status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
}

bool PortMapCache::Same(const Stamp& a, const Stamp& b) {
  return a.device == b.device && a.inode == b.inode && a.size == b.size &&
         SinceEpoch(a.modified) == SinceEpoch(b.modified) && SinceEpoch(a.changed) == SinceEpoch(b.changed);
}

int PortMapCache::Get(const char* path, std::shared_ptr<const PortMap>* map) {
  const std::lock_guard lock(mutex_);
  struct stat now = {};
  if (stat(path, &now) != 0) {
    path_.clear();
    return -errno;
  }
  if (path_ != path || !settled_ || !Same(stamp_, StampOf(now))) Load(path);
  if (result_ == 0) *map = map_;
  return result_;
}

// Leaves the outcome in result_ and, on success, map_.
void PortMapCache::Load(const char* path) {
  path_.clear();
  map_.reset();
  // Not blocking: the name may lead to a pipe by mistake.
  const Descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status = {};
  if (file.get() < 0 || fstat(file.get(), &status) != 0) {
    result_ = -errno;
    return;
  }
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);

  auto map = std::make_shared<PortMap>();
  std::string text;
  result_ = S_ISREG(status.st_mode) ? ReadAll(file.get(), status.st_size, &text) : -EBADMSG;
  if (result_ == 0) result_ = ParsePortMap(text, map.get());
  if (result_ == 0) map_ = std::move(map);
  stamp_ = StampOf(status);
  settled_ = SinceEpoch(now) - SinceEpoch(status.st_ctim) > kSettleTime;
  path_ = path;
}

}  // namespace limid
