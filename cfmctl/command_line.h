// The command line: every command's options, their help and their limits.
#ifndef CFMCTL_COMMAND_LINE_H
#define CFMCTL_COMMAND_LINE_H

#include <functional>

namespace cfmctl {

/// The work that the command line asks for; it returns the exit status. When help was asked for or the line is wrong,
/// everything is said already, and only the status is left.
std::function<int()> ParseCommandLine(int argc, const char* const* argv);

}  // namespace cfmctl

#endif
