// The deadlines of many, in order.
#ifndef CFM_SERVER_PROTOCOL_DEADLINE_QUEUE_H
#define CFM_SERVER_PROTOCOL_DEADLINE_QUEUE_H

#include <cstddef>
#include <optional>
#include <vector>

#include "protocol/time.h"

namespace cfm::protocol {

/// A heap that knows where each member is. Looking costs the same whatever the number of members, a change grows with
/// its logarithm; members without a deadline cost nothing.
class DeadlineQueue {
 public:
  using Id = std::size_t;

  /// A new member, without a deadline. Ids of removed ones are used again.
  Id Add();
  void Remove(Id id);

  /// kNever: without a deadline.
  void Set(Id id, TimePoint deadline);

  TimePoint earliest() const { return heap_.empty() ? kNever : heap_.front().deadline; }

  /// The member with the earliest deadline if that has come. It stays until its deadline is set anew.
  std::optional<Id> Due(TimePoint now) const;

 private:
  struct Entry {
    TimePoint deadline;
    Id id;
  };
  static constexpr std::size_t kOutside = static_cast<std::size_t>(-1);

  void Place(std::size_t position, const Entry& entry);
  /// Finds the place of an entry, beginning at a position that is free.
  void Settle(std::size_t position, const Entry& entry);
  void TakeOut(std::size_t position);

  std::vector<Entry> heap_;
  std::vector<std::size_t> positions_;  ///< by id
  std::vector<Id> free_;
};

}  // namespace cfm::protocol

#endif
