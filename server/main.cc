// cfm-mgr: takes its options, attaches to the middleware under its process name and serves until it is told to end.
#include <google/protobuf/stubs/logging.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <zlog.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>

#include "cfm/identities.h"
#include "contract/cache.h"
#include "contract/outbox.h"
#include "contract/server.h"
#include "engine/engine.h"
#include "event_loop.h"
#include "port/capabilities.h"
#include "port/linux_ports.h"
#include "vorbus/vorbus.h"

namespace {

// docs/server.md lists them.
enum ExitStatus : int {
  kEnded = 0,
  kFailed = 1,
  kUsage = 2,
  kAnotherServer = 3,
  kNoDirectory = 4,
  kNoPrivilege = 5,
};

// A client that takes nothing for that long loses its link. Short, as the end points wait meanwhile; events do not come
// to that, see contract/outbox.h.
constexpr unsigned int kSendTimeoutMs = 5;

struct Options {
  std::string directory;
  std::string log_level;
  std::string chassis_id;
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
  sigaddset(&signals, SIGUSR1);
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

std::optional<cfm::protocol::SystemId> SystemOf(const Options& options) {
  constexpr std::uint8_t kLocallyAssigned = 7;  // IEEE 802.1AB clause 8.5.2.2, of which Sender ID takes the subtypes
  if (options.chassis_id.empty()) return std::nullopt;
  cfm::protocol::SystemId system;
  system.chassis_subtype = kLocallyAssigned;
  system.chassis_id.assign(options.chassis_id.begin(), options.chassis_id.end());
  return system;
}

cfm::protocol::Random MakeRandom() {
  // One for all: copies of this function go to every end point, and must not give each the same numbers.
  const auto generator = std::make_shared<std::mt19937_64>(std::random_device()());
  return [generator](cfm::protocol::Duration below) {
    return cfm::protocol::Duration(std::uniform_int_distribution<std::int64_t>(0, below.count() - 1)(*generator));
  };
}

// The engine and its ports know each other. Neither calls the other before it is asked to do something.
struct Element {
  Element(const cfm::contract::Cache& cache, cfm::contract::Announcer& announcer, zlog_category_t* log,
          const Options& options)
      : ports(engine, log, {}),
        engine(cache, announcer, ports, log, MakeRandom(), std::chrono::steady_clock::now,
               {.system = SystemOf(options)}) {}

  cfm::port::LinuxPorts ports;
  cfm::engine::Engine engine;
};

// What is due at times: the end points', and the events that wait for the clients.
class Timers final : public cfm::EventLoop::Timers {
 public:
  Timers(Element& element, cfm::contract::Outbox& outbox) : element_(element), outbox_(outbox) {}

  cfm::EventLoop::TimePoint deadline() const override {
    return std::min(element_.engine.deadline(), outbox_.deadline());
  }
  void Advance(cfm::EventLoop::TimePoint now) override {
    element_.engine.Advance(now);
    element_.ports.Flush();
    outbox_.Flush(now);
  }

 private:
  Element& element_;
  cfm::contract::Outbox& outbox_;
};

int Serve(const Options& options) {
  if (const std::string missing = cfm::port::MissingCapabilities(); !missing.empty()) {
    std::fprintf(stderr,
                 "cfm-mgr: needs %s, to listen on ports and to filter them: start it as root, or as a service that is "
                 "given both CAP_NET_RAW and CAP_NET_ADMIN, or try it out within 'unshare -Urn'\n",
                 missing.c_str());
    return kNoPrivilege;
  }
  // Before the middleware starts its threads, which inherit them.
  cfm::port::KeepNetworkCapabilitiesOnly();
  const int signals = OpenSignals();
  google::protobuf::SetLogHandler(
      nullptr);  // what it would say of a malformed message, the server says in its own lines
  if (!options.log_level.empty()) ConfigureLogging(options.log_level);

  vorbus_options_t attachment = {};
  attachment.process = CFM_MGR_PROCESS->name;
  attachment.directory = options.directory.empty() ? nullptr : options.directory.c_str();
  attachment.send_timeout_ms = kSendTimeoutMs;
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

  cfm::contract::Cache cache;
  cfm::contract::Outbox outbox(token.get(), log);
  Element element(cache, outbox, log, options);
  const cfm::contract::Server server(token.get(), log, cache, element.engine);
  Timers timers(element, outbox);
  cfm::EventLoop loop;
  loop.SetTimers(timers);
  int status = kEnded;
  loop.Add(signals, [&] {
    signalfd_siginfo received = {};
    if (read(signals, &received, sizeof received) != sizeof received) return;
    if (received.ssi_signo == SIGUSR1) {
      element.engine.LogCounters();
      return;
    }
    zlog_info(log, "ends on signal %u", received.ssi_signo);
    loop.Stop();
  });
  loop.Add(vorbus_fd(token.get()), [&] {
    const int result = vorbus_dispatch(token.get());
    element.ports.Flush();
    if (result >= 0) return;
    zlog_error(log, "the middleware failed: %s", std::strerror(-result));
    status = kFailed;
    loop.Stop();
  });
  loop.Add(element.ports.fd(), [&] {
    element.ports.Poll();
    element.ports.Flush();
  });
  element.ports.Poll();  // what this element calls itself comes from its ports
  zlog_info(log, "serves in %s", DirectoryOf(options).c_str());
  loop.Run();
  return status;
}

int Run(int argc, char** argv) {
  Options options;
  CLI::App app("The CFM manager of this element: runs the configuration that its clients give it on its ports.",
               "cfm-mgr");
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
  app.add_option("--chassis-id", options.chassis_id,
                 "how this element calls itself in Sender ID TLVs (default: the lowest address of its ports)")
      ->type_name("TEXT")
      ->check([](const std::string& text) {
        return text.empty() || text.size() > 255 ? "the chassis id has 1 to 255 octets" : "";
      });
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
