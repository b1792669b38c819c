// Disks that come and go: the kernel's messages about block devices, and sysfs. Needs no right.
#include <sys/epoll.h>
#include <sys/stat.h>

#include <cerrno>

#include "hosted/log/log.h"
#include "models/storage/diskModel.h"
#include "sources/sources.h"
#include "sources/ueventSocket.h"

namespace rynlinuxd {
namespace {

class Disks : public Source {
 public:
  const char *Name() const override { return "disks"; }

  int Start(Host *host, int64_t nowNs, std::string *reason) override {
    *reason = "/sys/block is not there";
    struct stat status {};
    if (stat("/sys/block", &status) != 0) return errno;
    model_ = std::make_unique<DiskModel>("/sys", &host->GetLedger(), host);
    *reason = "the kernel's messages about devices cannot be heard";
    if (const int error = socket_.Open(); error != 0) return error;
    model_->Look(nowNs);
    return host->Watch(socket_.Descriptor(), EPOLLIN);
  }

  void Ready(int /*fd*/, uint32_t /*events*/, int64_t nowNs) override {
    if (socket_.Receive([this](const Uevent &event) { model_->Change(event); })) return;
    hosted::Log("Messages about devices were lost: looking at all disks anew.");
    model_->Look(nowNs);
  }

  int64_t Due() const override { return model_->Due(); }
  void OnDue(int64_t nowNs) override { model_->OnDue(nowNs); }

 private:
  UeventSocket socket_;
  std::unique_ptr<DiskModel> model_;
};

}  // namespace

std::unique_ptr<Source> MakeDisks() {
  return std::make_unique<Disks>();
}

}  // namespace rynlinuxd
