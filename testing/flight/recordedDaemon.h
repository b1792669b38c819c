// Daemons that record, and what their recordings hold.
#pragma once

#include <string>

#include "testing/daemon.h"

namespace testing_support {

/// Have the daemons below `root` record into a ring of so many MiB.
inline void TurnOnRecorder(const TestRoot &root, unsigned megabytes = 64) {
  WriteFile(root / "/var/lib/corvane/host/sysinfo/config/intOpts/Flight/Megabytes", std::to_string(megabytes) + "\n");
}

/// Where they record.
inline std::string FlightFolder(const TestRoot &root) {
  return root / "/var/lib/corvane/flight";
}

}  // namespace testing_support
