// What a process says before it ends because of a fault.
#include <execinfo.h>
#include <unistd.h>
#include <vorbus/vorbus.h>

#include <array>
#include <cstdio>
#include <cstring>

void vorbus_print_backtrace(void) {
  std::array<void*, 64> frames{};
  const int depth = backtrace(frames.data(), static_cast<int>(frames.size()));
  backtrace_symbols_fd(frames.data(), depth, STDERR_FILENO);
}

void vorbus_gen_fault(int severity, const char* function, const char* file, int line, const vorbus_fault_t* fault) {
  const char* text = fault != nullptr ? fault->text : "";
  std::fprintf(stderr, "fault: severity %d in %s at %s:%d: %.*s\n", severity, function != nullptr ? function : "?",
               file != nullptr ? file : "?", line, static_cast<int>(strnlen(text, sizeof fault->text)), text);
}
