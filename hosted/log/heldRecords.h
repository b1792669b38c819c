// The log records of one thread that wait to be sent together. Each thread its own.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace hosted {

/// A few records, back to back. Usually those of one observation: three, of some hundred bytes each.
class HeldRecords {
 public:
  struct Record {
    std::string_view text;     ///< the whole record
    std::string_view message;  ///< the message in it
    uint64_t told;             ///< dropped records that it tells of
  };
  static constexpr size_t kMost = 16;

  /// Keep a copy of a record. False when there is no room for it, or not beside the others.
  bool Add(std::string_view text, std::string_view message, uint64_t told) {
    if (count_ == kMost || text.size() > room_.size() - used_) return false;
    char *const copy = room_.data() + used_;
    text.copy(copy, text.size());
    records_[count_++] = {{copy, text.size()}, {copy + (message.data() - text.data()), message.size()}, told};
    used_ += text.size();
    return true;
  }
  /// Those that wait, in order; theirs until Clear().
  std::span<const Record> Records() const { return {records_.data(), count_}; }
  void Clear() { count_ = used_ = 0; }

 private:
  std::array<Record, kMost> records_;
  std::array<char, 8192> room_;
  size_t count_ = 0;
  size_t used_ = 0;
};

}  // namespace hosted
