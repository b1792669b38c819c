// How many system calls a process makes.
#pragma once

#include <sys/types.h>

#include <functional>

namespace bench {

/// The system calls of all threads that `pid`, a child of this process, has now, while `action` runs in another thread.
/// The process is many times slower meanwhile.
long CountSystemCalls(pid_t pid, const std::function<void()> &action);

}  // namespace bench
