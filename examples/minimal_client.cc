// The smallest useful application: one domain with one association and one end point on the port that is named on the
// command line. Gives its configuration, dispatches until the server has it and has reported the end point's status or
// `seconds` are over, and ends. The server keeps the configuration.
//
//   minimal_client PORT [SECONDS]
#include <net/if.h>
#include <poll.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>

#include "cfm/client.h"
#include "limid/limid.h"

namespace {

// Handlers are interfaces without defaults: an application says what it does with every notification.
class StatusPrinter : public cfm::ReceivedStatusHandlerIntf {
 public:
  void OnLocalMepStatus(const std::string& md, const std::string& ma, std::uint16_t mep_id,
                        const cfm::st_local_mep_status& status) override {
    std::cout << md << "/" << ma << "/" << mep_id << ": highest defect " << status.highest_defect << "\n";
  }
  void OnRemoteMepStatus(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                         std::uint16_t remote_mep_id, const cfm::st_remote_mep_status& status) override {
    std::cout << md << "/" << ma << "/" << local_mep_id << " sees " << remote_mep_id << " at " << status.mac.to_string()
              << "\n";
  }
  void OnLocalMepRemoved(const std::string&, const std::string&, std::uint16_t) override {}
  void OnRemoteMepRemoved(const std::string&, const std::string&, std::uint16_t, std::uint16_t) override {}
  void OnLinktraceStarted(const std::string&, const std::string&, std::uint16_t, std::uint32_t, cfm::st_mac,
                          std::uint16_t, bool, std::uint32_t) override {}
  void OnLinktraceEnded(const std::string&, const std::string&, std::uint16_t, std::uint32_t) override {}
  void OnLinktraceReply(const std::string&, const std::string&, std::uint16_t,
                        const cfm::LinktraceReplyEntry&) override {}
  void OnDelayMeasurementSessionEnded(const cfm::delay_measurement_session_report&) override {}
  void OnServerFound() override { std::cout << "server found\n"; }
};

cfm::hierarchy OneEndpoint(std::uint32_t port) {
  cfm::hierarchy wanted;
  cfm::hierarchy_md& md = wanted.mds["operator"];
  md.cfg.format = 4;  // character string
  md.cfg.level = 4;
  md.cfg.sender_id = cfm::SenderIdTlvContent::kChassis;
  md.cfg.mhf_creation = cfm::MhfCreationMode::kNone;

  cfm::hierarchy_ma& ma = md.mas["service-1"];
  ma.md_name = "operator";
  ma.cfg.format = 2;  // character string
  ma.cfg.vids = {100};
  ma.cfg.ccm_interval = cfm::CcmInterval::k1s;
  ma.cfg.mep_ids = {1, 2};
  ma.cfg.sender_id = cfm::SenderIdTlvContent::kDefer;
  ma.cfg.mhf_creation = cfm::MhfCreationMode::kDefer;

  cfm::hierarchy_mep& mep = ma.meps[1];
  mep.md_name = "operator";
  mep.ma_name = "service-1";
  mep.cfg.mep_id = 1;
  mep.cfg.direction = 1;  // down
  mep.cfg.port = port;
  mep.cfg.primary_vid = 100;
  mep.cfg.admin_state = true;
  mep.cfg.tx_ccm_enabled = true;
  mep.cfg.ccm_priority = 7;
  mep.cfg.lowest_prio_defect_allowed = cfm::Defects::kMacStatusAndHigher;
  mep.cfg.fng_alarm_time = 250;   // 2.5 s
  mep.cfg.fng_reset_time = 1000;  // 10 s
  mep.cfg.action = cfm::FaultAction::kNone;
  return wanted;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: minimal_client PORT [SECONDS]\n";
    return 2;
  }
  std::uint32_t port = 0;
  if (limid_from_ifindex(if_nametoindex(argv[1]), &port) != 0) {
    std::cerr << "there is no port " << argv[1] << "\n";
    return 2;
  }
  vorbus_t* token = nullptr;
  const int error = vorbus_open(nullptr, &token);
  if (error != 0) {
    std::cerr << "cannot attach to the middleware: error " << -error << "\n";
    return 1;
  }
  {
    StatusPrinter printer;
    cfm::Client client(token);
    client.RegisterStatusHandler(&printer);
    client.UpdateConfig(OneEndpoint(port));  // before the first dispatch: an empty wish would empty the server

    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + std::chrono::seconds(argc > 2 ? std::atoi(argv[2]) : 2);
    while (Clock::now() < end) {
      pollfd ready{vorbus_fd(token), POLLIN, 0};
      poll(&ready, 1, 100 /* ms */);
      vorbus_dispatch(token);
    }
  }
  vorbus_close(&token);
  return 0;
}
