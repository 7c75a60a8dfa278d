// Why a test that was asked for does not run.
#ifndef CFM_SERVER_PROTOCOL_TEST_ERROR_H
#define CFM_SERVER_PROTOCOL_TEST_ERROR_H

#include <cstdint>

namespace cfm::protocol {

/// The codes that clients are told.
enum class TestError : std::uint8_t {
  kNoSuchMep = 1,  ///< for those who look it up; an end point itself never says so
  kMepNotOperational = 2,
  kTargetUnknown = 3,
  kBadParameter = 4,
  kTooManyTests = 5
};

}  // namespace cfm::protocol

#endif
