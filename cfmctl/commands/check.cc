// cfmctl check: is the file right, and what does it mean?
#include <unistd.h>

#include <iostream>
#include <memory>

#include "commands/commands.h"
#include "config_file.h"
#include "exit_status.h"
#include "render.h"
#include "terminal.h"

namespace cfmctl {
namespace {

struct CheckOptions {
  std::string file;
  bool json = false;
};

int Check(const std::string& file, bool json) {
  const Configuration configuration = ParseFile(file, ReadFile(file));
  if (json) {
    RenderJson(configuration.model, configuration.ports, std::cout);
  } else {
    RenderTree(configuration.model, configuration.ports, StyleFor(STDOUT_FILENO), std::cout);
  }
  return kOk;
}

}  // namespace

void AddCheck(CLI::App& app, Invocation& invocation) {
  const auto options = std::make_shared<CheckOptions>();
  CLI::App* command = app.add_subcommand("check", "Validate a configuration file and print what it means");
  command->add_option("file", options->file, "The file to check, instead of the one of --config")->type_name("FILE");
  command->add_flag("--json", options->json, "Print one JSON document");
  command->footer(
      "Needs no server. The ports that the file names must exist on this host.\n\n"
      "Example:\n  cfmctl check examples/minimal.yaml");
  command->callback([options, &invocation] {
    invocation.run = [options, &invocation] {
      return Check(options->file.empty() ? invocation.options.config_file : options->file, options->json);
    };
  });
}

}  // namespace cfmctl
