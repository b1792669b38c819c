// The system swap correlator: reports a swap file whose datastore is permanently lost, and configures the system swap
// anew when the kernel has removed it.
#include "core/agents/runner.h"
#include "correlators/rows/defaultHandlers.h"
#include "correlators/rows/volumeOfPath.h"
#include "correlators/storage/storageCorrelators.h"
#include "platform/hostMgmt.h"
#include "platform/hykCtlSystem.h"

namespace rynd {
namespace {

constexpr EventMessage kCannotRemove = {
    kProblem,
    "@&!*@*@(amb.problem.swap.systemSwap.isPDL.cannot.remove.2)System swap on %s is affected by PDL but cannot be "
    "removed."};
constexpr EventMessage kReconfigureFailed = {
    kProblem,
    "@&!*@*@(amb.problem.swap.systemSwap.isPDL.removed.reconfig.failure.2)System swap on %s was affected by PDL. It "
    "was removed but the subsequent reconfiguration failed."};
constexpr EventMessage kSwapMessages[] = {kCannotRemove, kReconfigureFailed};

void OnCannotRemove(Observation *observation) {
  const char *path = nullptr;
  if (Ryn_GetStringArg(observation, 0, &path) != 0) return;
  Log("System swap at path %s is affected by the Permanent Device Loss of its datastore but cannot be removed.", path);
  PostMessage<kCannotRemove>(VolumeOfPath(path).c_str());
}

void OnRemoved(Observation *observation) {
  // The swap has to be configured anew wherever it was.
  const char *path = nullptr;
  if (Ryn_GetStringArg(observation, 0, &path) != 0) path = nullptr;
  Log("System swap at path %s was affected by the Permanent Device Loss of its datastore and was removed.", path);
  try {
    HykCtl::System::SwapInfoImpl().ReconfigureSysSwap(0, 0);
    Log("System swap at path %s was affected by the PDL of its datastore and was removed. System swap has been "
        "reconfigured.",
        path);
  } catch (const HostMgmt::Lib::HostMgmtException &failure) {
    PostMessage<kReconfigureFailed>(VolumeOfPath(path).c_str());
    Log("%s", failure.GetDetailedMessage().c_str());
  }
}

}  // namespace

std::span<const EventMessage> SwapMessages() {
  return kSwapMessages;
}

HandlerTable SwapHandlers() {
  HandlerTable table;
  table["ryn.swap.systemSwap.isPDL.cannot.remove"] = OnCannotRemove;
  table["ryn.swap.systemSwap.isPDL.removed"] = OnRemoved;
  return table;
}

void RyndSwapCorrelator() {
  RunCorrelator("SWAP", "swap", LogNoCorrelator, SwapHandlers());
}

}  // namespace rynd
