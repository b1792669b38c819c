#include "post/mgmtdSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "base/uniqueFd.h"
#include "base/unixAddress.h"
#include "core/basics/cancel.h"
#include "core/basics/clock.h"
#include "core/basics/log.h"
#include "core/basics/statistics.h"
#include "platform/system.h"

namespace rynd {
namespace {

constexpr int kPatienceS = 10;  ///< after which an agent that does not accept is spoken of
constexpr char kMgmtdSocketPath[] = "/var/run/corvane/mgmtd-kprob.sock";

/// Without memory of the heap: an event that is being sent is lost by nothing but a lack of it elsewhere.
const char *SocketPath() {
  static char path[PATH_MAX];
  [[maybe_unused]] static const int length = snprintf(path, sizeof path, "%s%s", Hyk_Root(), kMgmtdSocketPath);
  return path;
}

/// Whether the management agent accepts connections. Used by one thread at a time: whoever sends holds the queue lock.
class Acceptance {
 public:
  /// A connection was not accepted yet.
  void Waits() {
    if (Stats().events.notAcceptingSinceUs == 0) Stats().events.notAcceptingSinceUs = WallClockUs();
  }
  /// It was not accepted for kPatienceS seconds.
  void TimedOut() {
    if (!isTold_)
      Log("The management agent has accepted no connection for %d seconds. Events wait for it.\n", kPatienceS);
    isTold_ = true;
  }
  void Accepted() {
    const uint64_t sinceUs = Stats().events.notAcceptingSinceUs.exchange(0);
    if (sinceUs == 0 || !isTold_) return;
    isTold_ = false;
    Log("The management agent accepts connections again, after %.0f seconds.\n",
        static_cast<double>(WallClockUs() - sinceUs) / 1e6);
  }

 private:
  bool isTold_ = false;
};
Acceptance acceptance;

/// A new socket: one whose calls do not block, or one whose calls end after kPatienceS seconds.
base::UniqueFd NewSocket(bool blocks) {
  base::UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | (blocks ? 0 : SOCK_NONBLOCK), 0));
  constexpr timeval kPatience{kPatienceS, 0};
  if (fd && blocks) setsockopt(fd.Get(), SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
  return fd;
}

/// A new connected socket, or none, with the reason logged. An agent that accepts at once costs no call more than the
/// socket and the connection; one that does not is waited for.
base::UniqueFd Connect() {
  base::UnixAddress address;
  if (const int status = base::MakeUnixAddress(SocketPath(), &address); status != 0) {
    Log("KprobPostToMgmtd: Error connecting to %s: %s.\n", SocketPath(), strerror(status));
    return {};
  }
  for (bool blocks = false;;) {
    base::UniqueFd fd = NewSocket(blocks);
    if (!fd) {
      if (errno == EINTR) continue;
      Log("KprobPostToMgmtd: Error creating socket: %s\n", strerror(errno));
      return {};
    }
    if (CancellableConnect(fd.Get(), address.Get(), base::UnixAddress::kLength) == 0) {
      acceptance.Accepted();
      return fd;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN) {
      Log("KprobPostToMgmtd: Error connecting to %s: %s.\n", SocketPath(), strerror(errno));
      return {};
    }
    acceptance.Waits();
    if (blocks) acceptance.TimedOut();
    Hyk_FlushLog();
    blocks = true;
  }
}

}  // namespace

int SendToMgmtd(const std::byte *record, size_t length) {
  const base::UniqueFd fd = Connect();
  if (!fd) return -1;
  for (size_t sent = 0; sent < length;) {
    // Kept: after a partial send the full length is passed again, since the agent expects that much; the record has
    // zeroed room behind it.
    const ssize_t count = CancellableSend(fd.Get(), record + sent, length, 0);
    if (count < 0) {
      if (errno == EINTR) continue;
      if (errno == EAGAIN) {  // it reads slowly: wait for it
        Hyk_FlushLog();
        fcntl(fd.Get(), F_SETFL, 0);
        continue;
      }
      Log("KprobPostToMgmtd: Error sending on socket: %s. rc:%d\n", strerror(errno), -1);
      return -1;
    }
    sent += static_cast<size_t>(count);
    if (sent < length) {
      Log("KprobPostToMgmtd: Partial send (%d sent, %zu remaining). Continuing...\n", static_cast<int>(count),
          length - sent);
    }
  }
  return 0;
}

}  // namespace rynd
