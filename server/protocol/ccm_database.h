// Where the stations are that CCMs came from: what a bridge's maintenance points (MIPs) have seen. It outlives the
// bridge's own table by far, so that a trace finds its way to a station that has fallen silent (IEEE 802.1Q clause
// 19.4).
#ifndef CFM_SERVER_PROTOCOL_CCM_DATABASE_H
#define CFM_SERVER_PROTOCOL_CCM_DATABASE_H

#include <chrono>
#include <cstddef>
#include <list>
#include <map>
#include <optional>
#include <utility>

#include "pdu/mac_address.h"
#include "protocol/linktrace_decision.h"
#include "protocol/time.h"
#include "protocol/vlan.h"

namespace cfm::protocol {

class CcmDatabase {
 public:
  static constexpr Duration kLifetime = std::chrono::hours(24);
  /// One more drops the one that was seen longest ago.
  static constexpr std::size_t kMostEntries = 4096;

  void Store(const Vlan& vlan, const pdu::MacAddress& address, PortIndex port, TimePoint now);
  std::optional<PortIndex> Find(const Vlan& vlan, const pdu::MacAddress& address, TimePoint now) const;
  void Forget(PortIndex port);

  std::size_t size() const { return by_key_.size(); }

 private:
  using Key = std::pair<Vlan, pdu::MacAddress>;

  struct Entry {
    Key key;
    PortIndex port;
    TimePoint seen;
  };

  std::list<Entry> entries_;  ///< the one that was seen last in front
  std::map<Key, std::list<Entry>::iterator> by_key_;
};

}  // namespace cfm::protocol

#endif
