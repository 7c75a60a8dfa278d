// One network element whose server plays a script: a socket directory, a configuration file, a user of cfmctl.
#ifndef CFM_TESTS_INTEGRATION_DIAGNOSTICS_ELEMENT_H
#define CFM_TESTS_INTEGRATION_DIAGNOSTICS_ELEMENT_H

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "process.h"

namespace cfm_test {

// What a command left behind.
struct Result {
  int status = -1;  // -1 when it did not end by itself
  std::string out;
  std::string errors;
};

class Element : public testing::Test {
 protected:
  // End point 1 of operator/evc, which has MEPs 1 to 3, on the loopback interface; session 4 of probe 7.
  Element();

  // A server that holds nothing and plays `script`.
  void Play(std::string_view script);
  // One that plays nothing else.
  void PlayAlone(std::string_view script);

  Process::Environment Environment() const;
  std::vector<std::string> Command(const std::vector<std::string>& arguments) const;
  Process Start(const std::vector<std::string>& arguments) const { return Process(Command(arguments), Environment()); }
  Result Run(const std::vector<std::string>& arguments) const { return Finish(Start(arguments)); }
  static Result Finish(Process process);

  // What the server was sent by commands that have ended, but for the synchronisations that they begin with; each
  // trigger id as ID. Ends the server.
  std::vector<std::string> Requests();

  void WriteConfiguration(std::string_view text) const;

  TempDir directory_;
  std::optional<Process> server_;
};

// Time stamps as TIME.
std::string WithoutTimes(const std::string& text);

}  // namespace cfm_test

#endif
