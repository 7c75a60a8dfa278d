// Who may have what only one can have: the first who asked for it and still wants it.
#ifndef CFM_SERVER_ENGINE_CLAIMS_H
#define CFM_SERVER_ENGINE_CLAIMS_H

#include <algorithm>
#include <map>
#include <optional>
#include <vector>

namespace cfm::engine {

template <typename Thing, typename Claimant>
class Claims {
 public:
  /// The one who has it from now on: the claimant, or somebody who came before. A claimant has one claim at a time;
  /// `freed` is told of who gets what the claimant gave up for this one, if anybody.
  const Claimant& Claim(const Thing& thing, const Claimant& claimant, std::optional<Claimant>& freed) {
    if (const auto held = things_.find(claimant); held == things_.end() || held->second != thing) {
      freed = Release(claimant);
      things_.emplace(claimant, thing);
      claimants_[thing].push_back(claimant);
    }
    return claimants_.at(thing).front();
  }

  /// Gives up the claim, if there is one. Who has the thing now, if that is another one than before.
  std::optional<Claimant> Release(const Claimant& claimant) {
    const auto held = things_.find(claimant);
    if (held == things_.end()) return std::nullopt;
    const auto queue = claimants_.find(held->second);
    things_.erase(held);
    const bool was_first = queue->second.front() == claimant;
    std::erase(queue->second, claimant);
    if (queue->second.empty()) {
      claimants_.erase(queue);
      return std::nullopt;
    }
    return was_first ? std::optional(queue->second.front()) : std::nullopt;
  }

 private:
  std::map<Thing, std::vector<Claimant>> claimants_;
  std::map<Claimant, Thing> things_;
};

}  // namespace cfm::engine

#endif
