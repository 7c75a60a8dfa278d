#include "own_namespace.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace cfm_test {

namespace {

constexpr const char* kMark = "CFM_IN_OWN_NAMESPACE";

bool NamespacesWork() {
  return std::system(  // NOLINT(cert-env33-c): a fixed command
             "unshare --user --map-root-user --net " IP_PROGRAM
             " link add name here type veth peer name there >/dev/null 2>&1") == 0;
}

}  // namespace

bool InOwnNamespace() {
  return std::getenv(kMark) != nullptr;
}

void RunInOwnNamespace(int argc, char** argv) {
  if (!NamespacesWork()) {
    return;
  }
  setenv(kMark, "1", 1);
  std::vector<std::string> words = {"unshare", "--user", "--map-root-user", "--net",
                                    std::filesystem::read_symlink("/proc/self/exe").string()};
  words.insert(words.end(), argv + 1, argv + argc);
  std::vector<char*> command;
  command.reserve(words.size() + 1);
  for (std::string& word : words) {
    command.push_back(word.data());
  }
  command.push_back(nullptr);
  execvp(command[0], command.data());
  std::perror("unshare");
  std::exit(1);
}

}  // namespace cfm_test
