// One libFuzzer program per target; CFM_FUZZ_TARGET says which.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto target = std::ranges::find(cfm::fuzz::Targets(), std::string_view(CFM_FUZZ_TARGET),
                                               [](const auto& entry) { return std::string_view(entry.name); });
  target->run({data, size});
  return 0;
}
