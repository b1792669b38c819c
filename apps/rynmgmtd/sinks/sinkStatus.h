// How a sink does. A plain value.
#pragma once

#include <cstdint>
#include <string>

namespace mgmtd {

/// Counts are of this run.
struct SinkStatus {
  std::string name;            ///< "journal", "exec", "alertmanager http://am:9093"
  int64_t lag = 0;             ///< events, or changes of problems, that are not passed on yet
  uint64_t passed = 0;         ///< that the other side took, repeats of open alerts left out
  uint64_t refused = 0;        ///< that it will never take; told in the log and left out
  uint64_t failures = 0;       ///< attempts in vain; what could not be passed on is tried again
  std::string error;           ///< of the last attempt; "" when it was not in vain
  int64_t failingSinceUs = 0;  ///< since when attempts are in vain, microseconds since the epoch; 0: they are not
};

}  // namespace mgmtd
