#include "protocol/deadline_queue.h"

namespace cfm::protocol {

DeadlineQueue::Id DeadlineQueue::Add() {
  if (free_.empty()) {
    positions_.push_back(kOutside);
    return positions_.size() - 1;
  }
  const Id id = free_.back();
  free_.pop_back();
  return id;
}

void DeadlineQueue::Remove(Id id) {
  Set(id, kNever);
  free_.push_back(id);
}

void DeadlineQueue::Set(Id id, TimePoint deadline) {
  std::size_t position = positions_[id];
  if (deadline == kNever) {
    if (position != kOutside) TakeOut(position);
    return;
  }
  if (position == kOutside) {
    position = heap_.size();
    heap_.emplace_back();
  } else if (heap_[position].deadline == deadline) {
    return;
  }
  Settle(position, {deadline, id});
}

std::optional<DeadlineQueue::Id> DeadlineQueue::Due(TimePoint now) const {
  if (heap_.empty() || now < heap_.front().deadline) return std::nullopt;
  return heap_.front().id;
}

void DeadlineQueue::Place(std::size_t position, const Entry& entry) {
  heap_[position] = entry;
  positions_[entry.id] = position;
}

void DeadlineQueue::Settle(std::size_t position, const Entry& entry) {
  while (position > 0) {
    const std::size_t parent = (position - 1) / 2;
    if (heap_[parent].deadline <= entry.deadline) break;
    Place(position, heap_[parent]);
    position = parent;
  }
  for (std::size_t child = 2 * position + 1; child < heap_.size(); child = 2 * position + 1) {
    if (child + 1 < heap_.size() && heap_[child + 1].deadline < heap_[child].deadline) ++child;
    if (entry.deadline <= heap_[child].deadline) break;
    Place(position, heap_[child]);
    position = child;
  }
  Place(position, entry);
}

void DeadlineQueue::TakeOut(std::size_t position) {
  positions_[heap_[position].id] = kOutside;
  const Entry last = heap_.back();
  heap_.pop_back();
  if (position < heap_.size()) Settle(position, last);
}

}  // namespace cfm::protocol
