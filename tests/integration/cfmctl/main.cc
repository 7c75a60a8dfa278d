// Runs the tests again in a user and network namespace of their own, with the ports that the examples name.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "namespace.h"

namespace cfm_test {
namespace {

constexpr const char* kMark = "CFMCTL_TEST_IN_NAMESPACE";

// NOLINTBEGIN(cert-env33-c): fixed commands
bool NamespacesWork() {
  return std::system(
             "unshare --user --map-root-user --net ip link add name here type veth peer name there >/dev/null 2>&1") ==
         0;
}

bool MakePorts() {
  for (const char* port : {"eth0", "uni1", "uni2", "uni3", "nni1", "nni2", "core0", "west0", "east0", "uni0"}) {
    const std::string command = std::string("ip link add name ") + port + " type veth peer name far-" + port;
    if (std::system(command.c_str()) != 0) return false;
  }
  return true;
}
// NOLINTEND(cert-env33-c)

int RunAgainInside(int argc, char** argv) {
  setenv(kMark, "1", 1);
  std::vector<std::string> words = {"unshare", "--user", "--map-root-user", "--net",
                                    std::filesystem::read_symlink("/proc/self/exe").string()};
  words.insert(words.end(), argv + 1, argv + argc);
  std::vector<char*> command;
  for (std::string& word : words) command.push_back(word.data());
  command.push_back(nullptr);
  execvp(command[0], command.data());
  std::perror("unshare");
  return 1;
}

}  // namespace

bool InOwnNamespace() {
  return std::getenv(kMark) != nullptr;
}

}  // namespace cfm_test

int main(int argc, char** argv) {
  // Before the test framework takes its flags off the command line.
  if (!cfm_test::InOwnNamespace() && cfm_test::NamespacesWork()) return cfm_test::RunAgainInside(argc, argv);
  testing::InitGoogleTest(&argc, argv);
  if (cfm_test::InOwnNamespace() && !cfm_test::MakePorts()) return 1;
  return RUN_ALL_TESTS();
}
