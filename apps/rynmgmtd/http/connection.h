// One connection of the HTTP server, as its loop keeps it. The loop's thread alone.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <utility>

#include "base/uniqueFd.h"
#include "mgmtd/store/feed.h"

namespace mgmtd {

/// An order for containers.
struct MarksLess {
  bool operator()(const Marks &a, const Marks &b) const {
    return std::pair(a.event, a.change) < std::pair(b.event, b.change);
  }
};

inline bool SameMarks(const Marks &a, const Marks &b) {
  return a.event == b.event && a.change == b.change;
}

/// What a connection is at.
enum class ConnectionState {
  kReading,    ///< its request's head
  kAnswering,  ///< somebody else makes the answer
  kWriting,    ///< the answer
  kStreaming,  ///< events as they come
  kDraining,   ///< the answer is sent: whatever else comes is thrown away, so that no reset overtakes the answer
};

struct Connection {
  using Clock = std::chrono::steady_clock;

  base::UniqueFd fd;
  ConnectionState state = ConnectionState::kReading;
  std::string in;
  std::string out;
  size_t sent = 0;            ///< of `out`
  Clock::time_point since{};  ///< when the state began
  Clock::time_point moved{};  ///< when a byte was last taken
  Marks at;                   ///< of a stream: what it was told
  size_t drained = 0;         ///< bytes thrown away

  size_t Left() const { return out.size() - sent; }
};

}  // namespace mgmtd
