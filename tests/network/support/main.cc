// Runs the tests in a user and network namespace of their own; where the system refuses one they are skipped.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr const char* kMark = "CFM_NETWORK_TEST_IN_NAMESPACE";

bool NamespacesWork() {
  return std::system(  // NOLINT(cert-env33-c): a fixed command
             "unshare --user --map-root-user --net " IP_PROGRAM
             " link add name here type veth peer name there >/dev/null 2>&1") == 0;
}

// A program of its own makes the namespaces: only a process with a single thread can, and a sanitizer has begun more.
int RunAgainInside(int argc, char** argv) {
  setenv(kMark, "1", 1);
  std::vector<std::string> words = {"unshare", "--user", "--map-root-user", "--net",
                                    std::filesystem::read_symlink("/proc/self/exe").string()};
  words.insert(words.end(), argv + 1, argv + argc);
  std::vector<char*> command;
  command.reserve(words.size() + 1);
  for (std::string& word : words) command.push_back(word.data());
  command.push_back(nullptr);
  execvp(command[0], command.data());
  std::perror("unshare");
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<char*> arguments(argv, argv + argc + 1);
  testing::InitGoogleTest(&argc, argv);
  if (GTEST_FLAG_GET(list_tests) || std::getenv(kMark) != nullptr) return RUN_ALL_TESTS();
  // The framework has taken its flags off the command line.
  if (NamespacesWork()) return RunAgainInside(static_cast<int>(arguments.size()) - 1, std::vector(arguments).data());
  std::puts("[  SKIPPED ] every test: no user and network namespace can be made here");
  return 0;
}
