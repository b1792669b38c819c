// Network cards whose driver sends nothing any more: sysfs, polled, and looked at whenever links change, since the
// driver then sets the card up anew. Needs no right.
#include "models/network/txTimeouts.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <cerrno>

#include "loop/options.h"
#include "sources/routeSocket.h"
#include "sources/sources.h"

namespace rynlinuxd {
namespace {

constexpr char kLinks[] = "/sys/class/net";
/// Of one burst of changes.
constexpr int64_t kGatherNs = kSecondNs / 10, kQuietNs = 2 * kSecondNs;
constexpr int kBufferSize = 4096;

class Timeouts : public Source {
 public:
  const char *Name() const override { return "tx-timeouts"; }

  int Start(Host *host, int64_t nowNs, std::string *reason) override {
    *reason = std::string(kLinks) + " is not there";
    if (access(kLinks, R_OK | X_OK) != 0) return errno;
    *reason = "no rtnetlink socket";
    if (const int error = changes_.Open(RTMGRP_LINK, kBufferSize); error != 0) return error;
    pollNs_ = host->GetOptions().pollS * kSecondNs;
    model_ = std::make_unique<TxTimeouts>(kLinks, host->GetOptions().nics, host);
    OnDue(nowNs);
    return host->Watch(changes_.Descriptor(), EPOLLIN);
  }

  void Ready(int /*fd*/, uint32_t /*events*/, int64_t nowNs) override {
    // Lost or not: something has changed.
    changes_.Receive([](std::span<const std::byte>) {});
    dueNs_ = std::min(dueNs_, std::max(nowNs + kGatherNs, lookNs_ + kQuietNs));
  }
  int64_t Due() const override { return dueNs_; }
  void OnDue(int64_t nowNs) override {
    if (nowNs < dueNs_ && dueNs_ != kNever) return;
    lookNs_ = nowNs;
    dueNs_ = nowNs + pollNs_;
    model_->Look();
  }

 private:
  RouteSocket changes_;
  std::unique_ptr<TxTimeouts> model_;
  int64_t pollNs_ = 0, dueNs_ = kNever, lookNs_ = -kQuietNs;
};

}  // namespace

std::unique_ptr<Source> MakeTxTimeouts() {
  return std::make_unique<Timeouts>();
}

}  // namespace rynlinuxd
