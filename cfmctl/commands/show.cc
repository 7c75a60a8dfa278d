// cfmctl show: what does the server hold? Reads the cache and nothing else, so it can change nothing.
#include <unistd.h>

#include <iostream>

#include "commands/commands.h"
#include "exit_status.h"
#include "failure.h"
#include "ports.h"
#include "render.h"
#include "session.h"
#include "terminal.h"

namespace cfmctl {
int Show(const GlobalOptions& global, const ShowOptions& options) {
  Session session(global.server);
  session.WaitForServer();
  const auto cache = session.ReadCache();
  if (!cache) throw Failure(kNoServer, "the server went away before it answered; try again");
  const HostPorts ports;
  if (options.json) {
    RenderJson(*cache, ports, std::cout);
  } else {
    RenderTree(*cache, ports, StyleFor(STDOUT_FILENO), std::cout);
  }
  return kOk;
}

}  // namespace cfmctl
