// cfm_scale_bench [END-POINTS...]: memory and time of the real client and server by the number of end points, which
// must be a multiple of 1000 (1000, 10000, 50000 and 100000 when none is given).
//
// For each size, in fresh processes: the application hands over one hierarchy (10 domains, so many associations in
// each, 100 end points in each of those), then the server is killed with SIGKILL and restarted. Prints
//   apply     from handing over until the server has dealt with the last request
//   recover   from starting the server again until it has dealt with the last request
//   memory    resident, in octets per end point: what the processes hold more than with no configuration, when applied
//             ("steady") and at most on the way, recovery included ("peak")
// Ends with status 1 when memory per end point grows by more than half from the second size to the last: it is to be
// linear.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "element.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Result {
  double apply_s;
  double recover_s;
  double client_steady;
  double client_peak;
  double server_steady;
  double server_peak;
};

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// The statistics request travels behind the configuration, and its reply comes when everything before it is dealt with.
void AwaitServerDone(cfm_test::Element& element) {
  element.application().Tell("statistics");
  element.application().AwaitLine("statistics-end");
}

Result Measure(unsigned endpoints) {
  cfm_test::Element element;
  element.StartServer();
  element.StartApplication({});
  element.Synchronise();
  AwaitServerDone(element);
  const auto per_endpoint = [endpoints](std::size_t with, std::size_t without) {
    return (static_cast<double>(with) - static_cast<double>(without)) / endpoints;
  };
  cfm_test::Process& client = element.application().process();
  const std::size_t client_before = client.Memory();
  const std::size_t server_before = element.server().Memory();
  Result result{};

  const auto applied_from = Clock::now();
  element.application().Tell("grid 10 " + std::to_string(endpoints / 1000) + " 100");
  AwaitServerDone(element);
  result.apply_s = SecondsSince(applied_from);
  result.client_steady = per_endpoint(client.Memory(), client_before);
  result.server_steady = per_endpoint(element.server().Memory(), server_before);

  element.KillServer();
  element.application().AwaitLine("lost");
  const auto recovered_from = Clock::now();
  element.StartServer();
  element.application().AwaitLine("synchronised");
  AwaitServerDone(element);
  result.recover_s = SecondsSince(recovered_from);
  const auto cache = element.reader().Read(cfm_test::kDeadline);
  if (!cache || cache->endpoints_size() != static_cast<int>(endpoints)) {
    std::fprintf(stderr, "the server does not hold the %u end points\n", endpoints);
    std::exit(1);
  }
  result.client_peak = per_endpoint(client.PeakMemory(), client_before);
  result.server_peak = per_endpoint(element.server().PeakMemory(), server_before);
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<unsigned> sizes;
  for (int i = 1; i < argc; ++i) {
    sizes.push_back(static_cast<unsigned>(std::strtoul(argv[i], nullptr, 10)));
    if (sizes.back() == 0 || sizes.back() % 1000 != 0) {
      std::fprintf(stderr, "not a multiple of 1000: %s\n", argv[i]);
      return 2;
    }
  }
  if (sizes.empty()) {
    sizes = {1'000, 10'000, 50'000, 100'000};
  }

  std::printf("                                     octets per end point\n");
  std::printf("end points  apply s  recover s  client steady  client peak  server steady  server peak\n");
  std::vector<Result> results;
  for (const unsigned endpoints : sizes) {
    results.push_back(Measure(endpoints));
    const Result& r = results.back();
    std::printf("%10u  %7.3f  %9.3f  %13.0f  %11.0f  %13.0f  %11.0f\n", endpoints, r.apply_s, r.recover_s,
                r.client_steady, r.client_peak, r.server_steady, r.server_peak);
    std::fflush(stdout);
  }
  if (results.size() > 2) {
    const Result& first = results[1];  // the smallest size is dominated by what does not grow
    const Result& last = results.back();
    const auto grows = [](double from, double to) { return to > 1.5 * from; };
    if (grows(first.client_peak, last.client_peak) || grows(first.server_peak, last.server_peak) ||
        grows(first.client_steady, last.client_steady) || grows(first.server_steady, last.server_steady)) {
      std::printf("memory grows faster than the number of end points\n");
      return 1;
    }
  }
  return 0;
}
