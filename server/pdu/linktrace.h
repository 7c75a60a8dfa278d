// Linktrace message and reply (IEEE 802.1Q clauses 21.8 and 21.9).
#ifndef CFM_SERVER_PDU_LINKTRACE_H
#define CFM_SERVER_PDU_LINKTRACE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "pdu/decoded.h"
#include "pdu/mac_address.h"
#include "pdu/tlv.h"

namespace cfm::pdu {

/// Names the element that sent or passed on an LTM.
struct EgressIdentifier {
  std::uint16_t unique_id = 0;
  MacAddress address{};

  bool operator==(const EgressIdentifier&) const = default;
};

struct Ltm {
  std::uint8_t level = 0;
  std::uint8_t version = 0;
  bool use_fdb_only = false;  ///< responders look into the filtering database only
  std::uint32_t transaction_id = 0;
  std::uint8_t ttl = 0;
  MacAddress original_address{};  ///< where replies go
  MacAddress target_address{};
  std::optional<EgressIdentifier> egress_identifier;
  std::optional<SenderId> sender_id;
};

Decoded<Ltm> DecodeLtm(Octets pdu);

/// Octets written; 0 when the buffer is too small.
std::size_t EncodeLtm(const Ltm& ltm, std::span<std::uint8_t> buffer);

/// What goes on to the next hop of an LTM that DecodeLtm() has accepted and whose TTL is not 0: one hop less, with the
/// egress identifier and the Sender ID of whom it goes through; flags, fields and other TLVs as they were. Octets
/// written; 0 when the buffer is too small.
std::size_t MakeForwardedLtm(Octets ltm, const EgressIdentifier& through, const std::optional<SenderId>& sender_id,
                             std::span<std::uint8_t> buffer);

enum class RelayAction : std::uint8_t { kHit = 1, kFdb = 2, kMpdb = 3 };

/// IEEE 802.1Q clauses 21.9.8 and 21.9.9: the same for the port of arrival and the port of departure.
enum class ReplyAction : std::uint8_t { kOk = 1, kDown = 2, kBlocked = 3, kVid = 4 };

/// The content of a Reply Ingress or a Reply Egress TLV.
struct ReplyPort {
  ReplyAction action = ReplyAction::kOk;
  MacAddress address{};
  std::uint8_t port_subtype = 0;  ///< of no meaning without a port id
  Octets port_id;                 ///< at most 255 octets; empty: not present
};

struct LtrEgressIdentifiers {
  EgressIdentifier last;
  EgressIdentifier next;

  bool operator==(const LtrEgressIdentifiers&) const = default;
};

struct Ltr {
  std::uint8_t level = 0;
  std::uint8_t version = 0;
  bool use_fdb_only = false;  ///< copied from the LTM
  bool forwarded = false;
  bool terminal_mep = false;
  std::uint32_t transaction_id = 0;
  std::uint8_t ttl = 0;
  RelayAction relay_action = RelayAction::kHit;
  std::optional<LtrEgressIdentifiers> egress_identifiers;
  /// A TLV with an action that is not in the table counts as absent.
  std::optional<ReplyPort> ingress;
  std::optional<ReplyPort> egress;
  std::optional<SenderId> sender_id;
};

/// A relay action that is not in the table makes the frame invalid.
Decoded<Ltr> DecodeLtr(Octets pdu);

/// Octets written; 0 when the buffer is too small.
std::size_t EncodeLtr(const Ltr& ltr, std::span<std::uint8_t> buffer);

}  // namespace cfm::pdu

#endif
