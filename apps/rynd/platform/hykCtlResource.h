// Kernel control: virtual machines by world id. Declarations only; a platform library provides them. Any thread; an
// object belongs to one at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace HykCtl::Resource {

/// One running virtual machine. Failures throw HostMgmt::Lib::HostMgmtException.
class VirtualMachine {
 public:
  VirtualMachine(int64_t worldId, std::string name);
  const std::string &GetName() const { return name_; }
  /// Kill the virtual machine; `mode` 0 is the one that there is.
  void Kill(int mode) const;

 private:
  int64_t worldId_;
  std::string name_;
};

class ResourceInfoImpl {
 public:
  /// Never null: throws HostMgmt::Lib::HostMgmtException when no virtual machine has that id, or it can't be read.
  std::unique_ptr<VirtualMachine> GetVirtualMachineByWorldId(int64_t worldId) const;
};

}  // namespace HykCtl::Resource
