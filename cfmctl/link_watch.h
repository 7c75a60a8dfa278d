// Tells when the kernel's interface table changed.
#ifndef CFMCTL_LINK_WATCH_H
#define CFMCTL_LINK_WATCH_H

#include <functional>

#include "event_loop.h"

namespace cfmctl {

/// `changed` may be called too often, never too seldom: look at the table. It is the one of the network namespace that
/// this was made in.
class LinkWatch {
 public:
  LinkWatch(EventLoop& loop, std::function<void()> changed);
  ~LinkWatch();
  LinkWatch(const LinkWatch&) = delete;
  LinkWatch& operator=(const LinkWatch&) = delete;

 private:
  int descriptor_;
};

}  // namespace cfmctl

#endif
