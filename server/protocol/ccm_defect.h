// The CCM error and the cross-connect defect: held as long as the offender's own interval asks for (IEEE 802.1Q clauses
// 20.21 to 20.24).
#ifndef CFM_SERVER_PROTOCOL_CCM_DEFECT_H
#define CFM_SERVER_PROTOCOL_CCM_DEFECT_H

#include <cstdint>
#include <optional>
#include <vector>

#include "pdu/decoded.h"
#include "pdu/mac_address.h"
#include "protocol/ccm_check.h"
#include "protocol/time.h"

namespace cfm::protocol {

struct OffendingCcm {
  /// Octets of the PDU that are kept: the longest CCM.
  static constexpr std::size_t kKept = pdu::kLongestCcm;

  CcmVerdict reason = CcmVerdict::kValid;
  pdu::MacAddress source{};
  std::uint8_t level = 0;
  std::uint16_t mep_id = 0;
  std::uint8_t interval = 0;
  std::vector<std::uint8_t> octets;
};

class CcmDefect {
 public:
  /// True when the defect was not present before. `own_interval` stands in for an interval that is none.
  bool Raise(CcmVerdict reason, const pdu::Ccm& ccm, const pdu::MacAddress& source, pdu::Octets octets,
             Duration own_interval, TimePoint now);
  void Advance(TimePoint now);
  TimePoint deadline() const { return until_; }
  bool present() const { return until_ != kNever; }
  void Reset() { until_ = kNever; }

  /// The one that came last, whether the defect is still there or not.
  const std::optional<OffendingCcm>& last() const { return last_; }

 private:
  TimePoint until_ = kNever;
  std::optional<OffendingCcm> last_;
};

}  // namespace cfm::protocol

#endif
