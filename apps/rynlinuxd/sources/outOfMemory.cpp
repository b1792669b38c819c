// Programs that the kernel killed for want of memory: its log, of which only its own records count. Needs CAP_SYSLOG
// where the log is not for everybody.
#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "base/uniqueFd.h"
#include "hosted/log/log.h"
#include "models/kernelLog.h"
#include "sources/sources.h"

namespace rynlinuxd {
namespace {

class OutOfMemory : public Source {
 public:
  const char *Name() const override { return "oom"; }

  int Start(Host *host, int64_t /*nowNs*/, std::string *reason) override {
    host_ = host;
    *reason = "/dev/kmsg cannot be read: it needs CAP_SYSLOG";
    log_.Reset(open("/dev/kmsg", O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!log_ || lseek(log_.Get(), 0, SEEK_END) < 0) return errno;
    // Of those who may not the first read would tell.
    std::array<char, 8192> record;
    if (read(log_.Get(), record.data(), record.size()) < 0 && errno != EAGAIN && errno != EPIPE) return errno;
    return host->Watch(log_.Get(), EPOLLIN);
  }

  void Ready(int /*fd*/, uint32_t /*events*/, int64_t /*nowNs*/) override {
    std::array<char, 8192> record;
    // Others are served in between.
    constexpr int kMostRecords = 256;
    for (int i = 0; i < kMostRecords; ++i) {
      const ssize_t got = read(log_.Get(), record.data(), record.size());
      if (got < 0 && errno == EPIPE) {
        hosted::Log("Records of the kernel's log were overwritten: a kill for want of memory may go untold.");
        continue;
      }
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) return;
      if (const auto kill = ParseOomKill({record.data(), static_cast<size_t>(got)})) {
        host_->Tell(External(Severity::kError, kill->name,
                             "process " + std::to_string(kill->process) + " was killed: " +
                                 (kill->isOfGroup ? "its control group is" : "the host is") + " out of memory"));
      }
    }
  }

 private:
  Host *host_ = nullptr;
  base::UniqueFd log_;
};

}  // namespace

std::unique_ptr<Source> MakeOutOfMemory() {
  return std::make_unique<OutOfMemory>();
}

}  // namespace rynlinuxd
