// What a configuration costs the client library itself, by the number of end points: no middleware, no server, no log
// output. "requests" and "octets" are what one run sends.
#include <benchmark/benchmark.h>

#include <string>

#include "client_impl.h"
#include "client_server.pb.h"
#include "configuration.h"
#include "counting_middleware.h"

namespace {

cfm::hierarchy OfSize(std::int64_t endpoints) {
  switch (endpoints) {
    case 10:
      return cfm_test::Grid(1, 1, 10);
    case 100:
      return cfm_test::Grid(1, 10, 10);
    case 1'000:
      return cfm_test::Grid(1, 10, 100);
    case 10'000:
      return cfm_test::Grid(10, 10, 100);
    default:
      return cfm_test::Grid(10, 100, 100);
  }
}

// A client that is synchronised with an empty server.
class SynchronisedClient {
 public:
  SynchronisedClient() : impl_(reinterpret_cast<vorbus_t*>(&place_)) {
    const vorbus_pid_t pid = 1;
    cfm::ClientImpl::ServerFound(nullptr, &pid, &impl_);
    cfm::ClientImpl::ReqCacheReply(nullptr, &impl_, &pid, nullptr, 0);
  }
  cfm::ClientImpl* operator->() { return &impl_; }
  cfm::ClientImpl* get() { return &impl_; }

 private:
  char place_ = 0;  // a token only has to differ from null
  cfm::ClientImpl impl_;
};

class Counters {
 public:
  explicit Counters(benchmark::State& state) : state_(state), before_(cfm_bench::sent) {}
  ~Counters() {
    const auto runs = static_cast<double>(state_.iterations());
    state_.counters["requests"] = static_cast<double>(cfm_bench::sent.signals - before_.signals) / runs;
    state_.counters["octets"] = static_cast<double>(cfm_bench::sent.octets - before_.octets) / runs;
    state_.SetItemsProcessed(state_.iterations() * state_.range(0));
  }
  Counters(const Counters&) = delete;
  Counters& operator=(const Counters&) = delete;

 private:
  benchmark::State& state_;
  cfm_bench::Sent before_;
};

void BM_SameConfigurationAgain(benchmark::State& state) {
  const cfm::hierarchy hierarchy = OfSize(state.range(0));
  SynchronisedClient client;
  client->UpdateConfig(hierarchy);
  const Counters counters(state);
  for (auto _ : state) {
    client->UpdateConfig(hierarchy);
  }
}

void BM_EverythingIsNew(benchmark::State& state) {
  const cfm::hierarchy hierarchy = OfSize(state.range(0));
  SynchronisedClient client;
  const Counters counters(state);
  for (auto _ : state) {
    client->UpdateConfig(hierarchy);
    state.PauseTiming();
    client->applied_hierarchy_.clear();
    state.ResumeTiming();
  }
}

// An application that was restarted: the server's cache is parsed, imported and compared.
void BM_CacheReply(benchmark::State& state) {
  const cfm::hierarchy hierarchy = OfSize(state.range(0));
  std::string cache = cfm_test::CacheOf({hierarchy, {}}).SerializeAsString();
  SynchronisedClient client;
  client->UpdateConfig(hierarchy);
  const vorbus_pid_t pid = 1;
  const Counters counters(state);
  for (auto _ : state) {
    state.PauseTiming();
    client->applied_hierarchy_.clear();
    state.ResumeTiming();
    cfm::ClientImpl::ReqCacheReply(nullptr, client.get(), &pid, cache.data(), cache.size());
  }
}

BENCHMARK(BM_SameConfigurationAgain)->RangeMultiplier(10)->Range(10, 100'000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_EverythingIsNew)->RangeMultiplier(10)->Range(10, 100'000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CacheReply)->RangeMultiplier(10)->Range(10, 100'000)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
