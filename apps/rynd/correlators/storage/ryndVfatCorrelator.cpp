// The VFAT correlator: reports VFAT file systems that run full, the host's scratch partition by that name, each once in
// 300 seconds. Its agent's thread.
#include <string>

#include "core/agents/runner.h"
#include "core/basics/clock.h"
#include "core/basics/hostFolders.h"
#include "correlators/rows/defaultHandlers.h"
#include "correlators/storage/alarmLimiter.h"
#include "correlators/storage/storageCorrelators.h"

namespace rynd {
namespace {

constexpr EventMessage kScratchFull = {
    kProblem,
    "@&!*@*@(amb.problem.vfat.filesystem.full.scratch)The host's scratch partition, which is the VFAT filesystem %s "
    "(UUID %s), is full."};
constexpr EventMessage kOtherFull = {
    kProblem, "@&!*@*@(amb.problem.vfat.filesystem.full.other)The VFAT filesystem %s (UUID %s) is full."};
constexpr EventMessage kVfatMessages[] = {kScratchFull, kOtherFull};

/// The last component of what the scratch link leads to; of the link itself when it can't be read.
std::string ScratchName() {
  const std::string path = ScratchTarget();
  return path.substr(path.rfind('/') + 1);  // none: npos + 1 is the whole text
}

void OnFileSystemFull(Observation *observation) {
  static AlarmLimiter &limiter = *new AlarmLimiter;  // outlives its thread
  const char *fileSystem = nullptr;
  const char *uuid = nullptr;
  if (Ryn_GetArgs(observation, "%p %p", &fileSystem, &uuid) != 0) return;
  if (!limiter.Pass(AsKey(uuid), WindowClockS())) return;
  if (uuid != nullptr && ScratchName() == uuid) {
    PostMessage<kScratchFull>(fileSystem, uuid);
  } else {
    PostMessage<kOtherFull>(fileSystem, uuid);
  }
}

}  // namespace

std::span<const EventMessage> VfatMessages() {
  return kVfatMessages;
}

HandlerTable VfatHandlers() {
  HandlerTable table;
  table["ryn.vfat.filesystem.full"] = OnFileSystemFull;
  return table;
}

void RyndVfatCorrelator() {
  RunCorrelator("Vfat", "vfat", LogNoCorrelator, VfatHandlers());
}

}  // namespace rynd
