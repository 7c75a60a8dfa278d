#include "text.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <limits>

namespace cfmctl {
namespace {

struct Unit {
  std::string_view name;
  std::int64_t microseconds;
};
constexpr std::array kUnits = {
    Unit{"us", 1}, Unit{"ms", 1'000}, Unit{"s", 1'000'000}, Unit{"min", 60'000'000}, Unit{"h", 3'600'000'000},
};

}  // namespace

std::string Escape(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (const char character : text) {
    const auto octet = static_cast<unsigned char>(character);
    if (octet < 0x20 || octet > 0x7e || character == '\\') {
      escaped += fmt::format("\\x{:02x}", octet);
    } else {
      escaped += character;
    }
  }
  return escaped;
}

std::string Grouped(std::size_t number) {
  std::string digits = std::to_string(number);
  for (std::size_t end = digits.size(); end > 3; end -= 3) digits.insert(end - 3, 1, ',');
  return digits;
}

std::string Count(std::size_t number, std::string_view singular, std::string_view plural) {
  std::string text = Grouped(number);
  text += ' ';
  if (number == 1) return text.append(singular);
  if (!plural.empty()) return text.append(plural);
  return text.append(singular) + "s";
}

std::string PercentText(std::uint64_t part, std::uint64_t whole) {
  const double percent = whole == 0 ? 0 : 100 * static_cast<double>(part) / static_cast<double>(whole);
  return fmt::format("{:.4g}%", percent);
}

std::optional<std::uint64_t> ParseNumber(std::string_view text) {
  std::uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{} || rest != end || text.empty()) return std::nullopt;
  return number;
}

std::optional<std::chrono::microseconds> ParseDuration(std::string_view text) {
  const std::size_t number_end = text.find_first_not_of("0123456789.");
  if (number_end == 0 || number_end == std::string_view::npos) return std::nullopt;
  const std::string_view number = text.substr(0, number_end);
  const std::size_t unit_start = text.find_first_not_of(' ', number_end);
  if (unit_start == std::string_view::npos) return std::nullopt;
  const std::string_view unit_name = text.substr(unit_start);

  for (const Unit& unit : kUnits) {
    if (unit.name != unit_name) continue;
    const std::size_t point = number.find('.');
    const auto whole = ParseNumber(number.substr(0, point));
    const std::uint64_t limit =
        std::numeric_limits<std::int64_t>::max() / static_cast<std::uint64_t>(unit.microseconds);
    if (!whole || *whole >= limit) return std::nullopt;
    std::int64_t total = static_cast<std::int64_t>(*whole) * unit.microseconds;
    if (point != std::string_view::npos) {
      const std::string_view fraction = number.substr(point + 1);
      if (fraction.empty()) return std::nullopt;
      std::int64_t scale = unit.microseconds;
      for (const char digit : fraction) {
        if (digit < '0' || digit > '9' || (scale % 10 != 0 && digit != '0')) return std::nullopt;
        scale /= 10;
        total += scale * (digit - '0');
      }
    }
    return std::chrono::microseconds(total);
  }
  return std::nullopt;
}

std::string FormatDuration(std::chrono::microseconds duration) {
  const std::int64_t count = duration.count();
  const auto in = [count](const Unit& unit) { return fmt::format("{}{}", count / unit.microseconds, unit.name); };
  const auto& [us, ms, s, min, h] = kUnits;
  if (count == 0) return "0s";
  if (count % h.microseconds == 0) return in(h);
  if (count % min.microseconds == 0) return in(min);
  if (count % s.microseconds == 0) return in(s);
  if (count > s.microseconds && count % ms.microseconds == 0) {
    return fmt::format("{}s", static_cast<double>(count) / static_cast<double>(s.microseconds));
  }
  if (count % ms.microseconds == 0) return in(ms);
  return in(us);
}

}  // namespace cfmctl
