// A wall clock for one process that a test can set: preloaded into the daemon, it adds the nanoseconds that stand in
// the file RYND_CLOCK_FILE to what the kernel says. Any thread.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <ctime>

namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;

/// The file's nanoseconds; null when there is none.
const std::atomic<int64_t> *Offset() {
  static const std::atomic<int64_t> *const offset = []() -> const std::atomic<int64_t> * {
    const char *path = getenv("RYND_CLOCK_FILE");
    const int fd = path == nullptr ? -1 : open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return nullptr;
    void *shared = mmap(nullptr, sizeof(int64_t), PROT_READ, MAP_SHARED, fd, 0);
    close(fd);
    return shared == MAP_FAILED ? nullptr : static_cast<const std::atomic<int64_t> *>(shared);
  }();
  return offset;
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec *now) {
  const int status = static_cast<int>(syscall(SYS_clock_gettime, clock, now));
  if (status != 0 || (clock != CLOCK_REALTIME && clock != CLOCK_REALTIME_COARSE) || Offset() == nullptr) return status;
  const int64_t ns = int64_t{now->tv_sec} * kNsPerSecond + now->tv_nsec + *Offset();
  *now = {ns / kNsPerSecond, ns % kNsPerSecond};
  return 0;
}
