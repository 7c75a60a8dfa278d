// The configuration of maintenance domains, associations and end points (IEEE 802.1Q clause 18 defines the terms,
// clause 12.14 the managed objects). The application fills one cfm::hierarchy and hands it whole to
// cfm::Client::UpdateConfig.
//
// All records are plain values without defaults of their own: value-initialise them (`cfm::hierarchy_mep mep{};` or
// through a map's operator[]) and fill every member. A copy is deep. The library validates nothing and passes every
// value to the server unchanged; the ranges below are those that the server accepts.
#ifndef CFM_HIERARCHY_H
#define CFM_HIERARCHY_H

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace cfm {

/// What the Sender ID TLV carries (IEEE 802.1Q clause 21.5.3; codes of the IEEE 802.1Q CFM MIB).
enum class SenderIdTlvContent : std::uint32_t {
  kNone = 1,
  kChassis = 2,
  kManage = 3,
  kChassisManage = 4,
  kDefer = 5,  ///< of an association: as its domain says; of a domain: none
};

/// How MIP half functions are created (IEEE 802.1Q clause 22.2.3; codes of the IEEE 802.1Q CFM MIB).
enum class MhfCreationMode : std::uint32_t {
  kNone = 1,
  kDefault = 2,
  kExplicit = 3,
  kDefer = 4,  ///< of an association: as its domain says; of a domain: none
};

/// CCM transmission interval (IEEE 802.1Q clause 21.6.1.3).
enum class CcmInterval : std::uint32_t {
  kInvalid = 0,
  k300Hz = 1,  ///< 10/3 ms
  k10ms = 2,
  k100ms = 3,
  k1s = 4,
  k10s = 5,
  k1min = 6,
  k10min = 7,
};

/// The lowest-priority defect that may raise a fault alarm (IEEE 802.1Q clause 20.9.5).
enum class Defects : std::uint8_t {
  kAll = 1,
  kMacStatusAndHigher = 2,
  kRemoteCcmAndHigher = 3,
  kErrorCcmAndHigher = 4,
  kXconCcmOnly = 5,
  kNone = 6,
};

/// What the server does to the port while a fault is reported.
enum class FaultAction : std::uint32_t {
  kNone = 0,
  kBlock = 1,
  kShutdown = 2,
};

/// Settings of a maintenance domain.
struct st_maintenance_domain_cfg {
  std::uint32_t format;  ///< MD name format: 1 none, 2 DNS-like, 3 MAC and integer, 4 character string
  std::uint8_t level;    ///< MD level, 0 to 7
  SenderIdTlvContent sender_id;
  MhfCreationMode mhf_creation;
};

/// Alarm indication signal of an association (ITU-T G.8013/Y.1731 clause 7.4). Everything but `enabled` and
/// `aux_flag` reaches the server only while `enabled` holds.
struct st_ais_cfg {
  bool enabled;
  std::uint8_t aux_u8;              ///< client maintenance level, 0 to 7
  std::uint32_t aux_u32;            ///< period in seconds, 1 or 60
  std::set<std::uint16_t> aux_ids;  ///< client VLAN ids, 1 to 4094
  std::uint16_t aux_u16;            ///< frame priority, 0 to 7
  bool aux_flag;                    ///< received AIS suppresses loss-of-continuity alarms
};

/// Settings of a maintenance association.
struct st_maintenance_association_cfg {
  std::uint32_t format;  ///< MA name format: 1 primary VID, 2 character string, 3 unsigned 16-bit, 4 RFC 2685 VPN id,
                         ///< 32 ICC-based
  std::vector<std::uint16_t> vids;  ///< VLAN ids, 1 to 4094, in the application's order; duplicates are kept
  CcmInterval ccm_interval;
  std::set<std::uint16_t> mep_ids;  ///< the MEP list of the association, 1 to 8191
  SenderIdTlvContent sender_id;
  MhfCreationMode mhf_creation;
  st_ais_cfg ais;
};

/// Settings of a maintenance end point.
struct st_maintenance_endpoint_cfg {
  std::uint16_t mep_id;       ///< 1 to 8191; equals the end point's key in hierarchy_ma::meps
  std::uint32_t direction;    ///< 1 down, 2 up
  std::uint32_t port;         ///< logical interface id, see limid/limid.h
  std::uint16_t primary_vid;  ///< 0 untagged, else 1 to 4094
  std::uint16_t inner_vid;    ///< 0 none, else 1 to 4094
  bool admin_state;           ///< true: enabled
  bool tx_ccm_enabled;
  std::uint8_t ccm_priority;  ///< 0 to 7
  Defects lowest_prio_defect_allowed;
  std::uint16_t fng_alarm_time;  ///< in steps of 10 ms, 250 to 1000 (IEEE 802.1Q clause 20.35.3)
  std::uint16_t fng_reset_time;  ///< in steps of 10 ms, 250 to 1000 (IEEE 802.1Q clause 20.35.4)
  FaultAction action;
  bool aux_flag;  ///< remote MEPs that are not in the MEP list are learned instead of being an error
};

/// One end point. The parent names are sent as they stand here.
struct hierarchy_mep {
  std::string md_name;
  std::string ma_name;
  st_maintenance_endpoint_cfg cfg;
};

/// One association, with its end points by MEP id.
struct hierarchy_ma {
  std::string md_name;  ///< sent as it stands here; equals the domain's key in hierarchy::mds
  st_maintenance_association_cfg cfg;
  std::map<std::uint16_t, hierarchy_mep> meps;
};

/// One domain, with its associations by name.
struct hierarchy_md {
  st_maintenance_domain_cfg cfg;
  std::map<std::string, hierarchy_ma> mas;
};

/// The whole configuration: the domains by name. An empty one is valid and means that no CFM object is wanted.
struct hierarchy {
  std::map<std::string, hierarchy_md> mds;
};

}  // namespace cfm

#endif
