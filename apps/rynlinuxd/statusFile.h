// What rynctl is told of the sources: a small file beside the ledger. One thread.
#pragma once

#include <string>
#include <vector>

#include "base/uniqueFd.h"
#include "loop/eventLoop.h"

namespace rynlinuxd {

constexpr char kFolder[] = "/var/lib/corvane/linux";

/// Held while the program runs, so that there is one at a time and others see that there is.
class RunLock {
 public:
  /// 0; EWOULDBLOCK when another process holds it; or another errno value.
  int Take();

 private:
  base::UniqueFd file_;
};

/// Write `status.json`: of each source "watching" or the reason why not. 0 or an errno value.
int WriteStatus(const std::vector<SourceState> &states);

/// "watching", or the reason and the error.
std::string StateText(const SourceState &state);

}  // namespace rynlinuxd
