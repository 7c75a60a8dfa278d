#include "protocol/station_table.h"

namespace cfm::protocol {

void StationTable::Store(const Vlan& vlan, const pdu::MacAddress& address, PortIndex port, TimePoint now) {
  const Key key{vlan, address};
  if (const auto known = by_key_.find(key); known != by_key_.end()) {
    known->second->port = port;
    known->second->seen = now;
    entries_.splice(entries_.begin(), entries_, known->second);
    return;
  }
  if (entries_.size() == kMostEntries) {
    by_key_.erase(entries_.back().key);
    entries_.pop_back();
  }
  entries_.push_front({.key = key, .port = port, .seen = now});
  by_key_.emplace(key, entries_.begin());
}

std::optional<PortIndex> StationTable::Find(const Vlan& vlan, const pdu::MacAddress& address, TimePoint now) const {
  const auto known = by_key_.find({vlan, address});
  if (known == by_key_.end() || now - known->second->seen > lifetime_) return std::nullopt;
  return known->second->port;
}

void StationTable::Forget(PortIndex port) {
  for (auto entry = entries_.begin(); entry != entries_.end();) {
    if (entry->port != port) {
      ++entry;
      continue;
    }
    by_key_.erase(entry->key);
    entry = entries_.erase(entry);
  }
}

}  // namespace cfm::protocol
