// What is sent arrives, once and in order, or the link is reported lost.
#include <cerrno>
#include <csignal>
#include <thread>

#include "fixture.h"

namespace vorbus_test {
namespace {

using std::chrono::milliseconds;
using Reports = std::vector<std::string>;

constexpr std::uint32_t kMany = 200000;
constexpr unsigned int kShortTimeoutMs = 500;

class Delivery : public BusTest {};

TEST_F(Delivery, IsOnceAndInOrderToTheNamedProcess) {
  PeerProcess server(directory(), "server");
  PeerProcess client(directory(), "-");
  server.Set("count", 1);
  server.Set("tell", 2);
  ASSERT_NE(client.Ask("found", "subscribe", "server"), "");
  EXPECT_EQ(client.Ask("sent", "send", server.pid(), 1, kMany, 80), "sent 0 200000");
  client.Do("send", server.pid(), 2, 1, 0);
  ASSERT_NE(server.Next("signal 2"), "");
  EXPECT_EQ(server.Ask("received", "report", 1), "received 200000 0");
}

TEST_F(Delivery, IsOnceAndInOrderToTheSubscriber) {
  PeerProcess server(directory(), "server");
  PeerProcess client(directory(), "-");
  server.Set("tell", 9);
  client.Set("count", 1);
  client.Set("tell", 2);
  ASSERT_NE(client.Ask("found", "subscribe", "server"), "");
  client.Do("send", server.pid(), 9, 1, 0);
  ASSERT_EQ(server.Next("signal 9"), "signal 9 " + std::to_string(client.pid()) + " 0");
  EXPECT_EQ(server.Ask("sent", "send", client.pid(), 1, kMany, 80), "sent 0 200000");
  server.Do("send", client.pid(), 2, 1, 0);
  ASSERT_NE(client.Next("signal 2"), "");
  EXPECT_EQ(client.Ask("received", "report", 1), "received 200000 0");
}

TEST_F(Delivery, GoesBothWaysAtOnceWithoutADeadlock) {
  PeerProcess server(directory(), "server");
  PeerProcess client(directory(), "-");
  for (PeerProcess* process : {&server, &client}) {
    process->Set("count", 1);
    process->Set("tell", 2);
  }
  ASSERT_NE(client.Ask("found", "subscribe", "server"), "");
  server.Do("send", client.pid(), 1, kMany, 80);
  client.Do("send", server.pid(), 1, kMany, 80);
  EXPECT_EQ(server.Next("sent"), "sent 0 200000");
  EXPECT_EQ(client.Next("sent"), "sent 0 200000");
  server.Do("send", client.pid(), 2, 1, 0);
  client.Do("send", server.pid(), 2, 1, 0);
  ASSERT_NE(server.Next("signal 2"), "");
  ASSERT_NE(client.Next("signal 2"), "");
  EXPECT_EQ(server.Ask("received", "report", 1), "received 200000 0");
  EXPECT_EQ(client.Ask("received", "report", 1), "received 200000 0");
}

TEST_F(Delivery, CarriesAnySizeUnchanged) {
  PeerProcess server(directory(), "server");
  server.Set("echo", 1, 2);
  Attachment client(directory());
  const auto& presence = client.Subscribe("server");
  ASSERT_TRUE(client.RunUntilThere(presence));
  std::string received;
  bool is_null = false;
  int count = 0;
  client.OnSignal(2, [&](vorbus_pid_t, const void* data, std::size_t size) {
    is_null = data == nullptr;
    received.assign(static_cast<const char*>(data), size);
    ++count;
  });
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{16}, std::size_t{17}, std::size_t{4096},
                                 std::size_t{64} << 20, std::size_t{3}}) {
    std::string sent = Numbered(static_cast<std::uint32_t>(size), std::max<std::size_t>(size, 4));
    sent.resize(size);
    const int before = count;
    ASSERT_EQ(client.Send(server.pid(), 1, sent), 0);
    ASSERT_TRUE(client.Run([&] { return count == before + 1; })) << size;
    EXPECT_TRUE(received == sent) << size;
    EXPECT_EQ(is_null, size == 0);
  }
}

TEST_F(Delivery, RefusesWhatIsTooLarge) {
  PeerProcess server(directory(), "server");
  Attachment client(directory());
  ASSERT_TRUE(client.RunUntilThere(client.Subscribe("server")));
  const std::string_view too_large("", (std::size_t{256} << 20) + 1);  // never read
  EXPECT_EQ(client.Send(server.pid(), 1, too_large), -EMSGSIZE);
}

TEST_F(Delivery, KeepsTwoClientsOfOneServerApart) {
  PeerProcess server(directory(), "server");
  server.Set("echo", 1, 2);
  PeerProcess clients[] = {{directory(), "-"}, {directory(), "-"}};
  for (PeerProcess& client : clients) {
    client.Set("count", 2);
    client.Set("tell", 4);
    ASSERT_NE(client.Ask("found", "subscribe", "server"), "");
  }
  for (PeerProcess& client : clients) {
    client.Do("send", server.pid(), 1, 20000, 80);
  }
  server.Set("echo", 3, 4);
  for (PeerProcess& client : clients) {
    EXPECT_EQ(client.Next("sent"), "sent 0 20000");
    client.Do("send", server.pid(), 3, 1, 0);
    ASSERT_NE(client.Next("signal 4"), "");
    EXPECT_EQ(client.Ask("received", "report", 2), "received 20000 0");
  }
}

TEST_F(Delivery, IncludesWhatASenderSentJustBeforeItClosed) {
  PeerProcess server(directory(), "server");
  server.Set("count", 1);
  PeerProcess client(directory(), "-");
  ASSERT_NE(client.Ask("found", "subscribe", "server"), "");
  server.Set("pause");
  // More than ZeroMQ queues by itself, less than may be under way.
  EXPECT_EQ(client.Ask("sent", "send", server.pid(), 1, 5000, 80), "sent 0 5000");
  EXPECT_EQ(client.Ask("closed", "close"), "closed");
  client.process().Kill();
  server.Set("resume");
  Attachment marker(directory());
  ASSERT_TRUE(marker.RunUntilThere(marker.Subscribe("server")));  // its hello is behind the others' messages in time
  bool is_complete = false;
  for (int attempt = 0; attempt < 1000 && !is_complete; ++attempt) {
    is_complete = server.Ask("received", "report", 1) == "received 5000 0";
  }
  EXPECT_TRUE(is_complete) << server.Ask("received", "report", 1);
}

TEST_F(Delivery, KeepsTheOrderAcrossUnsubscribingAndSubscribing) {
  PeerProcess server(directory(), "server");
  server.Set("count", 1);
  server.Set("tell", 2);
  PeerProcess client(directory(), "-");
  server.Set("pause");
  server.Set("resume");
  ASSERT_NE(client.Ask("found", "subscribe", "server"), "");
  server.Set("pause");
  for (int round = 0; round < 5; ++round) {
    const bool is_first = round == 0;
    EXPECT_EQ(client.Ask("sent", is_first ? "send" : "stream", server.pid(), 1, 1000, 80), "sent 0 1000");
    client.Do("unsubscribe", "server");
    client.Do("subscribe", "server");
    server.Set("resume");
    ASSERT_NE(client.Next("found"), "");
    server.Set("pause");
  }
  client.Do("send", server.pid(), 2, 1, 0);
  server.Set("resume");
  ASSERT_NE(server.Next("signal 2"), "");
  EXPECT_EQ(server.Ask("received", "report", 1), "received 5000 0");
}

TEST_F(Delivery, IsRefusedWithoutALink) {
  Attachment client(directory());
  EXPECT_EQ(client.Send(0, 1), -ESRCH);
  EXPECT_EQ(client.Send(12345, 1), -ESRCH);
  EXPECT_EQ(client.Send(client.pid(), 1), -ESRCH);
}

TEST_F(Delivery, NeverReachesTheNextRunOfAProcess) {
  Attachment client(directory());
  const auto& presence = client.Subscribe("server");
  auto first = std::make_unique<PeerProcess>(directory(), "server");
  ASSERT_TRUE(client.RunUntilThere(presence));
  first->process().Signal(SIGSTOP);
  for (std::uint32_t i = 0; i < 100; ++i) {
    ASSERT_EQ(client.Send(first->pid(), 1, Numbered(i, 80)), 0);
  }
  first->process().Kill();
  PeerProcess second(directory(), "server");
  second.Set("tell", 1);
  second.Set("tell", 2);
  ASSERT_TRUE(client.Run([&] { return presence.pid() == second.pid(); }));
  EXPECT_EQ(client.Send(first->pid(), 1), -ESRCH);
  ASSERT_EQ(client.Send(second.pid(), 2), 0);
  EXPECT_EQ(second.Line(), "signal 2 " + std::to_string(client.pid()) + " 0") << "the first that came";
}

TEST_F(Delivery, ToAClientThatEndedIsRefused) {
  Attachment server(directory(), "server");
  auto client = std::make_unique<PeerProcess>(directory(), "-");
  vorbus_pid_t sender = 0;
  server.OnSignal(1, [&](vorbus_pid_t pid, const void*, std::size_t) { sender = pid; });
  client->Do("subscribe", "server");
  ASSERT_TRUE(server.Run([&] { return client->process().ReadLine(milliseconds(1)).has_value(); }));
  client->Do("send", server.pid(), 1, 1, 0);
  ASSERT_TRUE(server.Run([&] { return sender != 0; }));
  EXPECT_EQ(server.Send(sender, 2), 0);
  client->process().Kill();
  ASSERT_TRUE(server.IsReadable(kDeadline));
  ASSERT_TRUE(server.Run([&] { return server.Send(sender, 2) == -ESRCH; }, milliseconds(2000)));
}

// A receiver that takes nothing. The sender is held back, gives up after its timeout, and both find each other again.

enum class Stop { kSigstop, kPause };

class AReceiverThatStops : public BusTest, public testing::WithParamInterface<Stop> {
 protected:
  static void Halt(PeerProcess& process) {
    GetParam() == Stop::kSigstop ? process.process().Signal(SIGSTOP) : process.Set("pause");
  }
  static void GoOn(PeerProcess& process) {
    GetParam() == Stop::kSigstop ? process.process().Signal(SIGCONT) : process.Set("resume");
  }
};

TEST_P(AReceiverThatStops, LosesItsLinkAsTheServerAndIsFoundAgain) {
  PeerProcess server(directory(), "server");
  server.Set("count", 1);
  server.Set("tell", 2);
  Attachment client(directory(), nullptr, kShortTimeoutMs);
  const auto& presence = client.Subscribe("server");
  ASSERT_TRUE(client.RunUntilThere(presence));
  Halt(server);
  std::uint32_t sent = 0;
  int rc = 0;
  while (sent < kMany && (rc = client.Send(server.pid(), 1, Numbered(sent, 80))) == 0) {
    ++sent;
  }
  EXPECT_EQ(rc, -ETIMEDOUT);
  EXPECT_EQ(client.Send(server.pid(), 1), -ESRCH);
  EXPECT_EQ(presence.reports, Reports{"found"}) << "a send reports nothing";
  ASSERT_TRUE(client.Run([&] { return !presence.is_there; }));
  GoOn(server);
  ASSERT_TRUE(client.RunUntilThere(presence));
  EXPECT_EQ(presence.reports, (Reports{"found", "lost", "found"}));
  EXPECT_EQ(presence.pids, (std::vector{server.pid(), server.pid()}));
  ASSERT_EQ(client.Send(server.pid(), 2), 0);
  ASSERT_NE(server.Next("signal 2"), "");
  std::istringstream report(server.Ask("received", "report", 1));
  std::string word;
  std::uint32_t next = 0;
  std::uint64_t wrong = 0;
  report >> word >> next >> wrong;
  EXPECT_LE(next, sent);
  EXPECT_EQ(wrong, 0U) << "nothing doubled, nothing out of order";
}

TEST_P(AReceiverThatStops, LosesItsLinkAsTheClientAndFindsTheServerAgain) {
  Attachment server(directory(), "server", kShortTimeoutMs);
  PeerProcess client(directory(), "-");
  PeerProcess other(directory(), "-");
  vorbus_pid_t sender = 0;
  server.OnSignal(9, [&](vorbus_pid_t pid, const void*, std::size_t) { sender = pid; });
  client.Set("count", 1);
  for (PeerProcess* process : {&client, &other}) {
    process->Do("subscribe", "server");
    ASSERT_TRUE(server.Run([&] { return process->process().ReadLine(milliseconds(1)).has_value(); }));
  }
  client.Do("send", server.pid(), 9, 1, 0);
  ASSERT_TRUE(server.Run([&] { return sender == client.pid(); }));
  ASSERT_EQ(client.Next("sent"), "sent 0 1");
  Halt(client);
  std::uint32_t sent = 0;
  int rc = 0;
  while (sent < kMany && (rc = server.Send(sender, 1, Numbered(sent, 80))) == 0) {
    ++sent;
  }
  EXPECT_EQ(rc, -ETIMEDOUT);
  EXPECT_EQ(server.Send(sender, 1), -ESRCH);
  other.Do("send", server.pid(), 9, 1, 0);
  ASSERT_TRUE(server.Run([&] { return sender == other.pid(); })) << "the other link is not touched";
  GoOn(client);
  std::vector<std::string> lines;
  ASSERT_TRUE(server.Run([&] {
    if (const auto line = client.process().ReadLine(milliseconds(1))) {
      lines.push_back(*line);
    }
    return lines.size() == 2;
  }));
  EXPECT_EQ(lines, (std::vector<std::string>{"lost server", "found server " + std::to_string(server.pid())}));
  std::istringstream report(client.Ask("received", "report", 1));
  std::string word;
  std::uint32_t next = 0;
  std::uint64_t wrong = 0;
  report >> word >> next >> wrong;
  EXPECT_GT(next, 0U) << "what had arrived is delivered before lost";
  EXPECT_LE(next, sent);
  EXPECT_EQ(wrong, 0U);
}

TEST_P(AReceiverThatStops, HoldsAPublisherBackOnceForAllThatStop) {
  Attachment server(directory(), "server", kShortTimeoutMs);
  PeerProcess stopped[] = {{directory(), "-"}, {directory(), "-"}, {directory(), "-"}};
  PeerProcess reader(directory(), "-");
  reader.Set("count-events", 1);
  reader.Set("tell-events", 2);
  reader.Do("subscribe", "server");
  ASSERT_TRUE(server.Run([&] { return reader.process().ReadLine(milliseconds(1)).has_value(); }));
  for (PeerProcess& process : stopped) {
    process.Set("count-events", 1);
    process.Do("subscribe", "server");
    ASSERT_TRUE(server.Run([&] { return process.process().ReadLine(milliseconds(1)).has_value(); }));
    Halt(process);
  }
  ASSERT_EQ(server.Publish(1, Numbered(0, 80)), 4);
  const auto begin = std::chrono::steady_clock::now();
  std::uint32_t number = 1;
  while (number < kMany && server.Publish(1, Numbered(number, 80)) > 1) {
    ++number;
  }
  ++number;  // the last one went to the reader
  EXPECT_LT(number, kMany);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
  EXPECT_EQ(server.Publish(1, Numbered(number++, 80)), 1);
  ASSERT_EQ(server.Publish(2), 1);
  ASSERT_NE(reader.Next("event 2"), "");
  EXPECT_EQ(reader.Ask("received", "report-events", 1), "received " + std::to_string(number) + " 0");
}

INSTANTIATE_TEST_SUITE_P(By, AReceiverThatStops, testing::Values(Stop::kSigstop, Stop::kPause),
                         [](const auto& stop) { return stop.param == Stop::kSigstop ? "Signal" : "NotDispatching"; });

TEST_F(Delivery, WaitsForAReceiverThatIsSlowButNotStopped) {
  PeerProcess server(directory(), "server");
  server.Set("count", 1);
  server.Set("tell", 2);
  PeerProcess client(directory(), "-");
  ASSERT_NE(client.Ask("found", "subscribe", "server"), "");
  server.Set("pause");
  client.Do("send", server.pid(), 1, 20000, 80);
  std::this_thread::sleep_for(milliseconds(300));  // long enough for the sender to be held back, or the test tests less
  server.Set("resume");
  EXPECT_EQ(client.Next("sent"), "sent 0 20000");
  client.Do("send", server.pid(), 2, 1, 0);
  ASSERT_NE(server.Next("signal 2"), "");
  EXPECT_EQ(server.Ask("received", "report", 1), "received 20000 0");
}

TEST_F(Delivery, BoundsWhatIsUnderWayInOctetsToo) {
  PeerProcess server(directory(), "server");
  server.Set("pause");
  Attachment client(directory(), nullptr, kShortTimeoutMs);
  server.Set("resume");
  ASSERT_TRUE(client.RunUntilThere(client.Subscribe("server")));
  server.Set("pause");
  const std::string message = Numbered(0, std::size_t{8} << 20);
  int sent = 0;
  int rc = 0;
  while (sent < 100 && (rc = client.Send(server.pid(), 1, message)) == 0) {
    ++sent;
  }
  EXPECT_EQ(rc, -ETIMEDOUT);
  EXPECT_LE(sent, 10) << "64 MiB, and a little";
}

}  // namespace
}  // namespace vorbus_test
