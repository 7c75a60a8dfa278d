// What an end point of the configuration is to be, or why it cannot be.
#ifndef CFM_SERVER_ENGINE_PLAN_H
#define CFM_SERVER_ENGINE_PLAN_H

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "client_server.pb.h"
#include "pdu/maid.h"
#include "port/ports.h"
#include "protocol/ais_sender.h"
#include "protocol/mep_settings.h"
#include "protocol/mip_creation.h"
#include "protocol/sender_id.h"

namespace cfm::engine {

/// A field of a message as the smaller number that it is to be; what does not fit becomes the largest one.
template <typename Number>
Number Saturated(std::uint32_t value) {
  return static_cast<Number>(std::min<std::uint32_t>(value, std::numeric_limits<Number>::max()));
}

/// Why something of the configuration does not work: a sentence without an end mark.
struct Refusal {
  std::string reason;
};

/// What the end points of an association have in common.
struct AssociationPlan {
  std::uint8_t level = 0;
  pdu::Maid maid;
  std::vector<std::uint16_t> vids;
  std::uint8_t interval = 0;           ///< code, see protocol::IntervalOf()
  std::vector<std::uint16_t> mep_ids;  ///< ascending
  std::optional<protocol::SystemId> sender_id;
  bool ais_suppresses_missing = false;
  std::optional<protocol::AisSettings> ais;
  std::string ais_refusal;  ///< why there is none although it is asked for
  protocol::MhfCreation mip_creation = protocol::MhfCreation::kNone;

  bool operator==(const AssociationPlan&) const = default;
};

/// `system`: who this element says that it is, if it says anything.
std::variant<AssociationPlan, Refusal> PlanAssociation(const client_server::OpCreateMaintenanceDomain& domain,
                                                       const client_server::OpCreateMaintenanceAssociation& association,
                                                       const std::optional<protocol::SystemId>& system);

struct EndPointPlan {
  protocol::MepIdentity identity;
  protocol::MepSettings settings;
  port::Index port = 0;  ///< as it was configured; an interface that comes back has another
  std::vector<std::uint16_t> vids;
};

/// Of what the request leaves out the usual value is taken.
std::variant<EndPointPlan, Refusal> PlanEndPoint(const AssociationPlan& association,
                                                 const client_server::OpCreateMaintenanceEndpoint& endpoint);

}  // namespace cfm::engine

#endif
