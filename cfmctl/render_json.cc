#include "json.h"
#include "render.h"
#include "settings_list.h"

namespace cfmctl {
namespace {

Json ToJson(const Setting& setting) {
  return std::visit([](const auto& value) { return Json(value); }, setting.value);
}

/// A dot in a setting's name stands for an object inside the object.
void AddSettings(Json& object, const SettingsList& settings) {
  for (const Setting& setting : settings) {
    const std::size_t dot = setting.name.find('.');
    if (dot == std::string_view::npos) {
      object[std::string(setting.name)] = ToJson(setting);
    } else {
      object[std::string(setting.name.substr(0, dot))][std::string(setting.name.substr(dot + 1))] = ToJson(setting);
    }
  }
}

class JsonWriter {
 public:
  JsonWriter(const Ports& ports, std::ostream& out) : ports_(ports), out_(out) {}

  void Write(const Model& model) {
    out_ << "{\"domains\":";
    Array(model.hierarchy.mds, [this](const auto& entry) {
      Open({{"name", entry.first}}, SettingsOf(entry.second.cfg), "associations");
      Array(entry.second.mas, [this](const auto& association) { Association(association.first, association.second); });
      out_ << '}';
    });
    out_ << ",\"probes\":";
    Array(model.probes.probes, [this](const auto& entry) {
      Open({{"id", entry.first}}, SettingsOf(entry.second), "sessions");
      Array(entry.second.sessions, [this](const auto& session) {
        Leaf({{"id", session.first}}, SettingsOf(session.second));
      });
      out_ << '}';
    });
    out_ << "}\n";
  }

 private:
  void Association(const std::string& name, const cfm::hierarchy_ma& ma) {
    Open({{"name", name}}, SettingsOf(ma.cfg), "end-points");
    Array(ma.meps, [this](const auto& entry) {
      Leaf({{"mep-id", entry.first}}, SettingsOf(entry.second.cfg, ports_));
    });
    out_ << '}';
  }

  void Leaf(Json object, const SettingsList& settings) {
    AddSettings(object, settings);
    out_ << Dump(object);
  }

  /// Everything of an object up to its children, which the caller writes and closes.
  void Open(Json object, const SettingsList& settings, const char* children) {
    AddSettings(object, settings);
    std::string text = Dump(object);
    text.pop_back();
    out_ << text << ",\"" << children << "\":";
  }

  template <class Map, class Each>
  void Array(const Map& map, Each each) {
    out_ << '[';
    bool first = true;
    for (const auto& entry : map) {
      if (!first) out_ << ",\n";
      first = false;
      each(entry);
    }
    out_ << ']';
  }

  const Ports& ports_;
  std::ostream& out_;
};

}  // namespace

void RenderJson(const Model& model, const Ports& ports, std::ostream& out) {
  JsonWriter(ports, out).Write(model);
}

}  // namespace cfmctl
