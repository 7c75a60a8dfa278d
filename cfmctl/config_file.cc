#include "config_file.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>

#include "config_parser.h"
#include "failure.h"
#include "text.h"

namespace cfmctl {

std::string ReadFile(const std::string& name) {
  const auto fail = [&name](int error) {
    throw Failure(kBadInput, fmt::format("cannot read the configuration file {}: {}; name another with --config",
                                         Escape(name), std::strerror(error)));
  };
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(name.c_str(), "re"), &std::fclose);
  if (!file) fail(errno);
  std::string text;
  std::array<char, 65536> piece;
  while (const std::size_t size = std::fread(piece.data(), 1, piece.size(), file.get())) {
    text.append(piece.data(), size);
  }
  if (std::ferror(file.get()) != 0) fail(errno);
  return text;
}

Configuration ParseFile(const std::string& name, std::string text) {
  Configuration configuration;
  ParsedConfig parsed = ParseConfig(text, configuration.ports);
  if (!parsed.errors.empty()) {
    std::string message = fmt::format("{} in the configuration file:", Count(parsed.errors.size(), "error"));
    for (const ConfigError& error : parsed.errors) {
      message += "\n" + FormatError(Escape(name), error);
    }
    throw Failure(kBadInput, message);
  }
  configuration.text = std::move(text);
  configuration.model = std::move(parsed.model);
  return configuration;
}

}  // namespace cfmctl
