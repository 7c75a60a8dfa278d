// The platform under the client library, reduced to counting what is sent: a benchmark then measures the library alone.
#ifndef CFM_BENCH_RECONCILIATION_COUNTING_MIDDLEWARE_H
#define CFM_BENCH_RECONCILIATION_COUNTING_MIDDLEWARE_H

#include <cstdint>

namespace cfm_bench {

struct Sent {
  std::uint64_t signals = 0;
  std::uint64_t octets = 0;
};

// Everything sent since the process began.
extern Sent sent;

}  // namespace cfm_bench

#endif
