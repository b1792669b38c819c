// Pages of memory out of use: /proc/meminfo, polled. Needs no right.
#include "models/hardware/poisonedPages.h"

#include <unistd.h>

#include <cerrno>

#include "hosted/host/hostTree.h"
#include "loop/options.h"
#include "sink/textFile.h"
#include "sources/sources.h"

namespace rynlinuxd {
namespace {

constexpr char kMemInfo[] = "/proc/meminfo";

class Pages : public Source {
 public:
  const char *Name() const override { return "pages"; }

  int Start(Host *host, int64_t nowNs, std::string *reason) override {
    host_ = host;
    *reason = "the kernel does not count them in " + std::string(kMemInfo);
    if (!Read()) return ENOTSUP;
    model_ = std::make_unique<PoisonedPages>(ReadLine("/proc/sys/kernel/random/boot_id"), host);
    OnDue(nowNs);
    return 0;
  }
  int64_t Due() const override { return dueNs_; }
  void OnDue(int64_t nowNs) override {
    dueNs_ = nowNs + host_->GetOptions().pollS * kSecondNs;
    // As the daemon reads it.
    constexpr int64_t kMost = INT32_MAX;
    int64_t threshold = 1000;
    const int error = hosted::ReadHostInteger("sysinfo/system/pageRetire/threshold", 0, kMost, &threshold);
    const std::optional<uint64_t> kib = Read();
    if (!kib || (error != 0 && error != ENOENT)) return;
    model_->Take(*kib / (static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 1024), threshold);
  }
  void Retell(int64_t nowNs) override { OnDue(nowNs); }

 private:
  static std::optional<uint64_t> Read() {
    constexpr size_t kMost = 65536;
    std::string text;
    if (ReadTextFile(kMemInfo, kMost, &text) != 0) return std::nullopt;
    return ParseCorruptedKib(text);
  }

  Host *host_ = nullptr;
  std::unique_ptr<PoisonedPages> model_;
  int64_t dueNs_ = kNever;
};

}  // namespace

std::unique_ptr<Source> MakePages() {
  return std::make_unique<Pages>();
}

}  // namespace rynlinuxd
