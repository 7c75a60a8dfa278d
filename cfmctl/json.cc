#include "json.h"

namespace cfmctl {

std::string Dump(const Json& json) {
  return json.dump(-1, ' ', true, Json::error_handler_t::replace);
}

void WriteLine(const Json& json, std::ostream& out) {
  out << Dump(json) << std::endl;
}

}  // namespace cfmctl
