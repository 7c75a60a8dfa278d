// One network element with the real programs: a socket directory, a server that comes and goes, a file, a user.
#ifndef CFM_TESTS_INTEGRATION_CFMCTL_ELEMENT_H
#define CFM_TESTS_INTEGRATION_CFMCTL_ELEMENT_H

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "own_namespace.h"
#include "process.h"

namespace cfm_test {

/// What a command left behind.
struct Result {
  int status = -1;  ///< -1 when it did not end by itself
  std::string out;
  std::string errors;
};

class Element : public testing::Test {
 protected:
  void SetUp() override {
    if (!InOwnNamespace()) GTEST_SKIP() << "skipped: no user and network namespace can be made here";
  }

  Process::Environment Environment() const {
    return {{"VORBUS_DIR", directory_.path().string()}, {"NO_COLOR", ""}, {"TERM", "xterm"}};
  }

  Process Start(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), CFMCTL);
    return Process(arguments, Environment());
  }

  static Result Finish(Process process) {
    Result result;
    while (const auto line = process.ReadLine()) result.out += *line + "\n";
    const auto end = process.Wait();
    if (end) result.status = end->status;
    result.errors = process.Errors();
    return result;
  }

  Result Run(const std::vector<std::string>& arguments) const { return Finish(Start(arguments)); }

  void StartServer() { server_.emplace(std::vector<std::string>{CFM_MGR}, Environment()); }
  void KillServer() {
    server_->Kill();
    server_.reset();
  }

  std::string Path(std::string_view name) const { return directory_ / name; }

  static std::string Content(const std::string& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  static void WriteTo(const std::string& file, const std::string& content) { std::ofstream(file) << content; }

  /// A file of the test's own; returns its path.
  std::string File(const std::string& content, std::string_view name = "cfm.yaml") const {
    const std::string path = Path(name);
    WriteTo(path, content);
    return path;
  }

  static std::string Example(std::string_view name) { return std::string(EXAMPLES) + "/" + std::string(name); }

  static std::string Replaced(std::string text, std::string_view what, std::string_view with) {
    const std::size_t at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    return at == std::string::npos ? text : text.replace(at, what.size(), with);
  }

  /// The next line of a running command that holds `what`; those before it are dropped. Empty when none comes.
  static std::string LineWith(Process& process, std::string_view what) {
    while (const auto line = process.ReadLine()) {
      if (line->find(what) != std::string::npos) return *line;
    }
    return {};
  }

  /// Waits for such a line.
  static void Expect(Process& process, std::string_view what) {
    EXPECT_FALSE(LineWith(process, what).empty()) << "no line with: " << what << "\n" << process.Errors();
  }

  /// `count` end points of one association on eth0.
  static std::string ManyEndPoints(int count) {
    std::string text = "domains:\n  d:\n    level: 1\n    associations:\n      a:\n        end-points:\n";
    for (int id = 1; id <= count; ++id) text += "          " + std::to_string(id) + ": {port: eth0}\n";
    return text;
  }

  TempDir directory_;
  std::optional<Process> server_;
};

}  // namespace cfm_test

#endif
