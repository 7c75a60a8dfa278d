// The C interface: checks arguments, and lets no C++ exception out.
#include <vorbus/vorbus.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "token.h"
#include "wire.h"

namespace {

// The result of the function, or the error number of what it ran out of.
template <typename Function>
int Guarded(const Function& function) noexcept {
  try {
    return function();
  } catch (const std::bad_alloc&) {
    return -ENOMEM;
  }
}

// The same for functions that return a handle through their argument.
template <typename Handle, typename Function>
Handle* GuardedHandle(const Function& function) noexcept {
  Handle* handle = nullptr;
  const int rc = Guarded([&] { return function(&handle); });
  if (rc != 0) {
    errno = -rc;
    return nullptr;
  }
  return handle;
}

std::uint64_t IdentityOf(const vorbus_sig_t& signal) {
  return bus::Identity(signal.block->id, signal.number);
}

std::uint64_t IdentityOf(const vorbus_event_t& event) {
  return bus::Identity(event.group->id, event.number);
}

bool IsValid(const vorbus_sig_t* signal) {
  return signal != nullptr && signal->block != nullptr;
}

bool IsValid(const vorbus_event_t* event) {
  return event != nullptr && event->group != nullptr;
}

}  // namespace

int vorbus_open(const vorbus_options_t* options, vorbus_t** token) {
  if (token == nullptr) {
    return -EINVAL;
  }
  *token = nullptr;
  std::unique_ptr<vorbus> opened;
  const int rc = Guarded([&] { return vorbus::Open(options != nullptr ? *options : vorbus_options_t{}, &opened); });
  *token = opened.release();
  return rc;
}

void vorbus_close(vorbus_t** token) {
  if (token != nullptr) {
    delete *token;
    *token = nullptr;
  }
}

vorbus_pid_t vorbus_self(const vorbus_t* token) {
  return token != nullptr ? token->pid() : 0;
}

int vorbus_fd(const vorbus_t* token) {
  return token != nullptr ? token->fd() : -EINVAL;
}

int vorbus_dispatch(vorbus_t* token) {
  return token != nullptr ? Guarded([&] { return token->Dispatch(); }) : -EINVAL;
}

vorbus_subscription_t* vorbus_proc_subscribe(vorbus_t* token, const vorbus_proc_t* process, vorbus_found_fn found,
                                             vorbus_lost_fn lost, void* user) {
  return GuardedHandle<vorbus_subscription_t>([&](vorbus_subscription_t** subscription) {
    if (token == nullptr || process == nullptr) {
      return -EINVAL;
    }
    const std::string_view name(process->name, strnlen(process->name, sizeof process->name));
    return token->Subscribe(name, found, lost, user, subscription);
  });
}

void vorbus_proc_unsubscribe(vorbus_subscription_t** subscription) {
  if (subscription != nullptr && *subscription != nullptr) {
    (*subscription)->link->token().Unsubscribe(**subscription);
    *subscription = nullptr;
  }
}

int vorbus_sig_send(vorbus_t* token, const vorbus_pid_t* to, const vorbus_sig_t* signal, const void* data,
                    size_t size) {
  if (token == nullptr || to == nullptr || !IsValid(signal) || (data == nullptr && size != 0)) {
    return -EINVAL;
  }
  return Guarded([&] { return token->SendSignal(*to, IdentityOf(*signal), data, size); });
}

vorbus_registration_t* vorbus_sig_register_sized(vorbus_t* token, const vorbus_sig_t* signal, vorbus_sig_fn handler,
                                                 void* user) {
  return GuardedHandle<vorbus_registration_t>([&](vorbus_registration_t** registration) {
    if (token == nullptr || !IsValid(signal) || handler == nullptr) {
      return -EINVAL;
    }
    *registration = token->RegisterSignal(IdentityOf(*signal), handler, user);
    return 0;
  });
}

void vorbus_sig_deregister(vorbus_registration_t** registration) {
  if (registration != nullptr && *registration != nullptr) {
    (*registration)->token->Deregister(**registration);
    *registration = nullptr;
  }
}

int vorbus_event_publish(vorbus_t* token, const vorbus_event_t* event, const void* data, size_t size) {
  if (token == nullptr || !IsValid(event) || (data == nullptr && size != 0)) {
    return -EINVAL;
  }
  return Guarded([&] { return token->Publish(IdentityOf(*event), data, size); });
}

int vorbus_event_ready(vorbus_t* token, const vorbus_event_t* event) {
  if (token == nullptr || !IsValid(event)) {
    return -EINVAL;
  }
  return Guarded([&] { return token->IsReady(IdentityOf(*event)) ? 1 : 0; });
}

vorbus_eventreg_t* vorbus_event_register_sized(vorbus_t* token, const vorbus_event_t* event, vorbus_event_fn handler,
                                               void* user) {
  return GuardedHandle<vorbus_eventreg_t>([&](vorbus_eventreg_t** registration) {
    if (token == nullptr || !IsValid(event) || handler == nullptr) {
      return -EINVAL;
    }
    return token->RegisterEvent(IdentityOf(*event), handler, user, registration);
  });
}

void vorbus_event_deregister(vorbus_eventreg_t** registration) {
  if (registration != nullptr && *registration != nullptr) {
    (*registration)->token->Deregister(**registration);
    *registration = nullptr;
  }
}
