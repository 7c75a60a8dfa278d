// The configuration file on disk.
#ifndef CFMCTL_CONFIG_FILE_H
#define CFMCTL_CONFIG_FILE_H

#include <string>

#include "model.h"
#include "ports.h"

namespace cfmctl {

struct Configuration {
  std::string text;
  Model model;
  HostPorts ports;  ///< as they were when the file was read
};

/// Throws Failure with kBadInput.
std::string ReadFile(const std::string& name);

/// Throws Failure with kBadInput and all errors of the file in its message, one per line.
Configuration ParseFile(const std::string& name, std::string text);

}  // namespace cfmctl

#endif
