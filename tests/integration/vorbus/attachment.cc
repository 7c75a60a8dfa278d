#include "attachment.h"

#include <poll.h>

#include <cstring>
#include <system_error>

namespace vorbus_test {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr vorbus_sigblock_t kBlock = {0x54455354};
constexpr vorbus_evgroup_t kGroup = {0x54455355};

char Octet(std::uint32_t number, std::size_t place) {
  return static_cast<char>(std::size_t{31} * number + place * 7 + (place >> 8) + (place >> 16));
}

}  // namespace

vorbus_proc_t Name(std::string_view name) {
  vorbus_proc_t process{};
  name.copy(process.name, sizeof process.name);
  return process;
}

vorbus_sig_t Signal(unsigned int number) {
  return {&kBlock, number};
}

vorbus_event_t Event(unsigned int number) {
  return {&kGroup, number};
}

std::string Numbered(std::uint32_t number, std::size_t size) {
  std::string message(size, '\0');
  for (std::size_t place = sizeof number; place < size; ++place) {
    message[place] = Octet(number, place);
  }
  std::memcpy(message.data(), &number, sizeof number);
  return message;
}

std::int64_t NumberOf(const void* data, std::size_t size) {
  std::uint32_t number = 0;
  if (size < sizeof number) {
    return -1;
  }
  std::memcpy(&number, data, sizeof number);
  const char* octets = static_cast<const char*>(data);
  for (std::size_t place = sizeof number; place < size; ++place) {
    if (octets[place] != Octet(number, place)) {
      return -1;
    }
  }
  return number;
}

void Stream::Add(const void* data, std::size_t size) {
  const std::int64_t number = NumberOf(data, size);
  if (number != next) {
    ++wrong;
  }
  next = static_cast<std::uint32_t>(number + 1);
}

Attachment::Attachment(const std::string& directory, const char* name, unsigned int send_timeout_ms) {
  const vorbus_options_t options{name, directory.c_str(), send_timeout_ms};
  const int rc = vorbus_open(&options, &token_);
  if (rc != 0) {
    throw std::system_error(-rc, std::generic_category(), "vorbus_open");
  }
}

Attachment::~Attachment() {
  vorbus_close(&token_);
}

Attachment::Presence& Attachment::Subscribe(std::string_view process) {
  Presence& presence = presences_.emplace_back();
  const vorbus_proc_t name = Name(process);
  presence.subscription = vorbus_proc_subscribe(
      token_, &name,
      [](vorbus_t*, const vorbus_pid_t* pid, void* user) {
        auto* found = static_cast<Presence*>(user);
        found->reports.emplace_back("found");
        found->pids.push_back(*pid);
        found->is_there = true;
        if (found->on_change) {
          found->on_change();
        }
      },
      [](vorbus_t*, void* user) {
        auto* lost = static_cast<Presence*>(user);
        lost->reports.emplace_back("lost");
        lost->is_there = false;
        if (lost->on_change) {
          lost->on_change();
        }
      },
      &presence);
  return presence;
}

vorbus_registration_t* Attachment::OnSignal(unsigned int number, SignalFunction function) {
  const vorbus_sig_t signal = Signal(number);
  return vorbus_sig_register_sized(
      token_, &signal,
      [](vorbus_t*, void* user, const vorbus_pid_t* sender, void* data, size_t size) {
        (*static_cast<SignalFunction*>(user))(*sender, data, size);
      },
      &signal_functions_.emplace_back(std::move(function)));
}

vorbus_eventreg_t* Attachment::OnEvent(unsigned int number, EventFunction function) {
  const vorbus_event_t event = Event(number);
  return vorbus_event_register_sized(
      token_, &event,
      [](vorbus_t*, void* user, void* data, size_t size) { (*static_cast<EventFunction*>(user))(data, size); },
      &event_functions_.emplace_back(std::move(function)));
}

int Attachment::Send(vorbus_pid_t to, unsigned int signal, std::string_view payload) {
  const vorbus_sig_t identity = Signal(signal);
  return vorbus_sig_send(token_, &to, &identity, payload.data(), payload.size());
}

int Attachment::Publish(unsigned int event, std::string_view payload) {
  const vorbus_event_t identity = Event(event);
  return vorbus_event_publish(token_, &identity, payload.data(), payload.size());
}

bool Attachment::IsReadable(milliseconds timeout) const {
  pollfd descriptor{vorbus_fd(token_), POLLIN, 0};
  return poll(&descriptor, 1, static_cast<int>(timeout.count())) > 0;
}

void Attachment::Turn(milliseconds timeout) {
  if (IsReadable(timeout)) {
    vorbus_dispatch(token_);
  }
}

bool Attachment::Run(const std::function<bool()>& until, milliseconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  while (!until()) {
    if (Clock::now() >= deadline) {
      return false;
    }
    Turn();
  }
  return true;
}

void Attachment::Settle() {
  while (IsReadable()) {
    vorbus_dispatch(token_);
  }
}

}  // namespace vorbus_test
