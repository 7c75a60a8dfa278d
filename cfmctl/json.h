// JSON output: one document or one event to a line.
#ifndef CFMCTL_JSON_H
#define CFMCTL_JSON_H

#include <nlohmann/json.hpp>
#include <ostream>

namespace cfmctl {

/// Keeps the order in which members were added.
using Json = nlohmann::ordered_json;

/// Text from the network need not be UTF-8; what is not becomes U+FFFD.
inline std::string Dump(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

/// One line, at once visible to who reads.
inline void WriteLine(const Json& json, std::ostream& out) {
  out << Dump(json) << std::endl;
}

}  // namespace cfmctl

#endif
