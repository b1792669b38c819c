// Arrays of the md driver that lack devices: sysfs, polled. Needs no right.
#include <sys/stat.h>

#include <cerrno>

#include "loop/options.h"
#include "models/raidModel.h"
#include "sources/sources.h"

namespace rynlinuxd {
namespace {

constexpr char kBlocks[] = "/sys/block";

class Raid : public Source {
 public:
  const char *Name() const override { return "raid"; }

  int Start(Host *host, int64_t nowNs, std::string *reason) override {
    *reason = std::string(kBlocks) + " is not there";
    struct stat status {};
    if (stat(kBlocks, &status) != 0) return errno;
    model_ = std::make_unique<RaidModel>(kBlocks, host);
    pollNs_ = host->GetOptions().pollS * kSecondNs;
    OnDue(nowNs);
    return 0;
  }
  int64_t Due() const override { return dueNs_; }
  void OnDue(int64_t nowNs) override {
    dueNs_ = nowNs + pollNs_;
    model_->Look();
  }
  void Retell(int64_t /*nowNs*/) override { model_->Look(); }

 private:
  std::unique_ptr<RaidModel> model_;
  int64_t pollNs_ = 0, dueNs_ = kNever;
};

}  // namespace

std::unique_ptr<Source> MakeRaid() {
  return std::make_unique<Raid>();
}

}  // namespace rynlinuxd
