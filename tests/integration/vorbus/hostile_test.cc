// A malformed or hostile peer loses its link; the process lives, and no other link is touched.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zmq.h>

#include <array>
#include <cstring>
#include <memory>
#include <random>

#include "fixture.h"

namespace vorbus_test {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// ---- What an attacker has: raw connections, and sockets of ZeroMQ without our library ----

class RawConnection {
 public:
  explicit RawConnection(const std::string& path) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    is_connected_ = connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  ~RawConnection() { close(fd_); }
  RawConnection(const RawConnection&) = delete;
  RawConnection& operator=(const RawConnection&) = delete;

  bool is_connected() const { return is_connected_; }
  void Send(std::string_view octets) {
    while (!octets.empty()) {
      const ssize_t sent = send(fd_, octets.data(), octets.size(), MSG_NOSIGNAL);
      if (sent <= 0) {
        return;
      }
      octets.remove_prefix(static_cast<std::size_t>(sent));
    }
  }
  // Whether the other side closes, within the time.
  bool IsClosed(std::chrono::seconds timeout = kDeadline) {
    const Clock::time_point deadline = Clock::now() + timeout;
    while (Clock::now() < deadline) {
      pollfd readable{fd_, POLLIN, 0};
      char buffer[4096];
      if (poll(&readable, 1, 100) > 0 && read(fd_, buffer, sizeof buffer) <= 0) {
        return true;
      }
    }
    return false;
  }
  // Takes what has come by then; ZMTP wants its answers read.
  void Drain() {
    pollfd readable{fd_, POLLIN, 0};
    char buffer[4096];
    while (poll(&readable, 1, 50) > 0 && read(fd_, buffer, sizeof buffer) > 0) {
    }
  }

 private:
  int fd_;
  bool is_connected_ = false;
};

class ZmqContext {
 public:
  ~ZmqContext() { zmq_ctx_term(context_); }
  void* get() { return context_; }

 private:
  void* context_ = zmq_ctx_new();
};

class ZmqSocket {
 public:
  ZmqSocket(ZmqContext& context, int type) : socket_(zmq_socket(context.get(), type)) {
    const int now = 0;
    zmq_setsockopt(socket_, ZMQ_LINGER, &now, sizeof now);
    const int never = 3600000;
    zmq_setsockopt(socket_, ZMQ_RECONNECT_IVL, &never, sizeof never);
    static int count = 0;
    const std::string endpoint = "inproc://hostile-" + std::to_string(++count);
    zmq_socket_monitor(socket_, endpoint.c_str(), ZMQ_EVENT_DISCONNECTED);
    monitor_ = zmq_socket(context.get(), ZMQ_PAIR);
    zmq_connect(monitor_, endpoint.c_str());
  }
  ~ZmqSocket() {
    zmq_socket_monitor(socket_, nullptr, 0);
    zmq_close(monitor_);
    zmq_close(socket_);
  }
  ZmqSocket(const ZmqSocket&) = delete;
  ZmqSocket& operator=(const ZmqSocket&) = delete;

  void* get() { return socket_; }
  void SetId(std::string_view id) { zmq_setsockopt(socket_, ZMQ_ROUTING_ID, id.data(), id.size()); }
  void Connect(const std::string& path) { zmq_connect(socket_, ("ipc://" + path).c_str()); }
  void Send(std::string_view octets, int flags = 0) {
    zmq_send(socket_, octets.data(), octets.size(), flags | ZMQ_DONTWAIT);
  }
  bool Receive(std::string& octets, milliseconds timeout = kDeadline) {
    zmq_pollitem_t item{socket_, 0, ZMQ_POLLIN, 0};
    if (zmq_poll(&item, 1, timeout.count()) <= 0) {
      return false;
    }
    octets.resize(4096);
    const int size = zmq_recv(socket_, octets.data(), octets.size(), ZMQ_DONTWAIT);
    octets.resize(static_cast<std::size_t>(std::max(size, 0)));
    return size >= 0;
  }
  bool IsClosed(milliseconds timeout = kDeadline) {
    zmq_pollitem_t item{monitor_, 0, ZMQ_POLLIN, 0};
    return zmq_poll(&item, 1, timeout.count()) > 0;
  }

 private:
  void* socket_;
  void* monitor_;
};

// ---- Messages, well-formed so that they can be bent ----

std::string U32(std::uint32_t value) {
  return {static_cast<char>(value >> 24), static_cast<char>(value >> 16), static_cast<char>(value >> 8),
          static_cast<char>(value)};
}

std::string WireMessage(int kind, std::uint32_t to, std::uint32_t id, std::uint32_t number,
                        const std::string& payload = {}) {
  return std::string("v\x01", 2) + static_cast<char>(kind) + std::string(1, '\0') + U32(to) + U32(id) + U32(number) +
         payload;
}

constexpr int kHello = 1;
constexpr int kReady = 2;
constexpr int kSignal = 3;
constexpr int kEvent = 4;
constexpr int kTaken = 5;
constexpr std::uint32_t kBlock = 0x54455354;
constexpr std::uint32_t kOwnPid = 0xfffffff0;

std::string NewId() {
  static std::uint32_t count = 0;
  return "hostile-" + U32(++count) + "1234";
}

std::string Greeting() {
  std::string greeting("\xff\0\0\0\0\0\0\0\x01\x7f\x03\0NULL", 16);
  greeting.resize(64, '\0');
  return greeting;
}

std::string ReadyCommand(const std::string& socket_type) {
  const std::string property = std::string("\x0bSocket-Type", 12) +
                               U32(static_cast<std::uint32_t>(socket_type.size())) + socket_type +
                               std::string("\x08Identity", 9) + U32(16) + NewId();
  const std::string body = std::string("\x05READY", 6) + property;
  return std::string("\x04", 1) + static_cast<char>(body.size()) + body;
}

// ---- A server with a well-behaved client beside the attacker ----

class AHostilePeer : public BusTest {
 protected:
  AHostilePeer() : server_(directory(), "server"), client_(directory()), presence_(client_.Subscribe("server")) {
    server_.Set("echo", 1, 2);
    EXPECT_TRUE(client_.RunUntilThere(presence_));
    client_.OnSignal(2, [this](vorbus_pid_t, const void*, std::size_t) { ++answers_; });
  }

  ~AHostilePeer() override {
    EXPECT_TRUE(server_.process().Running());
    ExpectOthersUntouched();
  }

  void ExpectOthersUntouched() {
    const int before = answers_;
    EXPECT_EQ(client_.Send(server_.pid(), 1, "still there?"), 0);
    EXPECT_TRUE(client_.Run([&] { return answers_ == before + 1; }));
    EXPECT_EQ(presence_.reports, std::vector<std::string>{"found"});
  }

  std::string path() const { return PathOf("server"); }
  std::uint32_t server_pid() const { return server_.pid(); }

  // A connection that says hello as it should, and has its answer.
  std::unique_ptr<ZmqSocket> Linked(std::uint32_t pid = kOwnPid) {
    auto socket = std::make_unique<ZmqSocket>(context_, ZMQ_DEALER);
    socket->SetId(NewId());
    socket->Connect(path());
    socket->Send(WireMessage(kHello, 0, pid, 0));
    std::string answer;
    EXPECT_TRUE(socket->Receive(answer));
    EXPECT_EQ(answer, WireMessage(kReady, pid, server_pid(), 0));
    return socket;
  }

  ZmqContext context_;
  PeerProcess server_;
  Attachment client_;
  const Attachment::Presence& presence_;
  int answers_ = 0;
};

TEST_F(AHostilePeer, ThatSendsRawOctetsIsCutOff) {
  std::mt19937 random(1);
  for (int round = 0; round < 200; ++round) {
    std::string octets(std::uniform_int_distribution<std::size_t>(1, 2000)(random), '\0');
    for (char& octet : octets) {
      octet = static_cast<char>(random());
    }
    RawConnection connection(path());
    ASSERT_TRUE(connection.is_connected());
    connection.Send(octets);
  }
  RawConnection last(path());
  last.Send("GET / HTTP/1.1\r\nHost: of a wrong protocol, and long enough to be taken for a greeting of it\r\n\r\n");
  EXPECT_TRUE(last.IsClosed());
}

TEST_F(AHostilePeer, ThatStopsInItsGreetingIsCutOff) {
  RawConnection half(path());
  half.Send(Greeting().substr(0, 32));
  RawConnection nothing(path());
  RawConnection whole(path());
  whole.Send(Greeting());
  ExpectOthersUntouched();
  EXPECT_TRUE(half.IsClosed());
  EXPECT_TRUE(nothing.IsClosed());
  EXPECT_TRUE(whole.IsClosed());
}

TEST_F(AHostilePeer, ThatCutsItsGreetingAnywhereIsForgotten) {
  const std::string octets = Greeting() + ReadyCommand("DEALER") + std::string("\0\x10", 2);
  for (std::size_t size = 0; size <= octets.size(); ++size) {
    RawConnection connection(path());
    ASSERT_TRUE(connection.is_connected());
    connection.Send(octets.substr(0, size));
  }
}

TEST_F(AHostilePeer, ThatBendsItsGreetingIsSurvived) {
  std::mt19937 random(2);
  const std::string octets = Greeting() + ReadyCommand("DEALER") + std::string("\0\x05hello", 7);
  for (int round = 0; round < 500; ++round) {
    std::string bent = octets;
    for (int change = 0; change < 1 + round % 3; ++change) {
      bent[random() % bent.size()] = static_cast<char>(random());
    }
    RawConnection connection(path());
    ASSERT_TRUE(connection.is_connected());
    connection.Send(bent);
    if (round % 10 == 0) {
      connection.Drain();
    }
  }
}

TEST_F(AHostilePeer, ThatAnnouncesAHugeMessageIsCutOff) {
  for (const std::string& size :
       {std::string("\xff\xff\xff\xff\xff\xff\xff\xff"), std::string("\x7f\xff\xff\xff\xff\xff\xff\xff"),
        std::string("\0\0\0\0\x10\0\0\x11", 8)}) {
    RawConnection connection(path());
    connection.Send(Greeting() + ReadyCommand("DEALER"));
    connection.Drain();
    connection.Send(std::string("\x02", 1) + size + "and little of it");
    EXPECT_TRUE(connection.IsClosed());
  }
}

TEST_F(AHostilePeer, ThatIsASocketOfAnyOtherTypeIsSurvived) {
  for (const int type : {ZMQ_PAIR, ZMQ_PUB, ZMQ_SUB, ZMQ_REQ, ZMQ_REP, ZMQ_DEALER, ZMQ_ROUTER, ZMQ_PULL, ZMQ_PUSH,
                         ZMQ_XPUB, ZMQ_XSUB, ZMQ_STREAM}) {
    ZmqSocket socket(context_, type);
    if (type == ZMQ_SUB) {
      zmq_setsockopt(socket.get(), ZMQ_SUBSCRIBE, "", 0);
    }
    socket.Connect(path());
    for (int i = 0; i < 10; ++i) {
      socket.Send("hello");
    }
    const bool sends_at_once = type == ZMQ_REQ || type == ZMQ_DEALER;
    const bool is_refused_by_type = type != ZMQ_REQ && type != ZMQ_DEALER && type != ZMQ_ROUTER && type != ZMQ_STREAM;
    if (sends_at_once || is_refused_by_type) {
      EXPECT_TRUE(socket.IsClosed()) << "type " << type;
    }
    ExpectOthersUntouched();
  }
}

TEST_F(AHostilePeer, ThatSendsAMalformedMessageLosesItsLink) {
  const std::string good = WireMessage(kSignal, server_pid(), kBlock, 9);
  const std::vector<std::string> malformed = {
      "",
      "v",
      good.substr(0, 15),
      "w" + good.substr(1),
      std::string("v\x02", 2) + good.substr(2),                   // another version
      WireMessage(0, server_pid(), 0, 0),                         // no kind
      WireMessage(6, server_pid(), 0, 0),                         // unknown kind
      WireMessage(kReady, server_pid(), kOwnPid, 0),              // not for this side
      WireMessage(kEvent, server_pid(), 1, 1),                    // not for this side
      WireMessage(kTaken, server_pid(), 1, 16),                   // of nothing sent
      WireMessage(kTaken, server_pid(), 0xffffffff, 0xffffffff),  // of nothing sent
      WireMessage(kHello, 0, kOwnPid + 1, 0),                     // another pid than before
      WireMessage(kHello, server_pid() + 1, kOwnPid, 0),          // for another
      WireMessage(kHello, 0, kOwnPid, 1),                         // an event short
      WireMessage(kHello, 0, kOwnPid, 0, "12345678"),             // an event too many
      WireMessage(kHello, 0, kOwnPid, 0x20000001, "12345678"),    // a size that wraps around
  };
  for (std::size_t i = 0; i < malformed.size(); ++i) {
    const auto linked = Linked();
    linked->Send(malformed[i]);
    EXPECT_TRUE(linked->IsClosed()) << "linked, message " << i;
    ZmqSocket unknown(context_, ZMQ_DEALER);
    unknown.SetId(NewId());
    unknown.Connect(path());
    unknown.Send(i == 11 ? WireMessage(kHello, 0, 0, 0) : malformed[i]);  // a first hello may name any pid but 0
    EXPECT_TRUE(unknown.IsClosed()) << "unknown, message " << i;
  }
}

TEST_F(AHostilePeer, ThatSendsMessagesOfSeveralPartsLosesItsLink) {
  const auto linked = Linked();
  linked->Send(WireMessage(kSignal, server_pid(), kBlock, 9), ZMQ_SNDMORE);
  linked->Send("more", ZMQ_SNDMORE);
  linked->Send("and more");
  EXPECT_TRUE(linked->IsClosed());
}

TEST_F(AHostilePeer, ThatSendsBeforeItsHelloLosesItsLink) {
  ZmqSocket socket(context_, ZMQ_DEALER);
  socket.SetId(NewId());
  socket.Connect(path());
  socket.Send(WireMessage(kSignal, server_pid(), kBlock, 1, "early"));
  EXPECT_TRUE(socket.IsClosed());
}

TEST_F(AHostilePeer, ThatClaimsThePidOfAnotherProcessLosesItsLink) {
  PeerProcess victim(directory(), "-");
  ASSERT_NE(victim.Ask("found", "subscribe", "server"), "");
  ZmqSocket socket(context_, ZMQ_DEALER);
  socket.SetId(NewId());
  socket.Connect(path());
  socket.Send(WireMessage(kHello, 0, victim.pid(), 0));
  EXPECT_TRUE(socket.IsClosed());
  victim.Set("tell", 2);
  victim.Do("send", server_pid(), 1, 1, 0);
  EXPECT_NE(victim.Next("signal 2"), "");
}

TEST_F(AHostilePeer, ThatIsCutOffDoesNotHinderItsNextConnection) {
  for (int round = 0; round < 20; ++round) {
    const auto linked = Linked();
    linked->Send("rubbish");
    EXPECT_TRUE(linked->IsClosed());
  }
}

TEST_F(AHostilePeer, ThatSendsToAnotherPidIsNotHeard) {
  const auto linked = Linked();
  server_.Set("tell", 9);
  EXPECT_EQ(server_.Ask("received", "report", 0), "received 0 0");  // the registration is made
  linked->Send(WireMessage(kSignal, server_pid() - 1, kBlock, 9, "stale"));
  linked->Send(WireMessage(kSignal, server_pid(), kBlock, 9, "right one"));
  EXPECT_EQ(server_.Next("signal 9"), "signal 9 " + std::to_string(kOwnPid) + " 9");
}

TEST_F(AHostilePeer, ThatSendsRandomMessagesIsSurvived) {
  std::mt19937 random(3);
  const auto below = [&](std::size_t limit) { return random() % limit; };
  int cut_off = 0;
  for (int round = 0; round < 150; ++round) {
    std::unique_ptr<ZmqSocket> socket;
    if (round % 2 == 0) {
      socket = Linked();
    } else {
      socket = std::make_unique<ZmqSocket>(context_, ZMQ_DEALER);
      socket->SetId(NewId());
      socket->Connect(path());
    }
    for (int i = 0; i < 200; ++i) {
      std::string message = WireMessage(static_cast<int>(below(7)), below(4) != 0 ? server_pid() : 0,
                                        below(2) != 0 ? kOwnPid : static_cast<std::uint32_t>(below(4)),
                                        static_cast<std::uint32_t>(below(4)), std::string(8 * below(4), 'p'));
      for (std::size_t change = below(3); change > 0; --change) {
        message[below(message.size())] = static_cast<char>(random());
      }
      message.resize(below(8) == 0 ? below(message.size() + 1) : message.size());
      socket->Send(message, below(16) == 0 ? ZMQ_SNDMORE : 0);
    }
    socket->Send("the end");
    cut_off += socket->IsClosed() ? 1 : 0;
  }
  EXPECT_EQ(cut_off, 150);
}

// ---- The same from the other side: what has the server's name is hostile ----

class AHostileServer : public BusTest {
 protected:
  AHostileServer() : client_(directory(), "-"), good_(directory(), "good") {
    good_.Set("echo", 1, 2);
    client_.Set("tell", 2);
    EXPECT_NE(client_.Ask("found good", "subscribe", "good"), "");
    lock_ = open(PathOf(".evil.lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    EXPECT_EQ(fcntl(lock_, F_OFD_SETLK, &whole), 0);
  }
  ~AHostileServer() override {
    close(lock_);
    EXPECT_TRUE(client_.process().Running());
    client_.Do("send", good_.pid(), 1, 1, 0);
    EXPECT_NE(client_.Next("signal 2"), "") << "the other link works";
  }

  // Gets its name the way that a named process does.
  void Bind(ZmqSocket& socket) {
    ASSERT_EQ(zmq_bind(socket.get(), ("ipc://" + PathOf(".fresh")).c_str()), 0);
    ASSERT_EQ(rename(PathOf(".fresh").c_str(), PathOf("evil").c_str()), 0);
  }

  ZmqContext context_;
  PeerProcess client_;
  PeerProcess good_;
  int lock_ = -1;
};

TEST_F(AHostileServer, ThatAnswersRubbishIsLeftEachTime) {
  ZmqSocket router(context_, ZMQ_ROUTER);
  Bind(router);
  client_.Do("subscribe", "evil");
  const std::vector<std::string> answers = {
      "",
      "rubbish",
      WireMessage(kReady, client_.pid(), 0, 0),
      WireMessage(kSignal, client_.pid(), kBlock, 2, "before its ready"),
      WireMessage(kHello, client_.pid(), 7, 0),
      WireMessage(kTaken, client_.pid(), 1, 1),
      WireMessage(kEvent, client_.pid(), 1, 1),
      std::string(100000, 'x'),
  };
  for (const std::string& answer : answers) {
    std::string id;
    std::string hello;
    ASSERT_TRUE(router.Receive(id));
    ASSERT_TRUE(router.Receive(hello));
    EXPECT_EQ(hello, WireMessage(kHello, 0, client_.pid(), 0));
    router.Send(id, ZMQ_SNDMORE);
    router.Send(answer);
  }
}

TEST_F(AHostileServer, ThatTurnsHostileWhenFoundIsReportedLost) {
  ZmqSocket router(context_, ZMQ_ROUTER);
  Bind(router);
  client_.Do("subscribe", "evil");
  for (int round = 0; round < 3; ++round) {
    std::string id;
    std::string hello;
    ASSERT_TRUE(router.Receive(id));
    ASSERT_TRUE(router.Receive(hello));
    router.Send(id, ZMQ_SNDMORE);
    router.Send(WireMessage(kReady, client_.pid(), 77, 0));
    EXPECT_EQ(client_.Line(), "found evil 77");
    router.Send(id, ZMQ_SNDMORE);
    router.Send(WireMessage(kSignal, client_.pid(), kBlock, 2, "delivered"));
    router.Send(id, ZMQ_SNDMORE);
    router.Send(WireMessage(kReady, client_.pid(), 77, 0));  // once more than it was asked
    EXPECT_EQ(client_.Line(), "signal 2 77 9");
    EXPECT_EQ(client_.Line(), "lost evil");
  }
}

TEST_F(AHostileServer, ThatIsASocketOfAnyOtherTypeIsSurvived) {
  client_.Do("subscribe", "evil");
  for (const int type : {ZMQ_PAIR, ZMQ_PUB, ZMQ_SUB, ZMQ_REP, ZMQ_REQ, ZMQ_PULL, ZMQ_PUSH, ZMQ_STREAM, ZMQ_DEALER}) {
    ZmqSocket socket(context_, type);
    Bind(socket);
    socket.Send("hello");
    EXPECT_TRUE(
        socket.IsClosed(milliseconds(type == ZMQ_DEALER || type == ZMQ_REP || type == ZMQ_STREAM ? 200 : 10000)) ||
        type == ZMQ_DEALER || type == ZMQ_REP || type == ZMQ_STREAM)
        << "type " << type;
  }
}

}  // namespace
}  // namespace vorbus_test
