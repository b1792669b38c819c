// Links and ports of bridges: the kernel's link messages (rtnetlink). Needs no right.
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "base/uniqueFd.h"
#include "hosted/host/hostTree.h"
#include "hosted/log/log.h"
#include "loop/options.h"
#include "models/linkModel.h"
#include "sources/sources.h"

namespace rynlinuxd {
namespace {

/// Between two readings of all links because messages were lost.
constexpr int64_t kDumpQuietNs = 10 * kSecondNs;
/// A message that does not fit is cut; the kernel makes none that long.
constexpr size_t kBuffer = 32768;

/// A netlink socket for link messages of `groups`. 0 or an errno value.
int OpenRoute(uint32_t groups, int flags, base::UniqueFd *out) {
  base::UniqueFd fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | flags, NETLINK_ROUTE));
  if (!fd) return errno;
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = groups;
  if (bind(fd.Get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) return errno;
  *out = std::move(fd);
  return 0;
}

class Links : public Source {
 public:
  const char *Name() const override { return "links"; }

  int Start(Host *host, int64_t nowNs, std::string *reason) override {
    const Options &options = host->GetOptions();
    isDry_ = options.dryRun;
    model_ = std::make_unique<LinkModel>(options.nics, host);
    if (const int error = OpenRoute(RTMGRP_LINK, SOCK_NONBLOCK, &socket_); error != 0) {
      *reason = "no rtnetlink socket";
      return error;
    }
    setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVBUF, &options.netlinkBuffer, sizeof options.netlinkBuffer);
    if (const int error = Dump(nowNs); error != 0) {
      *reason = "the links cannot be read";
      return error;
    }
    return host->Watch(socket_.Get(), EPOLLIN);
  }

  void Ready(int /*fd*/, uint32_t /*events*/, int64_t nowNs) override {
    // Others are served in between, and a flood still gets its buffer emptied.
    constexpr int kMostReads = 256;
    for (int i = 0; i < kMostReads; ++i) {
      sockaddr_nl sender{};
      socklen_t size = sizeof sender;
      const ssize_t got = recvfrom(socket_.Get(), buffer_.data(), buffer_.size(), MSG_DONTWAIT,
                                   reinterpret_cast<sockaddr *>(&sender), &size);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0 && errno == ENOBUFS) {
        // What is left in the queue is read first; all of it is older than the reading of all links.
        isLost_ = true;
        continue;
      }
      if (got < 0) break;
      // Privileged programs may send to this socket too.
      if (sender.nl_pid == 0) Take({buffer_.data(), static_cast<size_t>(got)}, nowNs);
    }
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

  /// Read all links, on a socket of its own: the other one may be full again by now. 0 or an errno value.
  int Dump(int64_t nowNs) {
    dumpNs_ = nowNs;
    constexpr int kMostTries = 5;
    for (int i = 0; i < kMostTries; ++i) {
      std::vector<LinkFacts> links;
      bool isInterrupted = false;
      if (const int error = ReadAll(&links, &isInterrupted); error != 0) return error;
      if (isInterrupted && i + 1 < kMostTries) continue;
      model_->Replace(links, nowNs);
      return 0;
    }
    return EINTR;
  }

  int ReadAll(std::vector<LinkFacts> *links, bool *isInterrupted) {
    base::UniqueFd socket;
    if (const int error = OpenRoute(0, 0, &socket); error != 0) return error;
    const timeval limit{2, 0};
    setsockopt(socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    const auto request = LinkDumpRequest(1);
    if (send(socket.Get(), request.data(), request.size(), 0) < 0) return errno;
    while (true) {
      const ssize_t got = recv(socket.Get(), buffer_.data(), buffer_.size(), 0);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) return errno;
      LinkDatagram datagram = ParseLinkDatagram({buffer_.data(), static_cast<size_t>(got)});
      if (datagram.error != 0) return datagram.error;
      for (LinkFacts &facts : datagram.links) links->push_back(std::move(facts));
      *isInterrupted = *isInterrupted || datagram.isInterrupted;
      if (datagram.isDone) return 0;
    }
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

  base::UniqueFd socket_;
  std::unique_ptr<LinkModel> model_;
  std::array<std::byte, kBuffer> buffer_{};
  bool isLost_ = false;
  bool isDry_ = false;
  int64_t dumpNs_ = 0;
};

}  // namespace

std::unique_ptr<Source> MakeLinks() {
  return std::make_unique<Links>();
}

}  // namespace rynlinuxd
