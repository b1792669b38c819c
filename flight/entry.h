// The entries of a flight recording as values. Texts and bytes are borrowed from whoever gave the entry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <variant>

#include "flight/format.h"

namespace flight {

using Bytes = std::span<const std::byte>;

struct Start {
  bool isContinued = false;  ///< the run began in an earlier file
  int32_t pid = 0;
  uint64_t startWallUs = 0, startMonotonicNs = 0;
  std::string_view version, build, root, bootId;
};
struct Observation {
  uint32_t context = 0;  ///< 0 to 28 the kernel's, 29 the programs'
  int32_t pid = 0;       ///< of the sender, context 29 only
  uint32_t uid = 0;
  Bytes record;  ///< raw, not checked here
};
struct Taken {
  uint64_t hash = 0;  ///< RecordHash of the raw record
  uint64_t length = 0;
};
struct Timer {
  std::string_view name;  ///< "woken" for the descriptor that an agent waits for besides its stream
};
struct Done {};
struct ClockRead {
  ClockKind clock = ClockKind::kWallS;
  int64_t value = 0;
};
struct HostAnswer {
  HostKind what = HostKind::kText;
  bool isSetting = false;  ///< looked up by the recorder, at the front of each file
  bool isCut = false;      ///< the content was too long to be kept
  int32_t status = 0;      ///< 0 or an errno value
  std::string_view path;   ///< below the host tree, or the name of an action or of a fact of the machine
  std::string_view content;
};
struct Event {
  Bytes record;  ///< as the management agent gets it; not checked here
};
struct Drop {
  std::string_view name, reason;
};
struct Lost {
  uint64_t count = 0;  ///< entries
};
struct Stop {
  int64_t status = 0;
};

/// One entry.
struct Entry {
  uint64_t monotonicNs = 0;
  uint64_t wallUs = 0;        ///< microseconds since the epoch
  uint16_t threadNumber = 0;  ///< of the thread in its run of the daemon; 0: none
  std::string_view thread;    ///< its name by now: "rynd" before it has one of its own, then such as "APDCorrelator"
  std::variant<Start, Observation, Taken, Timer, Done, ClockRead, HostAnswer, Event, Drop, Lost, Stop> what;
};

}  // namespace flight
