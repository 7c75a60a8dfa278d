#include "raw_client.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <system_error>
#include <utility>

#include "cfm/identities.h"

namespace cfm_test {
namespace {

using Clock = std::chrono::steady_clock;

template <typename Identity>
struct Named {
  const char* name;
  const Identity* identity;
};

#define NAMED(identity) \
  { #identity, identity }

const std::array<Named<vorbus_sig_t>, 5>& Replies() {
  static const std::array<Named<vorbus_sig_t>, 5> replies = {{
      NAMED(CFM_MGR_S2C_SIG_CACHE_REPLY),
      NAMED(CFM_MGR_S2C_SIG_STATS_REPLY),
      NAMED(CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR),
      NAMED(CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR),
      NAMED(CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR),
  }};
  return replies;
}

const std::array<Named<vorbus_event_t>, 14>& Events() {
  static const std::array<Named<vorbus_event_t>, 14> events = {{
      NAMED(CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP),
      NAMED(CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP),
      NAMED(CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP),
      NAMED(CFM_MGR_SRV_EVENT_REMOVED_REMOTE_MEP),
      NAMED(CFM_MGR_SRV_EVENT_LINKTRACE_STARTED),
      NAMED(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX),
      NAMED(CFM_MGR_SRV_EVENT_LINKTRACE_ENDED),
      NAMED(CFM_MGR_SRV_EVENT_LOOPBACK_STARTED),
      NAMED(CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX),
      NAMED(CFM_MGR_SRV_EVENT_LOOPBACK_ENDED),
      NAMED(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED),
      NAMED(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX),
      NAMED(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_ENDED),
      NAMED(CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED),
  }};
  return events;
}

#undef NAMED

std::string Octets(const void* data, size_t size) {
  return size == 0 ? std::string() : std::string(static_cast<const char*>(data), size);
}

void Require(bool succeeded, const char* what) {
  if (!succeeded) throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

RawClient::RawClient(const std::string& directory) {
  const vorbus_options_t options{nullptr, directory.c_str(), 0};
  if (const int error = vorbus_open(&options, &token_); error != 0) {
    throw std::system_error(-error, std::generic_category(), "vorbus_open");
  }
  for (const auto& reply : Replies()) {
    handlers_.push_back(std::make_unique<Handler>(Handler{this, reply.name}));
    const auto* registration = vorbus_sig_register_sized(
        token_, reply.identity,
        [](vorbus_t* /*token*/, void* user, const vorbus_pid_t* /*sender*/, void* data, size_t size) {
          const auto* handler = static_cast<Handler*>(user);
          handler->client->received_.push_back({handler->name, Octets(data, size)});
        },
        handlers_.back().get());
    Require(registration != nullptr, reply.name);
  }
  for (const auto& event : Events()) {
    handlers_.push_back(std::make_unique<Handler>(Handler{this, event.name}));
    const auto* registration = vorbus_event_register_sized(
        token_, event.identity,
        [](vorbus_t* /*token*/, void* user, void* data, size_t size) {
          const auto* handler = static_cast<Handler*>(user);
          handler->client->received_.push_back({handler->name, Octets(data, size)});
        },
        handlers_.back().get());
    Require(registration != nullptr, event.name);
  }
  subscription_ = vorbus_proc_subscribe(
      token_, CFM_MGR_PROCESS,
      [](vorbus_t* /*token*/, const vorbus_pid_t* pid, void* user) { static_cast<RawClient*>(user)->server_ = *pid; },
      [](vorbus_t* /*token*/, void* user) { static_cast<RawClient*>(user)->server_ = 0; }, this);
  Require(subscription_ != nullptr, "vorbus_proc_subscribe");
}

// The registrations die with the token.
RawClient::~RawClient() {
  vorbus_proc_unsubscribe(&subscription_);
  vorbus_close(&token_);
}

bool RawClient::DispatchUntil(const std::function<bool()>& done) {
  const auto deadline = Clock::now() + kDeadline;
  vorbus_dispatch(token_);
  while (!done()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    pollfd readable{vorbus_fd(token_), POLLIN, 0};
    poll(&readable, 1, static_cast<int>(left));
    vorbus_dispatch(token_);
  }
  return true;
}

bool RawClient::WaitForServer() {
  return DispatchUntil([this] { return server_ != 0; });
}

bool RawClient::WaitForNoServer() {
  return DispatchUntil([this] { return server_ == 0; });
}

void RawClient::Send(const vorbus_sig_t* signal, const google::protobuf::Message& message) {
  Send(signal, message.SerializeAsString());
}

void RawClient::Send(const vorbus_sig_t* signal, std::string_view octets) {
  const int result = vorbus_sig_send(token_, &server_, signal, octets.empty() ? nullptr : octets.data(), octets.size());
  ASSERT_EQ(result, 0) << std::strerror(-result);
}

std::optional<Received> RawClient::Take(const std::function<bool(const Received&)>& wanted) {
  const auto find = [&] { return std::find_if(received_.begin(), received_.end(), wanted); };
  if (!DispatchUntil([&] { return find() != received_.end(); })) return std::nullopt;
  const auto found = find();
  Received taken = std::move(*found);
  received_.erase(found);
  return taken;
}

std::optional<Received> RawClient::Next() {
  return Take([](const Received& /*any*/) { return true; });
}

client_server::OpCacheSync RawClient::Cache() {
  Send(CFM_MGR_C2S_SIG_CACHE_GET);
  const auto reply = Take([](const Received& received) { return received.name == "CFM_MGR_S2C_SIG_CACHE_REPLY"; });
  client_server::OpCacheSync cache;
  EXPECT_TRUE(reply.has_value()) << "no cache reply";
  if (reply) {
    EXPECT_TRUE(cache.ParseFromString(reply->octets));
  }
  return cache;
}

ServerProcess::ServerProcess(std::vector<std::string> options) : options_(std::move(options)) {
  Start();
}

void ServerProcess::Start() {
  std::vector<std::string> arguments = {CFM_MGR, "--socket-dir", directory()};
  arguments.insert(arguments.end(), options_.begin(), options_.end());
  process_.emplace(arguments);
  RawClient client(directory());
  if (!client.WaitForServer()) throw std::runtime_error("the server does not come up: " + process_->Errors());
}

void ServerProcess::Restart() {
  process_->Kill();
  Start();
}

}  // namespace cfm_test
