#include "session.h"

#include <fmt/format.h>

#include <csignal>
#include <cstring>

#include "failure.h"
#include "text.h"

namespace cfmctl {

Session::Session(const ServerOptions& options)
    : options_(options),
      signals_(loop_, {SIGINT, SIGTERM}, [this](int signal) { signal_ = signal; }),
      link_(loop_, options.socket_directory) {}

bool Session::Wait(const std::function<bool()>& done, std::optional<std::chrono::milliseconds> patience) {
  std::optional<EventLoop::Clock::time_point> deadline;
  if (patience) deadline = EventLoop::Clock::now() + *patience;
  const bool in_time = loop_.RunUntil([this, &done] { return signal_ != 0 || done(); }, deadline);
  if (signal_ != 0) throw Failure(kSignalBase + signal_, fmt::format("ended by {}", strsignal(signal_)));
  return in_time;
}

void Session::WaitForServer() {
  if (!Wait([this] { return link_.present(); }, options_.timeout)) FailWithoutServer(options_);
}

std::optional<Model> Session::ReadCache(std::chrono::milliseconds extra) {
  std::optional<Model> cache;
  bool lost = false;
  link_.on_cache = [&cache](const Model& model) { cache = model; };
  link_.on_lost = [&lost] { lost = true; };
  lost = !link_.RequestCache();
  const bool in_time = Wait([&] { return lost || cache.has_value(); }, options_.timeout + extra);
  link_.on_cache = nullptr;
  link_.on_lost = nullptr;
  if (!in_time) {
    throw Failure(kFailed, fmt::format("the server is there but does not answer within {}; a longer --timeout may help",
                                       FormatDuration(options_.timeout + extra)));
  }
  return lost ? std::nullopt : std::move(cache);
}

void FailWithoutServer(const ServerOptions& options) {
  throw Failure(kNoServer,
                fmt::format("no cfm-mgr server in the socket directory {} within {}; start cfm-mgr, or name its "
                            "directory with --socket-dir, or wait longer with --timeout",
                            Escape(SocketDirectory(options.socket_directory)), FormatDuration(options.timeout)));
}

}  // namespace cfmctl
