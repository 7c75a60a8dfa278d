#include "port/clocks.h"

#include <chrono>

namespace cfm::port {

protocol::ClockReading ReadClocks() {
  const auto system = std::chrono::system_clock::now().time_since_epoch();
  return {.system = std::chrono::duration_cast<protocol::Duration>(system),
          .monotonic = std::chrono::steady_clock::now()};
}

}  // namespace cfm::port
