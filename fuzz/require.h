// The check of the fuzz targets, on in every build.
#ifndef CFM_FUZZ_REQUIRE_H
#define CFM_FUZZ_REQUIRE_H

#include <cstdio>
#include <cstdlib>

namespace cfm::fuzz {

// Both compilers have these; clang 14 has no std::source_location with this standard library.
inline void Require(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  if (holds) return;
  std::fprintf(stderr, "%s:%d: does not hold\n", file, line);
  std::abort();
}

}  // namespace cfm::fuzz

#endif
