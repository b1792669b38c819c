// Which core has had so many corrected errors of its own caches and TLBs within a day that it goes offline. Without a
// clock of its own; one thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "correlators/rows/boundedMap.h"

namespace rynd {

/// True when the error code of `status`, its low 16 bits, is one of a first-level (0 or 1) cache or TLB.
constexpr bool IsFirstLevelError(uint64_t status) {
  if ((status & 0x2) != 0) return false;  // level 2 or unspecified
  const bool memoryHierarchy = (status & 0x100) != 0 && (status & 0xee00) == 0;
  const bool genericCache = (status & 0xc) == 0xc && (status & 0xeff0) == 0;
  const bool tlb = (status & 0x10) != 0 && (status & 0xefe0) == 0;
  return memoryHierarchy || genericCache || tlb;
}

/// The core of `pcpu` on a host of so many cores and PCPUs; 0 where the counts say nothing.
constexpr uint64_t CoreOf(uint64_t pcpu, uint32_t cores, uint32_t pcpus) {
  const uint32_t threadsPerCore = cores == 0 ? 0 : pcpus / cores;
  return threadsPerCore == 0 ? 0 : pcpu / threadsPerCore;
}

class CoreErrors {
 public:
  /// No host has more cores: 11 MB at the most. A further one takes the place of the one without errors for longest.
  static constexpr size_t kMaxCores = 16'384;
  /// Cores that are offline are held apart, so that errors of others never push them out: 8 MB at the most.
  static constexpr size_t kMaxOfflineCores = 65'536;
  static constexpr size_t kRingSize = 64;
  static constexpr int64_t kWindowS = 86'400;

  /// Note an error of `core` at `now` (whole seconds of the monotonic clock), twice with `overflow`. True when the
  /// error `threshold` places back is less than a day old; a threshold above 64 wraps around.
  bool Count(uint64_t core, bool overflow, int64_t threshold, int64_t now);

  /// The core is offline, or about to be: it is never judged again.
  void SetOffline(uint64_t core);
  bool IsOffline(uint64_t core) { return offline_.Find(core) != nullptr && offline_[core]; }

 private:
  struct Record {
    uint32_t index = 0;                      ///< of the place that is written next
    std::array<int64_t, kRingSize> times{};  ///< 0: empty
    bool operator==(const Record &) const = default;
  };
  BoundedMap<uint64_t, Record, kMaxCores> records_;
  BoundedMap<uint64_t, bool, kMaxOfflineCores> offline_;
};

}  // namespace rynd
