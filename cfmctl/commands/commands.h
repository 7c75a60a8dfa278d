// The commands of cfmctl, a file each.
#ifndef CFMCTL_COMMANDS_COMMANDS_H
#define CFMCTL_COMMANDS_COMMANDS_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "session.h"

namespace cfmctl {

/// What stands before or after any command's name.
struct GlobalOptions {
  std::string config_file = "/etc/cfm/cfm.yaml";
  ServerOptions server;
};

/// The command that the command line chose.
struct Invocation {
  GlobalOptions options;
  std::function<int()> run;
};

// Each adds its command to the application; when the command is given, `invocation.run` becomes its work.
void AddCheck(CLI::App& app, Invocation& invocation);
void AddApply(CLI::App& app, Invocation& invocation);
void AddRun(CLI::App& app, Invocation& invocation);
void AddShow(CLI::App& app, Invocation& invocation);
void AddStatus(CLI::App& app, Invocation& invocation);
void AddWatch(CLI::App& app, Invocation& invocation);
void AddStats(CLI::App& app, Invocation& invocation);
void AddClearStats(CLI::App& app, Invocation& invocation);
void AddLinktrace(CLI::App& app, Invocation& invocation);
void AddLoopback(CLI::App& app, Invocation& invocation);
void AddDelay(CLI::App& app, Invocation& invocation);
void AddSessions(CLI::App& app, Invocation& invocation);

}  // namespace cfmctl

#endif
