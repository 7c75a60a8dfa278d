// A command on a pseudo-terminal, as a person sees it.
#ifndef CFM_TESTS_INTEGRATION_CFMCTL_TERMINAL_H
#define CFM_TESTS_INTEGRATION_CFMCTL_TERMINAL_H

#include <string>
#include <vector>

#include "process.h"

namespace cfm_test {

struct Screen {
  int status = -1;   ///< -1 when it did not end by itself in time
  std::string text;  ///< all that was written to the terminal, output and errors
};

Screen RunOnTerminal(const std::vector<std::string>& arguments, const Process::Environment& environment);

}  // namespace cfm_test

#endif
