// Small renderings that all output shares.
#ifndef CFMCTL_TEXT_H
#define CFMCTL_TEXT_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace cfmctl {

/// Control characters, the backslash and octets beyond ASCII as \xNN, so that no name can drive the terminal.
std::string Escape(std::string_view text);

/// "1 end point", "100,000 end points"; the plural is the singular with an s unless given.
std::string Count(std::size_t number, std::string_view singular, std::string_view plural = {});

/// "100,000"
std::string Grouped(std::size_t number);

/// "12.5%"; 0% of nothing.
std::string PercentText(std::uint64_t part, std::uint64_t whole);

/// A decimal number without sign, exponent or leading blanks; nothing else is a number.
std::optional<std::uint64_t> ParseNumber(std::string_view text);

/// "2.5s", "100ms", "1min": a decimal number and one of the units us, ms, s, min, h. Nothing finer than a microsecond.
std::optional<std::chrono::microseconds> ParseDuration(std::string_view text);

/// In the form that ParseDuration reads, in the largest unit that needs no fraction, but seconds may have one.
std::string FormatDuration(std::chrono::microseconds duration);

}  // namespace cfmctl

#endif
