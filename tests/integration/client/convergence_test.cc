// Random configuration changes while the server and the application are killed at random points: whenever both are up
// and synchronised and one more configuration has been given, the server holds that configuration and nothing else.
//
// CFM_SEED repeats a run's configurations and kills (their timing is the machine's), CFM_SOAK_SECONDS sets how long it
// goes on.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <thread>

#include "element.h"
#include "random_configuration.h"

namespace cfm_test {
namespace {

using Clock = std::chrono::steady_clock;

std::uint64_t FromEnvironment(const char* name, std::uint64_t otherwise) {
  const char* const value = std::getenv(name);
  return value != nullptr && *value != '\0' ? std::strtoull(value, nullptr, 10) : otherwise;
}

class Convergence : public testing::Test {
 protected:
  explicit Convergence(std::uint64_t seed = FromEnvironment("CFM_SEED", std::random_device()()))
      : seed_(seed), random_(seed) {}

  // From nothing at all to longer than most configurations take: a kill can meet any moment of what goes on.
  void PauseAtRandom() {
    const unsigned longest = OneOf(20, 1000, 10'000, 50'000);
    std::this_thread::sleep_for(std::chrono::microseconds(random_.Number(0, longest)));
  }

  void ChangeAndGive() {
    random_.Change(desired_);
    element_.application().Give(desired_);
  }

  // Kills some of the processes at random points of what the last change set off, and starts them again.
  void Disturb() {
    for (unsigned blows = random_.Number(0, 2); blows > 0; --blows) {
      const bool kill_server = random_.OneIn(2);
      const bool kill_application = !kill_server || random_.OneIn(4);
      PauseAtRandom();
      if (kill_server) {
        element_.KillServer();
        ++server_kills_;
      }
      if (kill_application) {
        element_.KillApplication();
        ++application_kills_;
      } else if (random_.OneIn(2)) {
        ChangeAndGive();
      }
      PauseAtRandom();
      const bool server_first = random_.OneIn(2);
      if (kill_server && server_first) {
        element_.StartServer();
      }
      if (kill_application) {
        random_.Change(desired_);
        element_.StartApplication(desired_);
      }
      if (kill_server && !server_first) {
        element_.StartServer();
      }
    }
  }

  const std::uint64_t seed_;
  RandomConfigurations random_;
  Element element_;
  Configuration desired_;
  unsigned server_kills_ = 0;
  unsigned application_kills_ = 0;

 private:
  unsigned OneOf(unsigned a, unsigned b, unsigned c, unsigned d) {
    const unsigned choices[] = {a, b, c, d};
    return choices[random_.Number(0, 3)];
  }
};

TEST_F(Convergence, IsReachedWhateverIsKilled) {
  std::cout << "CFM_SEED=" << seed_ << std::endl;
  const auto end = Clock::now() + std::chrono::seconds(FromEnvironment("CFM_SOAK_SECONDS", 20));
  element_.StartServer();
  element_.StartApplication(desired_);
  unsigned round = 0;
  for (; Clock::now() < end; ++round) {
    ChangeAndGive();
    Disturb();
    element_.Synchronise();
    ASSERT_FALSE(HasFailure()) << "round " << round << ", CFM_SEED=" << seed_;
    ChangeAndGive();
    element_.application().AwaitApplied();
    element_.ExpectCache(desired_);
    ASSERT_FALSE(HasFailure()) << "round " << round << ", CFM_SEED=" << seed_;
  }
  std::cout << round << " rounds; the server was killed " << server_kills_ << " times, the application "
            << application_kills_ << " times" << std::endl;
  EXPECT_GT(round, 0U);
}

}  // namespace
}  // namespace cfm_test
