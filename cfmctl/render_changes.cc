#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "render.h"
#include "text.h"

namespace cfmctl {
namespace {

std::string Mark(Action action, const Style& style) {
  switch (action) {
    case Action::kCreated:
      return style.Green("+");
    case Action::kUpdated:
      return style.Yellow("~");
    case Action::kReplaced:
      return style.Yellow("!");
    case Action::kDeleted:
      return style.Red("-");
  }
  return {};
}

}  // namespace

std::string CountsText(const Difference& difference) {
  std::string text;
  for (const Action action : kActions) {
    fmt::format_to(std::back_inserter(text), "{}{} {}", text.empty() ? "" : ", ", NameOf(action),
                   Grouped(difference.CountOf(action)));
  }
  return text;
}

void RenderChanges(const Difference& difference, std::size_t most, const Style& style, std::ostream& out) {
  const std::size_t shown = std::min(most, difference.changes.size());
  for (std::size_t i = 0; i < shown; ++i) {
    const ObjectChange& change = difference.changes[i];
    out << fmt::format("  {} {} {}", Mark(change.action, style), NameOf(change.action), change.object);
    for (std::size_t s = 0; s < change.settings.size(); ++s) {
      const SettingChange& setting = change.settings[s];
      out << (s == 0 ? ": " : ", ")
          << fmt::format("{} {} -> {}", setting.name, Escape(setting.from), Escape(setting.to));
    }
    if (change.action == Action::kReplaced && change.settings.empty()) out << " with its parent";
    out << '\n';
  }
  if (shown < difference.changes.size()) {
    out << fmt::format("  ... and {} more\n", Grouped(difference.changes.size() - shown));
  }
}

}  // namespace cfmctl
