// The socket directory of one host: where named processes are found, who owns a name, and the pids.
//
//   <name>        the socket of the process of that name
//   .<name>.lock  locked by its owner as long as that lives
//   .pid          the pid given out last
//   .<pid>        a socket that is about to get its name
#ifndef VORBUS_DIRECTORY_H
#define VORBUS_DIRECTORY_H

#include <cstdint>
#include <string>
#include <string_view>

#include "fd.h"

namespace bus {

// Functions that can fail return 0 or a negative errno.
class Directory {
 public:
  // Makes the directory when it is missing (its parent must exist).
  static int Open(std::string path, Directory* directory);

  static bool IsValidName(std::string_view name);

  // -ENAMETOOLONG when the socket of that name does not fit a socket address.
  int CheckLength(std::string_view name) const;

  // The only place that turns a process name into where to connect to.
  std::string Endpoint(std::string_view name) const { return "ipc://" + SocketPath(name); }

  // A pid that no process got lately.
  int AllocatePid(std::uint32_t* pid) const;

  // -EADDRINUSE when a live process has the name. The name is held as long as the lock is.
  int LockName(std::string_view name, Fd* lock) const;

  // Whether there is a socket of that name and a live process that owns it.
  bool HasOwner(std::string_view name) const;

  // A socket is bound at FreshEndpoint and gets its name, in place of any older socket, by Publish.
  std::string FreshEndpoint(std::uint32_t pid) const { return "ipc://" + FreshPath(pid); }
  int Publish(std::uint32_t pid, std::string_view name) const;
  void Withdraw(std::string_view name) const;

  const std::string& path() const { return path_; }

 private:
  std::string SocketPath(std::string_view name) const { return path_ + "/" + std::string(name); }
  std::string LockPath(std::string_view name) const { return path_ + "/." + std::string(name) + ".lock"; }
  std::string FreshPath(std::uint32_t pid) const;

  std::string path_;
};

}  // namespace bus

#endif
