// What a running process holds, from outside.
#pragma once

#include <sys/types.h>

namespace testing_support {

struct ProcessState {
  long descriptors = 0;  ///< open
  long threads = 0;
  long residentKib = 0;
};

/// What process `pid` holds now; zeroes when it is gone.
ProcessState ReadProcessState(pid_t pid);

}  // namespace testing_support
