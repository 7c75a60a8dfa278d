// The libFuzzer program. CFM_FUZZ_TARGET in the environment says which target it runs.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "targets.h"

namespace {

const cfm::fuzz::Target& ChosenTarget() {
  const char* const chosen = std::getenv("CFM_FUZZ_TARGET");
  const auto targets = cfm::fuzz::Targets();
  const auto found = std::ranges::find(targets, std::string_view(chosen != nullptr ? chosen : ""),
                                       [](const auto& target) { return std::string_view(target.name); });
  if (found != targets.end()) return *found;
  std::fprintf(stderr, "CFM_FUZZ_TARGET must be one of");
  for (const auto& target : targets) std::fprintf(stderr, " %s", target.name);
  std::fprintf(stderr, "\n");
  std::exit(2);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const cfm::fuzz::Target& target = ChosenTarget();
  target.run({data, size});
  return 0;
}
