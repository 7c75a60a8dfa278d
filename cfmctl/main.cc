// cfmctl: the configuration application of the CFM manager for people.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "commands/commands.h"
#include "exit_status.h"
#include "failure.h"
#include "names.h"

namespace {

constexpr const char* kFooter =
    "Exit status: 0 done; 1 the server refused something or is not in step; 2 the configuration file or the command\n"
    "line is wrong, nothing was sent; 3 no server; 128 + n ended by signal n.\n\n"
    "Examples:\n"
    "  cfmctl check examples/metro-ethernet.yaml\n"
    "  cfmctl --config examples/metro-ethernet.yaml apply\n"
    "  cfmctl --socket-dir /run/vorbus show";

/// When no command was recognised, the unknown word may have been meant for one.
void SuggestCommand(const CLI::App& app) {
  if (!app.get_subcommands().empty()) return;
  std::vector<std::string_view> commands;
  for (const CLI::App* command : app.get_subcommands({})) commands.push_back(command->get_name());
  for (const std::string& word : app.remaining()) {
    const std::string_view nearest = cfmctl::Nearest(word, commands);
    if (!nearest.empty()) std::cerr << fmt::format("Did you mean '{}'?\n", nearest);
  }
}

int Main(int argc, char** argv) {
  CLI::App app{
      "Connectivity fault management (IEEE 802.1Q, ITU-T Y.1731) for people: a configuration file in, tables out",
      "cfmctl"};
  cfmctl::Invocation invocation;
  double timeout_seconds = 5;
  app.fallthrough();
  app.require_subcommand(0, 1);
  app.set_version_flag("--version", CFMCTL_VERSION);
  app.footer(kFooter);
  app.add_option("-c,--config", invocation.options.config_file, "The configuration file")
      ->type_name("FILE")
      ->capture_default_str();
  app.add_option("--socket-dir", invocation.options.server.socket_directory,
                 "Where the server's socket is [$VORBUS_DIR, else /run/vorbus]")
      ->type_name("DIR");
  app.add_option("--timeout", timeout_seconds, "How long to wait for the server and for its answers")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.001, 86400.0).description("0.001 to 86400"))
      ->capture_default_str();
  cfmctl::AddCheck(app, invocation);
  cfmctl::AddApply(app, invocation);
  cfmctl::AddRun(app, invocation);
  cfmctl::AddShow(app, invocation);
  cfmctl::AddStatus(app, invocation);
  cfmctl::AddWatch(app, invocation);
  cfmctl::AddStats(app, invocation);
  cfmctl::AddClearStats(app, invocation);
  cfmctl::AddLinktrace(app, invocation);
  cfmctl::AddLoopback(app, invocation);
  cfmctl::AddDelay(app, invocation);
  cfmctl::AddSessions(app, invocation);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // Help and version are "errors" of status 0.
    if (app.exit(error) == 0) return cfmctl::kOk;
    SuggestCommand(app);
    return cfmctl::kBadInput;
  }
  if (!invocation.run) {
    std::cerr << app.help();
    return cfmctl::kBadInput;
  }
  invocation.options.server.timeout = std::chrono::milliseconds(static_cast<std::int64_t>(timeout_seconds * 1000));

  try {
    const int status = invocation.run();
    std::cout.flush();
    if (!std::cout) throw cfmctl::Failure(cfmctl::kFailed, "cannot write to standard output");
    return status;
  } catch (const cfmctl::Failure& failure) {
    std::cout.flush();
    std::cerr << "cfmctl: " << failure.what() << '\n';
    return failure.status();
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    std::ios::sync_with_stdio(false);
    return Main(argc, argv);
  } catch (const std::exception& exception) {
    std::cerr << "cfmctl: " << exception.what() << '\n';
    return cfmctl::kFailed;
  }
}
