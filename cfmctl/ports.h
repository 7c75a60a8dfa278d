// The ports of the element: between the interface names of the configuration file, the kernel's interface indexes of
// the wire and the logical ids of the client library.
#ifndef CFMCTL_PORTS_H
#define CFMCTL_PORTS_H

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "model.h"

namespace cfmctl {

class Ports {
 public:
  virtual ~Ports() = default;

  /// The interface index of a name, 0 when there is no such interface.
  virtual std::uint32_t IndexOf(const std::string& name) const = 0;
  /// The name of an interface index, empty when there is no such interface.
  virtual std::string NameOf(std::uint32_t index) const = 0;
  /// All names, for suggestions.
  virtual std::vector<std::string> Names() const = 0;
};

/// The interface table of this host's (network namespace's) kernel, as it was at construction.
class HostPorts : public Ports {
 public:
  HostPorts();

  std::uint32_t IndexOf(const std::string& name) const override;
  std::string NameOf(std::uint32_t index) const override;
  std::vector<std::string> Names() const override;

 private:
  std::map<std::string, std::uint32_t> index_by_name_;
  std::map<std::uint32_t, std::string> name_by_index_;
};

/// The names of the model's ports that have another index now; none while not all of its ports are there.
std::set<std::string> MovedPorts(const Model& model, const Ports& before, const Ports& now);

/// The model without the end points on these ports.
Model Without(const std::set<std::string>& names, Model model, const Ports& ports);

/// As the client library wants it: the end points' ports are logical ids. Throws Failure when a port has none.
Model ForClient(Model model, const Ports& ports);

}  // namespace cfmctl

#endif
