// The commands of cfmctl, a file each: what the command line can tell each of them, and the work of each, which returns
// the exit status and throws Failure.
#ifndef CFMCTL_COMMANDS_COMMANDS_H
#define CFMCTL_COMMANDS_COMMANDS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "mep_address.h"
#include "session.h"

namespace cfmctl {

/// What stands before or after any command's name.
struct GlobalOptions {
  std::string config_file = "/etc/cfm/cfm.yaml";
  ServerOptions server;
};

/// Up to so many changes are listed without being asked.
inline constexpr std::size_t kFewChanges = 20;

struct CheckOptions {
  std::string file;  ///< empty: the one of the global options
  bool json = false;
};
int Check(const GlobalOptions& global, const CheckOptions& options);

struct ApplyOptions {
  bool verbose = false;
};
int Apply(const GlobalOptions& global, const ApplyOptions& options);

int Run(const GlobalOptions& global);

struct ShowOptions {
  bool json = false;
};
int Show(const GlobalOptions& global, const ShowOptions& options);

struct StatusOptions {
  bool json = false;
};
int Status(const GlobalOptions& global, const StatusOptions& options);
int Watch(const GlobalOptions& global, const StatusOptions& options);

struct StatsOptions {
  Scope scope;
  bool json = false;
};
int Stats(const GlobalOptions& global, const StatsOptions& options);
int ClearStats(const GlobalOptions& global, const StatsOptions& options);

struct LinktraceOptions {
  TestAddress address;
  std::uint32_t ttl = 64;
  bool json = false;
};
int Linktrace(const GlobalOptions& global, const LinktraceOptions& options);

struct LoopbackOptions {
  TestAddress address;
  std::uint32_t count = 3;
  std::uint16_t size = 0;
  bool json = false;
};
int Loopback(const GlobalOptions& global, const LoopbackOptions& options);

struct DelayOptions {
  TestAddress address;
  std::uint32_t count = 10;
  std::string interval_text = "100ms";
  std::uint16_t size = 0;
  std::uint32_t priority = 7;
  bool histogram = false;
  bool json = false;
};
int Delay(const GlobalOptions& global, const DelayOptions& options);

struct SessionsOptions {
  std::size_t count = 0;  ///< 0: without end
  bool json = false;
};
int Sessions(const GlobalOptions& global, const SessionsOptions& options);

}  // namespace cfmctl

#endif
