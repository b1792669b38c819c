// Microseconds since the epoch, written for people and for programs.
#pragma once

#include <cstdint>
#include <string>

namespace rynctl {

/// "09:30:00.125" in local time, milliseconds cut off; with the date "2024-05-01 09:30:00.125".
std::string LocalTime(uint64_t microseconds, bool withDate);
/// "2024-05-01T07:30:00.125000Z", ISO 8601 in UTC.
std::string IsoTime(uint64_t microseconds);

}  // namespace rynctl
