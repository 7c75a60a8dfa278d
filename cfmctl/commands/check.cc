// cfmctl check: is the file right, and what does it mean?
#include <unistd.h>

#include <iostream>
#include <string>

#include "commands/commands.h"
#include "config_file.h"
#include "exit_status.h"
#include "render.h"
#include "terminal.h"

namespace cfmctl {
int Check(const GlobalOptions& global, const CheckOptions& options) {
  const std::string& file = options.file.empty() ? global.config_file : options.file;
  const Configuration configuration = ParseFile(file, ReadFile(file));
  if (options.json) {
    RenderJson(configuration.model, configuration.ports, std::cout);
  } else {
    RenderTree(configuration.model, configuration.ports, StyleFor(STDOUT_FILENO), std::cout);
  }
  return kOk;
}

}  // namespace cfmctl
