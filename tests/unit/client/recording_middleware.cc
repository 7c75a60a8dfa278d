#include "recording_middleware.h"

#include <google/protobuf/message.h>
#include <zlog.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "cfm/identities.h"
#include "client_server.pb.h"
#include "limid/limid.h"

// The middleware's opaque types are this file's to define; the addresses of the first two are all that matters.
struct vorbus {};
struct zlog_category_s {};

struct vorbus_subscription {
  std::string process;
  vorbus_found_fn found;
  vorbus_lost_fn lost;
  void* user;
};

struct vorbus_registration {
  vorbus_sigblock_t block;
  unsigned int number;
  vorbus_sig_fn handler;
  void* user;
};

struct vorbus_eventreg {
  vorbus_evgroup_t group;
  unsigned int number;
  vorbus_event_fn handler;
  void* user;
};

namespace recording {

struct Middleware::State {
  vorbus token;
  zlog_category_s category;
  std::vector<std::unique_ptr<vorbus_subscription>> subscriptions;
  std::vector<std::unique_ptr<vorbus_registration>> signals;
  std::vector<std::unique_ptr<vorbus_eventreg>> events;
};

namespace {

Middleware* current = nullptr;

Middleware& Current() {
  if (current == nullptr) {
    std::fputs("the library called the platform, and no recording::Middleware is alive\n", stderr);
    std::abort();
  }
  return *current;
}

struct NamedSignal {
  const char* name;
  const vorbus_sig_t* const* identity;
  const google::protobuf::Message* payload;  // null: empty
};

struct NamedEvent {
  const char* name;
  const vorbus_event_t* const* identity;
  const google::protobuf::Message* payload;
};

template <typename Message>
const google::protobuf::Message* Payload() {
  return &Message::default_instance();
}

namespace pb = client_server;

const std::vector<NamedSignal>& Signals() {
  static const std::vector<NamedSignal> signals = {
      {"CFM_MGR_SIG_TICK_SCHED", &CFM_MGR_SIG_TICK_SCHED, nullptr},
      {"CFM_MGR_C2S_SIG_MD_CREATE", &CFM_MGR_C2S_SIG_MD_CREATE, Payload<pb::OpCreateMaintenanceDomain>()},
      {"CFM_MGR_C2S_SIG_MD_UPDATE", &CFM_MGR_C2S_SIG_MD_UPDATE, Payload<pb::OpUpdateMaintenanceDomain>()},
      {"CFM_MGR_C2S_SIG_MD_DELETE", &CFM_MGR_C2S_SIG_MD_DELETE, Payload<pb::OpDeleteMaintenanceDomain>()},
      {"CFM_MGR_C2S_SIG_MA_CREATE", &CFM_MGR_C2S_SIG_MA_CREATE, Payload<pb::OpCreateMaintenanceAssociation>()},
      {"CFM_MGR_C2S_SIG_MA_UPDATE", &CFM_MGR_C2S_SIG_MA_UPDATE, Payload<pb::OpUpdateMaintenanceAssociation>()},
      {"CFM_MGR_C2S_SIG_MA_DELETE", &CFM_MGR_C2S_SIG_MA_DELETE, Payload<pb::OpDeleteMaintenanceAssociation>()},
      {"CFM_MGR_C2S_SIG_MEP_CREATE", &CFM_MGR_C2S_SIG_MEP_CREATE, Payload<pb::OpCreateMaintenanceEndpoint>()},
      {"CFM_MGR_C2S_SIG_MEP_UPDATE", &CFM_MGR_C2S_SIG_MEP_UPDATE, Payload<pb::OpUpdateMaintenanceEndpoint>()},
      {"CFM_MGR_C2S_SIG_MEP_DELETE", &CFM_MGR_C2S_SIG_MEP_DELETE, Payload<pb::OpDeleteMaintenanceEndpoint>()},
      {"CFM_MGR_C2S_SIG_CACHE_GET", &CFM_MGR_C2S_SIG_CACHE_GET, nullptr},
      {"CFM_MGR_C2S_SIG_STATS_GET", &CFM_MGR_C2S_SIG_STATS_GET, nullptr},
      {"CFM_MGR_C2S_SIG_STATS_CLEAR", &CFM_MGR_C2S_SIG_STATS_CLEAR, Payload<pb::OpStatsClear>()},
      {"CFM_MGR_C2S_SIG_STATUS_GET_ALL", &CFM_MGR_C2S_SIG_STATUS_GET_ALL, nullptr},
      {"CFM_MGR_C2S_SIG_LT_TRIGGER", &CFM_MGR_C2S_SIG_LT_TRIGGER, Payload<pb::OpLinktraceTriggerMsg>()},
      {"CFM_MGR_C2S_SIG_LB_TRIGGER", &CFM_MGR_C2S_SIG_LB_TRIGGER, Payload<pb::OpLoopbackTriggerMsg>()},
      {"CFM_MGR_C2S_SIG_DM_TRIGGER", &CFM_MGR_C2S_SIG_DM_TRIGGER, Payload<pb::OpDelayMeasurementTriggerMsg>()},
      {"CFM_MGR_C2S_SIG_DM_PROBE_CREATE", &CFM_MGR_C2S_SIG_DM_PROBE_CREATE,
       Payload<pb::OpCreateDelayMeasurementProbe>()},
      {"CFM_MGR_C2S_SIG_DM_PROBE_DELETE", &CFM_MGR_C2S_SIG_DM_PROBE_DELETE,
       Payload<pb::OpDeleteDelayMeasurementProbe>()},
      {"CFM_MGR_C2S_SIG_DM_SESSION_CREATE", &CFM_MGR_C2S_SIG_DM_SESSION_CREATE,
       Payload<pb::OpCreateDelayMeasurementSession>()},
      {"CFM_MGR_C2S_SIG_DM_SESSION_DELETE", &CFM_MGR_C2S_SIG_DM_SESSION_DELETE,
       Payload<pb::OpDeleteDelayMeasurementSession>()},
      {"CFM_MGR_S2C_SIG_CACHE_REPLY", &CFM_MGR_S2C_SIG_CACHE_REPLY, Payload<pb::OpCacheSync>()},
      {"CFM_MGR_S2C_SIG_STATS_REPLY", &CFM_MGR_S2C_SIG_STATS_REPLY, Payload<pb::OpReplyAllStats>()},
      {"CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR", &CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR, Payload<pb::OpLinktraceTriggerError>()},
      {"CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR", &CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR, Payload<pb::OpLoopbackTriggerError>()},
      {"CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR", &CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR,
       Payload<pb::OpDelayMeasurementTriggerError>()},
  };
  return signals;
}

const std::vector<NamedEvent>& Events() {
  static const std::vector<NamedEvent> events = {
      {"CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP", &CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP,
       Payload<pb::StatusLocalMaintenanceEndpoint>()},
      {"CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP", &CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP,
       Payload<pb::StatusRemoteMaintenanceEndpoint>()},
      {"CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP", &CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP,
       Payload<pb::RemovedLocalMaintenanceEndpoint>()},
      {"CFM_MGR_SRV_EVENT_REMOVED_REMOTE_MEP", &CFM_MGR_SRV_EVENT_REMOVED_REMOTE_MEP,
       Payload<pb::RemovedRemoteMaintenanceEndpoint>()},
      {"CFM_MGR_SRV_EVENT_LINKTRACE_STARTED", &CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, Payload<pb::OpLinktraceStarted>()},
      {"CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX", &CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX,
       Payload<pb::OpLinktraceReplyRx>()},
      {"CFM_MGR_SRV_EVENT_LINKTRACE_ENDED", &CFM_MGR_SRV_EVENT_LINKTRACE_ENDED, Payload<pb::OpLinktraceEnded>()},
      {"CFM_MGR_SRV_EVENT_LOOPBACK_STARTED", &CFM_MGR_SRV_EVENT_LOOPBACK_STARTED, Payload<pb::OpLoopbackStarted>()},
      {"CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX", &CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX, Payload<pb::OpLoopbackReplyRx>()},
      {"CFM_MGR_SRV_EVENT_LOOPBACK_ENDED", &CFM_MGR_SRV_EVENT_LOOPBACK_ENDED, Payload<pb::OpLoopbackEnded>()},
      {"CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED", &CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED,
       Payload<pb::OpDelayMeasurementStarted>()},
      {"CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX", &CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX,
       Payload<pb::OpDelayMeasurementReplyRx>()},
      {"CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_ENDED", &CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_ENDED,
       Payload<pb::OpDelayMeasurementEnded>()},
      {"CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED", &CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED,
       Payload<pb::OpDelayMeasurementSessionEnded>()},
  };
  return events;
}

const NamedSignal* Lookup(std::uint32_t block, unsigned int number) {
  const auto found = std::find_if(Signals().begin(), Signals().end(), [&](const NamedSignal& named) {
    return (*named.identity)->block->id == block && (*named.identity)->number == number;
  });
  return found == Signals().end() ? nullptr : &*found;
}

const NamedEvent* LookupEvent(std::uint32_t group, unsigned int number) {
  const auto found = std::find_if(Events().begin(), Events().end(), [&](const NamedEvent& named) {
    return (*named.identity)->group->id == group && (*named.identity)->number == number;
  });
  return found == Events().end() ? nullptr : &*found;
}

std::string Numbers(std::uint32_t container, unsigned int number) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "0x%x/%u", container, number);
  return text.data();
}

std::string SignalName(std::uint32_t block, unsigned int number) {
  const NamedSignal* named = Lookup(block, number);
  return named != nullptr ? named->name : Numbers(block, number);
}

std::string EventName(std::uint32_t group, unsigned int number) {
  const NamedEvent* named = LookupEvent(group, number);
  return named != nullptr ? named->name : Numbers(group, number);
}

std::string WithToken(std::string text, const vorbus_t* token) {
  return token == Current().token() ? std::move(text) : std::move(text) + " (with a wrong token)";
}

std::string Hexadecimal(std::string_view octets) {
  std::string text;
  std::array<char, 4> digits{};
  for (const char octet : octets) {
    std::snprintf(digits.data(), digits.size(), "%02x ", static_cast<unsigned char>(octet));
    text += digits.data();
  }
  return text;
}

std::string SendText(const vorbus_sig_t& signal, vorbus_pid_t to) {
  return "send " + NameOf(signal) + " to " + std::to_string(to);
}

std::string LogText(int level, std::string_view function, std::string_view file, std::string_view text) {
  std::string line = "log ";
  line += std::to_string(level);
  line += ' ';
  line += function;
  line += '@';
  line += file;
  line += ": ";
  line += text;
  return line;
}

std::string FaultText(int severity, std::string_view function, std::string_view file) {
  std::string text = "fault of severity " + std::to_string(severity) + " in ";
  text += function;
  text += '@';
  text += file;
  return text;
}

template <typename Handle>
int Release(std::vector<std::unique_ptr<Handle>>& handles, Handle*& handle) {
  const std::size_t removed = std::erase_if(handles, [&](const auto& owned) { return owned.get() == handle; });
  handle = nullptr;
  return static_cast<int>(removed);
}

// A copy of exactly the octets' size, so that reading beyond it is an error that a sanitizer sees.
class ExactBuffer {
 public:
  explicit ExactBuffer(std::string_view octets) : size_(octets.size()) {
    if (size_ != 0) {
      data_ = std::make_unique<char[]>(size_);
      std::memcpy(data_.get(), octets.data(), size_);
    }
  }
  void* data() { return data_.get(); }
  std::size_t size() const { return size_; }

 private:
  std::size_t size_;
  std::unique_ptr<char[]> data_;
};

}  // namespace

// ---- Entries ----

std::string NameOf(const vorbus_sig_t& signal) {
  return SignalName(signal.block->id, signal.number);
}
std::string NameOf(const vorbus_event_t& event) {
  return EventName(event.group->id, event.number);
}

std::string Describe(const Entry& entry) {
  std::string text = entry.text;
  if (entry.kind == Kind::kSend && !entry.octets) {
    text += ", empty";
  } else if (entry.kind == Kind::kSend) {
    for (const NamedSignal& named : Signals()) {
      if (named.payload == nullptr || text.find(std::string(" ") + named.name + " ") == std::string::npos) {
        continue;
      }
      const std::unique_ptr<google::protobuf::Message> message(named.payload->New());
      if (message->ParseFromString(*entry.octets)) {
        return text + " { " + message->ShortDebugString() + " }";
      }
    }
    text += " [ " + Hexadecimal(*entry.octets) + "]";
  } else if (entry.octets) {
    const std::size_t used = entry.octets->find_last_not_of('\0') + 1;
    text += ": \"" + entry.octets->substr(0, used) + "\" and " + std::to_string(entry.octets->size() - used) + " zeros";
  }
  return text;
}

void PrintTo(const Entry& entry, std::ostream* out) {
  *out << Describe(entry);
}

Entry Sent(const vorbus_sig_t* signal, vorbus_pid_t to, const google::protobuf::Message& message) {
  return {Kind::kSend, SendText(*signal, to), message.SerializeAsString()};
}

Entry Sent(const vorbus_sig_t* signal, vorbus_pid_t to) {
  return {Kind::kSend, SendText(*signal, to), std::nullopt};
}

Entry Logged(int level, std::string_view function, std::string_view text, std::string_view file) {
  return {Kind::kLog, LogText(level, function, file, text), std::nullopt};
}

Entry LevelQueried(int level) {
  return {Kind::kLevelQuery, "is level " + std::to_string(level) + " enabled?", std::nullopt};
}

Entry Subscribed(std::string_view process) {
  return {Kind::kSubscribe, "subscribe to " + std::string(process), std::nullopt};
}

Entry Unsubscribed(std::string_view process) {
  return {Kind::kUnsubscribe, "unsubscribe from " + std::string(process), std::nullopt};
}

Entry TraceInitialised(std::string_view category) {
  return {Kind::kTraceInit, "make category " + std::string(category), std::nullopt};
}

Entry Registered(const vorbus_sig_t* signal) {
  return {Kind::kRegister, "register " + NameOf(*signal), std::nullopt};
}
Entry Registered(const vorbus_event_t* event) {
  return {Kind::kRegister, "register " + NameOf(*event), std::nullopt};
}

Entry Deregistered(const vorbus_sig_t* signal) {
  return {Kind::kDeregister, "deregister " + NameOf(*signal), std::nullopt};
}

Entry Deregistered(const vorbus_event_t* event) {
  return {Kind::kDeregister, "deregister " + NameOf(*event), std::nullopt};
}

Entry AskedIfindex(std::uint32_t limid) {
  return {Kind::kLimid, "ifindex of limid " + std::to_string(limid) + "?", std::nullopt};
}

Entry AskedLimid(std::uint32_t ifindex) {
  return {Kind::kLimid, "limid of ifindex " + std::to_string(ifindex) + "?", std::nullopt};
}

Entry AskedName(std::uint32_t limid, std::size_t length) {
  return {Kind::kLimid, "name of limid " + std::to_string(limid) + " into " + std::to_string(length) + " octets?",
          std::nullopt};
}

Entry Backtraced() {
  return {Kind::kBacktrace, "print a backtrace", std::nullopt};
}

Entry Faulted(int severity, std::string_view function, std::string_view file, std::string_view text) {
  std::string record(sizeof(vorbus_fault_t), '\0');
  record.replace(0, text.size(), text);
  return {Kind::kFault, FaultText(severity, function, file), record};
}

Entry Noted(std::string_view text) {
  return {Kind::kNote, "note: " + std::string(text), std::nullopt};
}

testing::AssertionResult Same(const Journal& actual, const Journal& expected) {
  if (actual == expected) {
    return testing::AssertionSuccess();
  }
  const auto parting = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
  const auto index = static_cast<std::size_t>(parting.first - actual.begin());
  auto result = testing::AssertionFailure();
  result << "they part at entry " << index << " (" << actual.size() << " entries, " << expected.size()
         << " expected)\n";
  constexpr std::size_t kEnough = 2000;  // of one entry: some log lines are megabytes long
  const auto side = [&](const Journal& journal, std::size_t i) {
    return i < journal.size() ? Describe(journal[i]).substr(0, kEnough) : "(nothing)";
  };
  const std::size_t first = index < 2 ? 0 : index - 2;
  for (std::size_t i = first; i < std::max(actual.size(), expected.size()) && i < index + 6; ++i) {
    if (i < index) {
      result << "  both     " << i << ": " << side(actual, i) << '\n';
      continue;
    }
    result << "  actual   " << i << ": " << side(actual, i) << '\n';
    result << "  expected " << i << ": " << side(expected, i) << '\n';
  }
  return result;
}

Journal Only(const Journal& journal, std::initializer_list<Kind> kinds) {
  Journal kept;
  std::copy_if(journal.begin(), journal.end(), std::back_inserter(kept),
               [&](const Entry& entry) { return std::find(kinds.begin(), kinds.end(), entry.kind) != kinds.end(); });
  return kept;
}

// ---- The middleware ----

Middleware::Middleware() : state_(std::make_unique<State>()), previous_(std::exchange(current, this)) {
  for (std::uint32_t limid = 1; limid <= 64; ++limid) {
    ports.push_back({limid, 1000 + limid, "port" + std::to_string(limid)});
  }
}

Middleware::~Middleware() {
  current = previous_;
}

vorbus_t* Middleware::token() {
  return &state_->token;
}

Journal Middleware::Take() {
  return std::exchange(journal_, {});
}

void Middleware::Note(std::string_view text) {
  Add(Noted(text));
}

void Middleware::Add(Entry entry) {
  observer(entry);
  journal_.push_back(std::move(entry));
}

std::string Middleware::Dump(const Journal& journal) {
  std::string dump = "journal:\n";
  for (const Entry& entry : journal) {
    dump += Describe(entry) + "\n";
  }
  return dump + "end of journal\n";
}

void Middleware::DumpAtExit() {
  std::atexit([] { std::fputs(Dump(Current().journal()).c_str(), stderr); });
}

int Middleware::Find(vorbus_pid_t pid) {
  int called = 0;
  for (const auto& subscription : state_->subscriptions) {
    const auto copy = std::make_unique<vorbus_pid_t>(pid);
    subscription->found(token(), copy.get(), subscription->user);
    ++called;
  }
  return called;
}

int Middleware::Lose() {
  int called = 0;
  for (const auto& subscription : state_->subscriptions) {
    subscription->lost(token(), subscription->user);
    ++called;
  }
  return called;
}

int Middleware::Deliver(const vorbus_sig_t* signal, std::string_view octets, vorbus_pid_t sender) {
  int called = 0;
  for (const auto& registration : state_->signals) {
    if (registration->block.id != signal->block->id || registration->number != signal->number) {
      continue;
    }
    const auto pid = std::make_unique<vorbus_pid_t>(sender);
    ExactBuffer buffer(octets);
    registration->handler(token(), registration->user, pid.get(), buffer.data(), buffer.size());
    ++called;
  }
  return called;
}

int Middleware::Deliver(const vorbus_sig_t* signal, const google::protobuf::Message& message, vorbus_pid_t sender) {
  return Deliver(signal, message.SerializeAsString(), sender);
}

int Middleware::Deliver(const vorbus_event_t* event, std::string_view octets) {
  int called = 0;
  for (const auto& registration : state_->events) {
    if (registration->group.id != event->group->id || registration->number != event->number) {
      continue;
    }
    ExactBuffer buffer(octets);
    registration->handler(token(), registration->user, buffer.data(), buffer.size());
    ++called;
  }
  return called;
}

int Middleware::Deliver(const vorbus_event_t* event, const google::protobuf::Message& message) {
  return Deliver(event, message.SerializeAsString());
}

std::size_t Middleware::live_subscriptions() const {
  return state_->subscriptions.size();
}

std::size_t Middleware::live_registrations() const {
  return state_->signals.size() + state_->events.size();
}

}  // namespace recording

// ---- What the library links against ----

using recording::Current;
using recording::Entry;
using recording::Kind;
using recording::Middleware;
using recording::Port;

vorbus_subscription_t* vorbus_proc_subscribe(vorbus_t* token, const vorbus_proc_t* process, vorbus_found_fn found,
                                             vorbus_lost_fn lost, void* user) {
  Middleware& middleware = Current();
  const std::string name(process->name, strnlen(process->name, sizeof(process->name)));
  Entry entry = recording::Subscribed(name);
  entry.text = recording::WithToken(std::move(entry.text), token);
  middleware.Add(std::move(entry));
  if (middleware.subscribe_throws) {
    throw std::bad_alloc();
  }
  if (middleware.subscribe_fails) {
    errno = ENOMEM;
    return nullptr;
  }
  auto& subscriptions = middleware.state().subscriptions;
  subscriptions.push_back(std::make_unique<vorbus_subscription_t>(
      vorbus_subscription_t{.process = name, .found = found, .lost = lost, .user = user}));
  return subscriptions.back().get();
}

void vorbus_proc_unsubscribe(vorbus_subscription_t** subscription) {
  Middleware& middleware = Current();
  middleware.Add(recording::Unsubscribed(*subscription == nullptr ? "nothing" : (*subscription)->process));
  recording::Release(middleware.state().subscriptions, *subscription);
}

int vorbus_sig_send(vorbus_t* token, const vorbus_pid_t* to, const vorbus_sig_t* signal, const void* data,
                    size_t size) {
  Middleware& middleware = Current();
  Entry entry = recording::Sent(signal, *to);
  entry.text = recording::WithToken(std::move(entry.text), token);
  if (data != nullptr) {
    entry.octets = std::string(static_cast<const char*>(data), size);
  } else if (size != 0) {
    entry.text += " (a null pointer of size " + std::to_string(size) + ")";
  }
  middleware.Add(std::move(entry));
  return middleware.send_result;
}

vorbus_registration_t* vorbus_sig_register_sized(vorbus_t* token, const vorbus_sig_t* signal, vorbus_sig_fn handler,
                                                 void* user) {
  Middleware& middleware = Current();
  Entry entry = recording::Registered(signal);
  entry.text = recording::WithToken(std::move(entry.text), token);
  middleware.Add(std::move(entry));
  if (middleware.registrations_fail) {
    errno = ENOMEM;
    return nullptr;
  }
  auto& signals = middleware.state().signals;
  signals.push_back(std::make_unique<vorbus_registration_t>(
      vorbus_registration_t{.block = *signal->block, .number = signal->number, .handler = handler, .user = user}));
  return signals.back().get();
}

void vorbus_sig_deregister(vorbus_registration_t** registration) {
  Middleware& middleware = Current();
  if (*registration == nullptr) {
    middleware.Add({Kind::kDeregister, "deregister nothing", std::nullopt});
    return;
  }
  middleware.Add({Kind::kDeregister,
                  "deregister " + recording::SignalName((*registration)->block.id, (*registration)->number),
                  std::nullopt});
  recording::Release(middleware.state().signals, *registration);
}

vorbus_eventreg_t* vorbus_event_register_sized(vorbus_t* token, const vorbus_event_t* event, vorbus_event_fn handler,
                                               void* user) {
  Middleware& middleware = Current();
  Entry entry = recording::Registered(event);
  entry.text = recording::WithToken(std::move(entry.text), token);
  middleware.Add(std::move(entry));
  if (middleware.registrations_fail) {
    errno = ENOMEM;
    return nullptr;
  }
  auto& events = middleware.state().events;
  events.push_back(std::make_unique<vorbus_eventreg_t>(
      vorbus_eventreg_t{.group = *event->group, .number = event->number, .handler = handler, .user = user}));
  return events.back().get();
}

void vorbus_event_deregister(vorbus_eventreg_t** registration) {
  Middleware& middleware = Current();
  if (*registration == nullptr) {
    middleware.Add({Kind::kDeregister, "deregister nothing", std::nullopt});
    return;
  }
  middleware.Add({Kind::kDeregister,
                  "deregister " + recording::EventName((*registration)->group.id, (*registration)->number),
                  std::nullopt});
  recording::Release(middleware.state().events, *registration);
}

zlog_category_s* vorbus_trace_init(vorbus_t* token, const char* category) {
  Middleware& middleware = Current();
  Entry entry = recording::TraceInitialised(category);
  entry.text = recording::WithToken(std::move(entry.text), token);
  middleware.Add(std::move(entry));
  return middleware.trace_init_fails ? nullptr : &middleware.state().category;
}

void vorbus_print_backtrace(void) {
  Current().Add(recording::Backtraced());
}

void vorbus_gen_fault(int severity, const char* function, const char* file, int line, const vorbus_fault_t* fault) {
  Entry entry = {Kind::kFault, recording::FaultText(severity, function, file),
                 std::string(reinterpret_cast<const char*>(fault), sizeof(*fault))};
  if (line < 1) {
    entry.text += " (line " + std::to_string(line) + ")";
  }
  Current().Add(std::move(entry));
}

void zlog(zlog_category_t* category, const char* file, size_t filelen, const char* func, size_t funclen, long line,
          int level, const char* format, ...) {
  Middleware& middleware = Current();
  if (!middleware.record_logs) {
    return;
  }
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  std::string text(length < 0 ? 0 : static_cast<std::size_t>(length), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  va_end(arguments);

  Entry entry = recording::Logged(level, {func, funclen}, text, {file, filelen});
  if (category != &middleware.state().category) {
    entry.text += " (to a wrong category)";
  }
  if (line < 1) {
    entry.text += " (line " + std::to_string(line) + ")";
  }
  middleware.Add(std::move(entry));
}

int zlog_level_enabled(zlog_category_t* category, const int level) {
  Middleware& middleware = Current();
  Entry entry = recording::LevelQueried(level);
  if (category != &middleware.state().category) {
    entry.text += " (of a wrong category)";
  }
  middleware.Add(std::move(entry));
  return middleware.level_enabled(level) ? 1 : 0;
}

int limid_to_ifindex(uint32_t limid, uint32_t* ifindex) {
  Middleware& middleware = Current();
  middleware.Add(recording::AskedIfindex(limid));
  for (const Port& port : middleware.ports) {
    if (port.limid == limid && !middleware.limid_fails) {
      *ifindex = port.ifindex;
      return 0;
    }
  }
  if (!middleware.limid_failure_keeps_output) {
    *ifindex = 0;
  }
  return -ENODEV;
}

int limid_from_ifindex(uint32_t ifindex, uint32_t* limid) {
  Middleware& middleware = Current();
  middleware.Add(recording::AskedLimid(ifindex));
  for (const Port& port : middleware.ports) {
    if (port.ifindex == ifindex && !middleware.limid_fails) {
      *limid = port.limid;
      return 0;
    }
  }
  if (!middleware.limid_failure_keeps_output) {
    *limid = 0;
  }
  return -ENODEV;
}

int limid_to_intfname(uint32_t limid, char* name, size_t length) {
  Middleware& middleware = Current();
  middleware.Add(recording::AskedName(limid, length));
  for (const Port& port : middleware.ports) {
    if (port.limid == limid && !middleware.limid_fails && port.name.size() < length) {
      std::memcpy(name, port.name.c_str(), port.name.size() + 1);
      return 0;
    }
  }
  if (!middleware.limid_failure_keeps_output) {
    name[0] = '\0';
  }
  return -ENODEV;
}
