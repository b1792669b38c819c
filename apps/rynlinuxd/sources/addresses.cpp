// Addresses of IPv6 that another host has too: the kernel's messages about addresses (rtnetlink), and its log, which
// says who. Needs CAP_SYSLOG where the log is not for everybody.
#include <net/if.h>
#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "hosted/log/log.h"
#include "loop/options.h"
#include "models/network/addressModel.h"
#include "sources/kernelLog.h"
#include "sources/routeSocket.h"
#include "sources/sources.h"

namespace rynlinuxd {
namespace {

constexpr int64_t kDumpQuietNs = 10 * kSecondNs;

std::string NameOf(int32_t index) {
  std::array<char, IFNAMSIZ> name{};
  return if_indextoname(static_cast<unsigned>(index), name.data()) == nullptr ? "" : name.data();
}

class Addresses : public Source {
 public:
  const char *Name() const override { return "addresses"; }

  int Start(Host *host, int64_t nowNs, std::string *reason) override {
    if (const int error = log_.Open(reason); error != 0) return error;
    model_ = std::make_unique<AddressModel>(host);
    *reason = "no rtnetlink socket";
    if (const int error = socket_.Open(RTMGRP_IPV6_IFADDR, host->GetOptions().netlinkBuffer); error != 0) return error;
    *reason = "the addresses cannot be read";
    if (const int error = Dump(true, nowNs); error != 0) return error;
    if (const int error = host->Watch(log_.Descriptor(), EPOLLIN); error != 0) return error;
    return host->Watch(socket_.Descriptor(), EPOLLIN);
  }

  void Ready(int /*fd*/, uint32_t /*events*/, int64_t nowNs) override {
    // The kernel writes into its log first.
    log_.Receive([&](std::string_view record) {
      if (const auto line = ParseDuplicateLine(record)) model_->TakeLine(*line, nowNs);
    });
    const bool isWhole = socket_.Receive([&](std::span<const std::byte> datagram) {
      for (const AddressFacts &facts : ParseAddressDatagram(datagram).addresses) Take(facts, false, nowNs);
    });
    if (!isWhole) lostNs_ = std::max(nowNs, dumpNs_ + kDumpQuietNs);
  }

  int64_t Due() const override { return std::min(model_->Due(), lostNs_); }
  void OnDue(int64_t nowNs) override {
    model_->OnDue(nowNs);
    if (nowNs < lostNs_) return;
    lostNs_ = kNever;
    hosted::Log("Messages about addresses were lost: reading all of them anew.");
    if (const int error = Dump(false, nowNs); error != 0) {
      hosted::Log("Cannot read the addresses anew: %s", std::strerror(error));
      lostNs_ = nowNs + kDumpQuietNs;
    }
  }
  void Retell(int64_t /*nowNs*/) override { model_->Retell(); }

 private:
  void Take(const AddressFacts &facts, bool isBaseline, int64_t nowNs) {
    const std::string link = facts.isDuplicate ? NameOf(facts.index) : "";
    // Gone while it was told of. That what was told has ended is said without its name.
    if (facts.isDuplicate && !facts.isGone && link.empty()) return;
    model_->Change(facts, link, isBaseline, nowNs);
  }

  int Dump(bool isBaseline, int64_t nowNs) {
    dumpNs_ = nowNs;
    std::vector<AddressFacts> all;
    const int error = socket_.ReadAll(AddressDumpRequest(1), [&](std::span<const std::byte> datagram) {
      AddressDatagram parsed = ParseAddressDatagram(datagram);
      for (AddressFacts &facts : parsed.addresses) all.push_back(std::move(facts));
      return parsed.end;
    });
    if (error != 0 && error != EINTR) return error;
    for (AddressFacts known : model_->Duplicates()) {
      known.isGone = std::none_of(all.begin(), all.end(), [&](const AddressFacts &facts) {
        return facts.index == known.index && facts.address == known.address;
      });
      if (known.isGone) Take(known, false, nowNs);
    }
    for (const AddressFacts &facts : all) Take(facts, isBaseline, nowNs);
    return 0;
  }

  KernelLog log_;
  RouteSocket socket_;
  std::unique_ptr<AddressModel> model_;
  int64_t dumpNs_ = 0, lostNs_ = kNever;
};

}  // namespace

std::unique_ptr<Source> MakeAddresses() {
  return std::make_unique<Addresses>();
}

}  // namespace rynlinuxd
