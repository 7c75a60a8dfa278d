#include "directory.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>

namespace bus {

namespace {

constexpr mode_t kDirectoryMode = 02770;  // files in it belong to the directory's group
constexpr mode_t kFileMode = 0660;
constexpr std::size_t kMaxSocketPath = sizeof(sockaddr_un::sun_path) - 1;

// Locks of the open file, not of the process: two tokens of one process exclude each other too.
int lock(int fd, int command, struct flock* result = nullptr) {
  struct flock whole_file {};
  whole_file.l_type = F_WRLCK;
  whole_file.l_whence = SEEK_SET;
  int rc = 0;
  do {
    rc = fcntl(fd, command, &whole_file);
  } while (rc != 0 && errno == EINTR);
  if (result != nullptr) {
    *result = whole_file;
  }
  return rc == 0 ? 0 : -errno;
}

int OpenForLocking(const std::string& path, Fd* file) {
  *file = Fd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kFileMode));
  if (!*file) {
    return -errno;
  }
  fchmod(file->get(), kFileMode);  // whatever the umask; only the owner can, and has
  return 0;
}

bool IsNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
}

}  // namespace

int Directory::Open(std::string path, Directory* directory) {
  while (path.size() > 1 && path.back() == '/') {
    path.pop_back();
  }
  if (mkdir(path.c_str(), kDirectoryMode & 0777) == 0) {
    if (chmod(path.c_str(), kDirectoryMode) != 0) {
      return -errno;
    }
  } else if (errno != EEXIST) {
    return -errno;
  }
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return -errno;
  }
  if (!S_ISDIR(status.st_mode)) {
    return -ENOTDIR;
  }
  directory->path_ = std::move(path);
  return 0;
}

bool Directory::IsValidName(std::string_view name) {
  return !name.empty() && name.front() != '.' && std::all_of(name.begin(), name.end(), IsNameCharacter);
}

int Directory::CheckLength(std::string_view name) const {
  return std::max(SocketPath(name).size(), FreshPath(0).size()) <= kMaxSocketPath ? 0 : -ENAMETOOLONG;
}

std::string Directory::FreshPath(std::uint32_t pid) const {
  std::array<char, 16> hexadecimal{};
  std::snprintf(hexadecimal.data(), hexadecimal.size(), "/.%08x", pid);
  return path_ + hexadecimal.data();
}

int Directory::AllocatePid(std::uint32_t* pid) const {
  Fd file;
  int rc = OpenForLocking(path_ + "/.pid", &file);
  if (rc == 0) {
    rc = lock(file.get(), F_OFD_SETLKW);
  }
  if (rc != 0) {
    return rc;
  }
  std::array<char, 16> text{};
  const ssize_t length = pread(file.get(), text.data(), text.size(), 0);
  std::uint32_t last = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + std::max<ssize_t>(length, 0), last);
  if (parsed.ec != std::errc() && getrandom(&last, sizeof last, 0) != sizeof last) {
    return -EIO;
  }
  const std::uint32_t next = last + 1 == 0 ? 1 : last + 1;
  const int written = std::snprintf(text.data(), text.size(), "%010u\n", next);
  if (pwrite(file.get(), text.data(), static_cast<std::size_t>(written), 0) != written) {
    return errno != 0 ? -errno : -EIO;
  }
  *pid = next;
  return 0;
}

int Directory::LockName(std::string_view name, Fd* name_lock) const {
  Fd file;
  int rc = OpenForLocking(LockPath(name), &file);
  if (rc == 0) {
    rc = lock(file.get(), F_OFD_SETLK);
  }
  if (rc == -EAGAIN || rc == -EACCES) {
    return -EADDRINUSE;
  }
  if (rc == 0) {
    *name_lock = std::move(file);
  }
  return rc;
}

bool Directory::HasOwner(std::string_view name) const {
  struct stat status {};
  if (stat(SocketPath(name).c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) {
    return false;
  }
  const Fd file(::open(LockPath(name).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  struct flock holder {};
  return file && lock(file.get(), F_OFD_GETLK, &holder) == 0 && holder.l_type != F_UNLCK;
}

int Directory::Publish(std::uint32_t pid, std::string_view name) const {
  const std::string fresh = FreshPath(pid);
  if (chmod(fresh.c_str(), kFileMode) == 0 && rename(fresh.c_str(), SocketPath(name).c_str()) == 0) {
    return 0;
  }
  const int rc = -errno;
  unlink(fresh.c_str());
  return rc;
}

void Directory::Withdraw(std::string_view name) const {
  unlink(SocketPath(name).c_str());
}

}  // namespace bus
