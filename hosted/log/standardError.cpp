// Lines on standard error, which a terminal that nobody reads or a full pipe must not make wait. Any thread.
//
// A file description that other processes share may not be made non-blocking, and a look by poll() says nothing about
// the write that follows it when there are several writers. So the file is opened anew for ourselves.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <new>
#include <string>
#include <string_view>

#include "base/immortal.h"
#include "base/terminalText.h"
#include "hosted/log/relay.h"
#include "hosted/log/stall.h"
#include "platform/system.h"

namespace hosted {
namespace {

/// The end of a wait that began when this was made.
class Deadline {
 public:
  explicit Deadline(bool mayWait)
      : end_(mayWait ? MonotonicNanoseconds() + int64_t{kLogWaitMilliseconds} * 1'000'000 : 0) {}
  /// Whole milliseconds, rounded up; 0 when it has passed.
  int Left() const {
    if (end_ == 0) return 0;
    return static_cast<int>(std::max<int64_t>((end_ - MonotonicNanoseconds() + 999'999) / 1'000'000, 0));
  }

 private:
  int64_t end_;
};

void Pause() {
  constexpr timespec kPause{0, 1'000'000};
  nanosleep(&kPause, nullptr);
}

/// Standard error as it is now, and how to write to it without waiting. One thread at a time.
class Output {
 public:
  /// Look at standard error again: it may have been replaced. False when it is closed.
  bool Refresh() {
    struct stat status {};
    if (fstat(STDERR_FILENO, &status) != 0) return false;
    if (way_ != Way::kUnknown && status.st_dev == device_ && status.st_ino == inode_) return true;
    if (ownFd_ >= 0) close(ownFd_);
    ownFd_ = -1;
    device_ = status.st_dev;
    inode_ = status.st_ino;
    midLine_ = false;
    way_ = Choose(status.st_mode);
    return true;
  }

  /// Write all of `line`, which ends in a line end. False when it was given up.
  bool WriteLine(std::string_view line, const Deadline &deadline) {
    // A line that was given up half way is ended first, so that it spoils no other.
    if (midLine_ && !Write("\n", deadline)) return false;
    midLine_ = false;
    const bool written = Write(line, deadline);
    if (written) midLine_ = false;
    if (written && way_ == Way::kRelayed) relay_.WaitWritten(deadline.Left());
    return written;
  }

 private:
  enum class Way { kUnknown, kDirect, kSocket, kOwn, kRelayed };

  Way Choose(mode_t mode) {
    if (S_ISSOCK(mode)) return Way::kSocket;
    if (!S_ISFIFO(mode) && !S_ISCHR(mode)) return Way::kDirect;
    ownFd_ = open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (ownFd_ >= 0) return Way::kOwn;
    // It belongs to another user, or there is no /proc.
    return relay_.Start(STDERR_FILENO) ? Way::kRelayed : Way::kUnknown;
  }

  ssize_t WriteSome(std::string_view text) {
    switch (way_) {
      case Way::kDirect:
        return write(STDERR_FILENO, text.data(), text.size());
      case Way::kSocket:
        return send(STDERR_FILENO, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
      case Way::kOwn:
        return write(ownFd_, text.data(), text.size());
      case Way::kRelayed:
        return write(relay_.Fd(), text.data(), text.size());
      case Way::kUnknown:
        break;
    }
    errno = EBADF;
    return -1;
  }

  bool Write(std::string_view text, const Deadline &deadline) {
    bool again = false;
    while (!text.empty()) {
      const ssize_t written = WriteSome(text);
      if (written >= 0) {
        midLine_ = midLine_ || written > 0;
        again = false;
        text.remove_prefix(static_cast<size_t>(written));
        continue;
      }
      if (errno == EINTR) continue;
      const int left = deadline.Left();
      if ((errno != EAGAIN && errno != ENOBUFS) || left == 0) return false;
      pollfd room{way_ == Way::kOwn ? ownFd_ : way_ == Way::kRelayed ? relay_.Fd() : STDERR_FILENO, POLLOUT, 0};
      poll(&room, 1, left);
      if (again) Pause();  // there is room, and yet not for us
      again = true;
    }
    return true;
  }

  Way way_ = Way::kUnknown;
  int ownFd_ = -1;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  bool midLine_ = false;  ///< half a line was written
  Relay relay_;
};

/// Guards `Output`. Waiting for it counts as waiting for room; nothing nests in it.
std::atomic_flag outputBusy;
Stall stall;

Output &TheOutput() {
  static base::Immortal<Output> output;  // threads may log while the process exits
  return *output;
}

bool TakeOutput(const Deadline &deadline) {
  while (outputBusy.test_and_set(std::memory_order_acquire)) {
    if (deadline.Left() == 0) return false;
    Pause();
  }
  return true;
}

bool WriteShowable(std::string_view line) {
  const bool mayWait = stall.MayWait();
  const Deadline deadline(mayWait);
  bool written = false;
  if (TakeOutput(deadline)) {
    Output &output = TheOutput();
    written = output.Refresh() && output.WriteLine(line, deadline);
    outputBusy.clear(std::memory_order_release);
  }
  stall.Note(written, mayWait);
  return written;
}

}  // namespace
}  // namespace hosted

bool Hyk_WriteStandardError(const char *text, size_t size) {
  const int error = errno;
  std::string_view line(text, size);
  if (line.ends_with('\n')) line.remove_suffix(1);
  bool written = false;
  if (line.size() < size && base::ShowablePrefix(line) == line.size()) {
    written = hosted::WriteShowable({text, size});
  } else {
    try {
      std::string showable;
      base::AppendForTerminal(line, &showable);
      written = hosted::WriteShowable(showable += '\n');
    } catch (const std::bad_alloc &) {  // it counts as dropped
    }
  }
  errno = error;
  return written;
}
