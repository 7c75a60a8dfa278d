// All remote MEPs that one end point watches, configured and learned.
#ifndef CFM_SERVER_PROTOCOL_REMOTE_MEPS_H
#define CFM_SERVER_PROTOCOL_REMOTE_MEPS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>

#include "pdu/ccm.h"
#include "pdu/mac_address.h"
#include "protocol/mep_output.h"
#include "protocol/remote_mep.h"
#include "protocol/throttle.h"
#include "protocol/time.h"

namespace cfm::protocol {

class RemoteMeps {
 public:
  /// Learned ones are forgotten once they have been failed for this long.
  static constexpr Duration kAgeingTime = std::chrono::minutes(100);
  static constexpr std::size_t kMostLearned = 256;

  /// The defects that come from remote MEPs (IEEE 802.1Q clauses 20.35.5 to 20.35.7).
  struct Defects {
    bool any_failed = false;
    bool any_rdi = false;
    bool mac_status = false;  ///< an interface is not up, or all ports whose status is told are blocked
  };

  explicit RemoteMeps(RemoteOutput& output) : output_(output) {}

  /// Ids that are no longer watched go with a removed event, new ones start; the others are left alone.
  void SetIds(const std::set<std::uint16_t>& ids, bool learn, TimePoint now);
  /// Restarts every timer.
  void SetInterval(std::optional<Duration> interval, TimePoint now);
  /// Ends the watching, with removed events.
  void Clear();

  /// Whether a CCM of this id is for us: watched already, or can be learned.
  bool Accepts(std::uint16_t id) const;
  /// A valid CCM of an id that is accepted.
  void Receive(const pdu::Ccm& ccm, const pdu::MacAddress& source, TimePoint now);

  void Advance(TimePoint now);
  TimePoint deadline() const { return deadline_; }

  /// Tells every status as it is now.
  void TellAll();

  const Defects& defects() const { return defects_; }
  /// None before the first valid CCM.
  std::optional<pdu::MacAddress> AddressOf(std::uint16_t id) const;
  const RemoteMep* Find(std::uint16_t id) const;
  std::uint64_t sequence_errors() const { return sequence_errors_; }
  void ClearCounters() { sequence_errors_ = 0; }

  /// visit(id, remote_mep), in the order of the ids.
  template <typename Visit>
  void ForEach(Visit visit) const {
    for (const auto& [id, watched] : watched_) visit(id, watched.mep);
  }

 private:
  struct Watched {
    RemoteMep mep;
    bool learned;
    Throttle<RemoteStatus> events{};

    TimePoint deadline() const;
  };
  using Map = std::map<std::uint16_t, Watched>;

  void Begin(std::uint16_t id, bool learned, TimePoint now);
  Map::iterator End(Map::iterator position);
  void Tell(std::uint16_t id, Watched& watched, TimePoint now);
  void Work(TimePoint now);
  void Judge();

  RemoteOutput& output_;
  Map watched_;
  std::size_t learned_ = 0;
  bool learn_ = false;
  std::optional<Duration> interval_;
  Defects defects_;
  std::uint64_t sequence_errors_ = 0;
  /// Not after any deadline of a member: a CCM only moves one away, so that it need not be looked for with each.
  TimePoint deadline_ = kNever;
};

}  // namespace cfm::protocol

#endif
