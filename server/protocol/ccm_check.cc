#include "protocol/ccm_check.h"

namespace cfm::protocol {

const char* ToText(CcmVerdict verdict) {
  switch (verdict) {
    case CcmVerdict::kValid:
      return "valid";
    case CcmVerdict::kLevel:
      return "lower level";
    case CcmVerdict::kMaid:
      return "other MAID";
    case CcmVerdict::kOwnId:
      return "own MEP id";
    case CcmVerdict::kUnknownId:
      return "unknown MEP id";
    case CcmVerdict::kInterval:
      return "other interval";
  }
  return "";
}

CcmVerdict CheckCcm(const pdu::Ccm& ccm, const CcmExpectation& expected) {
  if (ccm.level < expected.level) return CcmVerdict::kLevel;
  if (ccm.maid != expected.maid) return CcmVerdict::kMaid;
  if (ccm.mep_id == expected.own_id) return CcmVerdict::kOwnId;
  if (!expected.id_accepted) return CcmVerdict::kUnknownId;
  if (ccm.interval != expected.interval) return CcmVerdict::kInterval;
  return CcmVerdict::kValid;
}

}  // namespace cfm::protocol
