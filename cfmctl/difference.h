// What it takes to get from one model to another, object by object, as people count it: the client library updates
// every surviving object, here an object is updated only when a setting of it differs.
#ifndef CFMCTL_DIFFERENCE_H
#define CFMCTL_DIFFERENCE_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model.h"
#include "ports.h"

namespace cfmctl {

enum class Action {
  kCreated,
  kUpdated,
  kReplaced,  ///< deleted and created anew, because of a setting that an update cannot carry or because its parent was
  kDeleted,
};
inline constexpr std::array kActions = {Action::kCreated, Action::kUpdated, Action::kReplaced, Action::kDeleted};

std::string_view NameOf(Action action);

struct SettingChange {
  std::string_view name;
  std::string from;
  std::string to;
};

struct ObjectChange {
  Action action;
  std::string object;                   ///< "association operator/evc-100", printable
  std::vector<SettingChange> settings;  ///< of an updated or replaced object; empty when only its parent is replaced
};

struct Difference {
  std::vector<ObjectChange> changes;

  bool empty() const { return changes.empty(); }
  std::size_t CountOf(Action action) const;
};

/// In the order of the trees: an object comes before those below it. Of a created or deleted object, what is below it
/// is listed, too. Linear in the two models.
Difference Compare(const Model& from, const Model& to, const Ports& ports);

/// The step before `to` when domains or associations change nothing but their name format: no update carries that, so
/// they have to go before they come back. Nothing when there are none.
std::optional<Model> StepBefore(const Model& from, const Model& to);

}  // namespace cfmctl

#endif
