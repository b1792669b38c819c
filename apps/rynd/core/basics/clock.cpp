#include "core/basics/clock.h"

#include <ctime>

#include "platform/flight.h"

namespace rynd {
namespace {

int64_t ReadNs(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return int64_t{now.tv_sec} * kNsPerSecond + now.tv_nsec;
}

int64_t Recorded(HykClock clock, int64_t value) {
  Hyk_RecordClock(clock, value);
  return value;
}

}  // namespace

int64_t WallClockS() {
  return Recorded(HykClock::kWallS, ReadNs(CLOCK_REALTIME) / kNsPerSecond);
}

uint64_t WallClockUs() {
  return static_cast<uint64_t>(ReadNs(CLOCK_REALTIME) / 1000);
}

int64_t MonotonicNs() {
  return Recorded(HykClock::kMonotonicNs, UnrecordedNs());
}

int64_t UnrecordedNs() {
  return ReadNs(CLOCK_MONOTONIC);
}

int64_t WindowClockS() {
  static NeverSetBack clock;
  const int64_t wallNs = ReadNs(CLOCK_REALTIME);
  return Recorded(HykClock::kWindowS, clock.NowS(wallNs, UnrecordedNs()));
}

}  // namespace rynd
