// Linktrace: the request, its reports and one received reply (IEEE 802.1Q clauses 20.3 and 21.9).
#ifndef CFM_LINKTRACE_H
#define CFM_LINKTRACE_H

#include <cstdint>
#include <memory>
#include <string>

#include "cfm/mac.h"
#include "cfm/visibility.h"

namespace cfm {

/// A request for one linktrace from a local MEP.
struct linktrace_trigger {
  std::uint32_t trigger_id;  ///< chosen by the application, handed back in a trigger error
  std::string md_name;
  std::string ma_name;
  std::uint16_t mep_id;         ///< local MEP that sends
  std::uint16_t target_mep_id;  ///< remote MEP that is looked for
  std::uint8_t ttl;             ///< TTL of the LTM; 0: the server's default, 64
};

/// Last and next egress identifier of a reply (IEEE 802.1Q clause 21.9.7).
struct LtrEgressIdEntry {
  st_mac last_mac;
  std::uint16_t last_unique_id;  ///< the two octets as they lie in memory, not byte-swapped
  st_mac next_mac;
  std::uint16_t next_unique_id;  ///< likewise
};

/// Reply Ingress or Reply Egress part of a reply (IEEE 802.1Q clauses 21.9.8 and 21.9.9).
struct LtrReplyPortEntry {
  std::uint8_t action;  ///< 1 ok, 2 down, 3 blocked, 4 VID
  st_mac mac;
  bool port_id_present;
  std::uint8_t port_id_subtype;
  std::string port_id;  ///< raw octets
};

/// One received linktrace reply. An entry that the library hands to a handler lives only during that call; copy out of
/// it what must stay. It owns its three parts.
struct LinktraceReplyEntry {
  st_mac destination_mac;
  st_mac source_mac;
  std::uint16_t vlan;
  std::uint8_t priority;
  std::uint16_t internal_vlan;  ///< 0 none
  std::uint8_t internal_priority;
  std::uint8_t level;
  bool terminal_mep;
  bool forwarded;
  bool use_fdb_only;
  std::uint32_t transaction_id;
  std::uint8_t ttl;
  std::uint32_t relay_action;                   ///< 1 hit, 2 filtering database, 3 MIP CCM database
  std::unique_ptr<LtrEgressIdEntry> egress_id;  ///< always present in an entry made by the library
  std::unique_ptr<LtrReplyPortEntry> reply_ingress;
  std::unique_ptr<LtrReplyPortEntry> reply_egress;

  /// Frees egress_id, reply_ingress and reply_egress in this order.
  CFM_API ~LinktraceReplyEntry();

  /// The entry as text: on one line when indent is 0, else one item per line with the items of a group indented by that
  /// many blanks. An entry without egress_id shows zero addresses there. Any thread.
  CFM_API static std::string Show(const LinktraceReplyEntry& entry, unsigned int indent);
};

/// Implemented by the application; see the notes on handlers in cfm/client.h. Every reference is valid only during the
/// call.
class CFM_API ReceivedLinktraceHandlerIntf {
 public:
  /// The LTM has left. optional_value is the TTL that the linktrace started with, 0 when absent.
  virtual void OnLinktraceStarted(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                                  std::uint32_t transaction_id, st_mac target_mac, std::uint16_t target_mep_id,
                                  bool has_optional_value, std::uint32_t optional_value) = 0;
  virtual void OnLinktraceEnded(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                                std::uint32_t transaction_id) = 0;
  virtual void OnLinktraceReply(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                                const LinktraceReplyEntry& reply) = 0;
  /// The server refused the request that is handed back.
  virtual void OnLinktraceTriggerError(const linktrace_trigger& trigger) = 0;

 protected:
  ~ReceivedLinktraceHandlerIntf() = default;
};

}  // namespace cfm

#endif
