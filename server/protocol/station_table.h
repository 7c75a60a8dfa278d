// By which port of a bridge stations have been seen.
#ifndef CFM_SERVER_PROTOCOL_STATION_TABLE_H
#define CFM_SERVER_PROTOCOL_STATION_TABLE_H

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

/// Entries count until they have not been seen for a lifetime.
class StationTable {
 public:
  /// One more drops the one that was seen longest ago.
  static constexpr std::size_t kMostEntries = 4096;

  explicit StationTable(Duration lifetime) : lifetime_(lifetime) {}

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

  Duration lifetime_;
  std::list<Entry> entries_;  ///< the one that was seen last in front
  std::map<Key, std::list<Entry>::iterator> by_key_;
};

}  // namespace cfm::protocol

#endif
