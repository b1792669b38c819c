// A map from texts that whoever sends observations may choose: it forgets the entries that have been unused longest
// rather than grow without bound. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace rynd {

/// Several times what the largest hosts have of devices, paths or files that are reported at once. A full table takes
/// less than 8 MiB.
constexpr size_t kMostMapEntries = 16'384;
constexpr size_t kMostMapKeyBytes = size_t{4} << 20;

/// Holds at most `kMostEntries` entries, and `kMostKeyBytes` bytes of keys unless a single key is longer.
template <typename Value, size_t kMostEntries = kMostMapEntries, size_t kMostKeyBytes = kMostMapKeyBytes>
class BoundedMap {
 public:
  /// The value of `key`, or null when there is none; counts as no use.
  Value *Find(std::string_view key) {
    const auto place = index_.find(key);
    return place == index_.end() ? nullptr : &place->second->value;
  }
  /// The value of `key`, which is entered as Value() when it is missing. Valid until the next call. Others may be
  /// forgotten.
  Value &operator[](std::string_view key) {
    if (const auto place = index_.find(key); place != index_.end()) {
      entries_.splice(entries_.end(), entries_, place->second);
      return place->second->value;
    }
    std::list<Entry> added;
    added.push_back({std::string(key), Value()});
    index_.emplace(added.front().key, added.begin());
    keyBytes_ += key.size();
    entries_.splice(entries_.end(), added);
    while (entries_.size() > 1 && (entries_.size() > kMostEntries || keyBytes_ > kMostKeyBytes)) Erase(Oldest());
    return entries_.back().value;
  }
  void Erase(std::string_view key) {
    const auto place = index_.find(key);
    if (place == index_.end()) return;
    const auto entry = place->second;
    keyBytes_ -= entry->key.size();
    index_.erase(place);
    entries_.erase(entry);
  }
  void Clear() {
    index_.clear();
    entries_.clear();
    keyBytes_ = 0;
  }
  /// Call `change` with each value.
  template <typename Change>
  void ForEach(const Change &change) {
    for (Entry &entry : entries_) change(entry.value);
  }
  size_t Size() const { return entries_.size(); }
  size_t KeyBytes() const { return keyBytes_; }

 private:
  struct Entry {
    std::string key;
    Value value;
  };
  std::string_view Oldest() const { return entries_.front().key; }

  std::list<Entry> entries_;  ///< the one that has been unused longest is first
  std::unordered_map<std::string_view, typename std::list<Entry>::iterator> index_;  ///< its keys stand in entries_
  size_t keyBytes_ = 0;
};

/// A text of an observation as a key: a null string is the empty text.
inline std::string_view AsKey(const char *text) {
  return text == nullptr ? std::string_view() : std::string_view(text);
}

}  // namespace rynd
