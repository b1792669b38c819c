// Maps from what whoever sends observations may choose: they forget the entries that have been unused longest, those
// that carry nothing first, rather than grow without bound or refuse new ones. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>

namespace rynd {

/// Several times what the largest hosts have of devices, paths or files that are reported at once. A full table of
/// texts takes less than 8 MiB.
constexpr size_t kMostMapEntries = 16'384;
constexpr size_t kMostMapKeyBytes = size_t{4} << 20;

/// From texts or numbers (`Key` is std::string or uint64_t) to values. An entry carries nothing while it equals
/// Value(). Holds at most `kMostEntries` entries, and `kMostKeyBytes` bytes of texts unless a single one is longer.
template <typename Key, typename Value, size_t kMostEntries = kMostMapEntries, size_t kMostKeyBytes = kMostMapKeyBytes>
class BoundedMap {
  using View = std::conditional_t<std::is_same_v<Key, std::string>, std::string_view, Key>;

 public:
  BoundedMap() = default;
  BoundedMap(const BoundedMap &) = delete;  // its index points into its entries
  BoundedMap &operator=(const BoundedMap &) = delete;

  /// The value of `key`, to be read only, or null when there is none; counts as no use.
  const Value *Find(View key) const {
    const auto place = index_.find(key);
    return place == index_.end() ? nullptr : &place->second->value;
  }
  /// The value of `key`, which is entered as Value() when it is missing. Valid until the next call. Others may be
  /// forgotten.
  Value &operator[](View key) {
    SortLastUsed();
    if (const auto place = index_.find(key); place != index_.end()) {
      lastUsed_.splice(lastUsed_.end(), ListOf(*place->second), place->second);
    } else {
      Entries added;
      added.push_back({Key(key), Value(), false, 0});
      index_.emplace(added.front().key, added.begin());
      keyBytes_ += BytesOf(key);
      lastUsed_.splice(lastUsed_.end(), added);
      while (Size() > 1 && (Size() > kMostEntries || keyBytes_ > kMostKeyBytes)) Forget();
    }
    lastUsed_.front().use = ++uses_;
    return lastUsed_.front().value;
  }
  void Erase(View key) {
    SortLastUsed();
    const auto place = index_.find(key);
    if (place == index_.end()) return;
    const auto entry = place->second;
    keyBytes_ -= BytesOf(entry->key);
    index_.erase(place);
    ListOf(*entry).erase(entry);
  }
  void Clear() {
    index_.clear();
    for (Entries *entries : {&empty_, &carrying_, &lastUsed_}) entries->clear();
    keyBytes_ = 0;
  }
  /// Call `change` with each value.
  template <typename Change>
  void ForEach(const Change &change) {
    SortLastUsed();
    Entries all;
    all.splice(all.end(), empty_);
    all.merge(carrying_, [](const Entry &a, const Entry &b) { return a.use < b.use; });
    while (!all.empty()) {
      change(all.front().value);
      lastUsed_.splice(lastUsed_.end(), all, all.begin());
      SortLastUsed();
    }
  }
  size_t Size() const { return index_.size(); }
  size_t KeyBytes() const { return keyBytes_; }

 private:
  struct Entry {
    Key key;
    Value value;
    bool carries;
    uint64_t use;  ///< the larger, the later
  };
  using Entries = std::list<Entry>;

  static size_t BytesOf(View key) {
    if constexpr (std::is_same_v<Key, std::string>) return key.size();
    return 0;
  }
  Entries &ListOf(const Entry &entry) { return entry.carries ? carrying_ : empty_; }
  /// What was handed out last may have been changed since: only now is it known where it belongs.
  void SortLastUsed() {
    if (lastUsed_.empty()) return;
    Entry &entry = lastUsed_.front();
    entry.carries = !(entry.value == Value());
    ListOf(entry).splice(ListOf(entry).end(), lastUsed_);
  }
  void Forget() {
    Entries &entries = empty_.empty() ? carrying_ : empty_;
    keyBytes_ -= BytesOf(entries.front().key);
    index_.erase(entries.front().key);
    entries.pop_front();
  }

  Entries empty_, carrying_;  ///< the one that has been unused longest is first
  Entries lastUsed_;          ///< at most one
  /// Its texts stand in the entries. Ordered: no choice of keys makes it slow.
  std::map<View, typename Entries::iterator> index_;
  size_t keyBytes_ = 0;
  uint64_t uses_ = 0;
};

/// A text of an observation as a key: a null string is the empty text.
inline std::string_view AsKey(const char *text) {
  return text == nullptr ? std::string_view() : std::string_view(text);
}

}  // namespace rynd
