// Shows how far the server has come while the client library keeps this thread busy with sending.
#ifndef CFMCTL_CACHE_PROGRESS_H
#define CFMCTL_CACHE_PROGRESS_H

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>

#include "model.h"

namespace cfmctl {

/// Reads the server's cache again and again on a thread and a middleware token of its own, and draws a progress bar of
/// how many objects of `desired` have arrived. Does nothing when standard error is no terminal. Ends with the object.
class CacheProgress {
 public:
  /// Keeps a reference to `desired`. Signals must be blocked already.
  CacheProgress(const std::string& socket_directory, const Model& desired);
  ~CacheProgress();
  CacheProgress(const CacheProgress&) = delete;
  CacheProgress& operator=(const CacheProgress&) = delete;

 private:
  void Follow(const std::string& socket_directory, const Model& desired) const;

  std::atomic<bool> ended_ = false;
  std::thread thread_;
};

}  // namespace cfmctl

#endif
