// A network element: a namespace with a server in it, and an application that configures and watches it.
#ifndef CFM_TESTS_NETWORK_SUPPORT_ELEMENT_H
#define CFM_TESTS_NETWORK_SUPPORT_ELEMENT_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "cfm/client.h"
#include "events.h"
#include "namespace.h"
#include "pdu/ccm.h"
#include "pdu/ethernet.h"
#include "process.h"
#include "vorbus/vorbus.h"
#include "wire.h"

namespace cfm_test {

/// IEEE 802.1Q clause 20.20.
inline constexpr std::uint32_t kRemoteFailed = 3;
inline constexpr std::uint32_t kRemoteOk = 4;

/// An end point with what it needs around it. What is not said is what most tests want: two MEPs of one association, 1
/// on the element and 2 somewhere else, that see a loss within half a second.
struct EndPoint {
  std::uint32_t port = 0;
  std::uint16_t mep_id = 1;
  std::string md = "domain";
  std::string ma = "association";
  std::uint8_t level = 4;
  cfm::CcmInterval interval = cfm::CcmInterval::k100ms;
  std::set<std::uint16_t> mep_ids = {1, 2};
  std::uint16_t vid = 0;
  std::uint16_t inner_vid = 0;
  std::vector<std::uint16_t> further_vids = {};  // of the association
  std::uint8_t priority = 7;
  bool enabled = true;
  bool send_ccms = true;
  bool learn = false;
  cfm::Defects lowest_alarm = cfm::Defects::kMacStatusAndHigher;
  std::uint16_t alarm_time = 250;
  std::uint16_t reset_time = 250;
  cfm::FaultAction action = cfm::FaultAction::kNone;
  cfm::SenderIdTlvContent sender_id = cfm::SenderIdTlvContent::kNone;
  std::uint32_t direction = 1;

  LocalKey key() const { return {md, ma, mep_id}; }
  RemoteKey remote(std::uint16_t id) const { return {key(), id}; }
};

/// Adds it, with its domain and association where they are missing.
void Add(cfm::hierarchy& hierarchy, const EndPoint& end_point);
cfm::hierarchy HierarchyOf(const std::vector<EndPoint>& end_points);

/// The CCM that another MEP of the association would send, with sequence number 0.
cfm::pdu::Ccm CcmOf(const EndPoint& end_point, std::uint16_t mep_id);
std::vector<std::uint8_t> PduOf(const cfm::pdu::Ccm& ccm);

/// Of frames to the group of the end point's level, or to one station, with its tags and priority.
cfm::pdu::EthernetHeader GroupHeader(const EndPoint& end_point, const cfm::pdu::MacAddress& source,
                                     cfm::pdu::GroupClass group_class = cfm::pdu::GroupClass::k1);
cfm::pdu::EthernetHeader StationHeader(const EndPoint& end_point, const cfm::pdu::MacAddress& source,
                                       const cfm::pdu::MacAddress& destination);

/// Sends a loopback message to the end point and waits for its answer: the frames before have been dealt with then.
/// What came meanwhile, beside the answer, is returned.
std::vector<Frame> Drain(Wire& wire, const EndPoint& end_point, const cfm::pdu::MacAddress& address);

class Element {
 public:
  Element();
  ~Element();
  Element(const Element&) = delete;
  Element& operator=(const Element&) = delete;

  const Namespace& network() const { return network_; }
  std::string directory() const { return directory_.path(); }

  void StartServer(const std::vector<std::string>& options = {});
  Process& server() { return *server_; }
  /// The client knows that it is gone when this returns.
  void KillServer();

  /// Hands a configuration over. The server comes to know it while the element waits.
  void Configure(const cfm::hierarchy& hierarchy);
  void Configure(const std::vector<EndPoint>& end_points) { Configure(HierarchyOf(end_points)); }
  void Configure(const cfm::probe& probe);
  cfm::Client& client() { return *client_; }
  vorbus_t* token() { return token_; }
  Events& events() { return events_; }

  /// Takes what the server says until that holds; false when it does not in time.
  bool WaitFor(const std::function<bool()>& condition, std::chrono::milliseconds timeout = kDeadline);
  /// Takes what the server says for that long.
  void Listen(std::chrono::milliseconds duration);
  /// Waits until the server has dealt with all that it was told, and hands out the counters that it has then.
  std::optional<Statistics> Settle(std::chrono::milliseconds timeout = kDeadline);
  bool WaitForRemote(const RemoteKey& key, std::uint32_t state);
  /// Waits until the last status of the end point is that text, without the address that it begins with.
  bool WaitForLocal(const LocalKey& key, const std::string& text);

  /// Sends a request as the client library would, and waits for nothing.
  bool Request(const vorbus_sig_t* signal, const std::string& payload);

 private:
  TempDir directory_;
  Namespace network_;
  std::optional<Process> server_;
  vorbus_t* token_ = nullptr;
  Events events_;
  EventHandler handler_{events_};
  LinktraceEventHandler linktrace_handler_{events_};
  std::optional<cfm::Client> client_;
  vorbus_pid_t server_pid_ = 0;  // 0: there is none
  bool synchronised_ = false;
};

}  // namespace cfm_test

#endif
