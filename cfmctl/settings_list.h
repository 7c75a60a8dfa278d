// The settings of an object as a list of name and value, under the names of the configuration file. Differences and
// JSON are made from it.
#ifndef CFMCTL_SETTINGS_LIST_H
#define CFMCTL_SETTINGS_LIST_H

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "cfm/hierarchy.h"
#include "cfm/probe.h"
#include "ports.h"

namespace cfmctl {

/// What it takes to bring a changed setting to the server.
enum class Change {
  kUpdate,   ///< the object lives on
  kReplace,  ///< the client library deletes the object with all below it, and creates it anew
  kReformat  ///< nothing carries it to a living object, so cfmctl has the object replaced in two steps
};

struct Setting {
  std::string_view name;
  std::variant<bool, std::uint32_t, std::string, std::vector<std::uint16_t>> value;
  Change change;

  /// As in the configuration file.
  std::string Text() const;
};

using SettingsList = std::vector<Setting>;

SettingsList SettingsOf(const cfm::st_maintenance_domain_cfg& cfg);
SettingsList SettingsOf(const cfm::st_maintenance_association_cfg& cfg);
SettingsList SettingsOf(const cfm::st_maintenance_endpoint_cfg& cfg, const Ports& ports);
/// Of the probe alone, without its sessions.
SettingsList SettingsOf(const cfm::probe_cfg& cfg);
SettingsList SettingsOf(const cfm::session_cfg& cfg);

/// The name of a port, or "ifindex 7" for one that this host does not have (any more).
std::string PortText(const Ports& ports, std::uint32_t index);

/// "10,20-25"
std::string RangesText(const std::vector<std::uint16_t>& numbers);

}  // namespace cfmctl

#endif
