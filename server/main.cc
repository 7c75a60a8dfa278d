// cfm-mgr: takes its options, attaches to the middleware under its process name and serves until it is told to end.
#include <google/protobuf/stubs/logging.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <zlog.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>

#include "cfm/identities.h"
#include "contract/server.h"
#include "event_loop.h"
#include "vorbus/vorbus.h"

namespace {

// docs/server.md lists them.
enum ExitStatus : int {
  kEnded = 0,
  kFailed = 1,
  kUsage = 2,
  kAnotherServer = 3,
  kNoDirectory = 4,
};

struct Options {
  std::string directory;
  std::string log_level;
};

struct CloseToken {
  void operator()(vorbus_t* token) const { vorbus_close(&token); }
};
using Token = std::unique_ptr<vorbus_t, CloseToken>;

// Signals are read from a descriptor. Blocked before the middleware starts its threads, which inherit the mask.
int OpenSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGHUP, SIG_IGN);  // a terminal that goes does not take the server with it
  std::signal(SIGPIPE, SIG_IGN);
  const int fd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (fd < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
  return fd;
}

// Before the middleware sets logging up, which leaves it alone then. From a file in memory: zlog_init_from_string loses
// the memory of what it first allocates.
void ConfigureLogging(const std::string& level) {
  const std::string rules =
      "[formats]\n"
      "line = \"%d(%F %T).%ms %-5V %c: %m%n\"\n"
      "[rules]\n"
      "*." +
      level + " >stderr; line\n";
  const int fd = memfd_create("cfm-mgr-log", MFD_CLOEXEC);
  const bool is_written = fd >= 0 && write(fd, rules.data(), rules.size()) == static_cast<ssize_t>(rules.size());
  const bool is_set_up = is_written && zlog_init(("/proc/self/fd/" + std::to_string(fd)).c_str()) == 0;
  close(fd);
  if (!is_set_up) throw std::runtime_error("logging cannot be set up");
}

// The directory that the middleware uses for these options, for messages.
std::string DirectoryOf(const Options& options) {
  if (!options.directory.empty()) return options.directory;
  const char* configured = std::getenv("VORBUS_DIR");
  return configured != nullptr ? configured : "/run/vorbus";
}

int ReportOpenError(int error, const Options& options) {
  const std::string directory = DirectoryOf(options);
  if (error == -EADDRINUSE) {
    std::fprintf(stderr, "cfm-mgr: another cfm-mgr serves in %s already\n", directory.c_str());
    return kAnotherServer;
  }
  std::fprintf(stderr, "cfm-mgr: the socket directory %s cannot be used: %s\n", directory.c_str(),
               std::strerror(-error));
  return kNoDirectory;
}

int Serve(const Options& options) {
  const int signals = OpenSignals();
  google::protobuf::SetLogHandler(
      nullptr);  // what it would say of a malformed message, the server says in its own lines
  if (!options.log_level.empty()) ConfigureLogging(options.log_level);

  vorbus_options_t attachment = {};
  attachment.process = CFM_MGR_PROCESS->name;
  attachment.directory = options.directory.empty() ? nullptr : options.directory.c_str();
  vorbus_t* opened = nullptr;
  if (const int error = vorbus_open(&attachment, &opened); error != 0) return ReportOpenError(error, options);
  const Token token(opened);

  zlog_category_t* log = vorbus_trace_init(token.get(), CFM_MGR_PROCESS->name);
  if (log == nullptr) {
    const char* configuration = std::getenv("VORBUS_LOG_CONF");
    std::fprintf(stderr, "cfm-mgr: logging cannot be set up from %s\n",
                 configuration != nullptr ? configuration : "its default");
    return kFailed;
  }

  const cfm::contract::Server server(token.get(), log);
  cfm::EventLoop loop;
  int status = kEnded;
  loop.Add(signals, [&] {
    signalfd_siginfo received = {};
    if (read(signals, &received, sizeof received) != sizeof received) return;
    zlog_info(log, "ends on signal %u", received.ssi_signo);
    loop.Stop();
  });
  loop.Add(vorbus_fd(token.get()), [&] {
    const int result = vorbus_dispatch(token.get());
    if (result >= 0) return;
    zlog_error(log, "the middleware failed: %s", std::strerror(-result));
    status = kFailed;
    loop.Stop();
  });
  zlog_info(log, "serves in %s", DirectoryOf(options).c_str());
  loop.Run();
  return status;
}

int Run(int argc, char** argv) {
  Options options;
  CLI::App app("The CFM manager of this element: holds the configuration that its clients give it.", "cfm-mgr");
  app.set_version_flag("--version", "cfm-mgr " CFM_VERSION);
  app.add_option("--socket-dir", options.directory,
                 "directory of the middleware's sockets (default: $VORBUS_DIR, else /run/vorbus)")
      ->type_name("DIR");
  app.add_option(
         "--log-level", options.log_level,
         "least level that is written to standard error (default: what the file that $VORBUS_LOG_CONF names says, "
         "else warn)")
      ->type_name("LEVEL")
      ->check(CLI::IsMember({"error", "warn", "info", "debug"}));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kEnded : kUsage;
  }
  return Serve(options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "cfm-mgr: %s\n", error.what());
    return kFailed;
  }
}
