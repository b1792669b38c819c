// Connects and sends without ever blocking in the kernel, so that every wait can be told and bounded.
#include "rynctl/daemonSocket.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <future>
#include <thread>

#include "base/unixAddress.h"

namespace rynctl {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr const char *kTooLargeForTheHost =
    "the record is too large for a socket of this host (see sysctl net.core.wmem_max)";

/// One wait: notes its start and speaks up when it gets long.
class Wait {
 public:
  Wait(const std::string &path, Patience *patience) : path_(path), patience_(patience) {}

  /// How long to sleep until the next look, at most 100 ms; 0 when patience has ended.
  milliseconds Next() {
    const auto waited = std::chrono::duration_cast<milliseconds>(Clock::now() - start_);
    if (patience_->signals != nullptr && patience_->signals->Wanted()) return milliseconds(0);
    if (patience_->limit && waited >= *patience_->limit) return milliseconds(0);
    if (!patience_->noticed && waited >= patience_->noticeAfter) {
      patience_->noticed = true;
      patience_->err << "rynctl: waiting: the daemon takes nothing from " << path_
                     << " (is rynd stopped? --timeout bounds the wait)" << std::endl;
    }
    const milliseconds left = patience_->limit ? *patience_->limit - waited : milliseconds(100);
    return std::clamp(left, milliseconds(1), milliseconds(100));
  }

  std::string TimedOut() const {
    return "timed out: the daemon takes nothing from " + path_ + " (see whether rynd is stopped or overloaded)";
  }

 private:
  const std::string &path_;
  Patience *patience_;
  Clock::time_point start_ = Clock::now();
};

bool IsAbsent(int error) {
  return error == ENOENT || error == ENOTDIR || error == ECONNREFUSED;
}

/// Sleep a little when `error` says that the daemon is not there yet and it may still take its time; else false.
bool AwaitStart(int error, const Patience &patience) {
  if (!IsAbsent(error) || Clock::now() - patience.since >= patience.start) return false;
  if (patience.signals != nullptr && patience.signals->Wanted()) return false;
  std::this_thread::sleep_for(milliseconds(20));
  return true;
}

std::string ConnectError(const std::string &path, int error, const Patience &patience) {
  if (IsAbsent(error)) {
    const std::string still = patience.start.count() > 0 ? "still no daemon serves " : "no daemon serves ";
    return still + path + " (start rynd, or give its root with --root)";
  }
  switch (error) {
    case EACCES:
    case EPERM:
      return "no permission for " + path + " (run as root, or as the user that rynd runs as)";
    case ENAMETOOLONG:
      return "socket path is too long: " + path + " (give a shorter --root)";
    case EPROTOTYPE:
      return path + " is another program's socket (give rynd's root with --root)";
    default:
      return "cannot connect to " + path + ": " + std::strerror(error);
  }
}

}  // namespace

std::string ConnectToDaemon(const std::string &path, int type, Patience *patience, base::UniqueFd *fd) {
  base::UnixAddress address;
  if (const int error = base::MakeUnixAddress(path, &address)) return ConnectError(path, error, *patience);
  base::UniqueFd socketFd(socket(AF_UNIX, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socketFd) return ConnectError(path, errno, *patience);
  Wait wait(path, patience);
  // A full backlog gives EAGAIN, and nothing to poll for.
  while (connect(socketFd.Get(), address.Get(), base::UnixAddress::kLength) != 0) {
    const int error = errno;
    if (error == EINTR || AwaitStart(error, *patience)) continue;
    if (error != EAGAIN) return ConnectError(path, error, *patience);
    const milliseconds pause = wait.Next();
    if (pause.count() == 0) return wait.TimedOut();
    std::this_thread::sleep_for(std::min(pause, milliseconds(20)));
  }
  *fd = std::move(socketFd);
  return "";
}

std::string SendToDaemon(int fd, const std::string &path, std::span<const std::byte> record, Patience *patience,
                         bool *lost) {
  if (lost != nullptr) *lost = false;
  Wait wait(path, patience);
  while (send(fd, record.data(), record.size(), MSG_NOSIGNAL) < 0) {
    const int error = errno;
    if (error == EINTR) continue;
    if (error == EAGAIN || error == ENOBUFS) {
      const milliseconds pause = wait.Next();
      if (pause.count() == 0) return wait.TimedOut();
      if (error == ENOBUFS) std::this_thread::sleep_for(milliseconds(10));  // nothing to poll for
      pollfd writable{fd, POLLOUT, 0};
      poll(&writable, 1, static_cast<int>(pause.count()));
      continue;
    }
    const bool gone = error == ECONNREFUSED || error == ECONNRESET || error == EPIPE || error == ENOTCONN;
    if (lost != nullptr) *lost = gone;
    if (error == EMSGSIZE) return kTooLargeForTheHost;
    if (gone) return "the daemon went away from " + path + " (see its log; start it again)";
    return "cannot send to " + path + ": " + std::strerror(error);
  }
  return "";
}

std::string SubmitWithPatience(const std::string &path, Patience *patience, const std::function<int()> &submit) {
  Wait wait(path, patience);
  while (true) {
    std::packaged_task<int()> task(submit);
    std::future<int> result = task.get_future();
    std::thread(std::move(task)).detach();
    while (result.wait_for(milliseconds(20)) != std::future_status::ready) {
      if (patience->signals != nullptr && patience->signals->Wanted()) return wait.TimedOut();
      wait.Next();
    }
    const int error = result.get();
    if (error == 0) return "";
    if (error == EMSGSIZE) return kTooLargeForTheHost;
    if (error == ETIMEDOUT) return wait.TimedOut();
    if (!AwaitStart(error, *patience)) return ConnectError(path, error, *patience);
  }
}

}  // namespace rynctl
