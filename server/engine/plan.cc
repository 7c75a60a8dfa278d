#include "engine/plan.h"

#include <algorithm>
#include <set>
#include <string_view>

namespace cfm::engine {
namespace {

namespace pb = client_server;

constexpr std::uint32_t kHighestLevel = 7;
constexpr std::uint32_t kHighestVid = 4094;
constexpr std::uint32_t kHighestMepId = 8191;
constexpr std::uint32_t kHighestInterval = 7;
constexpr std::uint32_t kHighestPriority = 7;
constexpr std::uint32_t kUsualPriority = 7;     // IEEE 802.1Q clause 12.14.7.1.3 h
constexpr std::uint32_t kUsualLowestAlarm = 2;  // IEEE 802.1Q clause 20.9.5

// Collects what is wrong with the numbers of a request; the first one counts.
class Checks {
 public:
  template <typename Number>
  Number InRange(std::string_view what, std::uint32_t value, std::uint32_t lowest, std::uint32_t highest) {
    if (value < lowest || value > highest) {
      Refuse(std::string(what) + ' ' + std::to_string(value) + " is not one of " + std::to_string(lowest) + " to " +
             std::to_string(highest));
    }
    return static_cast<Number>(value);
  }
  void Refuse(std::string reason) {
    if (!refusal_) refusal_ = Refusal{std::move(reason)};
  }
  const std::optional<Refusal>& refusal() const { return refusal_; }

 private:
  std::optional<Refusal> refusal_;
};

protocol::SenderIdPermission PermissionOf(std::uint32_t code) {
  const bool known = code >= 1 && code <= 5;
  return known ? static_cast<protocol::SenderIdPermission>(code) : protocol::SenderIdPermission::kNone;
}

protocol::MhfCreation CreationOf(std::uint32_t code) {
  const bool known = code >= 1 && code <= 4;
  return known ? static_cast<protocol::MhfCreation>(code) : protocol::MhfCreation::kNone;
}

// Wrong settings cost the association its AIS, not its end points.
void PlanAis(const pb::Ais& ais, AssociationPlan& plan) {
  protocol::AisSettings settings{.client_level = Saturated<std::uint8_t>(ais.aux_u8()),
                                 .period_s = ais.aux_u32(),
                                 .priority = Saturated<std::uint8_t>(ais.aux_u16())};
  for (const std::uint32_t vid : ais.aux_ids()) settings.client_vids.insert(Saturated<std::uint16_t>(vid));
  if (auto reason = protocol::CheckAis(settings, plan.level)) {
    plan.ais_refusal = std::move(*reason);
  } else {
    plan.ais = std::move(settings);
  }
}

protocol::FaultTimes FaultTimesOf(const pb::OpCreateMaintenanceEndpoint& endpoint) {
  protocol::FaultTimes times;
  if (endpoint.has_fng_alarm_time())
    times.alarm = protocol::FaultTime(Saturated<std::uint16_t>(endpoint.fng_alarm_time()));
  if (endpoint.has_fng_reset_time())
    times.reset = protocol::FaultTime(Saturated<std::uint16_t>(endpoint.fng_reset_time()));
  return times;
}

}  // namespace

std::variant<AssociationPlan, Refusal> PlanAssociation(const pb::OpCreateMaintenanceDomain& domain,
                                                       const pb::OpCreateMaintenanceAssociation& association,
                                                       const std::optional<protocol::SystemId>& system) {
  Checks checks;
  AssociationPlan plan;
  plan.level = checks.InRange<std::uint8_t>("the level", domain.level(), 0, kHighestLevel);
  plan.interval = checks.InRange<std::uint8_t>("the CCM interval", association.ccm_interval(), 0, kHighestInterval);
  for (const std::uint32_t vid : association.vids()) {
    plan.vids.push_back(checks.InRange<std::uint16_t>("the VLAN id", vid, 1, kHighestVid));
  }
  std::set<std::uint16_t> mep_ids;
  for (const std::uint32_t id : association.mep_ids()) {
    mep_ids.insert(checks.InRange<std::uint16_t>("the MEP id", id, 1, kHighestMepId));
  }
  plan.mep_ids.assign(mep_ids.begin(), mep_ids.end());
  plan.ais_suppresses_missing = association.ais().aux_flag();
  if (association.ais().enabled()) PlanAis(association.ais(), plan);
  plan.mip_creation = protocol::Resolve(CreationOf(association.mhf_creation()), CreationOf(domain.mhf_creation()));
  if (system) {
    plan.sender_id =
        protocol::Permitted(*system, PermissionOf(association.sender_id()), PermissionOf(domain.sender_id()));
  }
  const auto maid = pdu::EncodeMaid({.md_format = domain.format(),
                                     .md_name = domain.name(),
                                     .ma_format = association.format(),
                                     .ma_name = association.ma_name()});
  if (const auto* reason = std::get_if<std::string>(&maid)) {
    checks.Refuse(*reason);
  } else {
    plan.maid = std::get<pdu::Maid>(maid);
  }
  if (checks.refusal()) return *checks.refusal();
  return plan;
}

std::variant<EndPointPlan, Refusal> PlanEndPoint(const AssociationPlan& association,
                                                 const pb::OpCreateMaintenanceEndpoint& endpoint) {
  Checks checks;
  EndPointPlan plan;
  plan.identity = {.level = association.level,
                   .mep_id = checks.InRange<std::uint16_t>("the MEP id", endpoint.mep_id(), 1, kHighestMepId),
                   .maid = association.maid,
                   .direction = static_cast<protocol::Direction>(
                       checks.InRange<std::uint8_t>("the direction", endpoint.direction(), 1, 2))};
  plan.port = endpoint.ifindex();
  plan.vids = association.vids;

  protocol::MepSettings& settings = plan.settings;
  settings.enabled = endpoint.admin_state();
  settings.send_ccms = endpoint.tx_ccm_enabled();
  settings.interval = association.interval;
  settings.mep_ids = association.mep_ids;
  const auto place = std::lower_bound(settings.mep_ids.begin(), settings.mep_ids.end(), plan.identity.mep_id);
  if (place == settings.mep_ids.end() || *place != plan.identity.mep_id) {
    settings.mep_ids.insert(place, plan.identity.mep_id);
  }
  settings.learn = endpoint.aux_flag();
  settings.primary_vid = checks.InRange<std::uint16_t>("the primary VLAN id", endpoint.primary_vid(), 0, kHighestVid);
  settings.inner_vid = checks.InRange<std::uint16_t>("the inner VLAN id", endpoint.inner_vid(), 0, kHighestVid);
  if (settings.inner_vid != 0 && settings.primary_vid == 0) checks.Refuse("an inner VLAN id needs a primary one");
  settings.priority = checks.InRange<std::uint8_t>(
      "the CCM priority", endpoint.has_ccm_priority() ? endpoint.ccm_priority() : kUsualPriority, 0, kHighestPriority);
  settings.lowest_alarm = checks.InRange<std::uint8_t>(
      "the lowest alarm priority",
      endpoint.has_lowest_prio_defect_allowed() ? endpoint.lowest_prio_defect_allowed() : kUsualLowestAlarm, 1, 6);
  settings.fault_times = FaultTimesOf(endpoint);
  settings.fault_action =
      static_cast<protocol::FaultAction>(checks.InRange<std::uint8_t>("the fault action", endpoint.action(), 0, 2));
  settings.ais_suppresses_missing = association.ais_suppresses_missing;
  settings.sender_id = association.sender_id;
  settings.ais = association.ais;
  if (checks.refusal()) return *checks.refusal();
  return plan;
}

}  // namespace cfm::engine
