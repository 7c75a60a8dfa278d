#include "histogram.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace cfmctl {
namespace {

constexpr double kMostRanges = 10;
constexpr std::size_t kLongestBar = 40;

// The narrowest of ..., 0.1, 0.2, 0.5, 1, 2, 5, 10, ... of which so many reach over `span`.
double WidthFor(double span) {
  constexpr double kNarrowest = 0.1;
  for (double decade = kNarrowest;; decade *= 10) {
    for (const double step : std::array{1.0, 2.0, 5.0}) {
      if (decade * step * kMostRanges >= span) return decade * step;
    }
  }
}

// By nearest rank.
double NinetyFifthPercentile(const std::vector<double>& sorted) {
  const auto rank = (sorted.size() * 95 + 99) / 100;
  return sorted[rank - 1];
}

std::string Bar(std::size_t count, std::size_t largest) {
  return fmt::format("{:#<{}}", "", (count * kLongestBar + largest - 1) / largest);
}

}  // namespace

std::vector<std::string> Histogram(std::vector<double> values, std::string_view unit) {
  std::erase_if(values, [](double value) { return !std::isfinite(value) || value < 0; });
  if (values.empty()) return {};
  std::sort(values.begin(), values.end());
  const double body = NinetyFifthPercentile(values);
  const double width = WidthFor(body - values.front());
  const double first = std::floor(values.front() / width);
  const auto ranges = static_cast<std::size_t>(std::floor(body / width) - first) + 1;
  std::vector<std::size_t> counts(ranges + 1);  // the last one without an end
  for (const double value : values) {
    ++counts[static_cast<std::size_t>(std::min(std::floor(value / width) - first, static_cast<double>(ranges)))];
  }

  const auto edge = [&](std::size_t range) {
    return fmt::format("{:.{}f}", (first + static_cast<double>(range)) * width, width < 1 ? 1 : 0);
  };
  const std::size_t largest = *std::max_element(counts.begin(), counts.end());
  const std::size_t edge_size = edge(ranges).size();
  const std::size_t count_size = std::to_string(largest).size();
  std::vector<std::string> lines;
  for (std::size_t i = 0; i < counts.size(); ++i) {
    const bool has_end = i < ranges;
    if (!has_end && counts[i] == 0) break;
    std::string line = fmt::format("{:>{}} - {:>{}} {}  {:>{}}  {}", edge(i), edge_size, has_end ? edge(i + 1) : "...",
                                   edge_size, unit, counts[i], count_size, Bar(counts[i], largest));
    line.erase(line.find_last_not_of(' ') + 1);
    lines.push_back(std::move(line));
  }
  return lines;
}

}  // namespace cfmctl
