#include "models/clockModel.h"

#include <utility>

namespace rynlinuxd {

void ClockModel::Tell(Report report, const char *state) {
  report.key = "clock";
  report.state = state;
  report.isOpen = report.state != "sync";
  // What no run has seen is how this clock is: one that was never kept in time has lost nothing.
  report.isBaseline = !isKnown_;
  last_ = report;
  reporter_->Tell(std::move(report));
}

void ClockModel::Take(const ClockReading &reading, int64_t nowNs) {
  if (isKnown_ && reading.isSynced == wasSynced_) return;
  if (reading.isSynced) {
    Tell({"ryn.clock.correction.adjtime.sync", "the clock is synchronized", {}}, "sync");
  } else if (isKnown_ && nowNs - stepNs_ <= kStepNs) {
    Tell({"ryn.clock.correction.step.unsync",
          "the clock was stepped to %d.%09d",
          {Number(reading.seconds), Number(reading.nanoseconds)}},
         "unsync");
  } else if (reading.maxErrorUs >= kLostUs) {
    Tell({"ryn.clock.correction.adjtime.lostsync", "the clock was not corrected for too long", {}}, "unsync");
  } else {
    Tell({"ryn.clock.correction.adjtime.unsync", "the clock lost its synchronization", {}}, "unsync");
  }
  isKnown_ = true;
  wasSynced_ = reading.isSynced;
}

void ClockModel::Retell() {
  if (isKnown_) reporter_->Tell(last_);
}

}  // namespace rynlinuxd
