// What the platform counts for the daemon's statistics. Counters are relaxed atomics that start at 0 and never go back;
// a copy is not of one instant. Declarations only; a platform library provides them. Every operation may be called from
// any thread, and takes no lock.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

constexpr size_t kRynDiscardReasons = 24;  ///< room for the reasons for which records are discarded

/// One context: kernel context 0 to 28, or the user context, kRynUserContext.
struct RynContextStatistics {
  uint64_t records;                                    ///< handed to the daemon
  uint64_t bytes;                                      ///< of those
  uint64_t resets;                                     ///< RynLib_Reset
  uint64_t resetRecords;                               ///< discarded by resets
  uint64_t resetBytes;                                 ///< of those
  std::array<uint64_t, kRynDiscardReasons> discarded;  ///< bad records by reason: RynLib_DiscardReason(index)
};

/// Connections of host programs.
struct RynUserStatistics {
  uint64_t now;       ///< open
  uint64_t accepted;  ///< so far, with those that the poll loop had no room for
  uint64_t refused;   ///< closed unread: those, and callers that there was no descriptor for
};

/// Records of the system log.
struct HykLogStatistics {
  uint64_t records;  ///< taken by the log, or by standard error in its place
  uint64_t dropped;  ///< given up
};

/// The flight recorder.
struct HykFlightStatistics {
  bool isOn;
  uint64_t megabytes;  ///< of the ring; 0 while it is off
  uint64_t entries;    ///< written
  uint64_t bytes;      ///< of those
  uint64_t lost;       ///< entries that there was no room for
};

/// Why records were discarded that `discarded[index]` counts, as static text, the same for all contexts; null for an
/// index that nothing was counted under yet.
const char *RynLib_DiscardReason(size_t index);
/// 0, or EINVAL for an id above kRynUserContext.
int RynLib_GetContextStatistics(uint32_t id, RynContextStatistics *statistics);
void RynLib_GetUserStatistics(RynUserStatistics *statistics);
void Hyk_GetLogStatistics(HykLogStatistics *statistics);
void Hyk_GetFlightStatistics(HykFlightStatistics *statistics);
