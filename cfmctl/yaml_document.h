// A YAML document with the place of every value. yaml-cpp's own tree keeps duplicate keys to itself and copies what it
// hands out; this one is built from the parser's events and only ever read.
#ifndef CFMCTL_YAML_DOCUMENT_H
#define CFMCTL_YAML_DOCUMENT_H

#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace cfmctl {

/// Both count from 1.
struct Place {
  int line = 1;
  int column = 1;
};

struct YamlNode {
  enum class Kind { kNull, kScalar, kSequence, kMapping };

  Kind kind = Kind::kNull;
  Place place;
  std::string scalar;
  /// Of a sequence its items, of a mapping key, value, key, value and so on. An alias is the node that it names.
  std::vector<const YamlNode*> children;
};

struct YamlError {
  Place place;
  std::string what;
};

class YamlDocument {
 public:
  /// Reads the one document of `text`. On an error the root is null.
  explicit YamlDocument(const std::string& text);
  YamlDocument(const YamlDocument&) = delete;
  YamlDocument& operator=(const YamlDocument&) = delete;

  /// Null for a text without a document, too.
  const YamlNode* root() const { return root_; }
  const std::optional<YamlError>& error() const { return error_; }

 private:
  class Builder;

  std::deque<YamlNode> nodes_;  // addresses stay
  const YamlNode* root_ = nullptr;
  std::optional<YamlError> error_;
};

}  // namespace cfmctl

#endif
