// Links and ports of bridges: the kernel's link messages (rtnetlink). Needs no right.
#include <sys/epoll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "hosted/host/hostTree.h"
#include "hosted/log/log.h"
#include "loop/options.h"
#include "models/linkModel.h"
#include "sources/routeSocket.h"
#include "sources/sources.h"

namespace rynlinuxd {
namespace {

/// Between two readings of all links because messages were lost.
constexpr int64_t kDumpQuietNs = 10 * kSecondNs;

class Links : public Source {
 public:
  const char *Name() const override { return "links"; }

  int Start(Host *host, int64_t nowNs, std::string *reason) override {
    const Options &options = host->GetOptions();
    isDry_ = options.dryRun;
    model_ = std::make_unique<LinkModel>(options.nics, host);
    if (const int error = socket_.Open(RTMGRP_LINK, options.netlinkBuffer); error != 0) {
      *reason = "no rtnetlink socket";
      return error;
    }
    if (const int error = Dump(nowNs); error != 0) {
      *reason = "the links cannot be read";
      return error;
    }
    return host->Watch(socket_.Descriptor(), EPOLLIN);
  }

  void Ready(int /*fd*/, uint32_t /*events*/, int64_t nowNs) override {
    // What is left in the queue was read first; all of it is older than the reading of all links.
    const bool isWhole = socket_.Receive([&](std::span<const std::byte> datagram) { Take(datagram, nowNs); });
    isLost_ = isLost_ || !isWhole;
    if (isLost_ && nowNs >= dumpNs_ + kDumpQuietNs) OnDue(nowNs);
    RemoveGoneBridges();
  }

  int64_t Due() const override { return isLost_ ? std::min(model_->Due(), dumpNs_ + kDumpQuietNs) : model_->Due(); }

  void OnDue(int64_t nowNs) override {
    if (isLost_ && nowNs >= dumpNs_ + kDumpQuietNs) {
      isLost_ = false;
      hosted::Log("Link messages were lost: reading all links anew.");
      if (const int error = Dump(nowNs); error != 0) {
        isLost_ = true;
        hosted::Log("Cannot read the links anew: %s", std::strerror(error));
      }
    }
    model_->OnDue(nowNs);
    RemoveGoneBridges();
  }

  void Retell(int64_t /*nowNs*/) override { model_->Retell(); }

 private:
  void Take(std::span<const std::byte> datagram, int64_t nowNs) {
    for (const LinkFacts &facts : ParseLinkDatagram(datagram).links) model_->Change(facts, nowNs);
  }

  /// Read all links. 0 or an errno value.
  int Dump(int64_t nowNs) {
    dumpNs_ = nowNs;
    constexpr int kMostTries = 5;
    std::vector<LinkFacts> links;
    int error = EINTR;
    for (int i = 0; i < kMostTries && error == EINTR; ++i) {
      links.clear();
      error = socket_.ReadAll(LinkDumpRequest(1), [&](std::span<const std::byte> datagram) {
        LinkDatagram parsed = ParseLinkDatagram(datagram);
        for (LinkFacts &facts : parsed.links) links.push_back(std::move(facts));
        return parsed.end;
      });
    }
    // Of several moments is better than nothing.
    if (error != 0 && error != EINTR) return error;
    model_->Replace(links, nowNs);
    return 0;
  }

  void RemoveGoneBridges() {
    for (const std::string &bridge : model_->TakeGoneBridges()) {
      if (isDry_) continue;
      const std::string path = "net/portgroups/" + hosted::HostComponent(bridge.c_str());
      std::string held;
      // Somebody else's file is left alone.
      if (hosted::ReadHostText(path, &held) == 0 && held == bridge) unlink(hosted::HostTreePath(path).c_str());
    }
  }

  RouteSocket socket_;
  std::unique_ptr<LinkModel> model_;
  bool isLost_ = false;
  bool isDry_ = false;
  int64_t dumpNs_ = 0;
};

}  // namespace

std::unique_ptr<Source> MakeLinks() {
  return std::make_unique<Links>();
}

}  // namespace rynlinuxd
