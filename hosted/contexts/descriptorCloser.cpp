// The poll loop's thread hands descriptors over through a pipe; the thread that closes them takes no signals and is
// started at the first.
#include "hosted/contexts/descriptorCloser.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

namespace hosted {
namespace {

int handOver = -1;  // the pipe's write end

void *CloseAll(void *readEnd) {
  const auto from = static_cast<int>(reinterpret_cast<intptr_t>(readEnd));
  int fd = -1;
  while (true) {
    if (read(from, &fd, sizeof fd) != sizeof fd) continue;
    // A socket closes in the background then.
    constexpr linger kNoWait{0, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &kNoWait, sizeof kNoWait);
    close(fd);
  }
}

/// Start the thread. False when that fails.
bool Start() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  fcntl(ends[1], F_SETFL, O_NONBLOCK);
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread;
  const bool started =
      pthread_create(&thread, nullptr, CloseAll, reinterpret_cast<void *>(static_cast<intptr_t>(ends[0]))) == 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (!started) {
    close(ends[0]);
    close(ends[1]);
    return false;
  }
  pthread_detach(thread);
  handOver = ends[1];
  return true;
}

}  // namespace

void CloseElsewhere(int fd) {
  if (handOver < 0 && !Start()) return;
  if (write(handOver, &fd, sizeof fd) != sizeof fd) return;
}

}  // namespace hosted
