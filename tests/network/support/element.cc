#include "element.h"

#include <poll.h>

#include <algorithm>
#include <stdexcept>
#include <system_error>
#include <variant>

#include "pdu/maid.h"

namespace cfm_test {

void Add(cfm::hierarchy& hierarchy, const EndPoint& end_point) {
  cfm::hierarchy_md& md = hierarchy.mds[end_point.md];
  md.cfg = {static_cast<std::uint32_t>(cfm::pdu::MdNameFormat::kString), end_point.level, end_point.sender_id,
            cfm::MhfCreationMode::kNone};
  cfm::hierarchy_ma& ma = md.mas[end_point.ma];
  ma.md_name = end_point.md;
  ma.cfg.format = static_cast<std::uint32_t>(cfm::pdu::MaNameFormat::kString);
  ma.cfg.vids.clear();
  if (end_point.vid != 0) ma.cfg.vids.push_back(end_point.vid);
  ma.cfg.ccm_interval = end_point.interval;
  ma.cfg.mep_ids = end_point.mep_ids;
  ma.cfg.sender_id = cfm::SenderIdTlvContent::kDefer;
  ma.cfg.mhf_creation = cfm::MhfCreationMode::kDefer;
  cfm::hierarchy_mep& mep = ma.meps[end_point.mep_id];
  mep.md_name = end_point.md;
  mep.ma_name = end_point.ma;
  mep.cfg = {end_point.mep_id,       end_point.direction,  end_point.port,       end_point.vid,
             end_point.inner_vid,    end_point.enabled,    end_point.send_ccms,  end_point.priority,
             end_point.lowest_alarm, end_point.alarm_time, end_point.reset_time, end_point.action,
             end_point.learn};
}

cfm::hierarchy HierarchyOf(const std::vector<EndPoint>& end_points) {
  cfm::hierarchy hierarchy;
  for (const EndPoint& end_point : end_points) Add(hierarchy, end_point);
  return hierarchy;
}

cfm::pdu::Ccm CcmOf(const EndPoint& end_point, std::uint16_t mep_id) {
  const auto maid = cfm::pdu::EncodeMaid({static_cast<std::uint32_t>(cfm::pdu::MdNameFormat::kString), end_point.md,
                                          static_cast<std::uint32_t>(cfm::pdu::MaNameFormat::kString), end_point.ma});
  cfm::pdu::Ccm ccm;
  ccm.level = end_point.level;
  ccm.interval = static_cast<std::uint8_t>(end_point.interval);
  ccm.mep_id = mep_id;
  ccm.maid = std::get<cfm::pdu::Maid>(maid);
  return ccm;
}

Element::Element() {
  const std::string directory = directory_.path();
  const vorbus_options_t options{nullptr, directory.c_str(), 0};
  const int error = vorbus_open(&options, &token_);
  if (error != 0) throw std::system_error(-error, std::generic_category(), "vorbus_open");
  client_.emplace(token_);
  client_->RegisterStatusHandler(&handler_);
  client_->RegisterStatisticsHandler(&handler_);
  client_->RegisterLinktraceHandler(&linktrace_handler_);
  client_->RegisterLoopbackHandler(&handler_);
  client_->RegisterDelayMeasurementHandler(&handler_);
  // After the client's own, so that both are called when it has done its part.
  vorbus_proc_subscribe(
      token_, CFM_MGR_PROCESS, [](vorbus_t* /*token*/, const vorbus_pid_t* /*pid*/, void* /*user*/) {},
      [](vorbus_t* /*token*/, void* user) { static_cast<Element*>(user)->synchronised_ = false; }, this);
  vorbus_sig_register_sized(
      token_, CFM_MGR_S2C_SIG_CACHE_REPLY,
      [](vorbus_t* /*token*/, void* user, const vorbus_pid_t* /*sender*/, void* /*data*/, size_t /*size*/) {
        static_cast<Element*>(user)->synchronised_ = true;
      },
      this);
}

Element::~Element() {
  client_.reset();
  vorbus_close(&token_);
}

void Element::StartServer(const std::vector<std::string>& options) {
  std::vector<std::string> arguments{CFM_MGR};
  arguments.insert(arguments.end(), options.begin(), options.end());
  server_.emplace(arguments, Process::Environment{{"VORBUS_DIR", directory_.path()}}, network_.fd());
}

void Element::Configure(const cfm::hierarchy& hierarchy) {
  const Inside inside(network_);  // where the ports are looked for
  client_->UpdateConfig(hierarchy);
}

void Element::Configure(const cfm::probe& probe) {
  client_->UpdateConfigProbe(probe);
}

bool Element::WaitFor(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  const Inside inside(network_);
  for (;;) {
    vorbus_dispatch(token_);
    if (condition()) return true;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    if (left <= 0) return false;
    pollfd readable{vorbus_fd(token_), POLLIN, 0};
    poll(&readable, 1, static_cast<int>(std::min<decltype(left)>(left, 60'000)));
  }
}

std::optional<Statistics> Element::Settle(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  if (!WaitFor([this] { return synchronised_; }, timeout)) return std::nullopt;
  const std::size_t before = events_.statistics.size();
  client_->RequestStatistics();
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  if (!WaitFor([&] { return events_.statistics.size() > before; }, left)) return std::nullopt;
  return events_.statistics.back();
}

bool Element::WaitForRemote(const RemoteKey& key, std::uint32_t state) {
  return WaitFor([&] {
    const auto* status = events_.Remote(key);
    return status != nullptr && status->fsm_state == state;
  });
}

bool Element::WaitForLocal(const LocalKey& key, const std::function<bool(const cfm::st_local_mep_status&)>& condition) {
  return WaitFor([&] {
    const auto* status = events_.Local(key);
    return status != nullptr && condition(*status);
  });
}

}  // namespace cfm_test
