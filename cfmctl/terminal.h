// What cfmctl knows of its standard output and error: whether a person watches, and whether colours are welcome.
#ifndef CFMCTL_TERMINAL_H
#define CFMCTL_TERMINAL_H

#include <cstddef>
#include <string>
#include <string_view>

#include "style.h"

namespace cfmctl {

bool IsTerminal(int descriptor);

/// The height of the terminal; 0 when it is none or does not say.
std::size_t TerminalRows(int descriptor);

/// With colours on a terminal, unless NO_COLOR is set or the terminal knows none.
Style StyleFor(int descriptor);

/// "[#####.....]  50% 1,000 of 2,000"
std::string ProgressText(std::size_t done, std::size_t total, std::size_t width);

/// One line on standard error that is redrawn in place; nothing at all when that is no terminal.
class ProgressBar {
 public:
  explicit ProgressBar(std::string_view label);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void Show(std::size_t done, std::size_t total);

 private:
  std::string label_;
  bool terminal_;
};

}  // namespace cfmctl

#endif
