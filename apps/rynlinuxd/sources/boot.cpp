// How the last boot ended: the ledger. Needs no right.
#include "sources/sources.h"

namespace rynlinuxd {
namespace {

class Boot : public Source {
 public:
  const char *Name() const override { return "boot"; }

  int Start(Host *host, int64_t /*nowNs*/, std::string * /*reason*/) override {
    const Ledger &ledger = host->GetLedger();
    // Every stop in good order is told to this program. One that was killed, and not started again before the host was
    // stopped, is taken for the same: it says no more than that.
    if (ledger.IsNewBoot() && ledger.Previous() == Ledger::Run::kRunning) {
      host->Tell(
          External(Severity::kError, "host",
                   "the last boot ended without a stop in good order: power was lost, the kernel crashed, or the "
                   "host was reset"));
    }
    return 0;
  }
};

}  // namespace

std::unique_ptr<Source> MakeBoot() {
  return std::make_unique<Boot>();
}

}  // namespace rynlinuxd
