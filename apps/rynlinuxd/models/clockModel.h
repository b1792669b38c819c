// Whether the host's clock is kept in time, from what the kernel says of it. One thread.
#pragma once

#include <cstdint>

#include "sink/report.h"

namespace rynlinuxd {

/// One reading of the kernel's clock.
struct ClockReading {
  bool isSynced = false;   ///< STA_UNSYNC is not set
  int64_t maxErrorUs = 0;  ///< as the kernel estimates it
  int64_t seconds = 0;     ///< wall-clock time
  int32_t nanoseconds = 0;
};

class ClockModel {
 public:
  /// With an error this large the kernel itself takes the clock for lost.
  static constexpr int64_t kLostUs = 16'000'000;
  /// Behind a step the loss of its synchronization is the step's.
  static constexpr int64_t kStepNs = 2'000'000'000;

  explicit ClockModel(Reporter *reporter) : reporter_(reporter) {}
  /// The clock was set.
  void Stepped(int64_t nowNs) { stepNs_ = nowNs; }
  void Take(const ClockReading &reading, int64_t nowNs);
  /// Tell the state again.
  void Retell();

 private:
  void Tell(Report report, const char *state);

  Reporter *const reporter_;
  bool isKnown_ = false, wasSynced_ = false;
  int64_t stepNs_ = -kStepNs - 1;
  Report last_{};
};

}  // namespace rynlinuxd
