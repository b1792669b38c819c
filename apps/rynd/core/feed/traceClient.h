// One client of the trace feed, and listening to what clients send. For traceFeed.cpp alone.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <utility>

#include "base/uniqueFd.h"
#include "core/basics/conditionVariable.h"
#include "core/feed/traceFeed.h"

namespace rynd {

/// One queued record.
struct TraceFeed::Entry {
  TraceLine line;
  std::array<uint64_t, kTraceFormats> before{};  ///< lines of each format that were queued before it
  size_t Size() const { return line[0].size() + line[1].size(); }
};

/// Guarded by the feed's mutex, but for the socket, which the client's thread writes to without it.
struct TraceFeed::Client {
  explicit Client(base::UniqueFd connected) : socket(std::move(connected)) {}
  base::UniqueFd socket;
  ConditionVariable changed;
  TraceFormat format = TraceFormat::kText;
  uint64_t next = 0;             ///< the sequence number of the first line that it has not been given
  uint64_t seen = 0;             ///< lines of its format that were queued before that one
  bool isAsleep = false;         ///< among the sleepers
  bool hasVanished = false;      ///< its connection has ended
  bool wantsStatistics = false;  ///< and no more
  const char *answer = "";       ///< static text to be sent before any line
  // The beginning of a line that it sends; of a longer one nothing is known.
  std::array<char, 64> heard{};
  size_t heardSize = 0;

  /// Something besides lines has to be acted upon.
  bool HasNews() const { return hasVanished || wantsStatistics || *answer != '\0'; }
  /// Read what has come and give each whole line to `obey`. False when nothing can come any more.
  bool Hear(const std::function<void(std::string_view)> &obey);
};

/// A new set of clients to listen to; -1 with errno.
int MakeWatch();
/// Add `fd` to the set. 0 or an errno value.
int Watch(int set, int fd);
/// Listen no more to `fd`, which has ended or sends no more. True when its other direction has ended too.
bool Unwatch(int set, int fd);
/// Wait for a client that has sent something or has ended: its descriptor and the events, or -1.
int WaitForClient(int set, uint32_t *events);
/// True when the events tell of an end.
bool HasEnded(uint32_t events);

}  // namespace rynd
