#include "process.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <system_error>
#include <utility>

namespace cfm_test {
namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void Throw(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

int RemainingMs(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, 60'000));
}

void Close(int& descriptor) {
  if (descriptor >= 0) {
    close(descriptor);
    descriptor = -1;
  }
}

std::vector<char*> Pointers(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  for (std::string& string : strings) {
    pointers.push_back(string.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> MergedEnvironment(const Process::Environment& added) {
  std::vector<std::string> merged;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text(*entry);
    if (!added.contains(std::string(text.substr(0, text.find('='))))) {
      merged.emplace_back(text);
    }
  }
  for (const auto& [name, value] : added) {
    merged.push_back(name + "=" + value);
  }
  return merged;
}

}  // namespace

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/cfm-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) {
    Throw("mkdtemp");
  }
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

Process::Process(const std::vector<std::string>& arguments, const Environment& environment, int network) {
  // Everything that allocates comes before the fork: the test may have threads (the middleware's).
  std::vector<std::string> argument_texts = arguments;
  std::vector<std::string> environment_texts = MergedEnvironment(environment);
  const std::vector<char*> argv = Pointers(argument_texts);
  const std::vector<char*> envp = Pointers(environment_texts);
  const pid_t parent = getpid();

  int in[2];
  int out[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
    Throw("pipe2");
  }
  errors_ = memfd_create("stderr", MFD_CLOEXEC);
  if (errors_ < 0) {
    Throw("memfd_create");
  }
  fcntl(errors_, F_SETFL, O_APPEND);
  pid_ = fork();
  if (pid_ < 0) {
    Throw("fork");
  }
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
      _exit(127);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    dup2(in[0], STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    dup2(errors_, STDERR_FILENO);
    if (network >= 0 && setns(network, CLONE_NEWNET) != 0) {
      _exit(127);
    }
    execve(argv[0], argv.data(), envp.data());
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  input_ = in[1];
  output_ = out[0];
  fcntl(input_, F_SETFL, O_NONBLOCK);
  // A child that died must cost the test a failed write, not its life.
  signal(SIGPIPE, SIG_IGN);
}

Process::~Process() {
  Release();
}

Process::Process(Process&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      input_(std::exchange(other.input_, -1)),
      output_(std::exchange(other.output_, -1)),
      errors_(std::exchange(other.errors_, -1)),
      buffer_(std::move(other.buffer_)),
      begin_(std::exchange(other.begin_, 0)),
      end_(std::exchange(other.end_, std::nullopt)) {}

Process& Process::operator=(Process&& other) noexcept {
  if (this != &other) {
    Release();
    pid_ = std::exchange(other.pid_, -1);
    input_ = std::exchange(other.input_, -1);
    output_ = std::exchange(other.output_, -1);
    errors_ = std::exchange(other.errors_, -1);
    buffer_ = std::move(other.buffer_);
    begin_ = std::exchange(other.begin_, 0);
    end_ = std::exchange(other.end_, std::nullopt);
  }
  return *this;
}

void Process::Release() noexcept {
  if (pid_ > 0 && !end_) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  pid_ = -1;
  Close(input_);
  Close(output_);
  Close(errors_);
}

bool Process::Running() {
  return !Wait(std::chrono::milliseconds(0)).has_value();
}

void Process::Signal(int number) const {
  if (!end_) {
    kill(pid_, number);
  }
}

void Process::Kill() {
  Signal(SIGKILL);
  Wait();
}

std::optional<End> Process::Wait(std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  while (!end_) {
    int status = 0;
    const pid_t waited = waitpid(pid_, &status, WNOHANG);
    if (waited < 0) {
      Throw("waitpid");
    }
    if (waited > 0) {
      end_ = WIFSIGNALED(status) ? End{-1, WTERMSIG(status)} : End{WEXITSTATUS(status), 0};
      break;
    }
    if (Clock::now() >= deadline) {
      return std::nullopt;
    }
    // Drained while waiting, so that a child that writes much can end.
    if (!FillBuffer(std::min(deadline, Clock::now() + std::chrono::milliseconds(5)))) {
      poll(nullptr, 0, 1);
    }
  }
  return end_;
}

bool Process::WriteLine(std::string_view line) {
  std::string rest(line);
  rest += '\n';
  while (!rest.empty()) {
    const ssize_t written = write(input_, rest.data(), rest.size());
    if (written >= 0) {
      rest.erase(0, static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      if (!FillBuffer(Clock::now() + std::chrono::milliseconds(5))) {
        pollfd room{input_, POLLOUT, 0};
        poll(&room, 1, 5);
      }
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

void Process::CloseInput() {
  Close(input_);
}

// Reads once what the child has written. False when nothing came by the deadline or nothing will come any more.
bool Process::FillBuffer(Clock::time_point deadline) {
  if (output_ < 0) {
    return false;
  }
  pollfd readable{output_, POLLIN, 0};
  if (poll(&readable, 1, RemainingMs(deadline)) <= 0) {
    return false;
  }
  char chunk[65536];
  const ssize_t got = read(output_, chunk, sizeof(chunk));
  if (got <= 0) {
    Close(output_);
    return false;
  }
  buffer_.append(chunk, static_cast<std::size_t>(got));
  return true;
}

std::optional<std::string> Process::ReadLine(std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  std::size_t searched = begin_;
  for (;;) {
    const std::size_t end = buffer_.find('\n', searched);
    if (end != std::string::npos) {
      std::string line = buffer_.substr(begin_, end - begin_);
      begin_ = end + 1;
      return line;
    }
    buffer_.erase(0, std::exchange(begin_, 0));
    searched = buffer_.size();
    if (!FillBuffer(deadline) && (output_ < 0 || Clock::now() >= deadline)) {
      return std::nullopt;
    }
  }
}

std::optional<std::string> Process::ReadUntil(std::string_view prefix, std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  for (;;) {
    auto line = ReadLine(std::chrono::milliseconds(RemainingMs(deadline)));
    if (!line || line->starts_with(prefix)) {
      return line;
    }
  }
}

std::string Process::Errors() const {
  std::string text;
  struct stat status {};
  if (errors_ >= 0 && fstat(errors_, &status) == 0) {
    text.resize(static_cast<std::size_t>(status.st_size));
    const ssize_t got = pread(errors_, text.data(), text.size(), 0);
    text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
  }
  return text;
}

std::size_t Process::StatusField(std::string_view name) const {
  std::ifstream file("/proc/" + std::to_string(pid_) + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(name)) {
      return std::stoul(line.substr(name.size())) * 1024;
    }
  }
  return 0;
}

std::size_t Process::PeakMemory() const {
  return StatusField("VmHWM:");
}

std::size_t Process::Memory() const {
  return StatusField("VmRSS:");
}

}  // namespace cfm_test
