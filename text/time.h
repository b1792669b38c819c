// Times as people write them.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace text {

/// What a time that `text` gives is, in microseconds since the epoch: "now", "today", "yesterday", "tomorrow"; "-1h",
/// "+5min", "1h 30min ago"; "2026-11-21", "2026-11-21 12:00", "12:00:30", "2026-11-21T12:00:00.5Z" or with "+02:00";
/// "@1795000000". Local time unless a zone is given; what is missing of a day is 0. Nothing when it is no time. Any
/// thread.
std::optional<int64_t> ParseTime(std::string_view text, int64_t nowUs);

}  // namespace text
