// The kernel's own messages about devices, straight from netlink: udev's come later, only where it runs, and say
// nothing more that is needed here. Needs no right. One thread.
#pragma once

#include <cstdint>
#include <functional>

#include "base/uniqueFd.h"
#include "models/storage/uevent.h"

namespace rynlinuxd {

class UeventSocket {
 public:
  /// 0 or an errno value.
  int Open();
  int Descriptor() const { return socket_.Get(); }
  /// Hand on what has come, some hundred messages at most, of the kernel's alone. False when messages were lost before
  /// these.
  bool Receive(const std::function<void(const Uevent &)> &take);

 private:
  base::UniqueFd socket_;
};

}  // namespace rynlinuxd
