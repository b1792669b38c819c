// The virtual machines of the host tree: vms/WORLDID holds a name. Any thread.
#include "platform/hykCtlResource.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "hosted/host/actionsLog.h"
#include "hosted/host/hostTree.h"
#include "platform/hostMgmt.h"

namespace HykCtl::Resource {
namespace {

[[noreturn]] void Fail(const char *operation, int64_t worldId, int error) {
  throw HostMgmt::Lib::HostMgmtException(std::string("cannot ") + operation + " the virtual machine of world " +
                                         std::to_string(worldId) + ": " + std::strerror(error));
}

}  // namespace

VirtualMachine::VirtualMachine(int64_t worldId, std::string name) : worldId_(worldId), name_(std::move(name)) {}

void VirtualMachine::Kill(int mode) const {
  const int error = mode == 0 ? hosted::RecordAction("vm/kill", {worldId_}) : EINVAL;
  if (error != 0) Fail("kill", worldId_, error);
}

std::unique_ptr<VirtualMachine> ResourceInfoImpl::GetVirtualMachineByWorldId(int64_t worldId) const {
  std::string name;
  const int error = hosted::ReadHostText("vms/" + std::to_string(worldId), &name);
  if (error != 0) Fail("find", worldId, error);
  return std::make_unique<VirtualMachine>(worldId, std::move(name));
}

}  // namespace HykCtl::Resource
