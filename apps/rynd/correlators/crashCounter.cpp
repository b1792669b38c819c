#include "correlators/crashCounter.h"

#include <algorithm>
#include <limits>

namespace rynd {

int32_t CrashCounter::Count(std::string_view name, int64_t nowS) {
  const auto known = records_.find(name);
  if (known == records_.end()) {
    records_.emplace(name, CrashRecord{nowS, nowS, 1});
    if (records_.size() > kMaxNames) ForgetQuietest();
    return 1;
  }
  CrashRecord &record = known->second;
  record.lastSeenS = nowS;
  if (record.count < std::numeric_limits<int32_t>::max()) ++record.count;
  return record.count;
}

void CrashCounter::ForgetQuietest() {
  records_.erase(std::ranges::min_element(records_, {}, [](const auto &entry) { return entry.second.lastSeenS; }));
}

}  // namespace rynd
