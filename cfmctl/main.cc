// cfmctl: the configuration application of the CFM manager for people.
#include <exception>
#include <functional>
#include <iostream>

#include "command_line.h"
#include "exit_status.h"
#include "failure.h"

namespace {

int Main(int argc, char** argv) {
  const std::function<int()> work = cfmctl::ParseCommandLine(argc, argv);
  try {
    const int status = work();
    std::cout.flush();
    if (!std::cout) throw cfmctl::Failure(cfmctl::kFailed, "cannot write to standard output");
    return status;
  } catch (const cfmctl::Failure& failure) {
    std::cout.flush();
    std::cerr << "cfmctl: " << failure.what() << '\n';
    return failure.status();
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    std::ios::sync_with_stdio(false);
    return Main(argc, argv);
  } catch (const std::exception& exception) {
    std::cerr << "cfmctl: " << exception.what() << '\n';
    return cfmctl::kFailed;
  }
}
