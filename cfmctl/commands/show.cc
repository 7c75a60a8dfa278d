// cfmctl show: what does the server hold? Reads the cache and nothing else, so it can change nothing.
#include <unistd.h>

#include <iostream>
#include <memory>

#include "commands/commands.h"
#include "exit_status.h"
#include "failure.h"
#include "ports.h"
#include "render.h"
#include "session.h"
#include "terminal.h"

namespace cfmctl {
namespace {

int Show(const ServerOptions& options, bool json) {
  Session session(options);
  session.WaitForServer();
  const auto cache = session.ReadCache();
  if (!cache) throw Failure(kNoServer, "the server went away before it answered; try again");
  const HostPorts ports;
  if (json) {
    RenderJson(*cache, ports, std::cout);
  } else {
    RenderTree(*cache, ports, StyleFor(STDOUT_FILENO), std::cout);
  }
  return kOk;
}

}  // namespace

void AddShow(CLI::App& app, Invocation& invocation) {
  const auto json = std::make_shared<bool>(false);
  CLI::App* command = app.add_subcommand("show", "Print the configuration that the server holds");
  command->add_flag("--json", *json, "Print one JSON document");
  command->footer(
      "Needs no configuration file and changes nothing at the server.\n\n"
      "Examples:\n  cfmctl show\n  cfmctl show --json | jq '.domains[].name'");
  command->callback(
      [json, &invocation] { invocation.run = [json, &invocation] { return Show(invocation.options.server, *json); }; });
}

}  // namespace cfmctl
