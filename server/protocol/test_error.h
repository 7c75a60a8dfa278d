// Why a test that was asked for does not run.
#ifndef CFM_SERVER_PROTOCOL_TEST_ERROR_H
#define CFM_SERVER_PROTOCOL_TEST_ERROR_H

#include <cstdint>

namespace cfm::protocol {

/// The codes that clients are told; 1, no such MEP, is not an end point's to say.
enum class TestError : std::uint8_t {
  kMepNotOperational = 2,
  kTargetUnknown = 3,
  kBadParameter = 4,
  kTooManyTests = 5
};

}  // namespace cfm::protocol

#endif
