// What cfmctl's exit status says; the table in docs/cfmctl.md is for its users.
#ifndef CFMCTL_EXIT_STATUS_H
#define CFMCTL_EXIT_STATUS_H

namespace cfmctl {

enum ExitStatus : int {
  kOk = 0,
  kFailed = 1,        ///< the server refused something or is not in step, or the system refused something
  kBadInput = 2,      ///< the configuration file or the command line is wrong; nothing was sent
  kNoServer = 3,      ///< no server within the time-out
  kSignalBase = 128,  ///< ended by a signal: this plus its number, as a shell has it
};

}  // namespace cfmctl

#endif
