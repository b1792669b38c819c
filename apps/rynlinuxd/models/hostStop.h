// What systemd's queue of jobs says of the host's end. Stateless: any thread.
#pragma once

#include <string_view>

namespace rynlinuxd {

enum class StopKind {
  kNone,  ///< this program alone is stopped
  kReboot,
  kShutdown,
};

/// Read the lines of "systemctl list-jobs --no-legend": JOB UNIT TYPE STATE.
StopKind ParseStopJobs(std::string_view jobs);

}  // namespace rynlinuxd
