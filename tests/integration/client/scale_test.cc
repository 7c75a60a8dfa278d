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
  EXPECT_EQ(element.application().losses(), 1U);
  element.StartServer();
  element.Synchronise();
  element.ExpectCache(huge);
}

// Every end point is deleted and created: as many removals are announced to the application, which is still sending.
TEST(AHugeHierarchy, IsMadeAnewWhileItsRemovalIsAnnounced) {
  Configuration huge{Grid(10, kAssociations, 100), {}};
  Element element;
  element.StartServer();
  element.StartApplication(huge);
  element.Synchronise();
  element.ExpectCache(huge);
  ASSERT_FALSE(HasFailure());

  for (auto& [md_name, md] : huge.hierarchy.mds) {
    for (auto& [ma_name, ma] : md.mas) {
      for (auto& [mep_id, mep] : ma.meps) {
        mep.cfg.direction = 2;
      }
    }
  }
  element.application().Give(huge);
  element.application().AwaitApplied();
  element.ExpectCache(huge);
  element.application().Tell("echo end");
  element.application().AwaitLine("echo end");
  EXPECT_EQ(element.application().losses(), 0U);
}

}  // namespace
}  // namespace cfm_test
