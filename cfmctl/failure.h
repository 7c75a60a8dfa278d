// The one exception of cfmctl: ends the command with a message for people and an exit status.
#ifndef CFMCTL_FAILURE_H
#define CFMCTL_FAILURE_H

#include <stdexcept>
#include <string>

#include "exit_status.h"

namespace cfmctl {

class Failure : public std::runtime_error {
 public:
  Failure(int status, const std::string& message) : std::runtime_error(message), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

}  // namespace cfmctl

#endif
