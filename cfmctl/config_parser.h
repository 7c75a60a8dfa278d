// From the text of a configuration file to the model that it describes, or to everything that is wrong with it. The
// language is described in docs/configuration.md.
#ifndef CFMCTL_CONFIG_PARSER_H
#define CFMCTL_CONFIG_PARSER_H

#include <string>
#include <vector>

#include "model.h"
#include "ports.h"
#include "yaml_document.h"

namespace cfmctl {

struct ConfigError {
  Place place;
  std::string key;   ///< the way to the value, such as "domains.operator.level"; empty for the whole file
  std::string what;  ///< what was wrong, and what is allowed
};

struct ParsedConfig {
  Model model;                      ///< means something only without errors
  std::vector<ConfigError> errors;  ///< all of them, in the order of the file
};

/// Reads no file and asks nobody but `ports`.
ParsedConfig ParseConfig(const std::string& text, const Ports& ports);

/// "metro.yaml:12:7: domains.operator.level: 9 is out of range; allowed: 0 to 7"
std::string FormatError(const std::string& file_name, const ConfigError& error);

}  // namespace cfmctl

#endif
