// Whether a received CCM is what this MEP expects (IEEE 802.1Q clauses 20.17.1 and 20.17.2).
#ifndef CFM_SERVER_PROTOCOL_CCM_CHECK_H
#define CFM_SERVER_PROTOCOL_CCM_CHECK_H

#include <cstdint>

#include "pdu/ccm.h"
#include "pdu/maid.h"

namespace cfm::protocol {

/// In the order of the checks; the first that fails counts. The first two mean a cross-connect, the others an error.
enum class CcmVerdict : std::uint8_t { kValid, kLevel, kMaid, kOwnId, kUnknownId, kInterval };

/// A few words for log lines.
const char* ToText(CcmVerdict verdict);

constexpr bool IsCrossConnect(CcmVerdict verdict) {
  return verdict == CcmVerdict::kLevel || verdict == CcmVerdict::kMaid;
}

struct CcmExpectation {
  std::uint8_t level;
  const pdu::Maid& maid;
  std::uint16_t own_id;
  std::uint8_t interval;
  bool id_accepted;  ///< the sender's id is watched, or may be learned
};

/// For a CCM of the MEP's level or a lower one.
CcmVerdict CheckCcm(const pdu::Ccm& ccm, const CcmExpectation& expected);

}  // namespace cfm::protocol

#endif
