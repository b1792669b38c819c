// Tells of discarded records, at most once a second. The poll loop's thread only.
#pragma once

#include <cstdint>
#include <string>

namespace hosted {

/// Decides what is told of discarded records, and when.
class DiscardLog {
 public:
  /// The line that tells of `count` bad records of `source` at `now` (milliseconds of a clock that never goes back);
  /// "" when the last line is less than a second old: these are held back then. `reason` is the first one's.
  std::string Line(int64_t now, const std::string &source, int count, const char *reason);
  /// The line that tells of those that are held back; "" when there are none. The next line is free to come at once.
  std::string LastLine();

 private:
  bool told_ = false;
  int64_t lastLine_ = 0;
  uint64_t heldBack_ = 0;
};

/// The bad records that one read discards. They are logged when it goes.
class Discards {
 public:
  Discards() = default;
  ~Discards();
  Discards(const Discards &) = delete;
  Discards &operator=(const Discards &) = delete;

  /// Count one. `source` names the context; `reason` is static text.
  void Add(const char *source, const char *reason);
  int Count() const { return count_; }

 private:
  int count_ = 0;
  std::string source_;  ///< of the first one
  const char *reason_ = nullptr;
};

/// Tell of those that are held back, as no more will come.
void LogLastDiscards();

}  // namespace hosted
