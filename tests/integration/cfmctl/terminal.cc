#include "terminal.h"

#include <poll.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>

namespace cfm_test {

Screen RunOnTerminal(const std::vector<std::string>& arguments, const Process::Environment& environment) {
  std::vector<std::string> words = arguments;
  std::vector<char*> command;
  for (std::string& word : words) command.push_back(word.data());
  command.push_back(nullptr);

  int terminal = -1;
  const pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    execv(command[0], command.data());
    _exit(127);
  }
  Screen screen;
  if (pid < 0) return screen;

  const auto deadline = std::chrono::steady_clock::now() + kDeadline;
  std::array<char, 4096> piece;
  while (std::chrono::steady_clock::now() < deadline) {
    pollfd polled = {.fd = terminal, .events = POLLIN, .revents = 0};
    if (poll(&polled, 1, 100) <= 0) continue;
    // The end of the last process on the terminal is an input/output error here.
    const ssize_t size = read(terminal, piece.data(), piece.size());
    if (size <= 0) break;
    screen.text.append(piece.data(), static_cast<std::size_t>(size));
  }
  close(terminal);
  int status = 0;
  if (std::chrono::steady_clock::now() >= deadline) kill(pid, SIGKILL);
  if (waitpid(pid, &status, 0) == pid && WIFEXITED(status)) screen.status = WEXITSTATUS(status);
  return screen;
}

}  // namespace cfm_test
