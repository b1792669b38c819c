// The kernel's log from now on, record by record. Needs CAP_SYSLOG where it is not for everybody. One thread.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "base/uniqueFd.h"

namespace rynlinuxd {

class KernelLog {
 public:
  /// 0; or an errno value and in `reason` what is missing.
  int Open(std::string *reason);
  int Descriptor() const { return log_.Get(); }
  /// Hand on what has come, some hundred records at most. False when some were overwritten before they were read.
  bool Receive(const std::function<void(std::string_view)> &take);

 private:
  base::UniqueFd log_;
};

}  // namespace rynlinuxd
