// Runs the tests again in a user and network namespace of their own, with the ports that the examples name. Where the
// system refuses one they are skipped.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "own_namespace.h"

namespace {

bool MakePorts() {
  for (const char* port : {"eth0", "uni1", "uni2", "uni3", "nni1", "nni2", "core0", "west0", "east0", "uni0"}) {
    const std::string command = std::string("ip link add name ") + port + " type veth peer name far-" + port;
    if (std::system(command.c_str()) != 0) return false;  // NOLINT(cert-env33-c): a fixed command
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  // Before the test framework takes its flags off the command line.
  if (!cfm_test::InOwnNamespace()) cfm_test::RunInOwnNamespace(argc, argv);
  testing::InitGoogleTest(&argc, argv);
  if (cfm_test::InOwnNamespace() && !MakePorts()) return 1;
  return RUN_ALL_TESTS();
}
