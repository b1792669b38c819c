// Asks the device mapper about multipath devices, which takes a right that this program gives up: in a process of its
// own that keeps it and does nothing else. One thread each.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

#include "base/uniqueFd.h"
#include "models/storage/dmDevice.h"

namespace rynlinuxd {

/// One question is under way at a time.
class DmReader {
 public:
  /// What is said of the device with this number; nothing when it is no multipath device.
  using Take = std::function<void(const std::string &number, const std::optional<DmDevice> &device)>;

  ~DmReader();
  /// Start the process. 0; or an errno value and in `reason` what is missing.
  int Start(std::string *reason);
  int Descriptor() const { return socket_.Get(); }
  /// Ask about one device, or with "" about all there are, which ends with an answer for the number "". False when it
  /// can't be asked now.
  bool Ask(const std::string &number);
  bool IsBusy() const { return isBusy_; }
  /// Hand on what was answered. False when the process has ended, which ends the asking for good.
  bool Receive(const Take &take);

 private:
  base::UniqueFd socket_;
  pid_t process_ = -1;
  bool isBusy_ = false;
};

}  // namespace rynlinuxd
