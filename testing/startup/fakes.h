// What the start-up tests replace: the observation contexts, the signals and the stream lock.
#pragma once

#include <poll.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace startup_test {

/// How the replaced objects behave, and what was asked of them. Reset by every test.
struct World {
  int signalStatus = 0;                                  ///< of InstallSignalHandlers
  uint32_t failingContext = UINT32_MAX;                  ///< the id whose open fails with status 93
  int lockStatus = 0;                                    ///< of StreamLock::Init
  int readStatus = 0;                                    ///< of RynLib_ReadFromFd
  int resetStatus = 0;                                   ///< of RynLib_Reset
  uint32_t failingClose = UINT32_MAX;                    ///< the id whose close fails with status 5
  std::function<int(pollfd *set, nfds_t count)> onPoll;  ///< each wait of the poll loop; may call Stop()
  bool stopped = false;

  std::vector<uint32_t> opened;  ///< ids, in order
  std::vector<uint32_t> closed;  ///< ids, in order
  int resets = 0, reads = 0;
  size_t buffer = 0;  ///< the largest buffer that a read was given
};

extern World world;

}  // namespace startup_test
