// MEPs as command lines name them.
#ifndef CFMCTL_MEP_ADDRESS_H
#define CFMCTL_MEP_ADDRESS_H

#include <cstdint>
#include <string>

#include "model.h"

namespace cfmctl {

/// A local MEP and the remote one that a test is aimed at.
struct TestAddress {
  std::string md_name;
  std::string ma_name;
  std::uint16_t mep_id = 0;
  std::uint16_t target_mep_id = 0;
};

/// Everything, a domain, an association or an end point of the configuration.
struct Scope {
  std::string md_name;  ///< empty: everything
  std::string ma_name;  ///< empty: the whole domain
  std::uint16_t mep_id = 0;

  bool Holds(const std::string& md, const std::string& ma, std::uint16_t mep) const;
};

/// Throw Failure with kBadInput, and say what there is, when the configuration has no such thing.
void Validate(const TestAddress& address, const Model& model);
void Validate(const Scope& scope, const Model& model);

/// "operator/evc-100 MEP 1", printable.
std::string MepText(const std::string& md, const std::string& ma, std::uint16_t mep_id);
/// The same with " -> MEP 2".
std::string TestText(const TestAddress& address);
/// "everything", "domain operator", "association operator/evc-100", "operator/evc-100 MEP 1".
std::string ScopeText(const Scope& scope);

}  // namespace cfmctl

#endif
