// An interface table that a test writes down.
#ifndef CFM_TESTS_UNIT_CFMCTL_FIXED_PORTS_H
#define CFM_TESTS_UNIT_CFMCTL_FIXED_PORTS_H

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "ports.h"

namespace cfmctl {

class FixedPorts : public Ports {
 public:
  explicit FixedPorts(std::map<std::string, std::uint32_t> table = {{"eth0", 3}, {"eth1", 4}})
      : table_(std::move(table)) {}

  std::uint32_t IndexOf(const std::string& name) const override {
    const auto entry = table_.find(name);
    return entry == table_.end() ? 0 : entry->second;
  }
  std::string NameOf(std::uint32_t index) const override {
    for (const auto& [name, known] : table_) {
      if (known == index) return name;
    }
    return {};
  }
  std::vector<std::string> Names() const override {
    std::vector<std::string> names;
    for (const auto& [name, index] : table_) names.push_back(name);
    return names;
  }

 private:
  std::map<std::string, std::uint32_t> table_;
};

}  // namespace cfmctl

#endif
