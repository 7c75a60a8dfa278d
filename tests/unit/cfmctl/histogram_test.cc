#include "histogram.h"

#include <gmock/gmock.h>

#include <limits>
#include <numeric>

namespace cfmctl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;

TEST(AHistogram, OfNothingIsEmpty) {
  EXPECT_THAT(Histogram({}, "us"), IsEmpty());
}

TEST(AHistogram, OfOneValueHasOneRange) {
  EXPECT_THAT(Histogram({12.34}, "us"), ElementsAre("12.3 - 12.4 us  1  ########################################"));
}

TEST(AHistogram, HasRangesOfRoundWidthAndShowsThoseInBetweenThatAreEmpty) {
  EXPECT_THAT(Histogram({14, 5.5, 5.9, 7}, "us"), ElementsAre(" 5 -  6 us  2  ########################################",
                                                              " 6 -  7 us  0",  //
                                                              " 7 -  8 us  1  ####################",
                                                              " 8 -  9 us  0",  //
                                                              " 9 - 10 us  0",  //
                                                              "10 - 11 us  0",  //
                                                              "11 - 12 us  0",  //
                                                              "12 - 13 us  0",  //
                                                              "13 - 14 us  0",  //
                                                              "14 - 15 us  1  ####################"));
}

TEST(AHistogram, GathersTheFewThatLieFarAbove) {
  std::vector<double> values(39, 20);
  values.push_back(5000);
  values.push_back(9000);
  EXPECT_THAT(Histogram(values, "us"),
              ElementsAre("20.0 - 20.1 us  39  ########################################", "20.1 -  ... us   2  ###"));
}

TEST(AHistogram, StaysSmallWhateverTheValues) {
  std::vector<double> values(1000);
  std::iota(values.begin(), values.end(), 995.0);
  EXPECT_THAT(Histogram(values, "us"), SizeIs(Le(12U)));
  EXPECT_THAT(Histogram({0, 1e12}, "us"), SizeIs(Le(12U)));
  EXPECT_THAT(Histogram({1e300, 1, 2}, "us"), SizeIs(Le(12U)));
  EXPECT_THAT(Histogram({0, 0, 0}, "us"), SizeIs(1U));
}

TEST(AHistogram, LeavesOutWhatIsNoMeasure) {
  const double infinite = std::numeric_limits<double>::infinity();
  const double no_number = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THAT(Histogram({infinite, no_number, -1}, "us"), IsEmpty());
}

}  // namespace
}  // namespace cfmctl
