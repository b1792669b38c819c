// Bonds in mode 802.3ad: the kernel's link messages (rtnetlink), and a look at all of them every 10 seconds while there
// is such a bond, since that a partner fell silent is not always told. Needs no right.
#include <linux/rtnetlink.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "loop/options.h"
#include "models/linkMessage.h"
#include "models/network/bondModel.h"
#include "sources/routeSocket.h"
#include "sources/sources.h"

namespace rynlinuxd {
namespace {

constexpr int64_t kLookNs = 10 * kSecondNs;

class Bonds : public Source {
 public:
  const char *Name() const override { return "bonds"; }

  int Start(Host *host, int64_t nowNs, std::string *reason) override {
    model_ = std::make_unique<BondModel>(&host->GetLedger(), host);
    *reason = "no rtnetlink socket";
    if (const int error = socket_.Open(RTMGRP_LINK, host->GetOptions().netlinkBuffer); error != 0) return error;
    *reason = "the links cannot be read";
    if (const int error = Look(nowNs); error != 0) return error;
    return host->Watch(socket_.Descriptor(), EPOLLIN);
  }

  void Ready(int /*fd*/, uint32_t /*events*/, int64_t nowNs) override {
    const bool isWhole = socket_.Receive([&](std::span<const std::byte> datagram) {
      for (const BondFacts &facts : ParseBondDatagram(datagram).links) model_->Change(facts, nowNs);
    });
    // One that was told of while messages were lost may be the first.
    if (!isWhole) isLost_ = true;
  }

  int64_t Due() const override {
    return std::min(model_->Due(), isLost_ || model_->HasBonds() ? lookNs_ + kLookNs : kNever);
  }
  void OnDue(int64_t nowNs) override {
    if (nowNs >= lookNs_ + kLookNs && (isLost_ || model_->HasBonds())) Look(nowNs);
    model_->OnDue(nowNs);
  }
  void Retell(int64_t nowNs) override { model_->Retell(nowNs); }

 private:
  int Look(int64_t nowNs) {
    lookNs_ = nowNs;
    std::vector<BondFacts> links;
    const int error = socket_.ReadAll(LinkDumpRequest(1), [&](std::span<const std::byte> datagram) {
      BondDatagram parsed = ParseBondDatagram(datagram);
      for (BondFacts &facts : parsed.links) links.push_back(std::move(facts));
      return parsed.end;
    });
    // Of several moments a port may be missing: the next look makes up for it.
    if (error == EINTR) isLost_ = true;
    if (error != 0) return error == EINTR ? 0 : error;
    isLost_ = false;
    model_->Replace(links, nowNs);
    return 0;
  }

  RouteSocket socket_;
  std::unique_ptr<BondModel> model_;
  bool isLost_ = false;
  int64_t lookNs_ = 0;
};

}  // namespace

std::unique_ptr<Source> MakeBonds() {
  return std::make_unique<Bonds>();
}

}  // namespace rynlinuxd
