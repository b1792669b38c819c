// Observations read from a file of JSON lines and sent with their timing.
#pragma once

#include <istream>
#include <optional>
#include <string>
#include <string_view>

#include "rynctl/console.h"
#include "rynctl/sending/observationSender.h"

namespace rynctl {

/// The largest offset of a line, in seconds: a year.
constexpr double kMaxOffset = 366.0 * 86400;

/// One line: an observation and when to send it.
struct TimedSubmission {
  Submission submission;
  double offset = 0;  ///< seconds from the start; 0 when the line says none
};

/// Parse one JSON object such as {"id":"ryn.a","args":["text",5,null,{"u64":16}],"offset":0.5,"context":3}. `target` is
/// where a line goes that names none. Nothing, with `error`, when it is no JSON, holds an unknown key or a value that
/// does not suit its key, or is no observation that the daemon can take.
std::optional<TimedSubmission> ParseSubmissionLine(std::string_view line, const Target &target, std::string *error);

/// What a run over a file needs to know.
struct FileOptions {
  std::string name;    ///< for errors
  Target target;       ///< of lines that name none
  double speed = 1;    ///< divides the waits; 0: no waiting
  bool force = false;  ///< send also what no correlator handles
};

/// Send every line of `input`, each at its offset from the call's start; one whose offset has passed goes at once.
/// Blank lines are skipped. At the first line that is wrong or can't be sent, reports file, line number and reason and
/// stops. kDone or kFailed.
int SubmitLines(std::istream &input, const FileOptions &options, ObservationSender *sender, Console &console);

}  // namespace rynctl
