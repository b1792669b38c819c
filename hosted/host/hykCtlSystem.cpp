// The system swap of the host tree: storage/swap/reconfigure holds the error that its reconfiguration fails with. Any
// thread.
#include "platform/hykCtlSystem.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "hosted/host/actionsLog.h"
#include "hosted/host/hostTree.h"
#include "platform/hostMgmt.h"

namespace HykCtl::System {

void SwapInfoImpl::ReconfigureSysSwap(uint32_t /*options*/, uint32_t /*flags*/) const {
  std::string failure;
  int error = hosted::ReadHostText("storage/swap/reconfigure", &failure);
  if (error == 0) throw HostMgmt::Lib::HostMgmtException(failure);
  if (error == ENOENT) error = hosted::RecordAction("storage/swap/reconfigure", {});
  if (error == 0) return;
  throw HostMgmt::Lib::HostMgmtException(std::string("cannot reconfigure the system swap: ") + std::strerror(error));
}

}  // namespace HykCtl::System
