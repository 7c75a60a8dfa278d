#include "config_values.h"

#include <fmt/format.h>

#include <algorithm>

#include "text.h"

namespace cfmctl {
namespace {

std::string Described(const YamlNode& node) {
  switch (node.kind) {
    case YamlNode::Kind::kNull:
      return "no value";
    case YamlNode::Kind::kScalar:
      return "'" + Escape(node.scalar) + "'";
    case YamlNode::Kind::kSequence:
      return "a list";
    case YamlNode::Kind::kMapping:
      return "a mapping";
  }
  return {};
}

std::string DidYouMean(std::string_view nearest) {
  return nearest.empty() ? std::string() : fmt::format(" (did you mean '{}'?)", nearest);
}

std::string OutOfRange(const YamlNode& node, std::string_view expected) {
  return fmt::format("{} is out of range; allowed: {}", Described(node), expected);
}

/// "7" or "3-7"
std::optional<std::pair<std::uint64_t, std::uint64_t>> ParseRange(std::string_view text) {
  const std::size_t dash = text.find('-');
  const auto first = ParseNumber(text.substr(0, dash));
  const auto last = dash == std::string_view::npos ? first : ParseNumber(text.substr(dash + 1));
  if (!first || !last) return std::nullopt;
  return std::pair(*first, *last);
}

}  // namespace

std::string Path::ToString() const {
  if (parent == nullptr) return Escape(key);
  const std::string above = parent->ToString();
  return above.empty() ? Escape(key) : above + "." + Escape(key);
}

std::vector<ConfigError> ErrorList::TakeSorted() {
  std::stable_sort(errors_.begin(), errors_.end(), [](const ConfigError& a, const ConfigError& b) {
    return std::pair(a.place.line, a.place.column) < std::pair(b.place.line, b.place.column);
  });
  return std::move(errors_);
}

std::optional<std::string> ReadScalar(ErrorList& errors, const Value& value, std::string_view expected) {
  if (value.node->kind == YamlNode::Kind::kScalar) return value.node->scalar;
  errors.Add(value, fmt::format("has {}; allowed: {}", Described(*value.node), expected));
  return std::nullopt;
}

std::optional<std::uint32_t> ReadNumber(ErrorList& errors, const Value& value, std::uint32_t lowest,
                                        std::uint32_t highest) {
  const std::string expected = fmt::format("{} to {}", lowest, highest);
  const auto text = ReadScalar(errors, value, expected);
  if (!text) return std::nullopt;
  const auto number = ParseNumber(*text);
  if (!number) {
    errors.Add(value, fmt::format("{} is not a number; allowed: {}", Described(*value.node), expected));
    return std::nullopt;
  }
  if (*number < lowest || *number > highest) {
    errors.Add(value, OutOfRange(*value.node, expected));
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(*number);
}

std::optional<std::uint32_t> ReadCode(ErrorList& errors, const Value& value, CodeNames names) {
  const auto text = ReadScalar(errors, value, ListOf(names));
  if (!text) return std::nullopt;
  const auto code = CodeOf(names, *text);
  if (!code) {
    errors.Add(value, fmt::format("{} is unknown{}; allowed: {}", Described(*value.node),
                                  DidYouMean(Nearest(*text, names)), ListOf(names)));
  }
  return code;
}

std::optional<bool> ReadBool(ErrorList& errors, const Value& value) {
  const auto text = ReadScalar(errors, value, "true, false");
  if (!text) return std::nullopt;
  if (*text == "true") return true;
  if (*text == "false") return false;
  errors.Add(value, fmt::format("{} is neither true nor false; allowed: true, false", Described(*value.node)));
  return std::nullopt;
}

std::optional<std::uint32_t> ReadDuration(ErrorList& errors, const Value& value, std::chrono::microseconds step,
                                          std::chrono::microseconds lowest, std::chrono::microseconds highest) {
  const std::string expected =
      fmt::format("{} to {} in steps of {}", FormatDuration(lowest), FormatDuration(highest), FormatDuration(step));
  const auto text = ReadScalar(errors, value, expected);
  if (!text) return std::nullopt;
  const auto duration = ParseDuration(*text);
  if (!duration) {
    errors.Add(value, fmt::format("{} is not a time with a unit (us, ms, s, min, h), such as {}; allowed: {}",
                                  Described(*value.node), FormatDuration(lowest), expected));
    return std::nullopt;
  }
  if (*duration < lowest || *duration > highest || duration->count() % step.count() != 0) {
    errors.Add(value, OutOfRange(*value.node, expected));
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(*duration / step);
}

std::optional<std::vector<std::uint16_t>> ReadNumbers(ErrorList& errors, const Value& value, std::uint32_t lowest,
                                                      std::uint32_t highest) {
  const std::string expected = fmt::format("a list of {} to {} and of ranges such as 10-20", lowest, highest);
  std::vector<const YamlNode*> items = {value.node};
  if (value.node->kind == YamlNode::Kind::kSequence) {
    items = value.node->children;
  } else if (!ReadScalar(errors, value, expected)) {
    return std::nullopt;
  }

  bool good = true;
  std::vector<std::uint16_t> numbers;
  std::vector<bool> seen(highest + 1);
  for (const YamlNode* item : items) {
    const auto refuse = [&](const std::string& what) {
      errors.Add(item->place, *value.path, what);
      good = false;
    };
    const auto range = item->kind == YamlNode::Kind::kScalar ? ParseRange(item->scalar) : std::nullopt;
    if (!range) {
      refuse(fmt::format("{} is not a number or range; allowed: {}", Described(*item), expected));
    } else if (range->first > range->second || range->first < lowest || range->second > highest) {
      refuse(OutOfRange(*item, expected));
    } else {
      for (std::uint64_t number = range->first; number <= range->second; ++number) {
        if (seen[number]) {
          refuse(fmt::format("{} is listed twice; allowed: each number once", number));
          break;
        }
        seen[number] = true;
        numbers.push_back(static_cast<std::uint16_t>(number));
      }
    }
  }
  return good ? std::optional(numbers) : std::nullopt;
}

bool IsMapping(ErrorList& errors, const Value& value, std::string_view what) {
  if (value.node->kind == YamlNode::Kind::kMapping) return true;
  errors.Add(value, fmt::format("has {}; allowed: {}, and {{}} for none", Described(*value.node), what));
  return false;
}

bool IsName(ErrorList& errors, const Value& mapping, const YamlNode& key, std::string_view what) {
  if (key.kind == YamlNode::Kind::kScalar) return true;
  errors.Add(key.place, *mapping.path, fmt::format("{} is no key; allowed: {}", Described(key), what));
  return false;
}

std::string AlreadyAt(Place first) {
  return fmt::format("is here for the second time, first in line {}; allowed: once", first.line);
}

Settings::Settings(ErrorList& errors, const Value& value, std::vector<std::string_view> allowed)
    : errors_(errors), value_(value) {
  entries_.reserve(allowed.size());
  for (const std::string_view key : allowed) entries_.push_back({.path = {.parent = value.path, .key = key}});

  const std::string expected = fmt::format("{}", fmt::join(allowed, ", "));
  ForEachNamed(errors, value, fmt::format("a mapping of {}", expected),
               [&](const std::string& key, const YamlNode& key_node, const Value& setting) {
                 const auto entry = std::find_if(entries_.begin(), entries_.end(),
                                                 [&key](const Entry& candidate) { return candidate.path.key == key; });
                 if (entry == entries_.end()) {
                   errors_.Add(
                       key_node.place, *setting.path,
                       fmt::format("is an unknown key{}; allowed: {}", DidYouMean(Nearest(key, allowed)), expected));
                   return;
                 }
                 entry->node = setting.node;
               });
}

std::optional<Value> Settings::Find(std::string_view key) const {
  for (const Entry& entry : entries_) {
    if (entry.path.key == key && entry.node != nullptr) return Value{.node = entry.node, .path = &entry.path};
  }
  return std::nullopt;
}

std::optional<Value> Settings::Require(std::string_view key, std::string_view allowed_values) {
  auto value = Find(key);
  if (!value && value_.node->kind == YamlNode::Kind::kMapping) {
    errors_.Add(value_, fmt::format("lacks the key '{}'; allowed: {}", key, allowed_values));
  }
  return value;
}

}  // namespace cfmctl
