#include "correlators/coreErrors.h"

namespace rynd {

bool CoreErrors::Count(uint64_t core, bool overflow, int64_t threshold, int64_t now) {
  if (records_.size() >= kMaxCores && !records_.contains(core)) return false;
  Record &record = records_[core];
  for (int times = overflow ? 2 : 1; times > 0; --times) {
    record.times[record.index] = now;
    record.index = (record.index + 1) % kRingSize;
  }
  const int64_t then = record.times[(record.index - static_cast<uint64_t>(threshold)) % kRingSize];
  return then != 0 && now - then < kWindowS;
}

bool CoreErrors::IsOffline(uint64_t core) const {
  const auto record = records_.find(core);
  return record != records_.end() && record->second.offline;
}

}  // namespace rynd
