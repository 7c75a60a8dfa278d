#include "element.h"

#include <csignal>
#include <fstream>
#include <regex>

#include "cache_reader.h"

namespace cfm_test {

Element::Element() {
  WriteConfiguration(R"(
domains:
  operator:
    level: 2
    associations:
      evc:
        vlans: 100
        mep-ids: [1, 2, 3]
        end-points:
          1: {port: lo}
probes:
  7: {domain: operator, association: evc, local-mep: 1, remote-mep: 2, sessions: {4: {count: 10}}}
)");
}

void Element::Play(std::string_view script) {
  PlayAlone("on CACHE_GET reply CACHE_REPLY\n" + std::string(script));
}

void Element::PlayAlone(std::string_view script) {
  const std::string file = directory_ / "script";
  std::ofstream(file) << script;
  server_.reset();
  server_.emplace(std::vector<std::string>{CFM_SCRIPTED_PEER, file}, Environment());
  ASSERT_EQ(server_->ReadLine(), "ready") << server_->Errors();
}

Process::Environment Element::Environment() const {
  return {{"VORBUS_DIR", directory_.path().string()}, {"NO_COLOR", "1"}, {"TERM", "xterm"}, {"TZ", "UTC"}};
}

std::vector<std::string> Element::Command(const std::vector<std::string>& arguments) const {
  std::vector<std::string> command = {CFMCTL, "--config", directory_ / "cfm.yaml"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

Result Element::Finish(Process process) {
  Result result;
  while (const auto line = process.ReadLine()) result.out += *line + "\n";
  const auto end = process.Wait();
  if (end) result.status = end->status;
  result.errors = process.Errors();
  return result;
}

std::vector<std::string> Element::Requests() {
  // What was sent before is there when the answer to this is.
  CacheReader(directory_.path()).WaitFor({}, kDeadline);
  server_->Signal(SIGTERM);
  std::vector<std::string> requests;
  static const std::regex trigger_id("trigger_id: [0-9]+");
  while (const auto line = server_->ReadLine()) {
    if (*line == "STATUS_GET_ALL") {
      requests.clear();
    } else {
      requests.push_back(std::regex_replace(*line, trigger_id, "trigger_id: ID"));
    }
  }
  EXPECT_EQ(server_->Wait(), (End{0, 0})) << server_->Errors();
  if (requests.empty() || requests.back() != "CACHE_GET") {
    ADD_FAILURE() << "the last request is not the test's own";
    return requests;
  }
  requests.pop_back();
  return requests;
}

void Element::WriteConfiguration(std::string_view text) const {
  std::ofstream(directory_ / "cfm.yaml") << text;
}

std::string WithoutTimes(const std::string& text) {
  static const std::regex time("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}[+-][0-9]{4}");
  return std::regex_replace(text, time, "TIME");
}

}  // namespace cfm_test
