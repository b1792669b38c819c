#include "sources/kernelLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace rynlinuxd {

int KernelLog::Open(std::string *reason) {
  *reason = "/dev/kmsg cannot be read: it needs CAP_SYSLOG";
  log_.Reset(open("/dev/kmsg", O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!log_ || lseek(log_.Get(), 0, SEEK_END) < 0) return errno;
  // Of those who may not the first read would tell.
  std::array<char, 8192> record;
  return read(log_.Get(), record.data(), record.size()) < 0 && errno != EAGAIN && errno != EPIPE ? errno : 0;
}

bool KernelLog::Receive(const std::function<void(std::string_view)> &take) {
  std::array<char, 8192> record;
  bool isWhole = true;
  // Others are served in between.
  constexpr int kMostRecords = 256;
  for (int i = 0; i < kMostRecords; ++i) {
    const ssize_t got = read(log_.Get(), record.data(), record.size());
    if (got < 0 && errno == EPIPE) {
      isWhole = false;
      continue;
    }
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    take({record.data(), static_cast<size_t>(got)});
  }
  return isWhole;
}

}  // namespace rynlinuxd
