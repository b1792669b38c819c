// The daemon's statistics, fetched over its trace socket.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "rynctl/daemonSocket.h"

namespace rynctl {

/// Fetch the statistics as the daemon tells them. "" and the object, or what went wrong and what to do.
std::string FetchStatistics(Patience *patience, nlohmann::json *statistics);

/// A duration for people: "340 ms", "1.5 s", "12 s", "5 min", "3 h 20 min", "12 d 4 h".
std::string DurationText(uint64_t microseconds);

}  // namespace rynctl
