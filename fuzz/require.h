// The check of the fuzz targets, on in every build.
#ifndef CFM_FUZZ_REQUIRE_H
#define CFM_FUZZ_REQUIRE_H

#include <cstdio>
#include <cstdlib>
#include <source_location>

namespace cfm::fuzz {

inline void Require(bool holds, std::source_location where = std::source_location::current()) {
  if (holds) return;
  std::fprintf(stderr, "%s:%u: does not hold, in %s\n", where.file_name(), static_cast<unsigned>(where.line()),
               where.function_name());
  std::abort();
}

}  // namespace cfm::fuzz

#endif
