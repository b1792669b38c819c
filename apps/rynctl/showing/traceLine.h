// One line of the daemon's text feed, taken apart.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace rynctl {

/// "MICROSECONDS IN|OUT ID MESSAGE ARGS" or "MICROSECONDS LOST N".
struct TraceLine {
  enum class Kind { kIn, kOut, kLost };
  uint64_t microseconds = 0;  ///< since the epoch
  Kind kind = Kind::kIn;
  std::string_view id;    ///< of kIn and kOut; a part of the parsed line
  std::string_view text;  ///< what stands behind the id
  uint64_t lost = 0;      ///< of kLost: the lines that this client was too slow for
};

/// Take `line` (without its end) apart; it must outlive the result. Nothing when it has another form.
std::optional<TraceLine> ParseTraceLine(std::string_view line);

}  // namespace rynctl
