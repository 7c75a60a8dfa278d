// Whether two records say the same, octets that they point at included.
#ifndef CFM_FUZZ_SAME_H
#define CFM_FUZZ_SAME_H

#include <algorithm>
#include <optional>

#include "pdu/ais.h"
#include "pdu/ccm.h"
#include "pdu/delay.h"
#include "pdu/linktrace.h"
#include "pdu/loopback.h"
#include "pdu/tlv.h"

namespace cfm::fuzz {

inline bool Same(pdu::Octets a, pdu::Octets b) {
  return std::ranges::equal(a, b);
}

inline bool Same(const pdu::SenderId& a, const pdu::SenderId& b) {
  return a.chassis_subtype == b.chassis_subtype && Same(a.chassis_id, b.chassis_id) &&
         Same(a.management_domain, b.management_domain) && Same(a.management_address, b.management_address);
}

inline bool Same(const pdu::ReplyPort& a, const pdu::ReplyPort& b) {
  return a.action == b.action && a.address == b.address && a.port_subtype == b.port_subtype &&
         Same(a.port_id, b.port_id);
}

template <typename Part>
bool Same(const std::optional<Part>& a, const std::optional<Part>& b) {
  return a.has_value() == b.has_value() && (!a || Same(*a, *b));
}

inline bool Same(const pdu::Ccm& a, const pdu::Ccm& b) {
  return a.level == b.level && a.version == b.version && a.rdi == b.rdi && a.interval == b.interval &&
         a.sequence_number == b.sequence_number && a.mep_id == b.mep_id && a.maid == b.maid &&
         Same(a.sender_id, b.sender_id) && a.port_status == b.port_status && a.interface_status == b.interface_status;
}

inline bool Same(const pdu::Loopback& a, const pdu::Loopback& b) {
  return a.level == b.level && a.version == b.version && a.transaction_id == b.transaction_id &&
         Same(a.sender_id, b.sender_id) && Same(a.data, b.data);
}

inline bool Same(const pdu::Ltm& a, const pdu::Ltm& b) {
  return a.level == b.level && a.version == b.version && a.use_fdb_only == b.use_fdb_only &&
         a.transaction_id == b.transaction_id && a.ttl == b.ttl && a.original_address == b.original_address &&
         a.target_address == b.target_address && a.egress_identifier == b.egress_identifier &&
         Same(a.sender_id, b.sender_id);
}

inline bool Same(const pdu::Ltr& a, const pdu::Ltr& b) {
  return a.level == b.level && a.version == b.version && a.use_fdb_only == b.use_fdb_only &&
         a.forwarded == b.forwarded && a.terminal_mep == b.terminal_mep && a.transaction_id == b.transaction_id &&
         a.ttl == b.ttl && a.relay_action == b.relay_action && a.egress_identifiers == b.egress_identifiers &&
         Same(a.ingress, b.ingress) && Same(a.egress, b.egress) && Same(a.sender_id, b.sender_id);
}

inline bool Same(const pdu::Ais& a, const pdu::Ais& b) {
  return a.level == b.level && a.version == b.version && a.period == b.period;
}

inline bool Same(const pdu::TwoWayDelay& a, const pdu::TwoWayDelay& b) {
  return a.level == b.level && a.version == b.version && a.proactive == b.proactive && a.sent_f == b.sent_f &&
         a.received_f == b.received_f && a.sent_b == b.sent_b && a.received_b == b.received_b && Same(a.data, b.data);
}

inline bool Same(const pdu::OneWayDelay& a, const pdu::OneWayDelay& b) {
  return a.level == b.level && a.version == b.version && a.proactive == b.proactive && a.sent_f == b.sent_f &&
         a.received_f == b.received_f && Same(a.data, b.data);
}

}  // namespace cfm::fuzz

#endif
