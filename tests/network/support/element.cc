#include "element.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <system_error>
#include <variant>

#include "pdu/loopback.h"
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
  ma.cfg.vids.insert(ma.cfg.vids.end(), end_point.further_vids.begin(), end_point.further_vids.end());
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

std::vector<std::uint8_t> PduOf(const cfm::pdu::Ccm& ccm) {
  std::vector<std::uint8_t> pdu(cfm::pdu::kLongestCcm);
  pdu.resize(cfm::pdu::EncodeCcm(ccm, pdu));
  return pdu;
}

cfm::pdu::EthernetHeader GroupHeader(const EndPoint& end_point, const cfm::pdu::MacAddress& source,
                                     cfm::pdu::GroupClass group_class) {
  return StationHeader(end_point, source, cfm::pdu::ToAddress({group_class, end_point.level}));
}

cfm::pdu::EthernetHeader StationHeader(const EndPoint& end_point, const cfm::pdu::MacAddress& source,
                                       const cfm::pdu::MacAddress& destination) {
  cfm::pdu::EthernetHeader header{destination, source, {}, {}};
  if (end_point.vid != 0) header.outer = cfm::pdu::Tag{end_point.priority, false, end_point.vid};
  if (end_point.inner_vid != 0) header.inner = cfm::pdu::Tag{end_point.priority, false, end_point.inner_vid};
  return header;
}

std::vector<Frame> Drain(Wire& wire, const EndPoint& end_point, const cfm::pdu::MacAddress& address) {
  static std::uint32_t number = 0x44520000;
  std::array<std::uint8_t, 64> buffer;
  const std::uint32_t transaction_id = ++number;
  const auto size = cfm::pdu::EncodeLbm(
      {.level = end_point.level, .transaction_id = transaction_id, .sender_id = {}, .data = {}}, buffer);
  std::vector<Frame> others;
  const auto is_answer = [&](const Frame& frame) {
    const auto lbr = cfm::pdu::DecodeLbr(frame.pdu());
    if (lbr && lbr->transaction_id == transaction_id) return true;
    others.push_back(frame);
    return false;
  };
  // The server may be out of patience with loopback messages, so one may not be enough.
  const auto deadline = std::chrono::steady_clock::now() + kDeadline;
  do {
    wire.Send(StationHeader(end_point, wire.address(), address), cfm::pdu::Octets(buffer).first(size));
    if (wire.Next(is_answer, std::chrono::seconds(1))) return others;
  } while (std::chrono::steady_clock::now() < deadline);
  ADD_FAILURE() << "no answer to a loopback message";
  return others;
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
      token_, CFM_MGR_PROCESS,
      [](vorbus_t* /*token*/, const vorbus_pid_t* pid, void* user) { static_cast<Element*>(user)->server_pid_ = *pid; },
      [](vorbus_t* /*token*/, void* user) {
        static_cast<Element*>(user)->server_pid_ = 0;
        static_cast<Element*>(user)->synchronised_ = false;
      },
      this);
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

void Element::KillServer() {
  server_->Kill();
  EXPECT_TRUE(WaitFor([this] { return server_pid_ == 0; }));
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

void Element::Listen(std::chrono::milliseconds duration) {
  WaitFor([] { return false; }, duration);
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

bool Element::WaitForLocal(const LocalKey& key, const std::string& text) {
  return WaitFor([&] { return events_.LocalText(key).ends_with(" " + text); });
}

bool Element::Request(const vorbus_sig_t* signal, const std::string& payload) {
  return vorbus_sig_send(token_, &server_pid_, signal, payload.data(), payload.size()) == 0;
}

}  // namespace cfm_test
