// A command on a pseudo-terminal, as a person sees it.
#ifndef CFM_TESTS_INTEGRATION_SUPPORT_TERMINAL_H
#define CFM_TESTS_INTEGRATION_SUPPORT_TERMINAL_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "process.h"

namespace cfm_test {

struct Screen {
  int status = -1;   ///< -1 when it did not end by itself in time
  std::string text;  ///< all that was written to the terminal, output and errors
};

// A command that runs; it is killed when its Terminal is destroyed.
class Terminal {
 public:
  Terminal(const std::vector<std::string>& arguments, const Process::Environment& environment, unsigned short rows = 24,
           unsigned short columns = 80);
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // What has been written since the last call, up to the end of `what`; all of it when that does not come.
  std::string ReadUntil(std::string_view what);
  // As from the keyboard.
  void Type(std::string_view keys) const;
  // What has been written since then, and how it ended.
  Screen Finish();

 private:
  bool Read(std::chrono::steady_clock::time_point deadline);

  pid_t pid_ = -1;
  int terminal_ = -1;
  std::string text_;
};

Screen RunOnTerminal(const std::vector<std::string>& arguments, const Process::Environment& environment);

}  // namespace cfm_test

#endif
