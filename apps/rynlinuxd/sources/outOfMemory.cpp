// Programs that the kernel killed for want of memory: its log, of which only its own records count. Needs CAP_SYSLOG
// where the log is not for everybody.
#include <sys/epoll.h>

#include "hosted/log/log.h"
#include "models/kernelLog.h"
#include "sources/kernelLog.h"
#include "sources/sources.h"

namespace rynlinuxd {
namespace {

class OutOfMemory : public Source {
 public:
  const char *Name() const override { return "oom"; }

  int Start(Host *host, int64_t /*nowNs*/, std::string *reason) override {
    host_ = host;
    if (const int error = log_.Open(reason); error != 0) return error;
    return host->Watch(log_.Descriptor(), EPOLLIN);
  }

  void Ready(int /*fd*/, uint32_t /*events*/, int64_t /*nowNs*/) override {
    const bool isWhole = log_.Receive([this](std::string_view record) {
      if (const auto kill = ParseOomKill(record)) {
        host_->Tell(External(Severity::kError, kill->name,
                             "process " + std::to_string(kill->process) + " was killed: " +
                                 (kill->isOfGroup ? "its control group is" : "the host is") + " out of memory"));
      }
    });
    if (!isWhole) hosted::Log("Records of the kernel's log were overwritten: a kill for want of memory may go untold.");
  }

 private:
  Host *host_ = nullptr;
  KernelLog log_;
};

}  // namespace

std::unique_ptr<Source> MakeOutOfMemory() {
  return std::make_unique<OutOfMemory>();
}

}  // namespace rynlinuxd
