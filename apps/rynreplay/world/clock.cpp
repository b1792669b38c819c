// Stands in for core/basics/clock.cpp.
#include "replay/world/clock.h"

#include <algorithm>
#include <limits>

#include "replay/world/world.h"

namespace replay {

void Clock::Set(int64_t monotonicNs, uint64_t wallUs) {
  // In the year 2116: sums of nanoseconds hold it, whatever a recording says.
  constexpr int64_t kMostNs = std::numeric_limits<int64_t>::max() / 2;
  monotonicNs_ = std::clamp<int64_t>(monotonicNs, 0, kMostNs);
  wallAheadNs_ = static_cast<int64_t>(std::min<uint64_t>(wallUs, kMostNs / 1000)) * 1000 - monotonicNs_;
}

void Clock::Tell(const std::vector<ClockRead> &reads) {
  for (Told &told : told_) {
    told.values.clear();
    told.next = 0;
  }
  for (const ClockRead &read : reads) told_[static_cast<size_t>(read.kind)].values.push_back(read.value);
}

int64_t Clock::Read(ClockKind kind) {
  Told &told = told_[static_cast<size_t>(kind)];
  return told.next < told.values.size() ? told.values[told.next++] : Simulated(kind);
}

int64_t Clock::Simulated(ClockKind kind) {
  switch (kind) {
    case ClockKind::kWallS:
      return (monotonicNs_ + wallAheadNs_) / rynd::kNsPerSecond;
    case ClockKind::kWindowS:
      return window_.NowS(monotonicNs_ + wallAheadNs_, monotonicNs_);
    case ClockKind::kMonotonicNs:
      return monotonicNs_;
  }
  return 0;
}

}  // namespace replay

namespace rynd {

using replay::ClockKind;
using replay::TheWorld;

int64_t WallClockS() {
  return TheWorld().clock.Read(ClockKind::kWallS);
}

uint64_t WallClockUs() {
  return TheWorld().clock.WallUs();
}

int64_t MonotonicNs() {
  return TheWorld().clock.Read(ClockKind::kMonotonicNs);
}

int64_t WindowClockS() {
  return TheWorld().clock.Read(ClockKind::kWindowS);
}

}  // namespace rynd
