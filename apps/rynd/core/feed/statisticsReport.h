// The daemon's statistics as one JSON object. Any thread.
#pragma once

#include <cstdint>
#include <string>

namespace rynd {

/// What the daemon is and has counted, in one line without its end. Takes no lock that is held while anything blocks.
/// Throws std::bad_alloc.
std::string StatisticsReport();

/// Note the time at which the daemon starts and how many agents it has. Initial thread, once.
void StatisticsStart(size_t agents);

}  // namespace rynd
