// Events reach those who registered, from the moment that found is reported until they deregister.
#include <cerrno>
#include <thread>

#include "fixture.h"

namespace vorbus_test {
namespace {

using std::chrono::milliseconds;

class Events : public BusTest {};

TEST_F(Events, ReachOnlyThoseWhoRegistered) {
  Attachment server(directory(), "server");
  PeerProcess both(directory(), "-");
  PeerProcess one(directory(), "-");
  PeerProcess none(directory(), "-");
  both.Set("tell-events", 1);
  both.Set("tell-events", 2);
  one.Set("tell-events", 2);
  for (PeerProcess* process : {&both, &one, &none}) {
    process->Set("tell", 9);
    process->Do("subscribe", "server");
    ASSERT_TRUE(server.Run([&] { return process->process().ReadLine(milliseconds(1)).has_value(); }));
  }
  EXPECT_EQ(server.Publish(1, "one"), 1);
  EXPECT_EQ(server.Publish(2), 2);
  EXPECT_EQ(server.Publish(3), 0);
  const std::string marker = "signal 9 " + std::to_string(server.pid()) + " 0";
  for (PeerProcess* process : {&both, &one, &none}) {
    ASSERT_EQ(server.Send(process->pid(), 9), 0);
  }
  EXPECT_EQ(both.Line(), "event 1 3");
  EXPECT_EQ(both.Line(), "event 2 0");
  EXPECT_EQ(both.Line(), marker);
  EXPECT_EQ(one.Line(), "event 2 0");
  EXPECT_EQ(one.Line(), marker);
  EXPECT_EQ(none.Line(), marker);
}

TEST_F(Events, AreKnownToTheServerBeforeFoundIsReported) {
  // Whatever moment the registration is made at, an event published for a signal sent from found arrives.
  PeerProcess server(directory(), "server");
  server.Set("tell", 9);
  for (int turns = 0; turns < 6; ++turns) {
    Attachment client(directory());
    auto& presence = client.Subscribe("server");
    for (int turn = 0; turn < turns && !presence.is_there; ++turn) {
      client.Turn(milliseconds(1));
    }
    if (presence.is_there) {
      break;
    }
    int events = 0;
    client.OnEvent(1, [&](const void*, std::size_t) { ++events; });
    presence.on_change = [&] { client.Send(presence.pid(), 9); };
    ASSERT_TRUE(client.RunUntilThere(presence));
    ASSERT_NE(server.Next("signal 9"), "");
    EXPECT_EQ(server.Ask("published", "publish", 1, 1, 0), "published 1 1");
    EXPECT_TRUE(client.Run([&] { return events == 1; }));
  }
}

TEST_F(Events, RegisteredForWhileLinkedAreKnownBeforeTheNextSignal) {
  PeerProcess server(directory(), "server");
  server.Set("tell", 9);
  Attachment client(directory());
  const auto& presence = client.Subscribe("server");
  ASSERT_TRUE(client.RunUntilThere(presence));
  for (unsigned int number = 1; number <= 5; ++number) {
    int events = 0;
    auto* registration = client.OnEvent(number, [&](const void*, std::size_t) { ++events; });
    ASSERT_EQ(client.Send(server.pid(), 9), 0);  // no dispatch in between
    ASSERT_NE(server.Next("signal 9"), "");
    EXPECT_EQ(server.Ask("published", "publish", number, 1, 0), "published 1 1");
    EXPECT_TRUE(client.Run([&] { return events == 1; }));
    vorbus_event_deregister(&registration);
    EXPECT_EQ(registration, nullptr);
    ASSERT_EQ(client.Send(server.pid(), 9), 0);
    ASSERT_NE(server.Next("signal 9"), "");
    EXPECT_EQ(server.Ask("published", "publish", number, 1, 0), "published 0 1");
  }
}

TEST_F(Events, AreNotReadyToGoWhileAReceiverIsBehind) {
  Attachment server(directory(), "server");
  const vorbus_event_t event = Event(1);
  const vorbus_event_t unheard = Event(2);
  EXPECT_EQ(vorbus_event_ready(server.token(), &event), 1);  // nobody to wait for
  PeerProcess receiver(directory(), "-");
  receiver.Set("count-events", 1);
  receiver.Set("tell", 9);
  receiver.Do("subscribe", "server");
  ASSERT_TRUE(server.Run([&] { return receiver.process().ReadLine(milliseconds(1)).has_value(); }));
  receiver.Set("pause");
  std::uint32_t published = 0;
  for (; published < 100'000 && vorbus_event_ready(server.token(), &event) == 1; ++published) {
    ASSERT_EQ(server.Publish(1, Numbered(published, 80)), 1);
  }
  EXPECT_LT(published, 100'000U);
  EXPECT_GT(published, 1000U);
  EXPECT_EQ(vorbus_event_ready(server.token(), &unheard), 1);
  receiver.Set("resume");
  EXPECT_TRUE(server.Run([&] { return vorbus_event_ready(server.token(), &event) == 1; }));
  EXPECT_EQ(server.Publish(1, Numbered(published, 80)), 1);
  ASSERT_EQ(server.Send(receiver.pid(), 9), 0);
  ASSERT_NE(receiver.Next("signal 9"), "");
  EXPECT_EQ(receiver.Ask("received", "report-events", 1), "received " + std::to_string(published + 1) + " 0");
  EXPECT_EQ(vorbus_event_ready(nullptr, &event), -EINVAL);
  EXPECT_EQ(vorbus_event_ready(server.token(), nullptr), -EINVAL);
}

// To learn whether a receiver has caught up is to read what has come, signals of others among it.
TEST_F(Events, LeaveTheSignalsThatComeMeanwhileToTheNextDispatch) {
  Attachment server(directory(), "server");
  int signals = 0;
  server.OnSignal(5, [&](vorbus_pid_t, const void*, std::size_t) { ++signals; });
  const vorbus_event_t event = Event(1);
  PeerProcess receiver(directory(), "-");
  receiver.Set("count-events", 1);
  receiver.Do("subscribe", "server");
  ASSERT_TRUE(server.Run([&] { return receiver.process().ReadLine(milliseconds(1)).has_value(); }));
  Attachment other(directory());
  const auto& presence = other.Subscribe("server");
  ASSERT_TRUE(other.Run([&] {
    server.Turn(milliseconds(1));
    return presence.is_there;
  }));
  receiver.Set("pause");
  for (std::uint32_t i = 0; i < 100'000 && vorbus_event_ready(server.token(), &event) == 1; ++i) {
    ASSERT_EQ(server.Publish(1, Numbered(i, 80)), 1);
  }
  server.Settle();
  ASSERT_EQ(other.Send(presence.pid(), 5), 0);
  ASSERT_TRUE(server.IsReadable(kDeadline));
  std::this_thread::sleep_for(milliseconds(100));  // readable is sooner than all of it is here
  ASSERT_EQ(vorbus_event_ready(server.token(), &event), 0);
  EXPECT_EQ(signals, 0);
  EXPECT_TRUE(server.Run([&] { return signals == 1; }, milliseconds(5000)));
  receiver.Set("resume");
}

TEST_F(Events, StopAtDeregistrationEvenWhenTheyHaveArrived) {
  PeerProcess server(directory(), "server");
  Attachment client(directory());
  int first = 0;
  int second = 0;
  int other = 0;
  auto* registration = client.OnEvent(1, [&](const void*, std::size_t) { ++first; });
  client.OnEvent(1, [&](const void*, std::size_t) { ++second; });
  client.OnEvent(2, [&](const void*, std::size_t) { ++other; });
  ASSERT_TRUE(client.RunUntilThere(client.Subscribe("server")));
  ASSERT_EQ(server.Ask("published", "publish", 1, 10, 0), "published 1 10");
  ASSERT_TRUE(client.IsReadable(kDeadline));
  vorbus_event_deregister(&registration);
  ASSERT_EQ(server.Ask("published", "publish", 2, 1, 0), "published 1 1");
  ASSERT_TRUE(client.Run([&] { return other == 1; }));
  EXPECT_EQ(first, 0);
  EXPECT_EQ(second, 10);
}

TEST_F(Events, AreDeliveredOnceAndInOrderInGreatNumbers) {
  PeerProcess server(directory(), "server");
  PeerProcess clients[] = {{directory(), "-"}, {directory(), "-"}};
  for (PeerProcess& client : clients) {
    client.Set("count-events", 1);
    client.Set("tell-events", 2);
    ASSERT_NE(client.Ask("found", "subscribe", "server"), "");
  }
  EXPECT_EQ(server.Ask("published", "publish", 1, 50000, 80), "published 2 50000");
  EXPECT_EQ(server.Ask("published", "publish", 2, 1, 0), "published 2 1");
  for (PeerProcess& client : clients) {
    ASSERT_NE(client.Next("event 2"), "");
    EXPECT_EQ(client.Ask("received", "report-events", 1), "received 50000 0");
  }
}

TEST_F(Events, AreForgottenWithTheClient) {
  Attachment server(directory(), "server");
  for (int run = 0; run < 20; ++run) {
    PeerProcess client(directory(), "-");
    client.Set("count-events", 1);
    client.Do("subscribe", "server");
    ASSERT_TRUE(server.Run([&] { return server.Publish(1) == 1; }));
    client.process().Kill();
    ASSERT_TRUE(server.Run([&] { return server.Publish(1) == 0; }));
  }
}

TEST_F(Events, OfAProcessWithoutANameReachNobody) {
  Attachment process(directory());
  EXPECT_EQ(process.Publish(1), 0);
}

}  // namespace
}  // namespace vorbus_test
