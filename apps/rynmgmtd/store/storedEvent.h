// Events as the store keeps and gives them, and how they are asked for. Plain values.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "mgmtd/problems/problem.h"

namespace mgmtd {

/// The store's file can't be used; what() says which file, what failed and why.
struct StoreError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// One event as it was received. All texts are UTF-8 or escaped to be; they come from outside and are data everywhere.
struct StoredEvent {
  int64_t id = 0;          ///< rises in the order of reception; gaps are possible
  int64_t receivedUs = 0;  ///< microseconds since the epoch, by this host's clock
  int64_t timeUs = 0;      ///< the event's own time
  uint64_t sequence = 0;   ///< of the daemon's run, from 1
  std::string hostUuid, name;
  std::string category;               ///< "problem", "audit", "clear"; "unknown" for a name outside of the three
  std::string severity;               ///< "info", "warning", "error", "critical"; "info" for an unknown name
  std::vector<std::string> subjects;  ///< what it is about, a value each, of a list each name; empty: the host
  std::string text;                   ///< the rendered message, without its end
  std::string argumentsJson;  ///< [{"name":"device","value":"naa.6001"},...]; values are texts, integers or null
  std::string damage;         ///< what is wrong with the record, "; " between; "" when it is whole
  std::string raw;            ///< the record's bytes
};

/// Which events are wanted: all of what is set must hold.
struct EventFilter {
  std::optional<int64_t> sinceUs{}, untilUs{};  ///< the event's own time, both included
  std::vector<std::string> names{};  ///< one of these begins the name, as catalog::Matches has it; empty: any
  std::string subject{};             ///< one of its subjects, whole, or with * and ? as the shell has them
  std::string text{};                ///< stands in its text or name, ASCII letters of either case
  std::string category{};            ///< "problem", ...
  std::string severity{};            ///< this one or worse
  int64_t afterId = 0;               ///< only above this
  int64_t beforeId = 0;              ///< only below this, when it is not 0
  bool newestFirst = false;
  size_t limit = 1000;  ///< at most so many; ask on with afterId or beforeId
};

/// Which problems are wanted.
struct ProblemFilter {
  bool ended = false;  ///< the ended ones too
  size_t limit = 1000;
};

/// How many events one stretch of a time line holds.
struct TimelineBucket {
  int64_t startUs = 0;  ///< of the stretch
  int64_t critical = 0, error = 0, warning = 0;
  int64_t other = 0;  ///< audits, clears, problems of severity info and unknown ones
};

}  // namespace mgmtd
