// What a recording tells of one step of the daemon: what was told to whom, and what came of it. Plain values.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "replay/world/clock.h"
#include "replay/world/hostTree.h"

namespace replay {

/// An event as it was recorded: posted, with its record; or dropped, with its name and the reason.
struct RecordedPost {
  std::string name;
  std::string dropReason;  ///< "": it was posted
  std::string record;
};

struct RecordedStep {
  enum class Kind {
    kStart,    ///< the agents start; its answers are those of all of them
    kArrival,  ///< a record arrived, and who took it when is not recorded
    kTaken,    ///< an agent took a record
    kTimer,    ///< a timer ran
    kWake,     ///< an agent was woken by its timer
  };
  Kind kind = Kind::kStart;
  std::string agent;                          ///< of kTaken and kWake: "net"
  std::string timer;                          ///< of kTimer: its name
  std::shared_ptr<const std::string> record;  ///< of kArrival and kTaken; null when the recording does not have it
  int64_t beginNs = 0;                        ///< of the monotonic clock
  uint64_t beginUs = 0, endUs = 0;            ///< since the epoch
  std::vector<ClockRead> clocks;
  std::vector<HostAnswer> answers;
  std::vector<RecordedPost> posts;
  bool hasEnded = true;  ///< false: the recording ends before the step does
};

}  // namespace replay
