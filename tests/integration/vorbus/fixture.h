// A socket directory, and processes that meet in it.
#ifndef VORBUS_TESTS_FIXTURE_H
#define VORBUS_TESTS_FIXTURE_H

#include <gtest/gtest.h>

#include <concepts>
#include <string>

#include "attachment.h"
#include "process.h"

namespace vorbus_test {

// The other process; see peer.cc for what it understands.
class PeerProcess {
 public:
  PeerProcess(const std::string& directory, const std::string& name, unsigned int send_timeout_ms = 0)
      : process_({VORBUS_PEER, directory, name, std::to_string(send_timeout_ms)}) {
    const std::string line = Next("pid ");
    pid_ = line.empty() ? 0 : static_cast<vorbus_pid_t>(std::stoul(line.substr(4)));
  }

  vorbus_pid_t pid() const { return pid_; }
  cfm_test::Process& process() { return process_; }

  template <typename... Words>
  void Do(const std::string& command, const Words&... words) {
    process_.WriteLine((command + ... + (' ' + Text(words))));
  }
  // The same for a command that is acknowledged: it holds from now on.
  template <typename... Words>
  void Set(const std::string& command, const Words&... words) {
    Do(command, words...);
    EXPECT_EQ(Line(), "ok") << command;
  }
  // The next line that begins so; empty when none comes. Those before it are dropped.
  std::string Next(const std::string& beginning) { return process_.ReadUntil(beginning).value_or(""); }
  // The next line, whatever it is.
  std::string Line() { return process_.ReadLine().value_or(""); }
  template <typename... Words>
  std::string Ask(const std::string& answer, const std::string& command, const Words&... words) {
    Do(command, words...);
    return Next(answer);
  }

 private:
  static std::string Text(const std::string& text) { return text; }
  template <std::integral Number>
  static std::string Text(Number number) {
    return std::to_string(number);
  }

  cfm_test::Process process_;
  vorbus_pid_t pid_ = 0;
};

class BusTest : public testing::Test {
 protected:
  std::string directory() const { return temporary_.path(); }
  std::string PathOf(const std::string& name) const { return temporary_ / name; }

 private:
  cfm_test::TempDir temporary_;
};

}  // namespace vorbus_test

#endif
