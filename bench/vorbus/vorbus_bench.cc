// What a message costs on the bus, against the same message on plain ZeroMQ (DEALER to ROUTER) between two processes.
//
//   vorbus_bench [--quick] [--limit RATIO]
//
// Repetitions of both variants take turns in one run. The ratio is the median of the ratios of neighbours: whatever
// else the machine does, it does to both. Cost per message is wall time, and processor time of both processes with
// their threads. With --limit, the exit status is 1 when a stream of either size costs more than RATIO times plain
// ZeroMQ. --quick only shows that all of it works.
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vorbus/vorbus.h>
#include <zmq.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kQueue = 8192;  // messages under way; the bus has the same number
constexpr char kEnd = 'e';    // first octet of the last message of a repetition: it is answered
constexpr char kPing = 'p';   // answered, too
constexpr char kMore = 'm';

[[noreturn]] void Fail(const char* what) {
  std::perror(what);
  std::exit(2);
}

double ProcessorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// What the receiver answers: its processor time so far, and how many messages it has seen.
struct Answer {
  double processor_seconds;
  std::uint64_t messages;
};

// One end that sends and waits for answers.
class Sender {
 public:
  Sender() = default;
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;
  virtual ~Sender() = default;
  virtual void Send(const std::vector<char>& message) = 0;
  virtual Answer Wait() = 0;
};

// ---- Plain ZeroMQ ----

[[noreturn]] void ReceivePlain(const std::string& endpoint) {
  void* context = zmq_ctx_new();
  void* socket = zmq_socket(context, ZMQ_ROUTER);
  zmq_setsockopt(socket, ZMQ_RCVHWM, &kQueue, sizeof kQueue);
  if (zmq_bind(socket, endpoint.c_str()) != 0) {
    Fail("zmq_bind");
  }
  std::uint64_t count = 0;
  zmq_msg_t id;
  zmq_msg_t message;
  zmq_msg_init(&id);
  zmq_msg_init(&message);
  for (;;) {
    zmq_pollitem_t item{socket, 0, ZMQ_POLLIN, 0};
    zmq_poll(&item, 1, -1);
    while (zmq_msg_recv(&id, socket, ZMQ_DONTWAIT) >= 0) {
      zmq_msg_recv(&message, socket, 0);
      ++count;
      if (*static_cast<const char*>(zmq_msg_data(&message)) != kMore) {
        const Answer answer{ProcessorSeconds(), count};
        zmq_send(socket, zmq_msg_data(&id), zmq_msg_size(&id), ZMQ_SNDMORE);
        zmq_send(socket, &answer, sizeof answer, 0);
      }
    }
  }
}

class PlainSender final : public Sender {
 public:
  explicit PlainSender(const std::string& endpoint)
      : context_(zmq_ctx_new()), socket_(zmq_socket(context_, ZMQ_DEALER)) {
    zmq_setsockopt(socket_, ZMQ_SNDHWM, &kQueue, sizeof kQueue);
    const int soon_ms = 10;
    zmq_setsockopt(socket_, ZMQ_RECONNECT_IVL, &soon_ms, sizeof soon_ms);
    if (zmq_connect(socket_, endpoint.c_str()) != 0) {
      Fail("zmq_connect");
    }
  }
  ~PlainSender() override {
    zmq_close(socket_);
    zmq_ctx_term(context_);
  }

  void Send(const std::vector<char>& message) override {
    if (zmq_send(socket_, message.data(), message.size(), 0) < 0) {
      Fail("zmq_send");
    }
  }

  Answer Wait() override {
    Answer answer{};
    zmq_pollitem_t item{socket_, 0, ZMQ_POLLIN, 0};
    if (zmq_poll(&item, 1, 60000) != 1 || zmq_recv(socket_, &answer, sizeof answer, 0) != sizeof answer) {
      Fail("no answer over plain ZeroMQ");
    }
    return answer;
  }

 private:
  void* context_;
  void* socket_;
};

// ---- The bus ----

constexpr vorbus_proc_t kServer = {"bench"};
constexpr vorbus_sigblock_t kBlock = {1};
constexpr vorbus_sig_t kMessage = {&kBlock, 1};
constexpr vorbus_sig_t kAnswer = {&kBlock, 2};

vorbus_t* Open(const std::string& directory, const char* name) {
  const vorbus_options_t options{name, directory.c_str(), 0};
  vorbus_t* token = nullptr;
  if (const int rc = vorbus_open(&options, &token); rc != 0) {
    errno = -rc;
    Fail("vorbus_open");
  }
  return token;
}

void Turn(vorbus_t* token) {
  pollfd readable{vorbus_fd(token), POLLIN, 0};
  if (poll(&readable, 1, 60000) != 1) {
    Fail("nothing comes over the bus");
  }
  vorbus_dispatch(token);
}

[[noreturn]] void ReceiveBus(const std::string& directory) {
  vorbus_t* token = Open(directory, kServer.name);
  static std::uint64_t count = 0;
  vorbus_sig_register_sized(
      token, &kMessage,
      [](vorbus_t* bus, void*, const vorbus_pid_t* sender, void* data, size_t) {
        ++count;
        if (*static_cast<const char*>(data) != kMore) {
          const Answer answer{ProcessorSeconds(), count};
          vorbus_sig_send(bus, sender, &kAnswer, &answer, sizeof answer);
        }
      },
      nullptr);
  for (;;) {
    pollfd readable{vorbus_fd(token), POLLIN, 0};
    poll(&readable, 1, -1);
    vorbus_dispatch(token);
  }
}

class BusSender final : public Sender {
 public:
  explicit BusSender(const std::string& directory) : token_(Open(directory, nullptr)) {
    vorbus_proc_subscribe(
        token_, &kServer,
        [](vorbus_t*, const vorbus_pid_t* pid, void* user) { static_cast<BusSender*>(user)->server_ = *pid; }, nullptr,
        this);
    vorbus_sig_register_sized(
        token_, &kAnswer,
        [](vorbus_t*, void* user, const vorbus_pid_t*, void* data, size_t) {
          auto* self = static_cast<BusSender*>(user);
          std::memcpy(&self->answer_, data, sizeof self->answer_);
          self->is_answered_ = true;
        },
        this);
    while (server_ == 0) {
      Turn(token_);
    }
  }
  ~BusSender() override { vorbus_close(&token_); }

  void Send(const std::vector<char>& message) override {
    if (vorbus_sig_send(token_, &server_, &kMessage, message.data(), message.size()) != 0) {
      Fail("vorbus_sig_send");
    }
  }

  Answer Wait() override {
    for (is_answered_ = false; !is_answered_;) {
      Turn(token_);
    }
    return answer_;
  }

 private:
  vorbus_t* token_;
  vorbus_pid_t server_ = 0;
  Answer answer_{};
  bool is_answered_ = false;
};

// ---- Measuring ----

struct Cost {
  double wall_us;
  double processor_us;
};

Cost Stream(Sender& sender, std::size_t size, int count) {
  std::vector<char> message(size, kMore);
  message[0] = kPing;
  sender.Send(message);
  const Answer before = sender.Wait();
  const double processor = ProcessorSeconds();
  const Clock::time_point begin = Clock::now();
  message[0] = kMore;
  for (int i = 1; i < count; ++i) {
    sender.Send(message);
  }
  message[0] = kEnd;
  sender.Send(message);
  const Answer after = sender.Wait();
  const std::chrono::duration<double, std::micro> wall = Clock::now() - begin;
  const double spent = ProcessorSeconds() - processor + after.processor_seconds - before.processor_seconds;
  if (after.messages - before.messages != static_cast<std::uint64_t>(count)) {
    std::fprintf(stderr, "messages were lost\n");
    std::exit(2);
  }
  return {wall.count() / count, spent * 1e6 / count};
}

double RoundTripUs(Sender& sender, int count) {
  const std::vector<char> message(80, kPing);
  const Clock::time_point begin = Clock::now();
  for (int i = 0; i < count; ++i) {
    sender.Send(message);
    sender.Wait();
  }
  return std::chrono::duration<double, std::micro>(Clock::now() - begin).count() / count;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// Prints one line and returns the ratio.
double Compare(const std::string& what, const std::vector<double>& plain, const std::vector<double>& bus) {
  std::vector<double> ratios(bus.size());
  std::transform(bus.begin(), bus.end(), plain.begin(), ratios.begin(), std::divides<>());
  const double ratio = Median(ratios);
  std::printf("%-34s %10.3f %10.3f %8.2f\n", what.c_str(), Median(plain), Median(bus), ratio);
  return ratio;
}

template <typename Function>
pid_t Child(const Function& function) {
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    function();
  }
  return child;
}

}  // namespace

int main(int argc, char** argv) {
  bool is_quick = false;
  double limit = 0;
  for (int i = 1; i < argc; ++i) {
    const std::string_view option = argv[i];
    if (option == "--quick") {
      is_quick = true;
    } else if (option == "--limit" && i + 1 < argc) {
      limit = std::atof(argv[++i]);
    } else {
      std::fprintf(stderr, "usage: vorbus_bench [--quick] [--limit RATIO]\n");
      return 2;
    }
  }
  const int repetitions = is_quick ? 3 : 61;
  const int messages = is_quick ? 20000 : 50000;
  const int round_trips = is_quick ? 20 : 100;

  char directory[] = "/tmp/vorbus-bench-XXXXXX";
  if (mkdtemp(directory) == nullptr) {
    Fail("mkdtemp");
  }
  const std::string endpoint = std::string("ipc://") + directory + "/plain";
  const pid_t children[] = {Child([&] { ReceivePlain(endpoint); }), Child([&] { ReceiveBus(directory); })};

  double worst = 0;
  {
    PlainSender plain(endpoint);
    BusSender bus(directory);
    std::printf("%-34s %10s %10s %8s\n", "median, µs", "plain", "vorbus", "ratio");
    for (const std::size_t size : {std::size_t{80}, std::size_t{1000}}) {
      std::vector<double> wall[2];
      std::vector<double> processor[2];
      for (int repetition = 0; repetition < repetitions; ++repetition) {
        for (Sender* sender : {static_cast<Sender*>(&plain), static_cast<Sender*>(&bus)}) {
          const Cost cost = Stream(*sender, size, messages);
          wall[sender == &bus].push_back(cost.wall_us);
          processor[sender == &bus].push_back(cost.processor_us);
        }
      }
      const std::string name = "message of " + std::to_string(size) + " octets, ";
      worst = std::max(worst, Compare(name + "wall", wall[0], wall[1]));
      worst = std::max(worst, Compare(name + "CPU", processor[0], processor[1]));
    }
    std::vector<double> trips[2];
    for (int repetition = 0; repetition < repetitions; ++repetition) {
      trips[0].push_back(RoundTripUs(plain, round_trips));
      trips[1].push_back(RoundTripUs(bus, round_trips));
    }
    Compare("round trip of 80 octets", trips[0], trips[1]);
  }
  for (const pid_t child : children) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
  std::filesystem::remove_all(directory);
  if (limit > 0 && worst > limit) {
    std::printf("a message costs more than %.2f times plain ZeroMQ\n", limit);
    return 1;
  }
  return 0;
}
