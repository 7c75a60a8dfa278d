// Random configurations that follow one another as an operator's edits do.
#ifndef CFM_TESTS_INTEGRATION_CLIENT_RANDOM_CONFIGURATION_H
#define CFM_TESTS_INTEGRATION_CLIENT_RANDOM_CONFIGURATION_H

#include <cstdint>
#include <random>
#include <string>

#include "configuration.h"

namespace cfm_test {

// Every value is one that the server accepts, and the names and ids in the records equal their keys. Ports: the
// loopback interface, or one that does not exist.
class RandomConfigurations {
 public:
  explicit RandomConfigurations(std::uint64_t seed);

  // A number from first to last.
  unsigned Number(unsigned first, unsigned last);
  bool OneIn(unsigned n) { return Number(1, n) == 1; }

  // Mostly a few edits; now and then nothing, everything anew, nothing left, or thousands of end points more.
  void Change(Configuration& configuration);

 private:
  void EditHierarchy(cfm::hierarchy& hierarchy);
  void EditProbes(const cfm::hierarchy& hierarchy, cfm::probe& probe);
  void AddManyEndpoints(cfm::hierarchy& hierarchy);
  cfm::hierarchy_ma& SomeAssociation(cfm::hierarchy& hierarchy, std::string& ma_name);
  void Fill(cfm::st_maintenance_domain_cfg& cfg);
  void Fill(cfm::st_maintenance_association_cfg& cfg);
  void Fill(cfm::st_maintenance_endpoint_cfg& cfg);
  template <typename Value>
  void Set(Value& value, unsigned first, unsigned last);

  std::mt19937_64 engine_;
  std::uint32_t loopback_port_ = 0;
};

}  // namespace cfm_test

#endif
