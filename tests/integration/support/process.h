// Child processes for tests between real processes: started with pipes, watched with deadlines, never left behind.
#ifndef CFM_TESTS_INTEGRATION_SUPPORT_PROCESS_H
#define CFM_TESTS_INTEGRATION_SUPPORT_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cfm_test {

// Generous: it passes only when something is broken. Sanitizers slow a process down by up to twenty times.
constexpr std::chrono::seconds kDeadline{60};

// A directory of the test's own under $TMPDIR or /tmp, removed with all it holds. Its path is short enough for the
// socket addresses of processes that meet in it.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string operator/(std::string_view name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

// How a process ended: its exit status, or the signal that killed it.
struct End {
  int status = -1;
  int signal = 0;
  bool operator==(const End&) const = default;
};

// One child. Its standard input and output are pipes to the test; its standard error goes to memory, where it never
// blocks the child. It is killed when its Process is destroyed, and by the kernel when the test dies.
class Process {
 public:
  using Environment = std::map<std::string, std::string>;  // added to the test's own

  // `network` is a descriptor of the network namespace that it runs in; none: the test's own.
  explicit Process(const std::vector<std::string>& arguments, const Environment& environment = {}, int network = -1);
  ~Process();
  Process(Process&& other) noexcept;
  Process& operator=(Process&& other) noexcept;

  pid_t pid() const { return pid_; }
  bool Running();

  void Signal(int number) const;
  // SIGKILL, and waits for the end.
  void Kill();
  // How it ended; nothing when it has not within the time.
  std::optional<End> Wait(std::chrono::milliseconds timeout = kDeadline);

  // Writes a line to its standard input, reading its output meanwhile so that neither side blocks the other. False when
  // the child no longer reads.
  bool WriteLine(std::string_view line);
  void CloseInput();

  // The next line of its standard output without the newline; nothing at its end or when the time is over.
  std::optional<std::string> ReadLine(std::chrono::milliseconds timeout = kDeadline);
  // Reads lines up to the first that begins with `prefix`, and returns that one; those before it are dropped.
  std::optional<std::string> ReadUntil(std::string_view prefix, std::chrono::milliseconds timeout = kDeadline);

  // What it has written to its standard error.
  std::string Errors() const;

  // Largest and present resident memory in octets (VmHWM and VmRSS of /proc); 0 when it is gone.
  std::size_t PeakMemory() const;
  std::size_t Memory() const;

 private:
  void Release() noexcept;
  bool FillBuffer(std::chrono::steady_clock::time_point deadline);
  std::size_t StatusField(std::string_view name) const;

  pid_t pid_ = -1;
  int input_ = -1;
  int output_ = -1;
  int errors_ = -1;
  std::string buffer_;
  std::size_t begin_ = 0;  // what lies before it in buffer_ has been handed out
  std::optional<End> end_;
};

}  // namespace cfm_test

#endif
