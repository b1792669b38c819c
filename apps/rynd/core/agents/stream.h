// The observation stream of one agent: a pipe of raw records from the poll loop's thread to the agent's.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <span>
#include <string>

#include "core/agents/streamLock.h"
#include "core/agents/subscription.h"
#include "core/basics/list.h"
#include "core/basics/rawRecord.h"
#include "core/basics/statistics.h"

struct Observation;

namespace rynd {

/// One agent's stream. Links, subscription and write end: guarded by the stream lock. Read end and reassembly state:
/// the agent's own thread.
struct Stream : ListLinks {           // linked in order of registration
  std::atomic<bool> closing = false;  ///< the agent reads no more; its pipe may be broken
  int writeEnd = -1;                  ///< non-blocking: a full pipe is waited for where a stop is noticed
  Subscription *subscription = nullptr;
  AgentStatistics *agent = nullptr;  ///< of the agent that opened it; never null
  std::string name;
  // The poll loop reads what is above for each record, the agent writes what is below: not in one cache line.
  [[maybe_unused]] std::array<std::byte, 64> apart{};
  int readEnd = -1;

  // Reassembly: `held` bytes of the record, first in `header`, then in `buffer` that will hold all of it, and how many
  // are still `wanted` for this phase.
  std::array<std::byte, kRecordHeaderSize> header;
  std::unique_ptr<std::byte[]> buffer;
  size_t held = 0;
  size_t wanted = 0;
};

/// The head of the list of all streams.
ListLinks *StreamList() REQUIRES(streamLock);

/// A stream and a quick no to what it does not want.
struct StreamRoute {
  IdFilter filter;
  Stream *stream;
};
/// All streams in the list's order, side by side: to look at 25 of them must not touch as many cache lines.
std::span<const StreamRoute> StreamRoutes() REQUIRES(streamLock);

/// Make the list empty and its lock usable. 0 or an errno value. Initial thread, before any agent starts.
int StreamListInit() EXCLUDES(streamLock);

/// Open a stream for `name` with a copy of `subscription` and register it. 0 and the stream, which StreamClose frees;
/// 1 without memory; 2 when the pipe can't be made.
int StreamOpen(const char *name, const Subscription &subscription, Stream **stream) EXCLUDES(streamLock);

/// The descriptor that is readable while the stream holds bytes: one, into `*fd`, when the room given in `*count` is at
/// least 1; sets `*count` to 1. 0, or 1 without room.
int StreamGetFd(const Stream &stream, int *fd, size_t *count);

/// One step of reassembly; call it when the descriptor is readable. 0 with `*complete` true and a new Observation that
/// the caller frees, or with `*complete` false when more bytes are needed; 2 on failure. An end of file is fatal.
int StreamRead(Stream *stream, Observation **observation, bool *complete);

/// Close, unregister and free a stream, by its own agent. 0, or 2 when a descriptor did not close.
int StreamClose(Stream *stream) EXCLUDES(streamLock);

}  // namespace rynd
