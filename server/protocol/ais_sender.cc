#include "protocol/ais_sender.h"

#include <algorithm>
#include <array>

#include "pdu/header.h"

namespace cfm::protocol {

std::optional<std::string> CheckAis(const AisSettings& settings, std::uint8_t level) {
  constexpr std::uint16_t kHighestVid = 4094;
  constexpr std::uint8_t kHighestPriority = 7;
  if (settings.client_level <= level || settings.client_level > pdu::kHighestLevel) {
    return "client level " + std::to_string(settings.client_level) + " is not above level " + std::to_string(level) +
           ", or above " + std::to_string(pdu::kHighestLevel);
  }
  if (settings.period_s != 1 && settings.period_s != 60) {
    return "a period of " + std::to_string(settings.period_s) + " s is neither 1 nor 60";
  }
  for (const std::uint16_t vid : settings.client_vids) {
    if (vid == 0 || vid > kHighestVid) return "client VID " + std::to_string(vid) + " is not in 1 to 4094";
  }
  if (settings.priority > kHighestPriority) {
    return "priority " + std::to_string(settings.priority) + " is above 7";
  }
  return std::nullopt;
}

void AisSender::Start(const AisSettings& settings, TimePoint now) {
  ais_ = {.level = settings.client_level,
          .version = 0,
          .period = settings.period_s == 1 ? pdu::AisPeriod::k1s : pdu::AisPeriod::k1min};
  priority_ = settings.priority;
  period_ = std::chrono::seconds(settings.period_s);
  vids_.assign(settings.client_vids.begin(), settings.client_vids.end());
  if (vids_.empty()) vids_.push_back(0);
  spacing_ = std::min(kLongestSpacing, kRound / static_cast<Duration::rep>(vids_.size()));
  position_ = 0;
  round_ = next_ = now;
  Advance(now);
}

void AisSender::Advance(TimePoint now) {
  while (now >= next_) {
    SendTo(vids_[position_++]);
    if (position_ < vids_.size()) {
      next_ = round_ + spacing_ * static_cast<Duration::rep>(position_);
      continue;
    }
    position_ = 0;
    round_ = next_ = NextSlot(round_, period_, now);
  }
}

void AisSender::SendTo(std::uint16_t vid) {
  transmitter_.set_addressing({.level = ais_.level, .address = address_, .primary_vid = vid, .inner_vid = 0, .mtu = 0});
  std::array<std::uint8_t, pdu::kHeaderSize + 1> buffer;
  const pdu::Octets octets = pdu::Octets(buffer).first(pdu::EncodeAis(ais_, buffer));
  ++(transmitter_.ToGroup(pdu::GroupClass::k1, priority_, octets) ? counters_.sent : counters_.failed);
}

}  // namespace cfm::protocol
