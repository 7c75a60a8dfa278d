// cfm-test-app [SEND-TIMEOUT-MS]: an application on the client library, driven by lines on its standard input.
//
// It attaches to the middleware (socket directory: $VORBUS_DIR) and prints "ready" once its client stands; it does not
// dispatch before "run", so that a configuration can be given first. Arguments in protobuf text format stand on one
// line, or in a file given as @FILE. Commands:
//
//   hierarchy TEXT      UpdateConfig with the domains, associations and endpoints of an OpCacheSync whose ifindex
//   fields
//                       hold logical port ids; then prints "applied hierarchy"
//   probes TEXT         UpdateConfigProbe with its probes and sessions; then prints "applied probes"
//   grid MDS MAS MEPS   UpdateConfig with that many domains, associations in each and end points in each of those; then
//                       prints "applied grid"
//   statistics          RequestStatistics
//   clear [MD|- [MA|- [MEP]]]     ClearStatistics
//   linktrace TEXT      LinktraceTrigger from an OpLinktraceTriggerMsg
//   loopback TEXT       LoopbackTrigger from an OpLoopbackTriggerMsg
//   delay TEXT          DelayMeasurementTrigger from an OpDelayMeasurementTriggerMsg
//   handlers off|on     unregisters or registers all five handlers (registered at first)
//   run                 begins to dispatch
//   echo WORD           prints "echo WORD"
//   quit                ends with status 0, as the end of the input does
//
// What happens it prints as lines:
//
//   found                         OnServerFound
//   lost                          the middleware reports the server lost
//   synchronised PID              the client has dealt with a cache reply, from the server with that middleware pid
//   local-status ..., remote-status ..., and so on: a line for each handler call, values as they were handed over
#include <poll.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <fstream>
#include <iostream>
#include <iterator>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

#include "cfm/client.h"
#include "client_server.pb.h"
#include "configuration.h"

namespace {

// Lines to standard output, by a thread: a test that does not read for a while must not hold the application up.
class Output {
 public:
  ~Output() {
    {
      const std::lock_guard lock(mutex_);
      is_over_ = true;
    }
    changed_.notify_one();
    writer_.join();
  }

  void Write(std::string line) {
    {
      const std::lock_guard lock(mutex_);
      lines_.push_back(std::move(line));
    }
    changed_.notify_one();
  }

 private:
  void Run() {
    std::unique_lock lock(mutex_);
    while (true) {
      changed_.wait(lock, [this] { return is_over_ || !lines_.empty(); });
      if (lines_.empty()) {
        return;
      }
      const std::string line = std::move(lines_.front());
      lines_.pop_front();
      lock.unlock();
      std::cout << line << std::endl;
      lock.lock();
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::string> lines_;
  bool is_over_ = false;
  std::thread writer_{[this] { Run(); }};
};

Output& StandardOutput() {
  static Output output;
  return output;
}

template <typename... Values>
void Print(const Values&... values) {
  std::ostringstream line;
  std::string separator;
  ((line << separator << values, separator = " "), ...);
  StandardOutput().Write(line.str());
}

int Number(std::uint8_t value) {
  return value;
}

class Handlers final : public cfm::ReceivedStatusHandlerIntf,
                       public cfm::ReceivedStatisticsHandlerIntf,
                       public cfm::ReceivedLinktraceHandlerIntf,
                       public cfm::ReceivedLoopbackHandlerIntf,
                       public cfm::ReceivedDelayMeasurementHandlerIntf {
 public:
  void OnLocalMepStatus(const std::string& md, const std::string& ma, std::uint16_t mep_id,
                        const cfm::st_local_mep_status& s) override {
    Print("local-status", md, ma, mep_id, s.mac.to_string(), "rdi", s.rdi, "intf_status", Number(s.intf_status),
          "port_state", s.port_state, "block_state", s.block_state, "shutdown_state", s.shutdown_state,
          "highest_defect", s.highest_defect, "defects", s.defect_rdi, s.defect_mac_status, s.defect_remote_ccm,
          s.defect_error_ccm, s.defect_xcon_ccm, s.defect_ais);
  }
  void OnRemoteMepStatus(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                         std::uint16_t remote_mep_id, const cfm::st_remote_mep_status& s) override {
    Print("remote-status", md, ma, local_mep_id, remote_mep_id, s.mac.to_string(), "fsm_state", s.fsm_state,
          "last_change", s.last_change_uptime, "rdi", s.rdi, "port_state", s.port_state, "intf_status",
          Number(s.intf_status), "sender_id", s.sender_id);
  }
  void OnLocalMepRemoved(const std::string& md, const std::string& ma, std::uint16_t mep_id) override {
    Print("local-removed", md, ma, mep_id);
  }
  void OnRemoteMepRemoved(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                          std::uint16_t remote_mep_id) override {
    Print("remote-removed", md, ma, local_mep_id, remote_mep_id);
  }
  // The status and the linktrace handler take the same three notifications; the object is told twice.
  void OnLinktraceStarted(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                          std::uint32_t transaction_id, cfm::st_mac target_mac, std::uint16_t target_mep_id,
                          bool has_optional_value, std::uint32_t optional_value) override {
    Print("linktrace-started", md_name, ma_name, mep_id, transaction_id, target_mac.to_string(), target_mep_id,
          has_optional_value, optional_value);
  }
  void OnLinktraceEnded(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                        std::uint32_t transaction_id) override {
    Print("linktrace-ended", md_name, ma_name, mep_id, transaction_id);
  }
  void OnLinktraceReply(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                        const cfm::LinktraceReplyEntry& reply) override {
    Print("linktrace-reply", md_name, ma_name, mep_id, cfm::LinktraceReplyEntry::Show(reply, 0));
  }
  void OnLinktraceTriggerError(const cfm::linktrace_trigger& t) override {
    Print("linktrace-error", t.trigger_id, t.md_name, t.ma_name, t.mep_id, t.target_mep_id, Number(t.ttl));
  }
  void OnDelayMeasurementSessionEnded(const cfm::delay_measurement_session_report& r) override {
    Print("session-ended", r.report_u32_1, r.report_u32_2, Number(r.report_flag), r.report_u32_3, r.report_u32_4,
          r.report_u32_5, r.report_u32_6, r.report_u32_7, r.report_u32_8, r.report_double_1, r.report_double_2,
          r.report_u32_9, r.report_u32_10, r.report_u32_11, r.report_u32_12, r.report_u32_13, r.report_u32_14,
          r.report_double_3, r.report_double_4);
  }
  void OnServerFound() override { Print("found"); }

  void OnLocalMepStatistics(const std::string& md, const std::string& ma, std::uint16_t mep_id,
                            const cfm::st_local_mep_stats& s) override {
    Print("local-statistics", md, ma, mep_id, s.ccm_rx_seq_errors, s.ccm_tx_total, s.ccm_tx_current_seq);
  }
  void OnRemoteMepStatistics(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                             std::uint16_t remote_mep_id, const cfm::st_remote_mep_stats& s) override {
    Print("remote-statistics", md, ma, local_mep_id, remote_mep_id, s.last_ccm_seq);
  }
  void OnStatisticsEnd() override { Print("statistics-end"); }

  void OnLoopbackTriggerError(std::uint32_t trigger_id, std::uint32_t error_code, const std::string& md_name,
                              const std::string& ma_name, std::uint16_t mep_id, std::uint16_t target) override {
    Print("loopback-error", trigger_id, error_code, md_name, ma_name, mep_id, target);
  }
  void OnLoopbackStarted(std::uint32_t trigger_id, const cfm::st_mac& target_mac) override {
    Print("loopback-started", trigger_id, target_mac.to_string());
  }
  void OnLoopbackReply(std::uint32_t trigger_id, std::uint32_t transaction_id, const cfm::st_mac& source) override {
    Print("loopback-reply", trigger_id, transaction_id, source.to_string());
  }
  void OnLoopbackEnded(std::uint32_t trigger_id, std::uint64_t expected, std::uint64_t in_order,
                       std::uint64_t out_of_order, std::uint64_t wrong_payload) override {
    Print("loopback-ended", trigger_id, expected, in_order, out_of_order, wrong_payload);
  }

  void OnDelayMeasurementTriggerError(std::uint32_t trigger_id, std::uint32_t error_code, const std::string& md_name,
                                      const std::string& ma_name, std::uint16_t mep_id, std::uint16_t target) override {
    Print("delay-error", trigger_id, error_code, md_name, ma_name, mep_id, target);
  }
  void OnDelayMeasurementStarted(std::uint32_t trigger_id, const cfm::st_mac& target_mac) override {
    Print("delay-started", trigger_id, target_mac.to_string());
  }
  void OnDelayMeasurementReply(std::uint32_t trigger_id, const cfm::st_mac& source_mac) override {
    Print("delay-reply", trigger_id, source_mac.to_string());
  }
  void OnDelayMeasurementEnded(std::uint32_t trigger_id, std::uint64_t rx_count, std::uint64_t tx_count, double r1,
                               double r2, double r3, double r4, double r5, double r6, std::uint64_t r7) override {
    Print("delay-ended", trigger_id, rx_count, tx_count, r1, r2, r3, r4, r5, r6, r7);
  }
};

// An argument, or the contents of the file that it names.
std::string Argument(const std::string& text) {
  if (!text.starts_with('@')) {
    return text;
  }
  std::ifstream file(text.substr(1));
  if (!file) {
    std::cerr << "cannot read " << text.substr(1) << std::endl;
    std::exit(2);
  }
  return {std::istreambuf_iterator<char>(file), {}};
}

template <typename Message>
Message Parsed(const std::string& text) {
  Message message;
  if (!cfm_test::FromText(Argument(text), message)) {
    std::cerr << "not a " << message.GetTypeName() << ": " << text << std::endl;
    std::exit(2);
  }
  return message;
}

// Lines from standard input; nothing is read behind the caller's poll.
class Input {
 public:
  void Read() {
    char chunk[65536];
    const ssize_t got = read(STDIN_FILENO, chunk, sizeof(chunk));
    if (got > 0) {
      text_.append(chunk, static_cast<std::size_t>(got));
    } else {
      ended_ = true;
    }
  }
  std::optional<std::string> NextLine() {
    const std::size_t end = text_.find('\n');
    if (end == std::string::npos) {
      return std::nullopt;
    }
    std::string line = text_.substr(0, end);
    text_.erase(0, end + 1);
    return line;
  }
  bool ended() const { return ended_; }

 private:
  std::string text_;
  bool ended_ = false;
};

class App {
 public:
  explicit App(vorbus_t* token) : client_(token), token_(token) {
    RegisterHandlers(true);
    // After the client's own, so that both are called when the client has done its part.
    vorbus_proc_subscribe(
        token, CFM_MGR_PROCESS, [](vorbus_t* /*token*/, const vorbus_pid_t* /*pid*/, void* /*user*/) {},
        [](vorbus_t* /*token*/, void* /*user*/) { Print("lost"); }, nullptr);
    vorbus_sig_register_sized(
        token, CFM_MGR_S2C_SIG_CACHE_REPLY,
        [](vorbus_t* /*token*/, void* /*user*/, const vorbus_pid_t* sender, void* /*data*/, size_t /*size*/) {
          Print("synchronised", *sender);
        },
        nullptr);
    Print("ready");
  }

  // False: it is over.
  bool Execute(const std::string& line) {
    const std::string verb = line.substr(0, line.find(' '));
    const std::string rest = line.size() > verb.size() ? line.substr(verb.size() + 1) : "";
    std::istringstream words(rest);
    if (verb == "hierarchy") {
      client_.UpdateConfig(cfm_test::FromMessages(Parsed<client_server::OpCacheSync>(rest)).hierarchy);
      Print("applied hierarchy");
    } else if (verb == "probes") {
      client_.UpdateConfigProbe(cfm_test::FromMessages(Parsed<client_server::OpCacheSync>(rest)).probe);
      Print("applied probes");
    } else if (verb == "grid") {
      unsigned mds = 0;
      unsigned mas = 0;
      std::uint16_t meps = 0;
      words >> mds >> mas >> meps;
      client_.UpdateConfig(cfm_test::Grid(mds, mas, meps));
      Print("applied grid");
    } else if (verb == "statistics") {
      client_.RequestStatistics();
    } else if (verb == "clear") {
      std::string md = "-";
      std::string ma = "-";
      std::uint16_t mep = 0;
      words >> md >> ma >> mep;
      client_.ClearStatistics(md == "-" ? nullptr : md.c_str(), ma == "-" ? nullptr : ma.c_str(), mep);
    } else if (verb == "linktrace") {
      const auto m = Parsed<client_server::OpLinktraceTriggerMsg>(rest);
      client_.LinktraceTrigger(
          {m.key().trigger_id(), m.key().md_name(), m.key().ma_name(), static_cast<std::uint16_t>(m.key().mep_id()),
           static_cast<std::uint16_t>(m.key().target_mep_id()), static_cast<std::uint8_t>(m.ttl())});
    } else if (verb == "loopback") {
      const auto m = Parsed<client_server::OpLoopbackTriggerMsg>(rest);
      client_.LoopbackTrigger({m.trigger_id(), m.md_name(), m.ma_name(), static_cast<std::uint16_t>(m.mep_id()),
                               static_cast<std::uint16_t>(m.target_mep_id()), m.lb_param_1(),
                               static_cast<std::uint16_t>(m.lb_param_2())});
    } else if (verb == "delay") {
      const auto m = Parsed<client_server::OpDelayMeasurementTriggerMsg>(rest);
      client_.DelayMeasurementTrigger({m.trigger_id(), m.md_name(), m.ma_name(), static_cast<std::uint16_t>(m.mep_id()),
                                       static_cast<std::uint16_t>(m.target_mep_id()), m.dm_param_1(), m.dm_param_2(),
                                       static_cast<std::uint16_t>(m.dm_param_3()),
                                       static_cast<std::uint8_t>(m.dm_param_4())});
    } else if (verb == "handlers") {
      RegisterHandlers(rest == "on");
    } else if (verb == "run") {
      running_ = true;
    } else if (verb == "echo") {
      Print("echo", rest);
    } else if (verb == "quit") {
      return false;
    } else {
      std::cerr << "not a command: " << line << std::endl;
      std::exit(2);
    }
    return true;
  }

  void Serve() {
    Input input;
    for (;;) {
      pollfd watched[] = {{STDIN_FILENO, POLLIN, 0}, {running_ ? vorbus_fd(token_) : -1, POLLIN, 0}};
      poll(watched, 2, -1);
      if (watched[1].revents != 0) {
        vorbus_dispatch(token_);
      }
      if (watched[0].revents != 0) {
        input.Read();
      }
      while (const auto line = input.NextLine()) {
        if (!Execute(*line)) {
          return;
        }
      }
      if (input.ended()) {
        return;
      }
    }
  }

 private:
  void RegisterHandlers(bool on) {
    Handlers* const handlers = on ? &handlers_ : nullptr;
    client_.RegisterStatusHandler(handlers);
    client_.RegisterStatisticsHandler(handlers);
    client_.RegisterLinktraceHandler(handlers);
    client_.RegisterLoopbackHandler(handlers);
    client_.RegisterDelayMeasurementHandler(handlers);
  }

  Handlers handlers_;
  cfm::Client client_;
  vorbus_t* token_;
  bool running_ = false;
};

}  // namespace

int main(int argc, char** argv) {
  vorbus_options_t options{};
  if (argc > 1) {
    options.send_timeout_ms = static_cast<unsigned int>(std::stoul(argv[1]));
  }
  vorbus_t* token = nullptr;
  if (const int error = vorbus_open(&options, &token); error != 0) {
    std::cerr << "vorbus_open: " << error << std::endl;
    return 2;
  }
  {
    App app(token);
    app.Serve();
  }
  vorbus_close(&token);
  return 0;
}
