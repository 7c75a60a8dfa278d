// The network namespace that these tests run in.
#ifndef CFM_TESTS_INTEGRATION_CFMCTL_NAMESPACE_H
#define CFM_TESTS_INTEGRATION_CFMCTL_NAMESPACE_H

namespace cfm_test {

/// Whether the tests run in a namespace of their own, where the ports of the examples exist. Where the system refuses
/// one they are skipped.
bool InOwnNamespace();

}  // namespace cfm_test

#endif
