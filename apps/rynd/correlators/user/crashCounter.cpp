#include "correlators/user/crashCounter.h"

#include <limits>

namespace rynd {

int32_t CrashCounter::Count(std::string_view name, int64_t nowS) {
  CrashRecord &record = records_[name];
  if (record.count == 0) record.firstSeenS = nowS;
  record.lastSeenS = nowS;
  if (record.count < std::numeric_limits<int32_t>::max()) ++record.count;
  return record.count;
}

}  // namespace rynd
