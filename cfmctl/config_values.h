// Reads the values of a configuration document one by one, and reports what is wrong with each.
#ifndef CFMCTL_CONFIG_VALUES_H
#define CFMCTL_CONFIG_VALUES_H

#include <chrono>
#include <concepts>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config_parser.h"
#include "names.h"

namespace cfmctl {

/// The way from the root of the document to a value; becomes text only for an error.
struct Path {
  const Path* parent = nullptr;
  std::string_view key;

  std::string ToString() const;
};

/// One value of the document, where it stands and how it is called.
struct Value {
  const YamlNode* node;
  const Path* path;
};

class ErrorList {
 public:
  void Add(const Value& value, std::string what) { Add(value.node->place, *value.path, std::move(what)); }
  void Add(Place place, const Path& path, std::string what) {
    errors_.push_back({.place = place, .key = path.ToString(), .what = std::move(what)});
  }
  std::size_t size() const { return errors_.size(); }
  std::vector<ConfigError> TakeSorted();

 private:
  std::vector<ConfigError> errors_;
};

// Each returns nothing after it has reported an error.
std::optional<std::string> ReadScalar(ErrorList& errors, const Value& value, std::string_view expected);
std::optional<std::uint32_t> ReadNumber(ErrorList& errors, const Value& value, std::uint32_t lowest,
                                        std::uint32_t highest);
std::optional<std::uint32_t> ReadCode(ErrorList& errors, const Value& value, CodeNames names);
std::optional<bool> ReadBool(ErrorList& errors, const Value& value);
/// A multiple of `step`, as a number of steps.
std::optional<std::uint32_t> ReadDuration(ErrorList& errors, const Value& value, std::chrono::microseconds step,
                                          std::chrono::microseconds lowest, std::chrono::microseconds highest);
/// Numbers and ranges such as 100-110, in the order written; a single one may stand without the list.
std::optional<std::vector<std::uint16_t>> ReadNumbers(ErrorList& errors, const Value& value, std::uint32_t lowest,
                                                      std::uint32_t highest);

/// A mapping with a fixed set of keys. Reports what is no mapping, unknown keys and duplicate keys at construction.
class Settings {
 public:
  Settings(ErrorList& errors, const Value& value, std::vector<std::string_view> allowed);

  /// The value of an allowed key; its path lives as long as this object.
  std::optional<Value> Find(std::string_view key) const;
  /// Reports the absence.
  std::optional<Value> Require(std::string_view key, std::string_view allowed_values);

  // Each leaves `out` alone when the key is absent, or wrong and reported.
  template <class T>
  void Number(std::string_view key, std::uint32_t lowest, std::uint32_t highest, T& out) {
    if (const auto value = Find(key)) Store(ReadNumber(errors_, *value, lowest, highest), out);
  }
  template <class T>
  void Code(std::string_view key, CodeNames names, T& out) {
    if (const auto value = Find(key)) Store(ReadCode(errors_, *value, names), out);
  }
  void Bool(std::string_view key, bool& out) {
    if (const auto value = Find(key)) Store(ReadBool(errors_, *value), out);
  }
  template <class T>
  void Duration(std::string_view key, std::chrono::microseconds step, std::chrono::microseconds lowest,
                std::chrono::microseconds highest, T& out) {
    if (const auto value = Find(key)) Store(ReadDuration(errors_, *value, step, lowest, highest), out);
  }

  ErrorList& errors() { return errors_; }
  const Value& value() const { return value_; }

 private:
  struct Entry {
    Path path;
    const YamlNode* node = nullptr;
  };

  template <class From, class To>
  static void Store(const std::optional<From>& from, To& to) {
    if (from) to = static_cast<To>(*from);
  }

  ErrorList& errors_;
  Value value_;
  std::vector<Entry> entries_;
};

/// Calls `each(name, name's node, value)` for every entry of a mapping whose keys are names. Reports what is no
/// mapping, keys that are no scalars and duplicate names.
template <class Each>
requires std::invocable<Each, const std::string&, const YamlNode&, const Value&>
void ForEachNamed(ErrorList& errors, const Value& mapping, std::string_view what, Each each);

// ---- Implementation ----

bool IsMapping(ErrorList& errors, const Value& value, std::string_view what);
bool IsName(ErrorList& errors, const Value& mapping, const YamlNode& key, std::string_view what);
std::string AlreadyAt(Place first);

template <class Each>
requires std::invocable<Each, const std::string&, const YamlNode&, const Value&>
void ForEachNamed(ErrorList& errors, const Value& mapping, std::string_view what, Each each) {
  if (!IsMapping(errors, mapping, what)) return;
  std::map<std::string_view, Place> seen;
  const auto& children = mapping.node->children;
  for (std::size_t i = 0; i + 1 < children.size(); i += 2) {
    const YamlNode& key = *children[i];
    if (!IsName(errors, mapping, key, what)) continue;
    const Path path{.parent = mapping.path, .key = key.scalar};
    const auto [first, added] = seen.try_emplace(key.scalar, key.place);
    if (!added) {
      errors.Add(key.place, path, AlreadyAt(first->second));
      continue;
    }
    each(key.scalar, key, Value{.node = children[i + 1], .path = &path});
  }
}

}  // namespace cfmctl

#endif
