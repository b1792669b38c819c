// What a command writes to, and the exit status that it ends with.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

namespace rynctl {

/// Exit statuses of every command.
enum ExitStatus : int { kDone = 0, kFailed = 1, kUsage = 2 };

/// The streams of one run, borrowed. `terminal` says that `out` is one.
struct Console {
  std::ostream &out;
  std::ostream &err;
  bool terminal = false;
  bool abandoned = false;  ///< a thread is blocked in one of the streams and will stay so: leave without flushing them

  /// Report "rynctl: TEXT" as an error; control characters are escaped. Returns kFailed.
  int Fail(std::string_view text);
  /// The same, unless that would block.
  int TryToFail(std::string_view text);
  /// Push out what was printed. kDone; or kFailed once `out` took no more. A reader that went away (EPIPE) is no news,
  /// everything else is reported.
  int Flush();
};

/// Whether to color: `mode` is "always", "never" or "auto", which means on a terminal unless NO_COLOR is set.
bool UseColor(std::string_view mode, const Console &console);

/// `text` in bold or a color: "31" is red, "32" green, "33" yellow. Unchanged when `enabled` is false.
std::string Colored(std::string_view text, std::string_view code, bool enabled);

}  // namespace rynctl
