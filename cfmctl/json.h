// JSON output: one document or one event to a line.
#ifndef CFMCTL_JSON_H
#define CFMCTL_JSON_H

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

namespace cfmctl {

/// Keeps the order in which members were added.
using Json = nlohmann::ordered_json;

/// ASCII alone, so that no text in it can drive a terminal. What is not UTF-8 becomes U+FFFD.
std::string Dump(const Json& json);

/// One line, at once visible to who reads.
void WriteLine(const Json& json, std::ostream& out);

}  // namespace cfmctl

#endif
