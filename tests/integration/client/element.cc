#include "element.h"

#include <atomic>
#include <fstream>
#include <utility>

namespace cfm_test {
namespace {

Process::Environment In(const TempDir& directory) {
  return {{"VORBUS_DIR", directory.path()}};
}

// Each under a name of its own: a process may still be reading the one before.
std::string WriteFile(const TempDir& directory, std::string_view text) {
  static std::atomic<unsigned> number{0};
  std::string file = directory / ("file-" + std::to_string(++number));
  std::ofstream(file) << text;
  return file;
}

std::string Line(Process& process, std::optional<std::string> line, std::string_view wanted) {
  if (!line) {
    ADD_FAILURE() << "waited in vain for \"" << wanted << "\"; the process said: " << process.Errors();
    return "";
  }
  return *line;
}

}  // namespace

Application::Application(const TempDir& directory, std::chrono::milliseconds send_timeout)
    : directory_(directory), process_({CFM_TEST_APP, std::to_string(send_timeout.count())}, In(directory)) {
  AwaitLine("ready");
}

void Application::Tell(std::string_view command) {
  process_.WriteLine(command);
}

void Application::Give(const Configuration& configuration) {
  const std::string file = WriteFile(directory_, Text(ToMessages(configuration)));
  Tell("hierarchy @" + file);
  Tell("probes @" + file);
  ++given_;
}

void Application::AwaitApplied() {
  while (given_ > 0 && !NextLine().empty()) {
  }
}

void Application::AwaitSynchronised(vorbus_pid_t server) {
  while (synchronised_ != server && !NextLine().empty()) {
  }
}

std::string Application::AwaitLine(std::string_view prefix) {
  const auto deadline = std::chrono::steady_clock::now() + kDeadline;
  std::optional<std::string> line;
  do {
    line = process_.ReadLine(std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()));
    if (line) {
      Note(*line);
    }
  } while (line && !line->starts_with(prefix));
  return Line(process_, line, prefix);
}

std::string Application::NextLine() {
  return AwaitLine("");
}

void Application::Note(const std::string& line) {
  constexpr std::string_view kSynchronised = "synchronised ";
  if (line == "applied probes") {
    --given_;
  } else if (line == "lost") {
    synchronised_ = 0;
    ++losses_;
  } else if (line.starts_with(kSynchronised)) {
    synchronised_ = static_cast<vorbus_pid_t>(std::stoul(line.substr(kSynchronised.size())));
  }
}

Element::Element() : reader_(directory_.path()) {}

void Element::StartServer() {
  server_.emplace(Process({CFM_MGR}, In(directory_)));
}

void Element::KillServer() {
  server_->Kill();
}

void Element::StartApplication(const Configuration& configuration) {
  application_.emplace(directory_);
  application_->Give(configuration);
  application_->Run();
}

void Element::Synchronise() {
  // Whoever answers now is the present run; the reader may still believe in one that was killed.
  ASSERT_TRUE(reader_.Read(kDeadline)) << "the server does not answer; it said: " << server_->Errors();
  application_->AwaitSynchronised(reader_.server());
}

void Element::ExpectCache(const Configuration& configuration) {
  EXPECT_EQ(reader_.WaitFor(CacheOf(configuration), kDeadline), "");
}

Peer::Peer(const TempDir& directory, std::string_view script)
    : process_({CFM_SCRIPTED_PEER, WriteFile(directory, script)}, In(directory)) {
  EXPECT_EQ(NextLine(), "ready");
}

void Peer::Play(std::string_view line) {
  Tell(line);
  Tell("say played");
  for (std::string next = ReadLine(); next != "say played" && !next.empty(); next = ReadLine()) {
    lines_.push_back(next);
  }
}

void Peer::Tell(std::string_view line) {
  process_.WriteLine(line);
}

std::string Peer::NextLine() {
  if (lines_.empty()) {
    return ReadLine();
  }
  std::string line = std::move(lines_.front());
  lines_.pop_front();
  return line;
}

std::string Peer::ReadLine() {
  return Line(process_, process_.ReadLine(), "");
}

std::vector<std::string> Peer::LinesBefore(std::string_view line) {
  std::vector<std::string> lines;
  for (std::string next = NextLine(); next != line && !next.empty(); next = NextLine()) {
    lines.push_back(next);
  }
  return lines;
}

}  // namespace cfm_test
