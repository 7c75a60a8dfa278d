// cfmctl apply: bring the server to the file, see that it is there, and say what changed.
#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <optional>

#include "cache_progress.h"
#include "cfm/client.h"
#include "commands/commands.h"
#include "config_file.h"
#include "difference.h"
#include "failure.h"
#include "handover.h"
#include "render.h"
#include "session.h"
#include "terminal.h"
#include "text.h"

namespace cfmctl {
namespace {

/// From so many objects on there is a progress bar.
constexpr std::size_t kManyObjects = 1000;
/// A server that dies again and again while it is configured is not going to hold the configuration.
constexpr int kMostAttempts = 5;

/// How long the server may take for its objects beside the time-out.
std::chrono::milliseconds TimeFor(const Model& model) {
  return std::chrono::milliseconds(SizeOf(model).total());
}

struct Outcome {
  Difference changes;    ///< from the cache before to the desired configuration
  Difference remaining;  ///< from the cache after to the desired configuration
};

/// One attempt to bring the server to `desired`, and to read back what it holds then. Nothing when it was lost
/// meanwhile.
std::optional<Outcome> Attempt(Session& session, const Configuration& configuration) {
  const Model& desired = configuration.model;
  const HostPorts& ports = configuration.ports;
  ServerLink& link = session.link();
  std::optional<Difference> changes;
  std::unique_ptr<CacheProgress> progress;
  bool lost = false;

  {
    cfm::Client client(link.token());
    Handover handover(client, ForClient(desired, ports));

    link.on_lost = [&lost] { lost = true; };
    link.on_cache = [&](const Model& before) {
      changes = Compare(before, desired, ports);
      handover.Replied(before);
      if (SizeOf(desired).total() >= kManyObjects) {
        progress = std::make_unique<CacheProgress>(session.options().socket_directory, desired);
      }
    };
    session.WaitForServer();
    const bool in_time =
        session.Wait([&] { return lost || changes.has_value(); }, session.options().timeout + TimeFor(desired));
    link.on_cache = nullptr;
    link.on_lost = nullptr;
    if (!in_time) throw Failure(kFailed, "the server is there but does not answer");
    if (lost) return std::nullopt;
    handover.Settle();
  }
  // Without the client, the next reply is read and not acted on; it comes after everything that the client sent.
  const auto after = session.ReadCache(TimeFor(desired));
  progress.reset();
  if (!after) return std::nullopt;
  return Outcome{.changes = std::move(*changes), .remaining = Compare(*after, desired, ports)};
}

}  // namespace

int Apply(const GlobalOptions& global, const ApplyOptions& options) {
  const Configuration configuration = ParseFile(global.config_file, ReadFile(global.config_file));
  Session session(global.server);
  std::optional<Outcome> outcome = Attempt(session, configuration);
  for (int attempt = 1; !outcome; ++attempt) {
    if (attempt == kMostAttempts) throw Failure(kFailed, "the server goes away again and again; see its log");
    std::cerr << "cfmctl: the server went away; waiting for its return\n";
    outcome = Attempt(session, configuration);
  }

  if (!outcome->remaining.empty()) {
    const Style style = StyleFor(STDERR_FILENO);
    std::cerr << "cfmctl: the server did not take everything; its log has the reasons. Still to be done:\n";
    RenderChanges(outcome->remaining, options.verbose ? outcome->remaining.changes.size() : kFewChanges, style,
                  std::cerr);
    std::cerr << CountsText(outcome->remaining) << " would be needed\n";
    return kFailed;
  }
  const Difference& changes = outcome->changes;
  if (options.verbose || changes.changes.size() <= kFewChanges) {
    RenderChanges(changes, changes.changes.size(), StyleFor(STDOUT_FILENO), std::cout);
  }
  std::cout << (changes.empty() ? "nothing to change" : CountsText(changes)) << "; the server holds "
            << Summary(SizeOf(configuration.model)) << '\n';
  return kOk;
}

}  // namespace cfmctl
