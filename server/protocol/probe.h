// A standing delay measurement: the runs of its sessions, again and again.
#ifndef CFM_SERVER_PROTOCOL_PROBE_H
#define CFM_SERVER_PROTOCOL_PROBE_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>

#include "pdu/delay.h"
#include "protocol/delay_run.h"
#include "protocol/mep_output.h"
#include "protocol/remote_meps.h"
#include "protocol/time.h"
#include "protocol/transmitter.h"

namespace cfm::protocol {

struct ProbeSettings {
  std::uint16_t probe_id = 0;
  std::uint16_t interval_s = 0;  ///< from one run of the sessions to the next; 0: none
  std::uint16_t local_mep_id = 0;
  std::uint16_t remote_mep_id = 0;

  bool operator==(const ProbeSettings&) const = default;
};

/// In a run the sessions follow each other in the order of their ids, each when the one before has ended, so that they
/// do not measure each other.
class Probe {
 public:
  /// As long as there is nothing to measure, or nobody to measure with, it is looked again after this time.
  static constexpr Duration kRetry = std::chrono::seconds(1);

  /// From its beginning to its first run: its sessions come one after the other, and all belong to that run.
  static constexpr Duration kSettling = std::chrono::seconds(1);

  Probe(const ProbeSettings& settings, Transmitter& transmitter, ProbeOutput& output, TimePoint now);

  const ProbeSettings& settings() const { return settings_; }

  /// In effect when the session's turn comes next.
  void SetSession(std::uint16_t session_id, const DelayParameters& parameters);
  /// Ends what it is doing.
  void RemoveSession(std::uint16_t session_id, const RemoteMeps& remotes, TimePoint now);
  /// Ends the run that is going.
  void Abort();

  DelayRun::Reply Receive(const pdu::TwoWayDelay& dmr, const Stamps& stamps, const RemoteMeps& remotes, TimePoint now);
  void Stamped(std::uint32_t stamp_id, const Stamps& stamps);

  void Advance(const RemoteMeps& remotes, TimePoint now);
  TimePoint deadline() const;

  /// Runs that did not begin, as the one before was still going.
  std::uint64_t skipped_runs() const { return skipped_runs_; }

 private:
  struct Current {
    std::uint16_t session_id;
    DelayRun run;
  };

  using Sessions = std::map<std::uint16_t, DelayParameters>;

  void BeginRun(const RemoteMeps& remotes, TimePoint now);
  /// The first session from this one on whose parameters can be used, if any.
  void BeginSession(Sessions::const_iterator position, const RemoteMeps& remotes, TimePoint now);
  void EndSession(bool complete, const RemoteMeps& remotes, TimePoint now);
  void Report(bool complete);

  ProbeSettings settings_;
  Transmitter& transmitter_;
  ProbeOutput& output_;
  Sessions sessions_;
  TimePoint next_run_ = kNever;
  std::uint32_t runs_ = 0;
  std::uint64_t skipped_runs_ = 0;
  std::optional<Current> current_;
};

}  // namespace cfm::protocol

#endif
