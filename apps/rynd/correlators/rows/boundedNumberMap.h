// A map from numbers that observations name, such as cores and pages: it forgets the entries that have been unused
// longest rather than grow without bound or refuse new ones. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>

namespace rynd {

/// Holds at most `kMostEntries` entries, at 112 bytes each and the value's.
template <typename Value, size_t kMostEntries>
class BoundedNumberMap {
 public:
  /// The value of `key`, or null when there is none; counts as a use.
  Value *Find(uint64_t key) {
    const auto place = index_.find(key);
    if (place == index_.end()) return nullptr;
    entries_.splice(entries_.end(), entries_, place->second);
    return &place->second->value;
  }
  /// The value of `key`, which is entered as Value() when it is missing. Valid until the next call. The one that has
  /// been unused longest may be forgotten.
  Value &operator[](uint64_t key) {
    if (Value *value = Find(key); value != nullptr) return *value;
    std::list<Entry> added;
    added.push_back({key, Value()});
    index_.emplace(key, added.begin());
    entries_.splice(entries_.end(), added);
    if (entries_.size() > kMostEntries) Erase(entries_.front().key);
    return entries_.back().value;
  }
  void Erase(uint64_t key) {
    const auto place = index_.find(key);
    if (place == index_.end()) return;
    entries_.erase(place->second);
    index_.erase(place);
  }
  void Clear() {
    index_.clear();
    entries_.clear();
  }
  size_t Size() const { return entries_.size(); }

 private:
  struct Entry {
    uint64_t key;
    Value value;
  };
  std::list<Entry> entries_;                                       ///< the one that has been unused longest is first
  std::map<uint64_t, typename std::list<Entry>::iterator> index_;  ///< ordered: no choice of numbers makes it slow
};

}  // namespace rynd
