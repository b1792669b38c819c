// The time of a log record.
#pragma once

#include <cstddef>
#include <ctime>

namespace hosted {

constexpr size_t kLogTimeSize = 27;

/// Write `time` as "2024-01-31T23:59:59.000000Z", kLogTimeSize characters without a NUL. Years 0 to 9999. Any thread;
/// takes no lock, which the C library's own conversions do.
void FormatLogTime(const timespec &time, char *text);
/// The same for now.
void FormatLogTime(char *text);

}  // namespace hosted
