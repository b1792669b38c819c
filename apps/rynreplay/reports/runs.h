// The runs of the daemon that a recording holds, a process each: correlators keep their state in statics.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "replay/recording/stepSource.h"
#include "rynctl/console.h"

namespace replay {

/// Exit statuses of a replay.
enum ReplayStatus : int { kEqual = 0, kDifferent = 1, kUnusable = 2 };

/// Plays the steps of run number `run`. A ReplayStatus.
using Play = std::function<int(StepSource *source, size_t run)>;
/// Opens a source of steps. Null when there is none, with `*error` saying why, "" when there is no more.
using OpenSource = std::function<std::unique_ptr<StepSource>(size_t run, std::string *error)>;

/// Play each run of the recording at `path` in order, in a process of its own. The worst of their statuses; kUnusable,
/// with the reason reported, when there is none.
int PlayRuns(const std::string &path, rynctl::Console *console, const Play &play);
/// Play what `open` gives for `run` in a process of its own.
int PlayRun(const OpenSource &open, size_t run, rynctl::Console *console, const Play &play);
/// Opens the runs of the recording at `path`.
OpenSource RunsOf(const std::string &path);

}  // namespace replay
