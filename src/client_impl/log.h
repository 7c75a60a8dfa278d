// The library's log lines: one zlog category, the source file name "client_impl", the operation's own name.
#ifndef CFM_SRC_CLIENT_IMPL_LOG_H
#define CFM_SRC_CLIENT_IMPL_LOG_H

#include <zlog.h>

#include <string_view>

namespace cfm {

inline constexpr std::string_view kSourceFile = "client_impl";

inline constexpr int kLogTrace = 10;  // lifecycle, configuration and triggers
inline constexpr int kLogDump = 11;   // contents of status, statistics and linktrace events

// Prints a backtrace, reports a middleware fault with the text and ends the process with status 1.
[[noreturn]] void Fatal(const char* function, int line, std::string_view text);

}  // namespace cfm

// A macro, so that the compiler checks the format literal against the arguments and the line is the caller's.
#define CFM_LOG(category, level, function, ...)                                                             \
  zlog((category), ::cfm::kSourceFile.data(), ::cfm::kSourceFile.size(), std::string_view(function).data(), \
       std::string_view(function).size(), __LINE__, (level), __VA_ARGS__)

#endif
