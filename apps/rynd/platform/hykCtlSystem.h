// Kernel control: the host's system swap. Declarations only; a platform library provides them. Any thread.
#pragma once

#include <cstdint>

namespace HykCtl::System {

class SwapInfoImpl {
 public:
  /// Configure the system swap anew from the host's settings; both arguments are 0 for all of them. Blocks until it is
  /// done. Throws HostMgmt::Lib::HostMgmtException when it fails.
  void ReconfigureSysSwap(uint32_t options, uint32_t flags) const;
};

}  // namespace HykCtl::System
