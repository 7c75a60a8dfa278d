// Who is there: found once for each run of a process, lost once for each found.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <system_error>

#include "fixture.h"

namespace vorbus_test {
namespace {

using testing::Test;
using Reports = std::vector<std::string>;
using std::chrono::milliseconds;

class Presence : public BusTest {};

TEST_F(Presence, IsFoundWhenTheServerWasThereFirst) {
  PeerProcess server(directory(), "server");
  Attachment client(directory());
  const auto& presence = client.Subscribe("server");
  ASSERT_TRUE(client.RunUntilThere(presence));
  EXPECT_EQ(presence.pids, std::vector{server.pid()});
}

TEST_F(Presence, IsFoundWhenTheServerComesLater) {
  Attachment client(directory());
  const auto& presence = client.Subscribe("server");
  client.Settle();
  EXPECT_TRUE(presence.reports.empty());
  PeerProcess server(directory(), "server");
  ASSERT_TRUE(client.RunUntilThere(presence));
  EXPECT_EQ(presence.pids, std::vector{server.pid()});
}

TEST_F(Presence, CostsNothingWhileWaiting) {
  Attachment client(directory());
  client.Subscribe("server");
  client.Settle();
  EXPECT_FALSE(client.IsReadable(milliseconds(1500)));
}

TEST_F(Presence, CostsNothingWhileTheSocketOfADeadOwnerIsThere) {
  PeerProcess server(directory(), "server");
  server.process().Kill();
  ASSERT_TRUE(std::filesystem::is_socket(PathOf("server")));
  Attachment client(directory());
  client.Subscribe("server");
  client.Settle();
  EXPECT_FALSE(client.IsReadable(milliseconds(1500)));
}

TEST_F(Presence, IsLostAtOnceWhenTheServerIsKilledAndFoundAgainWithAnotherPid) {
  Attachment client(directory());
  const auto& presence = client.Subscribe("server");
  PeerProcess first(directory(), "server");
  ASSERT_TRUE(client.RunUntilThere(presence));
  first.process().Kill();
  ASSERT_TRUE(client.Run([&] { return !presence.is_there; }, milliseconds(2000)));
  PeerProcess second(directory(), "server");
  ASSERT_TRUE(client.RunUntilThere(presence));
  EXPECT_EQ(presence.reports, (Reports{"found", "lost", "found"}));
  EXPECT_EQ(presence.pids, (std::vector{first.pid(), second.pid()}));
  EXPECT_NE(first.pid(), second.pid());
}

TEST_F(Presence, IsLostWhenTheServerCloses) {
  Attachment client(directory());
  const auto& presence = client.Subscribe("server");
  PeerProcess server(directory(), "server");
  ASSERT_TRUE(client.RunUntilThere(presence));
  EXPECT_EQ(server.Ask("closed", "close"), "closed");
  ASSERT_TRUE(client.Run([&] { return !presence.is_there; }));
  EXPECT_FALSE(std::filesystem::exists(PathOf("server")));
}

TEST_F(Presence, IsOneFoundAndOneLostForEachOfAHundredRuns) {
  Attachment client(directory());
  const auto& presence = client.Subscribe("server");
  Reports expected;
  std::vector<vorbus_pid_t> pids;
  for (int run = 0; run < 100; ++run) {
    PeerProcess server(directory(), "server");
    pids.push_back(server.pid());
    ASSERT_TRUE(client.RunUntilThere(presence)) << "run " << run;
    server.process().Kill();
    ASSERT_TRUE(client.Run([&] { return !presence.is_there; })) << "run " << run;
    expected.insert(expected.end(), {"found", "lost"});
  }
  EXPECT_EQ(presence.reports, expected);
  EXPECT_EQ(presence.pids, pids);
  EXPECT_EQ(std::set(pids.begin(), pids.end()).size(), 100U);
}

TEST_F(Presence, SurvivesServersThatAreKilledAtAnyMomentOfTheirStart) {
  Attachment client(directory());
  const auto& presence = client.Subscribe("server");
  for (int run = 0; run < 50; ++run) {
    cfm_test::Process server({VORBUS_PEER, directory(), "server", "0"});
    client.Run([] { return false; }, milliseconds(run % 10));
    server.Kill();
  }
  PeerProcess last(directory(), "server");
  ASSERT_TRUE(client.Run([&] { return presence.pid() == last.pid(); }));
  for (std::size_t i = 0; i < presence.reports.size(); ++i) {
    EXPECT_EQ(presence.reports[i], i % 2 == 0 ? "found" : "lost");
  }
}

TEST_F(Presence, IsReportedToEachSubscriptionOnce) {
  PeerProcess server(directory(), "server");
  Attachment client(directory());
  const auto& first = client.Subscribe("server");
  ASSERT_TRUE(client.RunUntilThere(first));
  const auto& second = client.Subscribe("server");
  EXPECT_TRUE(second.reports.empty());
  client.Turn();
  EXPECT_TRUE(second.is_there);
  client.Settle();
  server.process().Kill();
  ASSERT_TRUE(client.Run([&] { return !first.is_there && !second.is_there; }));
  EXPECT_EQ(first.reports, (Reports{"found", "lost"}));
  EXPECT_EQ(second.reports, (Reports{"found", "lost"}));
}

TEST_F(Presence, IsNotReportedAfterUnsubscribing) {
  PeerProcess server(directory(), "server");
  Attachment client(directory());
  auto& ended = client.Subscribe("server");
  const auto& other = client.Subscribe("server");
  ASSERT_TRUE(client.Run([&] { return ended.is_there && other.is_there; }));
  vorbus_proc_unsubscribe(&ended.subscription);
  EXPECT_EQ(ended.subscription, nullptr);
  vorbus_proc_unsubscribe(&ended.subscription);
  server.process().Kill();
  ASSERT_TRUE(client.Run([&] { return !other.is_there; }));
  EXPECT_EQ(ended.reports, Reports{"found"});
}

TEST_F(Presence, EndsWithTheLastSubscription) {
  PeerProcess server(directory(), "server");
  Attachment client(directory());
  auto& presence = client.Subscribe("server");
  ASSERT_TRUE(client.RunUntilThere(presence));
  vorbus_proc_unsubscribe(&presence.subscription);
  EXPECT_EQ(client.Send(server.pid(), 1), -ESRCH);
  const auto& again = client.Subscribe("server");
  ASSERT_TRUE(client.RunUntilThere(again));
  EXPECT_EQ(client.Send(server.pid(), 1), 0);
}

TEST_F(Presence, OfOneNameBelongsToOneProcess) {
  PeerProcess owner(directory(), "server");
  EXPECT_THROW(
      {
        try {
          Attachment second(directory(), "server");
        } catch (const std::system_error& error) {
          EXPECT_EQ(error.code().value(), EADDRINUSE);
          throw;
        }
      },
      std::system_error);
  Attachment client(directory());
  EXPECT_TRUE(client.RunUntilThere(client.Subscribe("server"))) << "the owner is still reached";
  owner.process().Kill();
  EXPECT_NO_THROW(Attachment(directory(), "server")) << "the name of a killed process is free";
}

TEST_F(Presence, OfTwoTokensOfOneProcessIsTwofold) {
  Attachment first(directory(), "first");
  Attachment second(directory(), "second");
  EXPECT_NE(first.pid(), second.pid());
  const auto& seen = second.Subscribe("first");
  ASSERT_TRUE(second.Run([&] {
    first.Turn(milliseconds(1));
    return seen.is_there;
  }));
  EXPECT_EQ(seen.pid(), first.pid());
}

TEST_F(Presence, OfItselfIsFound) {
  Attachment self(directory(), "self");
  const auto& presence = self.Subscribe("self");
  ASSERT_TRUE(self.RunUntilThere(presence));
  EXPECT_EQ(presence.pid(), self.pid());
  Stream received;
  self.OnSignal(1, [&](vorbus_pid_t sender, const void* data, std::size_t size) {
    EXPECT_EQ(sender, self.pid());
    received.Add(data, size);
  });
  for (std::uint32_t i = 0; i < 10; ++i) {
    ASSERT_EQ(self.Send(self.pid(), 1, Numbered(i, 80)), 0);
  }
  ASSERT_TRUE(self.Run([&] { return received.next == 10; }));
  EXPECT_EQ(received.wrong, 0U);
}

TEST_F(Presence, WorksBothWaysBetweenTwoNamedProcesses) {
  PeerProcess other(directory(), "other");
  other.Set("count", 1);
  other.Set("tell", 2);
  Attachment self(directory(), "self");
  const auto& presence = self.Subscribe("other");
  other.Do("subscribe", "self");
  ASSERT_TRUE(self.RunUntilThere(presence));
  cfm_test::Process& process = other.process();
  ASSERT_TRUE(
      self.Run([&] { return process.ReadLine(milliseconds(1)) == "found self " + std::to_string(self.pid()); }));
  for (std::uint32_t i = 0; i < 1000; ++i) {
    ASSERT_EQ(self.Send(other.pid(), 1, Numbered(i, 80)), 0);
  }
  self.Send(other.pid(), 2);
  ASSERT_EQ(other.Next("signal 2"), "signal 2 " + std::to_string(self.pid()) + " 0");
  EXPECT_EQ(other.Ask("received", "report", 1), "received 1000 0");
}

class ANamedProcess : public BusTest {};

TEST_F(ANamedProcess, MakesItsDirectoryForItsGroup) {
  Attachment server(PathOf("new"), "server");
  struct stat status {};
  ASSERT_EQ(stat(PathOf("new").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 02770U);
  ASSERT_EQ(stat(PathOf("new/server").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0660U);
}

TEST_F(ANamedProcess, LeavesNothingButItsLockAndTheCounter) {
  { Attachment server(directory(), "server"); }
  std::set<std::string> left;
  for (const auto& entry : std::filesystem::directory_iterator(directory())) {
    left.insert(entry.path().filename());
  }
  EXPECT_EQ(left, (std::set<std::string>{".pid", ".server.lock"}));
}

int OpenError(const std::string& directory, const char* name) {
  const vorbus_options_t options{name, directory.c_str(), 0};
  vorbus_t* token = nullptr;
  const int rc = vorbus_open(&options, &token);
  vorbus_close(&token);
  return rc;
}

TEST_F(ANamedProcess, HasAValidName) {
  for (const char* name : {"", ".hidden", "a/b", "..", "a b", "\xc3\xa4"}) {
    EXPECT_EQ(OpenError(directory(), name), -EINVAL) << name;
  }
  for (const char* name : {"cfm-mgr", "A.b_c-9"}) {
    EXPECT_EQ(OpenError(directory(), name), 0) << name;
  }
}

TEST_F(ANamedProcess, HasANameThatFitsASocketAddress) {
  const std::size_t longest = 107 - directory().size() - 1;
  EXPECT_EQ(OpenError(directory(), std::string(longest, 'n').c_str()), 0);
  EXPECT_EQ(OpenError(directory(), std::string(longest + 1, 'n').c_str()), -ENAMETOOLONG);
  Attachment client(directory());
  const vorbus_proc_t process = Name(std::string(longest + 1, 'n'));
  EXPECT_EQ(vorbus_proc_subscribe(client.token(), &process, nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST_F(ANamedProcess, NeedsADirectoryThatCanBeMade) {
  EXPECT_EQ(OpenError(PathOf("no/such"), "server"), -ENOENT);
  const int file = creat(PathOf("file").c_str(), 0600);
  ASSERT_GE(file, 0);
  close(file);
  EXPECT_EQ(OpenError(PathOf("file"), "server"), -ENOTDIR);
}

TEST(Pids, AreNotReusedAndNeverZero) {
  const cfm_test::TempDir directory;
  const int file = open((directory / ".pid").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
  ASSERT_EQ(write(file, "4294967294\n", 11), 11);
  close(file);
  EXPECT_EQ(Attachment(directory.path()).pid(), 4294967295U);
  EXPECT_EQ(Attachment(directory.path()).pid(), 1U);
  EXPECT_EQ(Attachment(directory.path()).pid(), 2U);
}

TEST(Pids, AreFoundAnewWhenTheCounterIsDamaged) {
  const cfm_test::TempDir directory;
  const int file = open((directory / ".pid").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
  ASSERT_EQ(write(file, "rubbish\n", 8), 8);
  close(file);
  const vorbus_pid_t first = Attachment(directory.path()).pid();
  EXPECT_NE(first, 0U);
  EXPECT_NE(Attachment(directory.path()).pid(), first);
}

}  // namespace
}  // namespace vorbus_test
