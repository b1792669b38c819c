#include "correlators/hardware/coreErrors.h"

namespace rynd {

bool CoreErrors::Count(uint64_t core, bool overflow, int64_t threshold, int64_t now) {
  Record &record = records_[core];
  for (int times = overflow ? 2 : 1; times > 0; --times) {
    record.times[record.index] = now;
    record.index = (record.index + 1) % kRingSize;
  }
  const int64_t then = record.times[(record.index - static_cast<uint64_t>(threshold)) % kRingSize];
  return then != 0 && now - then < kWindowS;
}

void CoreErrors::SetOffline(uint64_t core) {
  records_.Erase(core);
  offline_[core] = true;
}

}  // namespace rynd
