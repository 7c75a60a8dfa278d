// How values are spread, as lines of text.
#ifndef CFMCTL_HISTOGRAM_H
#define CFMCTL_HISTOGRAM_H

#include <string>
#include <string_view>
#include <vector>

namespace cfmctl {

/// A line for each range of values, with their number and a bar. The ranges are equally wide, eleven at most, and reach
/// to the 95th percentile: the few that lie above stand in one range without an end, so that the others do not all fall
/// into the first. Values that are negative or not finite are left out.
std::vector<std::string> Histogram(std::vector<double> values, std::string_view unit);

}  // namespace cfmctl

#endif
