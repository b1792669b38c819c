// The thread of a relay blocks in its caller's place: it takes no signals and is never joined.
#include "hosted/log/relay.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace hosted {

bool Relay::Start(int fd) {
  const int copy = fcntl(fd, F_DUPFD_CLOEXEC, 0);
  if (copy < 0) return false;
  // An earlier one stays open: the thread may be blocked in it.
  target_.store(copy, std::memory_order_release);
  if (ends_[1] >= 0) return true;
  if (pipe2(ends_, O_CLOEXEC) != 0) return false;
  fcntl(ends_[1], F_SETFL, O_NONBLOCK);
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread;
  const bool started = pthread_create(&thread, nullptr, Run, this) == 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (started) {
    pthread_detach(thread);
    return true;
  }
  for (int &end : ends_) close(std::exchange(end, -1));
  return false;
}

void *Relay::Run(void *relay) {
  auto &self = *static_cast<Relay *>(relay);
  const int from = self.ends_[0];
  std::array<char, 4096> part;
  while (true) {
    // Said before the text leaves the pipe, so that there is no instant at which neither tells of it.
    self.writing_.store(false);
    pollfd ready{from, POLLIN, 0};
    poll(&ready, 1, -1);
    self.writing_.store(true);
    const ssize_t got = read(from, part.data(), part.size());
    if (got <= 0) continue;
    for (size_t at = 0; at < static_cast<size_t>(got);) {
      const ssize_t written =
          write(self.target_.load(std::memory_order_acquire), part.data() + at, static_cast<size_t>(got) - at);
      if (written < 0 && errno != EINTR) break;  // it has gone; so has the text
      if (written > 0) at += static_cast<size_t>(written);
    }
  }
}

void Relay::WaitWritten(int milliseconds) const {
  for (; milliseconds > 0; --milliseconds) {
    int waiting = 0;
    if (ioctl(ends_[0], FIONREAD, &waiting) != 0 || (waiting == 0 && !writing_.load())) return;
    constexpr timespec kPause{0, 1'000'000};
    nanosleep(&kPause, nullptr);
  }
}

}  // namespace hosted
