#include "terminal.h"

#include <poll.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <utility>

namespace cfm_test {
namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

Terminal::Terminal(const std::vector<std::string>& arguments, const Process::Environment& environment,
                   unsigned short rows, unsigned short columns) {
  std::vector<std::string> words = arguments;
  std::vector<char*> command;
  command.reserve(words.size() + 1);
  for (std::string& word : words) command.push_back(word.data());
  command.push_back(nullptr);

  const winsize size = {.ws_row = rows, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
  pid_ = forkpty(&terminal_, nullptr, nullptr, &size);
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    execv(command[0], command.data());
    _exit(127);
  }
}

Terminal::~Terminal() {
  if (terminal_ >= 0) close(terminal_);
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
}

bool Terminal::Read(Clock::time_point deadline) {
  std::array<char, 4096> piece;
  while (Clock::now() < deadline) {
    pollfd polled = {.fd = terminal_, .events = POLLIN, .revents = 0};
    if (poll(&polled, 1, 100) <= 0) continue;
    // The end of the last process on the terminal is an input/output error here.
    const ssize_t size = read(terminal_, piece.data(), piece.size());
    if (size <= 0) return false;
    text_.append(piece.data(), static_cast<std::size_t>(size));
    return true;
  }
  return false;
}

std::string Terminal::ReadUntil(std::string_view what) {
  const auto deadline = Clock::now() + kDeadline;
  while (text_.find(what) == std::string::npos) {
    if (!Read(deadline)) return std::exchange(text_, {});
  }
  const std::size_t end = text_.find(what) + what.size();
  std::string text = text_.substr(0, end);
  text_.erase(0, end);
  return text;
}

void Terminal::Type(std::string_view keys) const {
  while (!keys.empty()) {
    const ssize_t size = write(terminal_, keys.data(), keys.size());
    if (size <= 0) return;
    keys.remove_prefix(static_cast<std::size_t>(size));
  }
}

Screen Terminal::Finish() {
  const auto deadline = Clock::now() + kDeadline;
  while (pid_ > 0 && Read(deadline)) {
  }
  Screen screen{.status = -1, .text = std::exchange(text_, {})};
  if (pid_ <= 0) return screen;
  if (Clock::now() >= deadline) kill(pid_, SIGKILL);
  int status = 0;
  if (waitpid(std::exchange(pid_, -1), &status, 0) > 0 && WIFEXITED(status)) screen.status = WEXITSTATUS(status);
  return screen;
}

Screen RunOnTerminal(const std::vector<std::string>& arguments, const Process::Environment& environment) {
  return Terminal(arguments, environment).Finish();
}

}  // namespace cfm_test
