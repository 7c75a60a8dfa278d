// AIS that is sent to the clients of a faulty association (ITU-T Y.1731 clause 7.4).
#ifndef CFM_SERVER_PROTOCOL_AIS_SENDER_H
#define CFM_SERVER_PROTOCOL_AIS_SENDER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "pdu/ais.h"
#include "protocol/time.h"
#include "protocol/transmitter.h"

namespace cfm::protocol {

struct AisSettings {
  std::uint8_t client_level = 0;          ///< above the level of the MA
  std::uint32_t period_s = 1;             ///< 1 or 60
  std::set<std::uint16_t> client_vids{};  ///< 1 to 4094; none: the frames are untagged
  std::uint8_t priority = 0;              ///< 0 to 7

  bool operator==(const AisSettings&) const = default;
};

/// None when an end point of this level can send it; else what is wrong, as the end of a sentence about the settings.
std::optional<std::string> CheckAis(const AisSettings& settings, std::uint8_t level);

/// One frame for each client VLAN and period, the first round at once. The frames of a round follow each other so that
/// those for many VLANs fill a second.
class AisSender {
 public:
  static constexpr Duration kRound = std::chrono::seconds(1);
  static constexpr Duration kLongestSpacing = std::chrono::milliseconds(10);

  struct Counters {
    std::uint64_t sent = 0;
    std::uint64_t failed = 0;
  };

  explicit AisSender(const Transmitter& transmitter) : transmitter_(transmitter) {}

  /// The settings must have passed CheckAis().
  void Start(const AisSettings& settings, TimePoint now);
  void Stop() { next_ = kNever; }
  bool running() const { return next_ != kNever; }

  /// Whose address the frames carry.
  void set_address(const pdu::MacAddress& address) { address_ = address; }

  void Advance(TimePoint now);
  TimePoint deadline() const { return next_; }
  const Counters& counters() const { return counters_; }

 private:
  void SendTo(std::uint16_t vid);

  Transmitter transmitter_;
  pdu::MacAddress address_{};
  pdu::Ais ais_;
  std::uint8_t priority_ = 0;
  Duration period_{};
  Duration spacing_{};
  std::vector<std::uint16_t> vids_;
  std::size_t position_ = 0;  ///< of the next VLAN in this round
  TimePoint round_;           ///< when it began
  TimePoint next_ = kNever;
  Counters counters_;
};

}  // namespace cfm::protocol

#endif
