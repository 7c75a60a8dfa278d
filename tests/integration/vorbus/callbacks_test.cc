// What callbacks may do, when they run, and when vorbus_fd is readable.
#include <algorithm>
#include <cerrno>

#include "fixture.h"

namespace vorbus_test {
namespace {

using std::chrono::milliseconds;

class ADescriptor : public BusTest {};

TEST_F(ADescriptor, StaysReadableUntilTheWorkIsDone) {
  PeerProcess server(directory(), "server");
  server.Set("echo", 1, 2);
  Attachment client(directory());
  ASSERT_TRUE(client.RunUntilThere(client.Subscribe("server")));
  int answers = 0;
  client.OnSignal(2, [&](vorbus_pid_t, const void*, std::size_t) { ++answers; });
  constexpr int kMessages = 5000;  // more than one dispatch handles
  for (int i = 0; i < kMessages; ++i) {
    ASSERT_EQ(client.Send(server.pid(), 1), 0);
  }
  int dispatches = 0;
  while (answers < kMessages) {
    ASSERT_TRUE(client.IsReadable(kDeadline)) << "with " << answers << " answers";
    ASSERT_TRUE(client.IsReadable()) << "polling takes nothing away";
    const int before = answers;
    vorbus_dispatch(client.token());
    EXPECT_LE(answers - before, 1000) << "a flood does not keep the caller";
    ++dispatches;
  }
  EXPECT_GE(dispatches, kMessages / 1000);
}

TEST_F(ADescriptor, IsQuietAfterASendAndOneDispatch) {
  PeerProcess server(directory(), "server");
  Attachment client(directory());
  ASSERT_TRUE(client.RunUntilThere(client.Subscribe("server")));
  client.Settle();
  for (int round = 0; round < 20; ++round) {
    ASSERT_EQ(client.Send(server.pid(), 1), 0);
    vorbus_dispatch(client.token());
    EXPECT_FALSE(client.IsReadable()) << "round " << round;
  }
}

TEST_F(ADescriptor, IsReadableForWhatArrivedDuringASend) {
  // A send may swallow ZeroMQ's own sign of an arrival; ours must not get lost with it.
  PeerProcess server(directory(), "server");
  server.Set("echo", 1, 2);
  Attachment client(directory());
  ASSERT_TRUE(client.RunUntilThere(client.Subscribe("server")));
  int answers = 0;
  client.OnSignal(2, [&](vorbus_pid_t, const void*, std::size_t) { ++answers; });
  int sent = 0;
  for (int round = 0; round < 300; ++round) {
    for (int i = 0; i < 50; ++i, ++sent) {
      ASSERT_EQ(client.Send(server.pid(), 1), 0);
    }
    while (answers < sent) {
      ASSERT_TRUE(client.IsReadable(kDeadline)) << answers << " of " << sent;
      vorbus_dispatch(client.token());
    }
  }
}

TEST_F(ADescriptor, OfANamedProcessIsQuietWithoutWork) {
  Attachment server(directory(), "server");
  server.Settle();
  EXPECT_FALSE(server.IsReadable(milliseconds(300)));
  PeerProcess client(directory(), "-");
  server.OnSignal(1, [&](vorbus_pid_t sender, const void*, std::size_t) { server.Send(sender, 2); });
  client.Set("tell", 2);
  client.Do("subscribe", "server");
  ASSERT_TRUE(server.Run([&] { return client.process().ReadLine(milliseconds(1)).has_value(); }));
  client.Do("send", server.pid(), 1, 1, 0);
  ASSERT_TRUE(server.Run([&] {
    const auto line = client.process().ReadLine(milliseconds(1));
    return line && line->starts_with("signal 2");
  }));
  server.Settle();
  EXPECT_FALSE(server.IsReadable(milliseconds(300)));
}

class Callbacks : public BusTest {
 protected:
  Callbacks() : server_(directory(), "server"), client_(directory()) {
    server_.Set("echo", 1, 2);
    server_.Set("echo", 3, 4);
  }

  // A round trip: whatever was on the way has been handled then.
  void Flush() {
    bool is_back = false;
    auto* registration = client_.OnSignal(4, [&](vorbus_pid_t, const void*, std::size_t) { is_back = true; });
    ASSERT_EQ(client_.Send(server_.pid(), 3), 0);
    ASSERT_TRUE(client_.Run([&] { return is_back; }));
    vorbus_sig_deregister(&registration);
  }

  PeerProcess server_;
  Attachment client_;
};

TEST_F(Callbacks, NeverRunInsideSubscribeOrSend) {
  auto& presence = client_.Subscribe("server");
  EXPECT_TRUE(presence.reports.empty());
  ASSERT_TRUE(client_.RunUntilThere(presence));
  bool is_dispatching = false;
  int outside = 0;
  int answers = 0;
  client_.OnSignal(2, [&](vorbus_pid_t, const void*, std::size_t) {
    ++answers;
    outside += is_dispatching ? 0 : 1;
  });
  // Enough to be held back, so that the send itself receives.
  for (std::uint32_t i = 0; i < 30000; ++i) {
    ASSERT_EQ(client_.Send(server_.pid(), 1, Numbered(i, 80)), 0);
  }
  EXPECT_EQ(answers, 0);
  while (answers < 30000) {
    ASSERT_TRUE(client_.IsReadable(kDeadline));
    is_dispatching = true;
    vorbus_dispatch(client_.token());
    is_dispatching = false;
  }
  EXPECT_EQ(outside, 0);
}

TEST_F(Callbacks, MayNotDispatch) {
  int rc = 0;
  auto& presence = client_.Subscribe("server");
  presence.on_change = [&] { rc = vorbus_dispatch(client_.token()); };
  ASSERT_TRUE(client_.RunUntilThere(presence));
  EXPECT_EQ(rc, -EBUSY);
}

TEST_F(Callbacks, MayReleaseTheirOwnHandle) {
  auto& presence = client_.Subscribe("server");
  ASSERT_TRUE(client_.RunUntilThere(presence));
  int calls = 0;
  vorbus_registration_t* registration = nullptr;
  registration = client_.OnSignal(2, [&](vorbus_pid_t, const void*, std::size_t) {
    ++calls;
    vorbus_sig_deregister(&registration);
  });
  client_.Send(server_.pid(), 1);
  client_.Send(server_.pid(), 1);
  Flush();
  EXPECT_EQ(calls, 1);
}

TEST_F(Callbacks, MayReleaseTheNextHandlerBeforeItsTurn) {
  ASSERT_TRUE(client_.RunUntilThere(client_.Subscribe("server")));
  int second_calls = 0;
  vorbus_registration_t* second = nullptr;
  client_.OnSignal(2, [&](vorbus_pid_t, const void*, std::size_t) { vorbus_sig_deregister(&second); });
  second = client_.OnSignal(2, [&](vorbus_pid_t, const void*, std::size_t) { ++second_calls; });
  client_.Send(server_.pid(), 1);
  Flush();
  EXPECT_EQ(second_calls, 0);
}

TEST_F(Callbacks, MayRegisterManyHandlers) {
  ASSERT_TRUE(client_.RunUntilThere(client_.Subscribe("server")));
  int new_calls = 0;
  bool has_registered = false;
  client_.OnSignal(2, [&](vorbus_pid_t, const void*, std::size_t) {
    for (unsigned int i = 0; i < 200 && !has_registered; ++i) {
      client_.OnSignal(2, [&](vorbus_pid_t, const void*, std::size_t) { ++new_calls; });
      client_.OnSignal(1000 + i, [](vorbus_pid_t, const void*, std::size_t) {});
    }
    has_registered = true;
  });
  client_.Send(server_.pid(), 1);
  Flush();
  EXPECT_EQ(new_calls, 0) << "not for the message that they were registered in";
  client_.Send(server_.pid(), 1);
  Flush();
  EXPECT_EQ(new_calls, 200);
}

TEST_F(Callbacks, RunInTheOrderOfRegistration) {
  ASSERT_TRUE(client_.RunUntilThere(client_.Subscribe("server")));
  std::string order;
  for (const char name : {'a', 'b', 'c', 'd'}) {
    client_.OnSignal(2, [&order, name](vorbus_pid_t, const void*, std::size_t) { order += name; });
  }
  client_.Send(server_.pid(), 1);
  Flush();
  EXPECT_EQ(order, "abcd");
}

TEST_F(Callbacks, OfFoundMayUnsubscribeAndSubscribeAgain) {
  auto& first = client_.Subscribe("server");
  Attachment::Presence* second = nullptr;
  first.on_change = [&] {
    vorbus_proc_unsubscribe(&first.subscription);
    second = &client_.Subscribe("server");
  };
  ASSERT_TRUE(client_.Run([&] { return second != nullptr && second->is_there; }));
  EXPECT_EQ(first.reports, std::vector<std::string>{"found"});
  server_.process().Kill();
  ASSERT_TRUE(client_.Run([&] { return !second->is_there; }));
  EXPECT_EQ(first.reports, std::vector<std::string>{"found"});
  EXPECT_EQ(second->reports, (std::vector<std::string>{"found", "lost"}));
}

TEST_F(Callbacks, OfLostMayUnsubscribeAndSubscribeToOthers) {
  auto& first = client_.Subscribe("server");
  ASSERT_TRUE(client_.RunUntilThere(first));
  PeerProcess other(directory(), "other");
  Attachment::Presence* second = nullptr;
  first.on_change = [&] {
    vorbus_proc_unsubscribe(&first.subscription);
    second = &client_.Subscribe("other");
  };
  server_.process().Kill();
  ASSERT_TRUE(client_.Run([&] { return second != nullptr && second->is_there; }));
  EXPECT_EQ(second->pid(), other.pid());
}

TEST_F(Callbacks, OfASignalMayEndTheLinkThatItCameOn) {
  auto& presence = client_.Subscribe("server");
  ASSERT_TRUE(client_.RunUntilThere(presence));
  int calls = 0;
  client_.OnSignal(2, [&](vorbus_pid_t, const void*, std::size_t) {
    ++calls;
    vorbus_proc_unsubscribe(&presence.subscription);
  });
  for (int i = 0; i < 10; ++i) {
    client_.Send(server_.pid(), 1);
  }
  ASSERT_TRUE(client_.Run([&] { return calls > 0; }));
  client_.Settle();
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(client_.Send(server_.pid(), 1), -ESRCH);
}

TEST_F(Callbacks, OfASignalMaySendMoreThanTheLinkTakesAtOnce) {
  ASSERT_TRUE(client_.RunUntilThere(client_.Subscribe("server")));
  Stream received;
  int failed = 0;
  bool has_begun = false;
  client_.OnSignal(4, [&](vorbus_pid_t sender, const void*, std::size_t) {
    if (has_begun) {
      return;
    }
    has_begun = true;
    for (std::uint32_t i = 0; i < 30000; ++i) {
      failed += client_.Send(sender, 1, Numbered(i, 80)) != 0 ? 1 : 0;
    }
  });
  client_.OnSignal(2, [&](vorbus_pid_t, const void* data, std::size_t size) { received.Add(data, size); });
  ASSERT_EQ(client_.Send(server_.pid(), 3), 0);
  ASSERT_TRUE(client_.Run([&] { return received.next == 30000; }));
  EXPECT_EQ(received.wrong, 0U);
  EXPECT_EQ(failed, 0);
}

class Arguments : public BusTest {};

TEST_F(Arguments, OfWrongKindsAreRefused) {
  EXPECT_EQ(vorbus_open(nullptr, nullptr), -EINVAL);
  EXPECT_EQ(vorbus_dispatch(nullptr), -EINVAL);
  EXPECT_EQ(vorbus_fd(nullptr), -EINVAL);
  EXPECT_EQ(vorbus_self(nullptr), 0U);
  Attachment bus(directory());
  const vorbus_pid_t pid = bus.pid();
  const vorbus_sig_t signal = Signal(1);
  const vorbus_sig_t no_block{nullptr, 1};
  const vorbus_event_t no_group{nullptr, 1};
  const vorbus_proc_t bad_name = Name("no/path");
  EXPECT_EQ(vorbus_sig_send(nullptr, &pid, &signal, nullptr, 0), -EINVAL);
  EXPECT_EQ(vorbus_sig_send(bus.token(), nullptr, &signal, nullptr, 0), -EINVAL);
  EXPECT_EQ(vorbus_sig_send(bus.token(), &pid, &no_block, nullptr, 0), -EINVAL);
  EXPECT_EQ(vorbus_sig_send(bus.token(), &pid, &signal, nullptr, 1), -EINVAL);
  EXPECT_EQ(vorbus_event_publish(bus.token(), &no_group, nullptr, 0), -EINVAL);
  errno = 0;
  EXPECT_EQ(vorbus_proc_subscribe(bus.token(), &bad_name, nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(errno, EINVAL);
  errno = 0;
  EXPECT_EQ(vorbus_sig_register_sized(bus.token(), &signal, nullptr, nullptr), nullptr);
  EXPECT_EQ(errno, EINVAL);
  errno = 0;
  EXPECT_EQ(vorbus_event_register_sized(bus.token(), &no_group, nullptr, nullptr), nullptr);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(Arguments, ThatAreNullHandlesAreIgnored) {
  vorbus_t* token = nullptr;
  vorbus_subscription_t* subscription = nullptr;
  vorbus_registration_t* registration = nullptr;
  vorbus_eventreg_t* event_registration = nullptr;
  vorbus_close(&token);
  vorbus_proc_unsubscribe(&subscription);
  vorbus_sig_deregister(&registration);
  vorbus_event_deregister(&event_registration);
  vorbus_close(nullptr);
  vorbus_proc_unsubscribe(nullptr);
  vorbus_sig_deregister(nullptr);
  vorbus_event_deregister(nullptr);
}

TEST_F(Arguments, MayBeNullWhereNothingIsAsked) {
  PeerProcess server(directory(), "server");
  Attachment client(directory());
  const vorbus_proc_t name = Name("server");
  ASSERT_NE(vorbus_proc_subscribe(client.token(), &name, nullptr, nullptr, nullptr), nullptr);
  ASSERT_TRUE(client.Run([&] { return client.Send(server.pid(), 1) == 0; }));
}

}  // namespace
}  // namespace vorbus_test
