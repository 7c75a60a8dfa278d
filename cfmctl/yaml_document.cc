#include "yaml_document.h"

#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/yaml.h>

#include <map>
#include <sstream>

namespace cfmctl {
namespace {

Place PlaceOf(const YAML::Mark& mark) {
  if (mark.is_null()) return {};
  return {.line = mark.line + 1, .column = mark.column + 1};
}

}  // namespace

class YamlDocument::Builder : public YAML::EventHandler {
 public:
  explicit Builder(YamlDocument& document) : document_(document) {}

  void OnDocumentStart(const YAML::Mark& /*mark*/) override {}
  void OnDocumentEnd() override {}

  void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override { Add(YamlNode::Kind::kNull, mark, anchor); }

  void OnAlias(const YAML::Mark& mark, YAML::anchor_t anchor) override {
    const auto named = anchors_.find(anchor);
    if (named == anchors_.end()) throw YAML::ParserException(mark, "an alias inside of what it stands for");
    Attach(named->second);
  }

  void OnScalar(const YAML::Mark& mark, const std::string& /*tag*/, YAML::anchor_t anchor,
                const std::string& value) override {
    Add(YamlNode::Kind::kScalar, mark, anchor).scalar = value;
  }

  void OnSequenceStart(const YAML::Mark& mark, const std::string& /*tag*/, YAML::anchor_t anchor,
                       YAML::EmitterStyle::value /*style*/) override {
    Open(YamlNode::Kind::kSequence, mark, anchor);
  }
  void OnSequenceEnd() override { Close(); }

  void OnMapStart(const YAML::Mark& mark, const std::string& /*tag*/, YAML::anchor_t anchor,
                  YAML::EmitterStyle::value /*style*/) override {
    Open(YamlNode::Kind::kMapping, mark, anchor);
  }
  void OnMapEnd() override { Close(); }

 private:
  struct OpenNode {
    YamlNode* node;
    YAML::anchor_t anchor;
  };

  void Attach(const YamlNode* node) {
    if (open_.empty()) {
      document_.root_ = node;
    } else {
      open_.back().node->children.push_back(node);
    }
  }

  YamlNode& Create(YamlNode::Kind kind, const YAML::Mark& mark) {
    YamlNode& node = document_.nodes_.emplace_back();
    node.kind = kind;
    node.place = PlaceOf(mark);
    Attach(&node);
    return node;
  }

  YamlNode& Add(YamlNode::Kind kind, const YAML::Mark& mark, YAML::anchor_t anchor) {
    YamlNode& node = Create(kind, mark);
    if (anchor != 0) anchors_[anchor] = &node;
    return node;
  }

  void Open(YamlNode::Kind kind, const YAML::Mark& mark, YAML::anchor_t anchor) {
    open_.push_back({.node = &Create(kind, mark), .anchor = anchor});
  }

  // A collection becomes known to aliases when it is complete: none can contain itself.
  void Close() {
    if (open_.back().anchor != 0) anchors_[open_.back().anchor] = open_.back().node;
    open_.pop_back();
  }

  YamlDocument& document_;
  std::vector<OpenNode> open_;
  std::map<YAML::anchor_t, const YamlNode*> anchors_;
};

YamlDocument::YamlDocument(const std::string& text) {
  std::istringstream stream(text);
  try {
    YAML::Parser parser(stream);
    Builder builder(*this);
    if (!parser.HandleNextDocument(builder)) return;
    const YamlNode* first = root_;
    if (parser.HandleNextDocument(builder)) {
      error_ = {.place = root_->place, .what = "a second YAML document; allowed: one document per file"};
    }
    root_ = error_ ? nullptr : first;
  } catch (const YAML::Exception& exception) {
    root_ = nullptr;
    error_ = {.place = PlaceOf(exception.mark), .what = "not valid YAML: " + exception.msg};
  }
}

}  // namespace cfmctl
