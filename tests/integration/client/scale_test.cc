// One hierarchy of a hundred thousand end points (ten thousand under a sanitizer, which is up to twenty times slower).
#include <gtest/gtest.h>

#include <string>

#include "element.h"

namespace cfm_test {
namespace {

#if defined(CFM_SANITIZED)
constexpr unsigned kAssociations = 10;
#else
constexpr unsigned kAssociations = 100;
#endif

TEST(AHugeHierarchy, IsAppliedSurvivesTheServerAndIsReadBack) {
  const Configuration huge{Grid(10, kAssociations, 100), {}};
  ASSERT_EQ(CacheOf(huge).endpoints_size(), static_cast<int>(10 * kAssociations * 100));
  Element element;
  element.StartServer();
  element.StartApplication({});
  element.Synchronise();
  element.application().Tell("grid 10 " + std::to_string(kAssociations) + " 100");
  element.application().AwaitLine("applied grid");
  element.ExpectCache(huge);
  ASSERT_FALSE(HasFailure());

  element.KillServer();
  element.application().AwaitLine("lost");
  element.StartServer();
  element.Synchronise();
  element.ExpectCache(huge);
}

}  // namespace
}  // namespace cfm_test
