// Kernel control: advanced options. Declarations only; a platform library provides them. Any thread; an object belongs
// to one at a time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace HykCtl::Adv {

/// One integer option, such as "LinkFlappingThreshold" of the path {"Net"}.
class AdvancedIntegerOptionImpl {
 public:
  AdvancedIntegerOptionImpl(std::vector<std::string> path, std::string name);
  /// The current value. Throws HostMgmt::Lib::HostMgmtException when it can't be read or is not within 32 bits.
  uint32_t GetValue() const;

 private:
  std::vector<std::string> path_;
  std::string name_;
};

}  // namespace HykCtl::Adv
