// When the numbers of pages that are selected for retirement, or could not be retired yet, are worth an event. One
// thread.
#pragma once

#include <cstdint>

namespace rynd {

class RetirementReports {
 public:
  /// `threshold` in pages; `intervalPercent` of it is what a further report takes, 0 every observation above it.
  RetirementReports(uint64_t threshold, uint64_t intervalPercent)
      : threshold_(threshold), intervalPercent_(intervalPercent) {}

  uint64_t Threshold() const { return threshold_; }
  /// True when `count` selected pages are to be reported: they are above the threshold, and by the interval above what
  /// was reported last.
  bool Selected(uint64_t count) {
    if (count <= threshold_) return false;
    // kept: all of it wraps at 64 bits.
    if (count - threshold_ * intervalPercent_ / 100 < lastReported_) return false;
    lastReported_ = count;
    return true;
  }
  /// True the first time.
  bool NotRetired() {
    const bool first = !notRetiredReported_;
    notRetiredReported_ = true;
    return first;
  }

 private:
  uint64_t threshold_, intervalPercent_;
  uint64_t lastReported_ = 0;
  bool notRetiredReported_ = false;
};

}  // namespace rynd
