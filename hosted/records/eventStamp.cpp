// Stamps event records with their time and number. Any thread.
#include <time.h>

#include <atomic>
#include <cstdint>

#include "hosted/records/littleEndian.h"
#include "platform/system.h"

void Hyk_StampEvent(std::byte header[kHykEventHeaderSize]) {
  static std::atomic<uint64_t> stamped{0};
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const int64_t microseconds = int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
  hosted::StoreLittle(header, static_cast<uint64_t>(microseconds));
  hosted::StoreLittle(header + 8, stamped.fetch_add(1, std::memory_order_relaxed) + 1);
}
