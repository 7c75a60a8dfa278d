// The one file that includes CLI11: it takes longer to compile than everything that cfmctl does.
#include "command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "exit_status.h"
#include "names.h"

namespace cfmctl {
namespace {

constexpr const char* kFooter =
    "Exit status: 0 done; 1 the server refused something or is not in step; 2 the configuration file or the command\n"
    "line is wrong, nothing was sent; 3 no server; 128 + n ended by signal n.\n\n"
    "Examples:\n"
    "  cfmctl check examples/metro-ethernet.yaml\n"
    "  cfmctl --config examples/metro-ethernet.yaml apply\n"
    "  cfmctl --socket-dir /run/vorbus show";

// IEEE 802.1Q gives MEP ids the range 1 to 8191.
const CLI::Range kMepIds(1, 8191, "MEP");

constexpr const char* kOneDocument = "Print one JSON document";
constexpr const char* kOneObjectPerEvent = "Print one JSON object for each event";

/// The work of the command that was given; empty without one.
using Work = std::function<int(const GlobalOptions&)>;

/// A command before parsing: where its options go, and what they are added to.
template <typename Options>
struct Command {
  std::shared_ptr<Options> options;
  CLI::App* app;
};

/// When the command is given, `work` becomes `run` with its options.
template <typename Options>
Command<Options> AddCommand(CLI::App& app, Work& work, const char* name, const char* what,
                            int (*run)(const GlobalOptions&, const Options&)) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(name, what);
  command->callback(
      [options, run, &work] { work = [options, run](const GlobalOptions& global) { return run(global, *options); }; });
  return {.options = options, .app = command};
}

void AddTestAddress(CLI::App& command, TestAddress& address) {
  command.add_option("domain", address.md_name, "Name of the maintenance domain")->type_name("MD")->required();
  command.add_option("association", address.ma_name, "Name of the maintenance association")
      ->type_name("MA")
      ->required();
  command.add_option("mep", address.mep_id, "Local end point that sends")->required()->check(kMepIds);
  command.add_option("target", address.target_mep_id, "Remote end point that is aimed at")->required()->check(kMepIds);
}

void AddScope(CLI::App& command, Scope& scope) {
  CLI::Option* domain = command.add_option("domain", scope.md_name, "Only this maintenance domain")->type_name("MD");
  CLI::Option* association =
      command.add_option("association", scope.ma_name, "Only this association")->type_name("MA")->needs(domain);
  command.add_option("mep", scope.mep_id, "Only this local end point")->needs(association)->check(kMepIds);
}

template <typename Size>
void AddSize(CLI::App& command, Size& size) {
  command.add_option("--size", size, "Octets of data in each")
      ->check(CLI::Range(0, 1480, "0 to 1480"))
      ->capture_default_str();
}

void AddCheck(CLI::App& app, Work& work) {
  const auto [options, command] =
      AddCommand(app, work, "check", "Validate a configuration file and print what it means", &Check);
  command->add_option("file", options->file, "The file to check, instead of the one of --config")->type_name("FILE");
  command->add_flag("--json", options->json, kOneDocument);
  command->footer(
      "Needs no server. The ports that the file names must exist on this host.\n\n"
      "Example:\n  cfmctl check examples/minimal.yaml");
}

void AddApply(CLI::App& app, Work& work) {
  const auto [options, command] =
      AddCommand(app, work, "apply", "Bring the server to the configuration file, then end", &Apply);
  command->add_flag("-v,--verbose", options->verbose,
                    fmt::format("List every change; otherwise they are listed up to {}", kFewChanges));
  command->footer(
      "Everything that the file does not describe is deleted from the server. The server keeps the configuration\n"
      "when cfmctl ends, but not when the server itself restarts: 'cfmctl run' stays and restores it.\n\n"
      "Example:\n  cfmctl --config examples/metro-ethernet.yaml apply");
}

void AddRun(CLI::App& app, Work& work) {
  CLI::App* command = app.add_subcommand("run", "Stay, and keep the server in step with the configuration file");
  command->footer(
      "Applies the file again when it changes on disk and on SIGHUP; a file with errors is reported, and the\n"
      "configuration before it stays. Restores the configuration when the server restarts. Says what happens, one\n"
      "line each, on standard output. SIGINT and SIGTERM end it; the server keeps its configuration.\n\n"
      "Example:\n  cfmctl --config /etc/cfm/cfm.yaml run");
  command->callback([&work] { work = &Run; });
}

void AddShow(CLI::App& app, Work& work) {
  const auto [options, command] = AddCommand(app, work, "show", "Print the configuration that the server holds", &Show);
  command->add_flag("--json", options->json, kOneDocument);
  command->footer(
      "Needs no configuration file and changes nothing at the server.\n\n"
      "Examples:\n  cfmctl show\n  cfmctl show --json | jq '.domains[].name'");
}

void AddStatus(CLI::App& app, Work& work) {
  const auto [options, command] =
      AddCommand(app, work, "status", "Print the status of every local and remote MEP", &Status);
  command->add_flag("--json", options->json, kOneDocument);
  command->footer(
      "Brings the server to the configuration file first. Exit status 0 only when every MEP of it is reported and\n"
      "has no defect; disabled end points do not count.\n\n"
      "Example:\n  cfmctl --config examples/metro-ethernet.yaml status");
}

void AddWatch(CLI::App& app, Work& work) {
  const auto [options, command] =
      AddCommand(app, work, "watch", "Follow the status of every MEP until interrupted", &Watch);
  command->add_flag("--json", options->json, "Print one JSON object for each change");
  command->footer(
      "Brings the server to the configuration file first, and again when the server restarts. On a terminal the\n"
      "table of 'cfmctl status' is redrawn in place; elsewhere each change is a line. SIGINT and SIGTERM end it.\n\n"
      "Example:\n  cfmctl --config examples/metro-ethernet.yaml watch");
}

void AddStats(CLI::App& app, Work& work) {
  const auto [options, command] =
      AddCommand(app, work, "stats", "Print the CCM counters of everything, a domain, an association or a MEP", &Stats);
  AddScope(*command, options->scope);
  command->add_flag("--json", options->json, kOneDocument);
  command->footer(
      "Brings the server to the configuration file first.\n\n"
      "Examples:\n  cfmctl stats\n  cfmctl stats operator evc-100 1");
}

void AddClearStats(CLI::App& app, Work& work) {
  const auto [options, command] = AddCommand(
      app, work, "clear-stats", "Clear the CCM counters of everything, a domain, an association or a MEP", &ClearStats);
  AddScope(*command, options->scope);
  command->add_flag("--json", options->json, kOneDocument);
  command->footer(
      "Brings the server to the configuration file first. The sequence numbers of sent CCMs are not counters and\n"
      "go on.\n\n"
      "Examples:\n  cfmctl clear-stats\n  cfmctl clear-stats operator evc-100");
}

void AddLinktrace(CLI::App& app, Work& work) {
  const auto [options, command] = AddCommand(app, work, "linktrace", "Trace the way to a remote MEP", &Linktrace);
  AddTestAddress(*command, options->address);
  command->add_option("--ttl", options->ttl, "How many hops at most")
      ->check(CLI::Range(1, 255, "1 to 255"))
      ->capture_default_str();
  command->add_flag("--json", options->json, kOneObjectPerEvent);
  command->footer(
      "Brings the server to the configuration file first. Replies are shown as they come, and sorted by hop at the\n"
      "end. Exit status 0 when the target answered.\n\n"
      "Example:\n  cfmctl linktrace operator evc-100 1 2");
}

void AddLoopback(CLI::App& app, Work& work) {
  const auto [options, command] =
      AddCommand(app, work, "loopback", "Send loopback messages to a remote MEP and count the replies", &Loopback);
  AddTestAddress(*command, options->address);
  command->add_option("-n,--count", options->count, "Messages, one a second")
      ->check(CLI::Range(1, 1024, "1 to 1024"))
      ->capture_default_str();
  AddSize(*command, options->size);
  command->add_flag("--json", options->json, kOneObjectPerEvent);
  command->footer(
      "Brings the server to the configuration file first. Exit status 0 when every reply came, in order and with its\n"
      "payload intact.\n\n"
      "Example:\n  cfmctl loopback operator evc-100 1 2 --count 5 --size 1000");
}

void AddDelay(CLI::App& app, Work& work) {
  const auto [options, command] = AddCommand(app, work, "delay", "Measure the two-way delay to a remote MEP", &Delay);
  AddTestAddress(*command, options->address);
  command->add_option("-n,--count", options->count, "Messages")
      ->check(CLI::Range(1, 1024, "1 to 1024"))
      ->capture_default_str();
  command->add_option("-i,--interval", options->interval_text, "From one message to the next, 10ms to 60s")
      ->type_name("TIME")
      ->capture_default_str();
  AddSize(*command, options->size);
  command->add_option("--priority", options->priority, "Priority code point of the frames")
      ->check(CLI::Range(0, 7, "0 to 7"))
      ->capture_default_str();
  CLI::Option* histogram = command->add_flag("--histogram", options->histogram,
                                             "Measure message by message, and show how the delays are spread");
  command->add_flag("--json", options->json, kOneObjectPerEvent)->excludes(histogram);
  command->footer(
      "Brings the server to the configuration file first. Exit status 0 when every message was answered.\n\n"
      "Examples:\n"
      "  cfmctl delay operator evc-100 1 2 --count 100 --interval 10ms\n"
      "  cfmctl delay operator evc-100 1 2 --count 100 --histogram");
}

void AddSessions(CLI::App& app, Work& work) {
  const auto [options, command] =
      AddCommand(app, work, "sessions", "Print the reports of the probes' sessions as their runs end", &Sessions);
  command->add_option("-n,--count", options->count, "End after so many reports; otherwise only when interrupted")
      ->check(CLI::PositiveNumber);
  command->add_flag("--json", options->json, "Print one JSON object for each report");
  command->footer(
      "Brings the server to the configuration file first, and again when the server restarts.\n\n"
      "Example:\n  cfmctl --config examples/metro-ethernet.yaml sessions --count 10");
}

/// When no command was recognised, the unknown word may have been meant for one.
void SuggestCommand(const CLI::App& app) {
  if (!app.get_subcommands().empty()) return;
  std::vector<std::string_view> commands;
  for (const CLI::App* command : app.get_subcommands({})) commands.push_back(command->get_name());
  for (const std::string& word : app.remaining()) {
    const std::string_view nearest = Nearest(word, commands);
    if (!nearest.empty()) std::cerr << fmt::format("Did you mean '{}'?\n", nearest);
  }
}

std::function<int()> Only(ExitStatus status) {
  return [status] { return status; };
}

}  // namespace

std::function<int()> ParseCommandLine(int argc, const char* const* argv) {
  CLI::App app{
      "Connectivity fault management (IEEE 802.1Q, ITU-T Y.1731) for people: a configuration file in, tables out",
      "cfmctl"};
  GlobalOptions global;
  Work work;
  double timeout_seconds = 5;
  app.fallthrough();
  app.require_subcommand(0, 1);
  app.set_version_flag("--version", CFMCTL_VERSION);
  app.footer(kFooter);
  app.add_option("-c,--config", global.config_file, "The configuration file")->type_name("FILE")->capture_default_str();
  app.add_option("--socket-dir", global.server.socket_directory,
                 "Where the server's socket is [$VORBUS_DIR, else /run/vorbus]")
      ->type_name("DIR");
  app.add_option("--timeout", timeout_seconds, "How long to wait for the server and for its answers")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.001, 86400.0).description("0.001 to 86400"))
      ->capture_default_str();
  AddCheck(app, work);
  AddApply(app, work);
  AddRun(app, work);
  AddShow(app, work);
  AddStatus(app, work);
  AddWatch(app, work);
  AddStats(app, work);
  AddClearStats(app, work);
  AddLinktrace(app, work);
  AddLoopback(app, work);
  AddDelay(app, work);
  AddSessions(app, work);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // Help and version are "errors" of status 0.
    if (app.exit(error) == 0) return Only(kOk);
    SuggestCommand(app);
    return Only(kBadInput);
  }
  if (!work) {
    std::cerr << app.help();
    return Only(kBadInput);
  }
  global.server.timeout = std::chrono::milliseconds(static_cast<std::int64_t>(timeout_seconds * 1000));
  return [work = std::move(work), global = std::move(global)] { return work(global); };
}

}  // namespace cfmctl
