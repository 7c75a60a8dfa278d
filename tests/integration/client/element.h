// A network element in small: a private socket directory in which the real server, an application on the client library
// and a reader of the server's cache meet. Each can be killed and started again at any time.
#ifndef CFM_TESTS_INTEGRATION_CLIENT_ELEMENT_H
#define CFM_TESTS_INTEGRATION_CLIENT_ELEMENT_H

#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cache_reader.h"
#include "configuration.h"
#include "process.h"

namespace cfm_test {

// The application of client_app.cc, from outside.
class Application {
 public:
  explicit Application(const TempDir& directory, std::chrono::milliseconds send_timeout = {});

  Process& process() { return process_; }

  void Tell(std::string_view command);
  // Hands over a configuration without waiting for it to be applied.
  void Give(const Configuration& configuration);
  // Waits until as many configurations have been applied or stored as were given.
  void AwaitApplied();
  void Run() { Tell("run"); }
  // Waits until its client has dealt with the cache reply of that run of the server.
  void AwaitSynchronised(vorbus_pid_t server);
  // The next line that begins with the prefix.
  std::string AwaitLine(std::string_view prefix);
  // The next line, whatever it is.
  std::string NextLine();
  // How often it lost the server, as far as its lines were read.
  unsigned losses() const { return losses_; }

 private:
  void Note(const std::string& line);

  const TempDir& directory_;
  Process process_;
  unsigned given_ = 0;
  unsigned losses_ = 0;
  vorbus_pid_t synchronised_ = 0;  // by its last line about it; 0: lost since, or never
};

class Element {
 public:
  Element();

  const TempDir& directory() const { return directory_; }
  CacheReader& reader() { return reader_; }
  Process& server() { return *server_; }
  Application& application() { return *application_; }

  void StartServer();
  void KillServer();
  // Starts an application, gives it the configuration and lets it run.
  void StartApplication(const Configuration& configuration);
  void KillApplication() { application_.reset(); }

  // Waits until the application is synchronised with the present run of the server.
  void Synchronise();
  // The server's cache comes to hold exactly this.
  void ExpectCache(const Configuration& configuration);

 private:
  TempDir directory_;
  CacheReader reader_;
  std::optional<Process> server_;
  std::optional<Application> application_;
};

// The scripted peer in the same place. It begins with a script that holds before anything reaches it; more comes line
// by line.
class Peer {
 public:
  Peer(const TempDir& directory, std::string_view script);
  Process& process() { return process_; }
  // Has the line executed before it returns. Not for one that waits.
  void Play(std::string_view line);
  // Only hands the line over.
  void Tell(std::string_view line);
  // The next line of its record.
  std::string NextLine();
  // The lines of its record before the one that is `line`.
  std::vector<std::string> LinesBefore(std::string_view line);

 private:
  std::string ReadLine();

  Process process_;
  std::deque<std::string> lines_;  // read, and not yet asked for
};

}  // namespace cfm_test

#endif
