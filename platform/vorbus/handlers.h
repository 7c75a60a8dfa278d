// Handlers by the identity that they are for. Handlers may release any handler, and add some, while they are called.
#ifndef VORBUS_HANDLERS_H
#define VORBUS_HANDLERS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

namespace bus {

template <typename Function>
struct Handler {
  vorbus* token;
  std::uint64_t identity;
  Function function;
  void* user;
  bool released = false;
};

template <typename Entry>
class HandlerTable {
 public:
  template <typename Function>
  Entry* Add(vorbus* token, std::uint64_t identity, Function function, void* user) {
    auto entry = std::make_unique<Entry>();
    entry->token = token;
    entry->identity = identity;
    entry->function = function;
    entry->user = user;
    Entry* added = entry.get();
    lists_[identity].push_back(std::move(entry));
    return added;
  }

  // Calls call(entry) for each handler that was there when the call began and still is at its turn.
  template <typename Call>
  void Each(std::uint64_t identity, const Call& call) {
    if (latest_ == nullptr || latest_->first != identity) {
      const auto found = lists_.find(identity);
      if (found == lists_.end()) {
        return;
      }
      latest_ = &*found;
    }
    const List& list = latest_->second;
    const std::size_t count = list.size();
    for (std::size_t i = 0; i < count; ++i) {
      Entry* entry = list[i].get();
      if (!entry->released) {
        call(*entry);
      }
    }
  }

  bool Has(std::uint64_t identity) const {
    const auto found = lists_.find(identity);
    return found != lists_.end() && HasLive(found->second);
  }

  std::vector<std::uint64_t> Identities() const {
    std::vector<std::uint64_t> all;
    for (const auto& [identity, list] : lists_) {
      if (HasLive(list)) {
        all.push_back(identity);
      }
    }
    return all;
  }

  std::size_t size() const { return lists_.size(); }

  // A released entry is not called again; it lives until the next sweep.
  void Release(Entry& entry) {
    entry.released = true;
    released_.push_back(entry.identity);
  }

  void Sweep() {
    if (!released_.empty()) {
      latest_ = nullptr;
    }
    for (const std::uint64_t identity : released_) {
      const auto found = lists_.find(identity);
      if (found == lists_.end()) {
        continue;
      }
      std::erase_if(found->second, [](const auto& entry) { return entry->released; });
      if (found->second.empty()) {
        lists_.erase(found);
      }
    }
    released_.clear();
  }

 private:
  using List = std::vector<std::unique_ptr<Entry>>;

  static bool HasLive(const List& list) {
    return std::any_of(list.begin(), list.end(), [](const auto& entry) { return !entry->released; });
  }

  std::unordered_map<std::uint64_t, List> lists_;
  const std::pair<const std::uint64_t, List>* latest_ = nullptr;  // that was called: mostly the next one, too
  std::vector<std::uint64_t> released_;
};

}  // namespace bus

#endif
