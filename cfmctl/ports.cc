#include "ports.h"

#include <fmt/format.h>
#include <net/if.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <memory>

#include "failure.h"
#include "limid/limid.h"
#include "text.h"

namespace cfmctl {

HostPorts::HostPorts() {
  const std::unique_ptr<struct if_nameindex, decltype(&if_freenameindex)> table(if_nameindex(), &if_freenameindex);
  if (!table) throw Failure(kFailed, fmt::format("cannot read the kernel's interface table: {}", std::strerror(errno)));
  for (const struct if_nameindex* entry = table.get(); entry->if_index != 0; ++entry) {
    index_by_name_[entry->if_name] = entry->if_index;
    name_by_index_[entry->if_index] = entry->if_name;
  }
}

std::uint32_t HostPorts::IndexOf(const std::string& name) const {
  const auto entry = index_by_name_.find(name);
  return entry != index_by_name_.end() ? entry->second : 0;
}

std::string HostPorts::NameOf(std::uint32_t index) const {
  const auto entry = name_by_index_.find(index);
  return entry != name_by_index_.end() ? entry->second : std::string();
}

std::vector<std::string> HostPorts::Names() const {
  std::vector<std::string> names;
  for (const auto& [name, index] : index_by_name_) names.push_back(name);
  return names;
}

std::set<std::string> MovedPorts(const Model& model, const Ports& before, const Ports& now) {
  std::set<std::string> moved;
  for (const auto& [md_name, md] : model.hierarchy.mds) {
    for (const auto& [ma_name, ma] : md.mas) {
      for (const auto& [mep_id, mep] : ma.meps) {
        const std::string name = before.NameOf(mep.cfg.port);
        const std::uint32_t index = now.IndexOf(name);
        if (index == 0) return {};
        if (index != mep.cfg.port) moved.insert(name);
      }
    }
  }
  return moved;
}

Model Without(const std::set<std::string>& names, Model model, const Ports& ports) {
  for (auto& [md_name, md] : model.hierarchy.mds) {
    for (auto& [ma_name, ma] : md.mas) {
      std::erase_if(ma.meps, [&](const auto& mep) { return names.contains(ports.NameOf(mep.second.cfg.port)); });
    }
  }
  return model;
}

Model ForClient(Model model, const Ports& ports) {
  std::map<std::uint32_t, std::uint32_t> logical_ids;
  for (auto& [md_name, md] : model.hierarchy.mds) {
    for (auto& [ma_name, ma] : md.mas) {
      for (auto& [mep_id, mep] : ma.meps) {
        const auto [known, added] = logical_ids.try_emplace(mep.cfg.port, 0);
        if (added) {
          const int error = limid_from_ifindex(mep.cfg.port, &known->second);
          if (error != 0) {
            throw Failure(kFailed,
                          fmt::format("port {} (interface index {}) has no logical id: {}",
                                      Escape(ports.NameOf(mep.cfg.port)), mep.cfg.port, std::strerror(-error)));
          }
        }
        mep.cfg.port = known->second;
      }
    }
  }
  return model;
}

}  // namespace cfmctl
