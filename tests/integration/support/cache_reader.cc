#include "cache_reader.h"

#include <poll.h>

#include <algorithm>
#include <system_error>

#include "cfm/identities.h"
#include "configuration.h"

namespace cfm_test {
namespace {

using Clock = std::chrono::steady_clock;

CacheReader& ReaderOf(void* user) {
  return *static_cast<CacheReader*>(user);
}

bool SameNumbers(const client_server::OpCacheSync& a, const client_server::OpCacheSync& b) {
  return a.domains_size() == b.domains_size() && a.associations_size() == b.associations_size() &&
         a.endpoints_size() == b.endpoints_size() && a.probes_size() == b.probes_size() &&
         a.sessions_size() == b.sessions_size();
}

}  // namespace

CacheReader::CacheReader(const std::string& directory) {
  const vorbus_options_t options{nullptr, directory.c_str(), 0};
  const int error = vorbus_open(&options, &token_);
  if (error != 0) {
    throw std::system_error(-error, std::generic_category(), "vorbus_open");
  }
  subscription_ = vorbus_proc_subscribe(
      token_, CFM_MGR_PROCESS,
      [](vorbus_t* /*token*/, const vorbus_pid_t* pid, void* user) { ReaderOf(user).server_ = *pid; },
      [](vorbus_t* /*token*/, void* user) { ReaderOf(user).server_ = 0; }, this);
  registration_ = vorbus_sig_register_sized(
      token_, CFM_MGR_S2C_SIG_CACHE_REPLY,
      [](vorbus_t* /*token*/, void* user, const vorbus_pid_t* sender, void* data, size_t size) {
        CacheReader& reader = ReaderOf(user);
        client_server::OpCacheSync cache;
        if (*sender == reader.server_ && cache.ParseFromArray(data, static_cast<int>(size))) {
          reader.reply_ = std::move(cache);
        }
      },
      this);
}

CacheReader::~CacheReader() {
  vorbus_sig_deregister(&registration_);
  vorbus_proc_unsubscribe(&subscription_);
  vorbus_close(&token_);
}

// Dispatches until done() holds; false when the deadline comes first.
template <typename Done>
bool CacheReader::Dispatch(Clock::time_point deadline, Done done) {
  vorbus_dispatch(token_);
  while (!done()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) {
      return false;
    }
    pollfd readable{vorbus_fd(token_), POLLIN, 0};
    poll(&readable, 1, static_cast<int>(std::min<decltype(left)>(left, 60'000)));
    vorbus_dispatch(token_);
  }
  return true;
}

std::optional<vorbus_pid_t> CacheReader::WaitForServer(std::chrono::milliseconds timeout) {
  const bool found = Dispatch(Clock::now() + timeout, [&] { return server_ != 0; });
  return found ? std::optional(server_) : std::nullopt;
}

bool CacheReader::Ask(std::chrono::milliseconds timeout) {
  return WaitForServer(timeout) && vorbus_sig_send(token_, &server_, CFM_MGR_C2S_SIG_CACHE_GET, nullptr, 0) == 0;
}

std::optional<client_server::OpCacheSync> CacheReader::Read(std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  vorbus_pid_t asked = 0;
  reply_.reset();
  // A server that is replaced while it is asked is asked anew.
  const bool read = Dispatch(deadline, [&] {
    if (server_ != 0 && server_ != asked) {
      asked = server_;
      vorbus_sig_send(token_, &server_, CFM_MGR_C2S_SIG_CACHE_GET, nullptr, 0);
    }
    return reply_.has_value();
  });
  return read ? std::move(reply_) : std::nullopt;
}

std::string CacheReader::WaitFor(const client_server::OpCacheSync& expected, std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  std::optional<client_server::OpCacheSync> last;
  while (true) {
    const auto begun = Clock::now();
    auto cache = Read(std::chrono::ceil<std::chrono::milliseconds>(deadline - begun));
    if (!cache) {
      return "the server did not answer; before that:\n" + (last ? Difference(expected, *last) : "no cache was read\n");
    }
    // What differs is worked out once there is as much as there should be: that takes long where there is much.
    if (SameNumbers(expected, *cache) || Clock::now() >= deadline) {
      std::string difference = Difference(expected, *cache);
      if (difference.empty() || Clock::now() >= deadline) {
        return difference;
      }
    }
    last = std::move(cache);
    // A server that is kept busy with answers gets nothing else done.
    const auto pause = Clock::now() + 2 * (Clock::now() - begun);
    Dispatch(std::min(pause, deadline), [] { return false; });
  }
}

}  // namespace cfm_test
