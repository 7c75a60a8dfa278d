#include "terminal.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "text.h"

namespace cfmctl {

bool IsTerminal(int descriptor) {
  return isatty(descriptor) == 1;
}

std::size_t TerminalRows(int descriptor) {
  winsize size{};
  return ioctl(descriptor, TIOCGWINSZ, &size) == 0 ? size.ws_row : 0;
}

Style StyleFor(int descriptor) {
  const char* no_color = std::getenv("NO_COLOR");
  const char* term = std::getenv("TERM");
  const bool refused = no_color != nullptr && *no_color != '\0';
  const bool dumb = term == nullptr || std::string_view(term) == "dumb";
  return Style(IsTerminal(descriptor) && !refused && !dumb);
}

std::string ProgressText(std::size_t done, std::size_t total, std::size_t width) {
  done = std::min(done, total);
  const std::size_t filled = total == 0 ? width : width * done / total;
  const std::size_t percent = total == 0 ? 100 : 100 * done / total;
  return fmt::format("[{:#>{}}{:.>{}}] {:3}% {} of {}", "", filled, "", width - filled, percent, Grouped(done),
                     Grouped(total));
}

ProgressBar::ProgressBar(std::string_view label) : label_(label), terminal_(IsTerminal(STDERR_FILENO)) {}

// ECMA-48: \r to the first column, EL (K) erases to the end of the line.
ProgressBar::~ProgressBar() {
  if (terminal_) std::fputs("\r\x1b[K", stderr);
}

void ProgressBar::Show(std::size_t done, std::size_t total) {
  constexpr std::size_t kWidth = 40;
  if (!terminal_) return;
  std::fputs(fmt::format("\r{} {}\x1b[K", label_, ProgressText(done, total, kWidth)).c_str(), stderr);
  std::fflush(stderr);
}

}  // namespace cfmctl
